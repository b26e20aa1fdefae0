#include "Alloc.h"
#include "MemoryFile.h"
#include "PString.h"
#include "UnicodeString.h"

#include <cstring>

namespace Kiv
{
namespace
{
// Blocks are counted in 32 bits like every size of the buffer.
constexpr uint64_t MaxBytes = UINT32_MAX;
} // namespace

DynamicBuffer::DynamicBuffer(unsigned long initialCapacity, unsigned long initialGranularity)
{
    ReInit(initialCapacity, initialGranularity);
}

DynamicBuffer::DynamicBuffer(void * bytes, unsigned long count, bool isReadOnly)
{
    SetData(bytes, count, isReadOnly);
}

DynamicBuffer::DynamicBuffer(const DynamicBuffer & other)
{
    *this = other;
}

DynamicBuffer & DynamicBuffer::operator=(const DynamicBuffer & other)
{
    if (this == &other)
        return *this;
    SetData(other.data, other.length, other.readOnly);
    granularity = other.granularity;
    position = other.position <= length ? other.position : length;
    return *this;
}

DynamicBuffer::~DynamicBuffer()
{
    Clean();
}

void DynamicBuffer::Free()
{
    if (!readOnly && data != nullptr)
        Alloc::Delete(data);
    data = nullptr;
}

void DynamicBuffer::Clean()
{
    Free();
    position = capacity = length = 0;
    readOnly = false;
}

bool DynamicBuffer::ReInit(unsigned long newCapacity, unsigned long newGranularity)
{
    Clean();
    granularity = newGranularity != 0 && newGranularity <= MaxBytes ? static_cast<uint32_t>(newGranularity)
                                                                    : uint32_t(DEFAULT_GRANULARITY);
    return newCapacity == 0 || Grow(newCapacity);
}

void DynamicBuffer::SetData(void * bytes, unsigned long count, bool isReadOnly)
{
    unsigned char * block = nullptr;
    if (count > MaxBytes)
        count = 0;
    else if (isReadOnly)
        block = static_cast<unsigned char *>(bytes);
    else if (bytes != nullptr && count != 0)
    {
        // Not read-only means owned: a block of the caller's is never adopted, since growing or
        // cleaning would free it. The copy is made before the old block goes, which may be its source.
        block = static_cast<unsigned char *>(Alloc::New(static_cast<unsigned int>(count)));
        if (block != nullptr)
            memcpy(block, bytes, count);
    }
    Free();
    data = block;
    position = 0;
    capacity = length = block != nullptr ? static_cast<uint32_t>(count) : 0;
    granularity = DEFAULT_GRANULARITY;
    readOnly = isReadOnly;
}

void DynamicBuffer::Reset()
{
    position = length = 0;
}

bool DynamicBuffer::AddLength(unsigned long n)
{
    if (readOnly || n <= capacity - position)
        return !readOnly;
    const uint64_t needed = static_cast<uint64_t>(position) + granularity + n - 1;
    return Grow(needed / granularity * granularity);
}

bool DynamicBuffer::Grow(uint64_t newCapacity)
{
    if (newCapacity > MaxBytes)
        return false;
    auto * block = static_cast<unsigned char *>(Alloc::New(static_cast<unsigned int>(newCapacity)));
    if (block == nullptr)
        return false;
    if (capacity != 0)
        memcpy(block, data, capacity);
    Free();
    data = block;
    capacity = static_cast<uint32_t>(newCapacity);
    return true;
}

unsigned long DynamicBuffer::Write(const void * bytes, unsigned long count, unsigned long itemSize)
{
    const uint64_t total = static_cast<uint64_t>(count) * itemSize;
    if (bytes == nullptr || total == 0 || readOnly || total > MaxBytes ||
        !AddLength(static_cast<unsigned long>(total)))
        return 0;
    memcpy(data + position, bytes, static_cast<size_t>(total));
    position += static_cast<uint32_t>(total);
    if (position > length)
        length = position;
    return count;
}

unsigned long DynamicBuffer::Read(void * bytes, unsigned long count, unsigned long itemSize)
{
    const uint64_t wanted = static_cast<uint64_t>(count) * itemSize;
    const uint32_t rest = position < length ? length - position : 0;
    const uint32_t taken = wanted < rest ? static_cast<uint32_t>(wanted) : rest;
    if (taken == 0)
        return 0;
    memcpy(bytes, data + position, taken);
    position += taken;
    return taken;
}

bool DynamicBuffer::Write(const UnicodeString & text)
{
    return text.Write(*this);
}

bool DynamicBuffer::Write(const PString & text)
{
    return text.Write(*this);
}

bool DynamicBuffer::Read(UnicodeString & text)
{
    return text.Read(*this);
}

bool DynamicBuffer::Read(PString & text)
{
    return text.Read(*this);
}

bool DynamicBuffer::Seek(unsigned long newPosition)
{
    const bool inside = newPosition <= capacity;
    position = inside ? static_cast<uint32_t>(newPosition) : capacity;
    return inside;
}

bool DynamicBuffer::SetSize(unsigned long newLength)
{
    const bool inside = newLength <= capacity;
    length = inside ? static_cast<uint32_t>(newLength) : capacity;
    return inside;
}

unsigned int DynamicBuffer::ReadRaw(void * bytes, unsigned int count)
{
    return static_cast<unsigned int>(Read(bytes, count, 1));
}

unsigned int DynamicBuffer::WriteRaw(const void * bytes, unsigned int count)
{
    return static_cast<unsigned int>(Write(bytes, count, 1));
}
} // namespace Kiv
