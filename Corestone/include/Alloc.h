// The library's two allocators: Kiv::Alloc, the process-wide small-block allocator with one cached
// free list per 8-byte size class, and Kiv::PoolBlockAlloc, a pool of fixed-size elements in chunks.
#pragma once

#include "KivApi.h"
#include "SyncObject.h"

#include <cstddef>
#include <cstdint>

namespace Kiv
{
class KIV_API Alloc
{
public:
    // The hidden header of every block. The caller's pointer is &next, so while a block is cached
    // its next pointer overlays the caller's first bytes; on 64-bit targets the padding after the
    // tag keeps both the pointer and the caller's data 8-byte aligned.
    struct Block
    {
        uint32_t tag;
        Block * next;
    };

    enum
    {
        ClassCount = 128, // classes 1 to 127 are cached, 128 and above go straight to the heap
        LockCount = 16    // lock k guards every class c with c mod 16 = k
    };

    Alloc();
    ~Alloc();
    Alloc(const Alloc &) = delete;
    Alloc & operator=(const Alloc &) = delete;

    // A block of at least size bytes, or null when the heap is exhausted.
    static void * New(unsigned int size);
    // Returns a block obtained from New; a null or low pointer stops in the debugger trap.
    static void Delete(void * p);
    // Writes the statistics through Debugger::Output.
    static void Dump();

    static Block buckets[ClassCount];
    static uint32_t count[ClassCount];
    static uint32_t max[ClassCount];
    // Bytes of size classes taken from the heap. Small blocks handed back to the heap when their
    // list is full are deliberately not subtracted; only large blocks are.
    static uint32_t allocated;
    static uint32_t misses;
    static uint32_t hits;
    static uint32_t large;
    // Printed by Dump; nothing updates them.
    static uint32_t search;
    static uint32_t searchLength;
};

// Objects of a class deriving from this live in Kiv::Alloc blocks, so plain new and delete of
// them go through the library's allocator like every other allocation of the library.
class KIV_API AllocBase
{
public:
    // Throws std::bad_alloc when memory is out, as a new expression expects.
    static void * operator new(std::size_t size);
    static void operator delete(void * p);
};

// A pool of fixed-size elements carved out of chunks obtained from Kiv::Alloc. A chunk goes back
// to Kiv::Alloc as soon as its last element is returned.
class KIV_API PoolBlockAlloc
{
public:
    struct Chunk;

    // alignment must be a power of two; any other value becomes 8. Elements are at least pointer
    // aligned, since each carries a hidden pointer in front of it.
    PoolBlockAlloc(unsigned int size, unsigned int count, unsigned int alignment);
    ~PoolBlockAlloc();
    // Two pools must never share chunks.
    PoolBlockAlloc(const PoolBlockAlloc &) = delete;
    PoolBlockAlloc & operator=(const PoolBlockAlloc &) = delete;

    // Null when a chunk of this pool cannot be obtained.
    void * Alloc();
    void Free(void * p);
    // Returns every chunk to Kiv::Alloc, live elements included.
    void ReleaseMemory();

protected:
    void Lock();
    void Unlock();

private:
    void * ReuseElement();
    void * CarveElement();
    bool StartChunk();

    Chunk * usedChunks;
    Chunk * freeChunks;
    uint32_t alignment;
    uint32_t stride;
    uint32_t elementsPerChunk;
    uint32_t chunkBytes;
    int32_t freeElementCount;
    Chunk * currentChunk;
    int32_t uncarved;
    CriticalSection lock;
};
} // namespace Kiv
