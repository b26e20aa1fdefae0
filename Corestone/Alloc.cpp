#include "Alloc.h"

#include "DebugTrap.h"
#include "PlatformLock.h"
#include "Time.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace Kiv
{
Alloc::Block Alloc::buckets[ClassCount];
uint32_t Alloc::count[ClassCount];
uint32_t Alloc::max[ClassCount];
uint32_t Alloc::allocated;
uint32_t Alloc::misses;
uint32_t Alloc::hits;
uint32_t Alloc::large;
uint32_t Alloc::search;
uint32_t Alloc::searchLength;

namespace
{
// Each lock on its own cache line, so threads working on different classes do not share one.
struct alignas(64) PaddedLock
{
    PlatformAllocatorLock lock;
};
PaddedLock locks[Alloc::LockCount];

// Holds the lock of one size class until Leave or the end of the scope; a process with a single
// thread has nothing to lock out.
class ClassLock
{
public:
    explicit ClassLock(uint64_t sizeClass)
        : lock(IsSingleThreadedProcess() ? nullptr : &locks[sizeClass % Alloc::LockCount].lock)
    {
        if (lock)
            lock->Enter();
    }
    ~ClassLock() { Leave(); }
    ClassLock(const ClassLock &) = delete;
    ClassLock & operator=(const ClassLock &) = delete;

    void Leave()
    {
        if (lock)
            lock->Leave();
        lock = nullptr;
    }

private:
    PlatformAllocatorLock * lock;
};

// The caller's data starts at Block::next: 4 bytes in on 32-bit targets, 8 on 64-bit ones.
constexpr size_t headerBytes = offsetof(Alloc::Block, next);
// The tag holds the class in 23 bits; larger requests keep the largest class in their tag.
constexpr uint64_t tagClassLimit = (uint64_t(1) << 23) - 1;

// The statistics are deliberately unlocked and may lose counts under contention; relaxed atomic
// loads and stores keep that cost (no locked instruction) without a data race.
inline void Add(uint32_t & counter, uint32_t amount)
{
    __atomic_store_n(&counter, __atomic_load_n(&counter, __ATOMIC_RELAXED) + amount, __ATOMIC_RELAXED);
}

inline uint32_t TagOf(uint32_t sizeClass)
{
    return (sizeClass << 9) | ((sizeClass ^ 0x155) & 0x1FF);
}

inline Alloc::Block * BlockOf(void * p)
{
    return reinterpret_cast<Alloc::Block *>(static_cast<char *>(p) - headerBytes);
}

inline void * UserPointerOf(Alloc::Block * block)
{
    return &block->next;
}

// A pointer no allocation can have produced: null, the first megabyte, and on 32-bit Windows
// everything above its 2 GB user address space. 32-bit Linux maps memory up to 3 GB and more (its
// thread arenas and large blocks sit near the top), so there only the low test holds.
inline bool IsImpossibleBlock(const void * p)
{
    uintptr_t address = reinterpret_cast<uintptr_t>(p);
#if defined(_WIN32)
    if (sizeof(void *) == 4)
        return address - 0x100000u > 0x7FF00000u;
#endif
    return address < 0x100000u;
}

// Class c stands for c * 8 bytes with a 4-byte tag; a wider header (64-bit) widens the heap block
// by the difference, rounded so the free list's next pointer always fits.
void * FromHeap(uint64_t sizeClass)
{
    uint32_t tagClass = static_cast<uint32_t>(sizeClass < tagClassLimit ? sizeClass : tagClassLimit);
    Add(Alloc::allocated, tagClass * 8);
    uint64_t bytes = (sizeClass * 8 + headerBytes - 4 + 7) & ~uint64_t(7);
    if (bytes > SIZE_MAX)
        return nullptr;
    auto * block = static_cast<Alloc::Block *>(std::malloc(static_cast<size_t>(bytes)));
    if (!block)
        return nullptr;
    block->tag = TagOf(tagClass);
    return UserPointerOf(block);
}

// Built before every other static object of the library and destroyed after them all.
__attribute__((init_priority(101))) Alloc instance;
} // namespace

Alloc::Alloc()
{
    for (PaddedLock & padded : locks)
        padded.lock.Init();
    max[0] = 1;
    for (uint32_t c = 1; c < ClassCount; ++c)
        max[c] = 8192 / (c * 8) + 1;
    // Strings and tree nodes make these the commonest sizes.
    max[2] = 8192;
    max[3] = 5461;
    max[4] = 4096;
    for (uint32_t & cached : count)
        cached = 0;
}

Alloc::~Alloc()
{
    for (PaddedLock & padded : locks)
        padded.lock.Done();
}

void * Alloc::New(unsigned int size)
{
    uint64_t sizeClass = (uint64_t(size) + 11) >> 3;
    if (sizeClass >= ClassCount)
    {
        Add(large, 1);
        return FromHeap(sizeClass);
    }
    ClassLock lock(sizeClass);
    Block * head = buckets[sizeClass].next;
    if (head)
    {
        buckets[sizeClass].next = head->next;
        --count[sizeClass];
        lock.Leave();
        Add(hits, 1);
        return UserPointerOf(head);
    }
    lock.Leave();
    Add(misses, 1);
    return FromHeap(sizeClass);
}

void Alloc::Delete(void * p)
{
    if (IsImpossibleBlock(p))
    {
        DebugTrap();
        return;
    }
    Block * block = BlockOf(p);
    uint32_t sizeClass = block->tag >> 9;
    if (sizeClass >= ClassCount)
    {
        Add(allocated, 0u - sizeClass * 8);
        std::free(block);
        return;
    }
    ClassLock lock(sizeClass);
    if (count[sizeClass] >= max[sizeClass])
    {
        lock.Leave();
        std::free(block);
        return;
    }
    block->next = buckets[sizeClass].next;
    buckets[sizeClass].next = block;
    ++count[sizeClass];
}

void * AllocBase::operator new(std::size_t size)
{
    void * p = size <= UINT32_MAX ? Alloc::New(static_cast<unsigned int>(size)) : nullptr;
    if (p == nullptr)
        throw std::bad_alloc();
    return p;
}

void AllocBase::operator delete(void * p)
{
    if (p != nullptr)
        Alloc::Delete(p);
}

void Alloc::Dump()
{
    uint32_t total = hits + misses + large;
    double calls = total;
    char text[1024];
    std::snprintf(text, sizeof text,
                  "\nAllocator:\nHits  : %8u - %5.1f%%\nMisses: %8u\nLarge : %8u - %5.1f%%\nSearch: %8u - "
                  "Maximum %u\nAlloc : %8u bytes, %u no.\n",
                  hits, hits * 100.0 / calls, misses, large, large * 100.0 / calls, search, searchLength,
                  allocated, total);
    Debugger::Output(text);
}
} // namespace Kiv
