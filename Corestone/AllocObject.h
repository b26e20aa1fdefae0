// Objects built in blocks of Kiv::Alloc, whose blocks are aligned like a pointer.
#pragma once

#include "Alloc.h"

#include <new>

namespace Kiv
{
// Builds an object of T in a block of Kiv::Alloc; null when memory is out.
template <typename T, typename... Arguments>
T * NewObject(Arguments &&... arguments)
{
    static_assert(alignof(T) <= alignof(void *), "Kiv::Alloc blocks are only aligned like a pointer");
    void * memory = Alloc::New(sizeof(T));
    return memory != nullptr ? new (memory) T(static_cast<Arguments &&>(arguments)...) : nullptr;
}

template <typename T>
void DeleteObject(T * object)
{
    if (object != nullptr)
    {
        object->~T();
        Alloc::Delete(object);
    }
}
} // namespace Kiv
