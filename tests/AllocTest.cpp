#include "Alloc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

namespace
{
using Kiv::Alloc;

uint32_t TagOf(void * p)
{
    auto * block = reinterpret_cast<Alloc::Block *>(static_cast<char *>(p) - offsetof(Alloc::Block, next));
    return block->tag;
}

uint32_t ClassOf(void * p)
{
    return TagOf(p) >> 9;
}

// Takes every cached block of the class off its list, so the next New of that class misses.
std::vector<void *> DrainClass(unsigned int size, uint32_t sizeClass)
{
    std::vector<void *> held;
    while (Alloc::count[sizeClass] > 0)
        held.push_back(Alloc::New(size));
    return held;
}
} // namespace

TEST(Alloc, SizeClassesAndTags)
{
    void * zero = Alloc::New(0);
    void * four = Alloc::New(4);
    ASSERT_NE(zero, nullptr);
    EXPECT_NE(zero, four);
    EXPECT_EQ(ClassOf(zero), 1u);
    EXPECT_EQ(ClassOf(four), 1u);
    std::memset(zero, 0x5A, 4);
    // The tag is the class with its check pattern in the low nine bits.
    EXPECT_EQ(TagOf(zero), (1u << 9) | ((1u ^ 0x155u) & 0x1FFu));

    void * five = Alloc::New(5);
    void * last = Alloc::New(1012);
    void * first = Alloc::New(1013);
    EXPECT_EQ(ClassOf(five), 2u);
    EXPECT_EQ(ClassOf(last), 127u);
    EXPECT_EQ(ClassOf(first), 128u);
    for (void * p : {zero, four, five, last, first})
    {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % alignof(void *), 0u);
        Alloc::Delete(p);
    }
    // Freed blocks come back last in, first out, to any size of their class.
    EXPECT_EQ(Alloc::New(1), four);
    EXPECT_EQ(Alloc::New(3), zero);
    Alloc::Delete(four);
    Alloc::Delete(zero);
}

TEST(Alloc, CacheLimitsAndCounters)
{
    EXPECT_EQ(Alloc::max[1], 1025u);
    EXPECT_EQ(Alloc::max[2], 8192u);
    EXPECT_EQ(Alloc::max[5], 205u);
    EXPECT_EQ(Alloc::max[127], 9u);

    // Class 127 caches nine blocks: the tenth goes back to the heap and the count stays at nine.
    std::vector<void *> held = DrainClass(1012, 127);
    uint32_t misses = Alloc::misses, hits = Alloc::hits, allocated = Alloc::allocated;
    for (int i = 0; i < 10; ++i)
        held.push_back(Alloc::New(1005));
    EXPECT_EQ(Alloc::misses - misses, 10u);
    EXPECT_EQ(Alloc::allocated - allocated, 10u * 127 * 8);
    for (void * p : held)
        Alloc::Delete(p);
    EXPECT_EQ(Alloc::count[127], 9u);
    // The block freed to the heap is not subtracted: only large blocks are.
    EXPECT_EQ(Alloc::allocated - allocated, 10u * 127 * 8);

    void * cached = Alloc::New(1012);
    EXPECT_EQ(Alloc::hits - hits, 1u);
    EXPECT_EQ(Alloc::count[127], 8u);
    Alloc::Delete(cached);

    uint32_t large = Alloc::large;
    allocated = Alloc::allocated;
    // Blocks this size come from the system's mappings, high in a 32-bit address space.
    void * huge = Alloc::New(4u << 20);
    ASSERT_NE(huge, nullptr);
    std::memset(huge, 0x33, 4u << 20);
    Alloc::Delete(huge);
    void * big = Alloc::New(5000);
    EXPECT_EQ(Alloc::large - large, 2u);
    EXPECT_EQ(Alloc::allocated - allocated, ((5000u + 11) >> 3) * 8);
    Alloc::Delete(big);
    EXPECT_EQ(Alloc::allocated, allocated);
    // A size near the top must not wrap into a small class.
    if (void * absurd = Alloc::New(0xFFFFFFFFu))
    {
        EXPECT_GE(ClassOf(absurd), 128u);
        Alloc::Delete(absurd);
        Alloc::allocated = allocated;
    }
}

TEST(AllocDeathTest, ImpossiblePointersStopInTheDebuggerTrap)
{
    EXPECT_DEATH(Alloc::Delete(nullptr), "");
    EXPECT_DEATH(Alloc::Delete(reinterpret_cast<void *>(uintptr_t(0xFFFF0))), "");
#if defined(_WIN32)
    if (sizeof(void *) == 4)
    {
        EXPECT_DEATH(Alloc::Delete(reinterpret_cast<void *>(uintptr_t(0x80000010u))), "");
    }
#endif
}

namespace
{
// Requests that reached a class's record so far.
uint32_t Served(uint32_t c)
{
    return Alloc::classes[c].hits + Alloc::classes[c].misses;
}

// Every cached block carries its class's tag, and each list is exactly as long as its count.
void ExpectConsistentFreeLists()
{
    for (uint32_t c = 1; c < Alloc::ClassCount; ++c)
    {
        uint32_t length = 0;
        for (Alloc::Block * block = Alloc::buckets[c].next; block && length <= Alloc::max[c];
             block = block->next)
        {
            ++length;
            ASSERT_EQ(block->tag >> 9, c) << "block " << length << " of class " << c;
        }
        EXPECT_EQ(length, Alloc::count[c]) << "class " << c;
        EXPECT_LE(Alloc::count[c], Alloc::max[c]) << "class " << c;
    }
}

// A block that starts with its size and is filled with a byte made from it.
void Fill(unsigned char * p, uint32_t size)
{
    std::memcpy(p, &size, 4);
    std::memset(p + 4, static_cast<unsigned char>(size * 7), size - 4);
}

bool Intact(const unsigned char * p)
{
    uint32_t size;
    std::memcpy(&size, p, 4);
    return std::count(p + 4, p + size, static_cast<unsigned char>(size * 7)) == size - 4;
}
} // namespace

// Threads swap blocks through shared slots, so most blocks are freed by another thread than the
// one that allocated them, while half the requests meet on two hot classes. Each class counts its
// requests under its lock: the sums read back, and printed by Dump, are exact.
TEST(Alloc, BlocksFreedOnOtherThreadsKeepListsAndStatisticsExact)
{
    constexpr int threadCount = 4, rounds = 40000;
    constexpr uint32_t largeSlot = Alloc::ClassCount;
    std::vector<std::atomic<unsigned char *>> slots(256);
    std::vector<std::vector<uint32_t>> made(threadCount, std::vector<uint32_t>(largeSlot + 1));
    std::vector<int> faults(threadCount, 0);
    std::atomic<int> waiting(threadCount);
    std::vector<uint32_t> served, missed;
    for (uint32_t c = 0; c < Alloc::ClassCount; ++c)
    {
        served.push_back(Served(c));
        missed.push_back(Alloc::classes[c].misses);
    }
    uint32_t hits = Alloc::hits, misses = Alloc::misses, large = Alloc::large, allocated = Alloc::allocated;
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t)
    {
        threads.emplace_back(
            [&, t]
            {
                // All start together, so their work overlaps rather than runs in turn.
                for (--waiting; waiting > 0;)
                    std::this_thread::yield();
                // Tight pairs on one class: the likeliest way to meet another thread there.
                for (int pair = 0; pair < rounds * 4; ++pair)
                    Alloc::Delete(Alloc::New(24));
                made[t][(24 + 11) >> 3] += rounds * 4;
                std::mt19937 random(100 + t);
                for (int round = 0; round < rounds; ++round)
                {
                    uint32_t pick = random() % 16;
                    uint32_t size = pick < 8    ? 16 + pick / 4 * 8
                                    : pick == 8 ? 1013 + random() % 3000
                                                : 4 + random() % 1009;
                    uint32_t sizeClass = (size + 11) >> 3;
                    ++made[t][sizeClass < largeSlot ? sizeClass : largeSlot];
                    auto * p = static_cast<unsigned char *>(Alloc::New(size));
                    Fill(p, size);
                    unsigned char * old = slots[random() % slots.size()].exchange(p);
                    if (old)
                    {
                        faults[t] += !Intact(old);
                        // Scribbled over, so a block handed out twice shows up with its other owner.
                        std::memset(old, 0xEE, 8);
                        Alloc::Delete(old);
                    }
                }
            });
    }
    for (std::thread & thread : threads)
        thread.join();
    for (std::atomic<unsigned char *> & slot : slots)
    {
        faults[0] += slot && !Intact(slot);
        Alloc::Delete(slot);
    }
    for (int t = 0; t < threadCount; ++t)
        EXPECT_EQ(faults[t], 0) << "thread " << t;

    uint32_t smallCalls = 0, largeCalls = 0, missedBytes = 0;
    for (uint32_t c = 1; c < Alloc::ClassCount; ++c)
    {
        uint32_t requests = 0;
        for (const std::vector<uint32_t> & thread : made)
            requests += thread[c];
        EXPECT_EQ(Served(c) - served[c], requests) << "class " << c;
        smallCalls += requests;
        missedBytes += (Alloc::classes[c].misses - missed[c]) * c * 8;
    }
    for (const std::vector<uint32_t> & thread : made)
        largeCalls += thread[largeSlot];
    EXPECT_EQ((Alloc::hits - hits) + (Alloc::misses - misses), smallCalls);
    EXPECT_EQ(Alloc::large - large, largeCalls);
    // Every large block went back, so only the heap blocks of the misses stay counted.
    EXPECT_EQ(Alloc::allocated - allocated, missedBytes);
    ExpectConsistentFreeLists();
#if !defined(_WIN32)
    char totals[64];
    std::snprintf(totals, sizeof totals, "Alloc : %8u bytes, %u no.\n", uint32_t(Alloc::allocated),
                  Alloc::hits + Alloc::misses + Alloc::large);
    testing::internal::CaptureStderr();
    Alloc::Dump();
    EXPECT_NE(testing::internal::GetCapturedStderr().find(totals), std::string::npos) << totals;
#endif
}

#if !defined(_WIN32)
TEST(Alloc, DumpWritesTheStatistics)
{
    uint32_t saved[] = {Alloc::hits, Alloc::misses, Alloc::large, Alloc::allocated};
    Alloc::hits = 3;
    Alloc::misses = 1;
    Alloc::large = 0;
    Alloc::allocated = 4096;
    testing::internal::CaptureStderr();
    Alloc::Dump();
    std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text, "\nAllocator:\nHits  :        3 -  75.0%\nMisses:        1\nLarge :        0 -   0.0%\n"
                    "Search:        0 - Maximum 0\nAlloc :     4096 bytes, 4 no.\n");
    Alloc::hits = saved[0];
    Alloc::misses = saved[1];
    Alloc::large = saved[2];
    Alloc::allocated = saved[3];
}
#endif

namespace
{
using Kiv::PoolBlockAlloc;

// Blocks cached by Kiv::Alloc over all classes: a chunk handed back by a pool shows up here.
uint32_t CachedBlocks()
{
    uint32_t total = 0;
    for (uint32_t cached : Alloc::count)
        total += cached;
    return total;
}

ptrdiff_t StrideOf(PoolBlockAlloc & pool)
{
    auto * first = static_cast<char *>(pool.Alloc());
    auto * second = static_cast<char *>(pool.Alloc());
    return second - first;
}
} // namespace

TEST(PoolBlockAlloc, AlignmentAndStride)
{
    PoolBlockAlloc eight(13, 16, 8);
    ptrdiff_t stride = StrideOf(eight);
    EXPECT_EQ(stride % 8, 0);
    EXPECT_GE(stride, 13 + ptrdiff_t(sizeof(void *)));
    PoolBlockAlloc bad(13, 16, 3);
    EXPECT_EQ(StrideOf(bad), stride);
    PoolBlockAlloc wide(24, 5, 64);
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(reinterpret_cast<uintptr_t>(wide.Alloc()) % 64, 0u);
    // A pool whose chunk cannot be requested fails cleanly.
    PoolBlockAlloc absurd(0xFFFFFFF0u, 1000, 8);
    EXPECT_EQ(absurd.Alloc(), nullptr);
}

TEST(PoolBlockAlloc, ChunkLifecycle)
{
    PoolBlockAlloc pool(16, 4, 4);
    char * a[4];
    for (char *& element : a)
        element = static_cast<char *>(pool.Alloc());
    auto * b0 = static_cast<char *>(pool.Alloc());

    uint32_t cached = CachedBlocks();
    for (char * element : {a[1], a[2], a[3]})
        pool.Free(element);
    EXPECT_EQ(CachedBlocks(), cached);
    // The last element of a fully carved chunk returns the chunk at once.
    pool.Free(a[0]);
    EXPECT_EQ(CachedBlocks(), cached + 1);

    // Carving the current chunk goes before reusing returned elements.
    pool.Free(b0);
    auto * b1 = static_cast<char *>(pool.Alloc());
    EXPECT_NE(b1, b0);
    auto * b2 = static_cast<char *>(pool.Alloc());
    auto * b3 = static_cast<char *>(pool.Alloc());
    EXPECT_EQ(b2 - b1, b3 - b2);
    EXPECT_EQ(pool.Alloc(), b0);

    // Elements come back from the chunk touched last.
    char * c[4];
    for (char *& element : c)
        element = static_cast<char *>(pool.Alloc());
    pool.Free(b2);
    pool.Free(c[1]);
    EXPECT_EQ(pool.Alloc(), c[1]);
    EXPECT_EQ(pool.Alloc(), b2);
    pool.Free(nullptr);

    cached = CachedBlocks();
    for (char * element : {b0, b1, b2, b3})
        pool.Free(element);
    EXPECT_EQ(CachedBlocks(), cached + 1);
    // Live elements included, every chunk goes back.
    pool.ReleaseMemory();
    EXPECT_EQ(CachedBlocks(), cached + 2);
}
