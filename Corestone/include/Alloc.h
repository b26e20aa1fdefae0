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

    // Everything one size class writes while it allocates and frees. Each class has a cache line of
    // its own, so threads working on different classes never write the same line.
    struct alignas(64) ClassRecord
    {
        Block head;         // head.next is the first cached block
        uint32_t count;     // blocks cached
        uint32_t hits;      // requests served from the list
        uint32_t misses;    // requests that found the list empty
        uint32_t allocated; // bytes the class took from the heap
    };

    // One field of every class record, indexed by class like a plain array.
    template <typename T, T ClassRecord::*field>
    struct ClassField
    {
        struct Iterator
        {
            size_t sizeClass;

            T & operator*() const { return classes[sizeClass].*field; }
            Iterator & operator++()
            {
                ++sizeClass;
                return *this;
            }
            bool operator!=(Iterator other) const { return sizeClass != other.sizeClass; }
        };

        T & operator[](size_t sizeClass) const { return classes[sizeClass].*field; }
        Iterator begin() const { return Iterator{0}; }
        Iterator end() const { return Iterator{ClassCount}; }
    };

    // A statistic kept in pieces written by different threads (the class records, and stripes for
    // the large requests); reading sums the pieces, assigning sets the sum.
    class KIV_API Statistic
    {
    public:
        enum Kind
        {
            Hits,
            Misses,
            Large,
            Allocated
        };

        constexpr explicit Statistic(Kind kind) : kind(kind) {}
        operator uint32_t() const;
        Statistic & operator=(uint32_t value);
        Statistic & operator=(const Statistic & other);

    private:
        Kind kind;
    };

    static ClassRecord classes[ClassCount];
    // buckets[c].next is the head of class c's free list; count[c] the number of blocks on it.
    static const ClassField<Block, &ClassRecord::head> buckets;
    static const ClassField<uint32_t, &ClassRecord::count> count;
    static uint32_t max[ClassCount];
    // Bytes of size classes taken from the heap. Small blocks handed back to the heap when their
    // list is full are deliberately not subtracted; only large blocks are.
    static Statistic allocated;
    static Statistic misses;
    static Statistic hits;
    static Statistic large;
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
