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
Alloc::ClassRecord Alloc::classes[ClassCount];
const Alloc::ClassField<Alloc::Block, &Alloc::ClassRecord::head> Alloc::buckets{};
const Alloc::ClassField<uint32_t, &Alloc::ClassRecord::count> Alloc::count{};
uint32_t Alloc::max[ClassCount];
Alloc::Statistic Alloc::allocated(Statistic::Allocated);
Alloc::Statistic Alloc::misses(Statistic::Misses);
Alloc::Statistic Alloc::hits(Statistic::Hits);
Alloc::Statistic Alloc::large(Statistic::Large);
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
        {
            // Another thread may have written the class record last: start fetching its line
            // while the lock's line comes.
            __builtin_prefetch(&Alloc::classes[sizeClass], 1);
            lock->Enter();
        }
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

// What the large requests write, which no lock guards: stripes chosen by class, each on a line of
// its own, so threads asking for different large sizes do not write the same line.
struct alignas(64) LargeRecord
{
    uint32_t large;
    uint32_t allocated;
};
LargeRecord stripes[Alloc::LockCount];

// The caller's data starts at Block::next: 4 bytes in on 32-bit targets, 8 on 64-bit ones.
constexpr size_t headerBytes = offsetof(Alloc::Block, next);
// The tag holds the class in 23 bits; larger requests keep the largest class in their tag.
constexpr uint64_t tagClassLimit = (uint64_t(1) << 23) - 1;

// A class record's counters change under the class lock. Relaxed atomic loads and stores cost no
// locked instruction and let Statistic read them while other threads write.
inline void Add(uint32_t & counter, uint32_t amount)
{
    __atomic_store_n(&counter, __atomic_load_n(&counter, __ATOMIC_RELAXED) + amount, __ATOMIC_RELAXED);
}

// A stripe has no lock: once the process has threads its counters take an atomic add.
inline void AddToStripe(uint32_t & counter, uint32_t amount)
{
    if (IsSingleThreadedProcess())
        Add(counter, amount);
    else
        __atomic_fetch_add(&counter, amount, __ATOMIC_RELAXED);
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
// by the difference, rounded so the free list's next pointer always fits. Kept out of line, like
// every path that calls the heap, so the cached paths stay short.
__attribute__((noinline)) void * FromHeap(uint64_t sizeClass, uint32_t tagClass)
{
    uint64_t bytes = (sizeClass * 8 + headerBytes - 4 + 7) & ~uint64_t(7);
    if (bytes > SIZE_MAX)
        return nullptr;
    auto * block = static_cast<Alloc::Block *>(std::malloc(static_cast<size_t>(bytes)));
    if (!block)
        return nullptr;
    block->tag = TagOf(tagClass);
    return UserPointerOf(block);
}

__attribute__((noinline)) void * NewLarge(uint64_t sizeClass)
{
    uint32_t tagClass = static_cast<uint32_t>(sizeClass < tagClassLimit ? sizeClass : tagClassLimit);
    LargeRecord & stripe = stripes[tagClass % Alloc::LockCount];
    AddToStripe(stripe.large, 1);
    AddToStripe(stripe.allocated, tagClass * 8);
    return FromHeap(sizeClass, tagClass);
}

// Where each statistic keeps its pieces: a field of every class record, of every stripe, or both.
struct Pieces
{
    uint32_t Alloc::ClassRecord::*inClasses;
    uint32_t LargeRecord::*inStripes;
};

Pieces PiecesOf(Alloc::Statistic::Kind kind)
{
    switch (kind)
    {
    case Alloc::Statistic::Hits:
        return {&Alloc::ClassRecord::hits, nullptr};
    case Alloc::Statistic::Misses:
        return {&Alloc::ClassRecord::misses, nullptr};
    case Alloc::Statistic::Large:
        return {nullptr, &LargeRecord::large};
    default:
        return {&Alloc::ClassRecord::allocated, &LargeRecord::allocated};
    }
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
    for (ClassRecord & record : classes)
        record.count = 0;
}

// The cached blocks go back to the heap, so a library unloaded at run time leaves none behind.
Alloc::~Alloc()
{
    for (ClassRecord & record : classes)
    {
        while (Block * block = record.head.next)
        {
            record.head.next = block->next;
            std::free(block);
        }
        record.count = 0;
    }
    for (PaddedLock & padded : locks)
        padded.lock.Done();
}

void * Alloc::New(unsigned int size)
{
    uint64_t sizeClass = (uint64_t(size) + 11) >> 3;
    if (sizeClass >= ClassCount)
        return NewLarge(sizeClass);
    ClassRecord & record = classes[sizeClass];
    Block * head;
    {
        ClassLock lock(sizeClass);
        head = record.head.next;
        if (head)
        {
            record.head.next = head->next;
            --record.count;
            Add(record.hits, 1);
        }
        else
        {
            Add(record.misses, 1);
            Add(record.allocated, static_cast<uint32_t>(sizeClass * 8));
        }
    }
    return head ? UserPointerOf(head) : FromHeap(sizeClass, static_cast<uint32_t>(sizeClass));
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
        AddToStripe(stripes[sizeClass % LockCount].allocated, 0u - sizeClass * 8);
        std::free(block);
        return;
    }
    ClassRecord & record = classes[sizeClass];
    bool cached;
    {
        ClassLock lock(sizeClass);
        cached = record.count < max[sizeClass];
        if (cached)
        {
            block->next = record.head.next;
            record.head.next = block;
            ++record.count;
        }
    }
    if (!cached)
        std::free(block);
}

Alloc::Statistic::operator uint32_t() const
{
    Pieces pieces = PiecesOf(kind);
    uint32_t sum = 0;
    if (pieces.inClasses)
    {
        for (ClassRecord & record : classes)
            sum += __atomic_load_n(&(record.*pieces.inClasses), __ATOMIC_RELAXED);
    }
    if (pieces.inStripes)
    {
        for (LargeRecord & stripe : stripes)
            sum += __atomic_load_n(&(stripe.*pieces.inStripes), __ATOMIC_RELAXED);
    }
    return sum;
}

// The whole value goes into the first piece: class 0's record, which no request uses, or stripe 0.
Alloc::Statistic & Alloc::Statistic::operator=(uint32_t value)
{
    Pieces pieces = PiecesOf(kind);
    if (pieces.inClasses)
    {
        for (ClassRecord & record : classes)
            __atomic_store_n(&(record.*pieces.inClasses), 0u, __ATOMIC_RELAXED);
    }
    if (pieces.inStripes)
    {
        for (LargeRecord & stripe : stripes)
            __atomic_store_n(&(stripe.*pieces.inStripes), 0u, __ATOMIC_RELAXED);
    }
    uint32_t & first = pieces.inClasses ? classes[0].*pieces.inClasses : stripes[0].*pieces.inStripes;
    __atomic_store_n(&first, value, __ATOMIC_RELAXED);
    return *this;
}

Alloc::Statistic & Alloc::Statistic::operator=(const Statistic & other)
{
    return *this = static_cast<uint32_t>(other);
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
    uint32_t hitCount = hits, missCount = misses, largeCount = large;
    uint32_t total = hitCount + missCount + largeCount;
    double calls = total;
    char text[1024];
    std::snprintf(text, sizeof text,
                  "\nAllocator:\nHits  : %8u - %5.1f%%\nMisses: %8u\nLarge : %8u - %5.1f%%\nSearch: %8u - "
                  "Maximum %u\nAlloc : %8u bytes, %u no.\n",
                  hitCount, hitCount * 100.0 / calls, missCount, largeCount, largeCount * 100.0 / calls,
                  search, searchLength, static_cast<uint32_t>(allocated), total);
    Debugger::Output(text);
}
} // namespace Kiv
