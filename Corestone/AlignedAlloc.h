// Blocks of Kiv::Alloc start just past a 4-byte tag, so they are only 4-byte aligned. Objects
// that hold pointers or system locks need their natural alignment: these take a few spare bytes
// and keep, in the byte just before the aligned address, how far it lies from the block's start.
#pragma once

#include "Alloc.h"

#include <cstddef>
#include <cstdint>
#include <new>

namespace Kiv
{
inline void * NewAligned(size_t size, size_t alignment)
{
    auto * block = static_cast<unsigned char *>(Alloc::New(static_cast<unsigned int>(size + alignment)));
    if (block == nullptr)
    {
        return nullptr;
    }
    const uintptr_t start = reinterpret_cast<uintptr_t>(block) + 1;
    unsigned char * aligned = block + ((start + alignment - 1) & ~(alignment - 1)) - start + 1;
    aligned[-1] = static_cast<unsigned char>(aligned - block);
    return aligned;
}

inline void DeleteAligned(void * aligned)
{
    if (aligned != nullptr)
    {
        auto * bytes = static_cast<unsigned char *>(aligned);
        Alloc::Delete(bytes - bytes[-1]);
    }
}

// Builds an object of T in an aligned block; null when memory is out.
template <typename T, typename... Arguments>
T * NewObject(Arguments &&... arguments)
{
    void * memory = NewAligned(sizeof(T), alignof(T));
    return memory != nullptr ? new (memory) T(static_cast<Arguments &&>(arguments)...) : nullptr;
}

template <typename T>
void DeleteObject(T * object)
{
    if (object != nullptr)
    {
        object->~T();
        DeleteAligned(object);
    }
}
} // namespace Kiv
