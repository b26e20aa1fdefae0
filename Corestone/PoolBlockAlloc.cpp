#include "Alloc.h"

#include "PlatformLock.h"

#include <cstddef>
#include <new>

namespace Kiv
{
// Each element starts with one pointer-sized word: the back pointer to its chunk while the element
// is live, the link of the chunk's returned list while it is not. The caller's data follows it.
struct PoolBlockAlloc::Chunk
{
    Chunk * next;
    Chunk * previous;
    uint32_t offset; // from the header back to the start of the raw block
    void ** returned;
    uint32_t returnedCount;
};

namespace
{
constexpr uint32_t linkBytes = sizeof(void *);
constexpr uint32_t headerBytes = sizeof(PoolBlockAlloc::Chunk);

bool IsPowerOfTwo(uint32_t value)
{
    return value >= 1 && (value & (value - 1)) == 0;
}

// Below pointer alignment the link word itself would be misaligned.
uint32_t UsableAlignment(uint32_t alignment)
{
    if (!IsPowerOfTwo(alignment))
        return 8;
    return alignment < alignof(void *) ? uint32_t(alignof(void *)) : alignment;
}

// round-up(size + link, alignment), at least the alignment; 0 when it does not fit 32 bits.
uint32_t StrideOf(uint32_t size, uint32_t alignment)
{
    uint64_t stride = (uint64_t(alignment) + size + linkBytes - 1) & ~uint64_t(alignment - 1);
    if (stride > UINT32_MAX)
        return 0;
    return stride < alignment ? alignment : uint32_t(stride);
}

// 0 when a chunk, with its slack for the alignment, would not fit one request to Kiv::Alloc.
uint32_t ChunkBytesOf(uint32_t stride, uint32_t count, uint32_t alignment)
{
    uint64_t bytes = uint64_t(stride) * count + headerBytes;
    return stride == 0 || bytes + alignment - 1 > UINT32_MAX ? 0 : uint32_t(bytes);
}

void PushFront(PoolBlockAlloc::Chunk *& head, PoolBlockAlloc::Chunk * chunk)
{
    chunk->previous = nullptr;
    chunk->next = head;
    if (head)
        head->previous = chunk;
    head = chunk;
}

void Unlink(PoolBlockAlloc::Chunk *& head, PoolBlockAlloc::Chunk * chunk)
{
    if (chunk->previous)
        chunk->previous->next = chunk->next;
    else
        head = chunk->next;
    if (chunk->next)
        chunk->next->previous = chunk->previous;
}

char * ElementsOf(PoolBlockAlloc::Chunk * chunk)
{
    return reinterpret_cast<char *>(chunk) + headerBytes;
}

void * UserPointerOf(void ** element, PoolBlockAlloc::Chunk * chunk)
{
    *element = chunk;
    return element + 1;
}

void DeleteChunk(PoolBlockAlloc::Chunk * chunk)
{
    Alloc::Delete(reinterpret_cast<char *>(chunk) - chunk->offset);
}

void DeleteChunks(PoolBlockAlloc::Chunk * chunk)
{
    while (chunk)
    {
        PoolBlockAlloc::Chunk * next = chunk->next;
        DeleteChunk(chunk);
        chunk = next;
    }
}
} // namespace

PoolBlockAlloc::PoolBlockAlloc(unsigned int size, unsigned int count, unsigned int alignment)
    : usedChunks(nullptr), freeChunks(nullptr), alignment(UsableAlignment(alignment)),
      stride(StrideOf(size, this->alignment)), elementsPerChunk(count < 1 ? 1 : count),
      chunkBytes(ChunkBytesOf(stride, elementsPerChunk, this->alignment)), freeElementCount(0),
      currentChunk(nullptr), uncarved(0)
{
}

PoolBlockAlloc::~PoolBlockAlloc()
{
    ReleaseMemory();
}

void PoolBlockAlloc::Lock()
{
    lock.Lock();
}

void PoolBlockAlloc::Unlock()
{
    lock.Unlock();
}

void * PoolBlockAlloc::Alloc()
{
    bool locking = !IsSingleThreadedProcess();
    if (locking)
        Lock();
    void * element = uncarved < 1 && freeElementCount > 0 ? ReuseElement() : CarveElement();
    if (locking)
        Unlock();
    return element;
}

// Takes a returned element from the most recently touched chunk.
void * PoolBlockAlloc::ReuseElement()
{
    Chunk * chunk = freeChunks;
    void ** element = chunk->returned;
    chunk->returned = static_cast<void **>(*element);
    --chunk->returnedCount;
    --freeElementCount;
    if (chunk->returnedCount == 0)
    {
        Unlink(freeChunks, chunk);
        PushFront(usedChunks, chunk);
    }
    return UserPointerOf(element, chunk);
}

void * PoolBlockAlloc::CarveElement()
{
    if (uncarved < 1 && !StartChunk())
        return nullptr;
    uint32_t index = elementsPerChunk - uint32_t(uncarved);
    auto ** element = reinterpret_cast<void **>(ElementsOf(currentChunk) + uint64_t(index) * stride);
    void * user = UserPointerOf(element, currentChunk);
    if (--uncarved < 1)
        currentChunk = nullptr;
    return user;
}

// The header sits where header + link word end on the alignment, so every element is aligned.
bool PoolBlockAlloc::StartChunk()
{
    char * raw = chunkBytes ? static_cast<char *>(Alloc::New(chunkBytes + alignment - 1)) : nullptr;
    if (!raw)
        return false;
    uintptr_t start = reinterpret_cast<uintptr_t>(raw);
    uintptr_t firstElement = (start + headerBytes + linkBytes + alignment - 1) & ~uintptr_t(alignment - 1);
    auto * chunk = new (raw + (firstElement - linkBytes - headerBytes - start)) Chunk{};
    chunk->offset = uint32_t(reinterpret_cast<char *>(chunk) - raw);
    PushFront(usedChunks, chunk);
    currentChunk = chunk;
    uncarved = int32_t(elementsPerChunk);
    return true;
}

void PoolBlockAlloc::Free(void * p)
{
    if (!p)
        return;
    bool locking = !IsSingleThreadedProcess();
    if (locking)
        Lock();
    void ** element = static_cast<void **>(p) - 1;
    auto * chunk = static_cast<Chunk *>(*element);
    *element = chunk->returned;
    chunk->returned = element;
    ++chunk->returnedCount;
    ++freeElementCount;
    if (chunk->returnedCount == elementsPerChunk)
    {
        Unlink(chunk->returnedCount == 1 ? usedChunks : freeChunks, chunk);
        freeElementCount -= int32_t(elementsPerChunk);
        DeleteChunk(chunk);
    }
    else if (chunk->returnedCount == 1)
    {
        Unlink(usedChunks, chunk);
        PushFront(freeChunks, chunk);
    }
    if (locking)
        Unlock();
}

void PoolBlockAlloc::ReleaseMemory()
{
    Lock();
    DeleteChunks(usedChunks);
    DeleteChunks(freeChunks);
    usedChunks = nullptr;
    freeChunks = nullptr;
    freeElementCount = 0;
    currentChunk = nullptr;
    uncarved = 0;
    Unlock();
}
} // namespace Kiv
