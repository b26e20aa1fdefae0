#include "Alloc.h"

#include <gtest/gtest.h>

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

void DeleteAll(const std::vector<void *> & blocks)
{
    for (void * p : blocks)
        Alloc::Delete(p);
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
}

TEST(Alloc, CacheLimitsAndCounters)
{
    EXPECT_EQ(Alloc::max[0], 1u);
    EXPECT_EQ(Alloc::max[1], 1025u);
    EXPECT_EQ(Alloc::max[2], 8192u);
    EXPECT_EQ(Alloc::max[3], 5461u);
    EXPECT_EQ(Alloc::max[4], 4096u);
    EXPECT_EQ(Alloc::max[5], 205u);
    EXPECT_EQ(Alloc::max[127], 9u);

    // Class 127 caches nine blocks: the tenth goes back to the heap and the count stays at nine.
    std::vector<void *> held = DrainClass(1012, 127);
    uint32_t misses = Alloc::misses, hits = Alloc::hits, allocated = Alloc::allocated;
    for (int i = 0; i < 10; ++i)
        held.push_back(Alloc::New(1005));
    EXPECT_EQ(Alloc::misses - misses, 10u);
    EXPECT_EQ(Alloc::allocated - allocated, 10u * 127 * 8);
    DeleteAll(held);
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
}

TEST(Alloc, FreedBlocksAreReusedLastInFirstOut)
{
    void * a = Alloc::New(40);
    void * b = Alloc::New(40);
    Alloc::Delete(a);
    Alloc::Delete(b);
    // Sizes 37 to 44 share class 6 with 40.
    void * first = Alloc::New(44);
    void * second = Alloc::New(37);
    EXPECT_EQ(first, b);
    EXPECT_EQ(second, a);
    Alloc::Delete(first);
    Alloc::Delete(second);
}

TEST(Alloc, AbsurdSizesFailCleanly)
{
    uint32_t allocated = Alloc::allocated;
    // A size near the top must not wrap into a small class.
    void * p = Alloc::New(0xFFFFFFFFu);
    if (p)
    {
        EXPECT_GE(ClassOf(p), 128u);
        std::memset(p, 1, 4096);
        Alloc::Delete(p);
    }
    Alloc::allocated = allocated;
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

TEST(Alloc, ThreadsDoNotClobberEachOthersBlocks)
{
    constexpr int threadCount = 4, rounds = 20000, slots = 256;
    std::vector<std::thread> threads;
    std::vector<int> faults(threadCount, 0);
    for (int t = 0; t < threadCount; ++t)
    {
        threads.emplace_back(
            [t, &faults]
            {
                std::mt19937 random(t);
                std::vector<std::pair<unsigned char *, unsigned int>> live(slots, {nullptr, 0});
                auto mark = static_cast<unsigned char>(0x10 + t);
                for (int round = 0; round < rounds; ++round)
                {
                    auto & [p, size] = live[random() % slots];
                    if (p)
                    {
                        for (unsigned int i = 0; i < size; ++i)
                            faults[t] += p[i] != mark;
                        Alloc::Delete(p);
                    }
                    size = random() % 1100;
                    p = static_cast<unsigned char *>(Alloc::New(size));
                    std::memset(p, mark, size);
                }
                for (auto & [p, size] : live)
                {
                    if (p)
                        Alloc::Delete(p);
                }
            });
    }
    for (std::thread & thread : threads)
        thread.join();
    for (int t = 0; t < threadCount; ++t)
        EXPECT_EQ(faults[t], 0) << "thread " << t;
}

namespace
{
// Requests that reached each class's record so far, and the heap bytes its misses took.
struct ClassCounters
{
    std::vector<uint32_t> served, missedBytes;

    ClassCounters()
    {
        for (uint32_t c = 0; c < Alloc::ClassCount; ++c)
        {
            served.push_back(Alloc::classes[c].hits + Alloc::classes[c].misses);
            missedBytes.push_back(Alloc::classes[c].misses * c * 8);
        }
    }
};

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
    for (uint32_t i = 4; i < size; ++i)
    {
        if (p[i] != static_cast<unsigned char>(size * 7))
            return false;
    }
    return true;
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
    ClassCounters before;
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

    ClassCounters after;
    uint32_t smallCalls = 0, largeCalls = 0, missedBytes = 0;
    for (uint32_t c = 1; c < Alloc::ClassCount; ++c)
    {
        uint32_t requests = 0;
        for (const std::vector<uint32_t> & thread : made)
            requests += thread[c];
        EXPECT_EQ(after.served[c] - before.served[c], requests) << "class " << c;
        smallCalls += requests;
        missedBytes += after.missedBytes[c] - before.missedBytes[c];
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

    // Assigning a statistic replaces the sum of all its pieces.
    Alloc::hits = 7;
    EXPECT_EQ(Alloc::hits, 7u);
    Alloc::hits = hits;
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

    // With no calls the percentages are 0 / 0.
    Alloc::hits = Alloc::misses = 0;
    testing::internal::CaptureStderr();
    Alloc::Dump();
    text = testing::internal::GetCapturedStderr();
    EXPECT_NE(text.find("nan%"), std::string::npos) << text;
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
    for (unsigned int bad : {0u, 3u, static_cast<unsigned int>(-4)})
    {
        PoolBlockAlloc pool(13, 16, bad);
        EXPECT_EQ(StrideOf(pool), stride) << bad;
    }
    for (unsigned int alignment : {4u, 8u, 16u, 64u})
    {
        PoolBlockAlloc pool(24, 5, alignment);
        for (int i = 0; i < 12; ++i)
        {
            auto address = reinterpret_cast<uintptr_t>(pool.Alloc());
            EXPECT_EQ(address % alignment, 0u) << alignment;
            EXPECT_EQ(address % alignof(void *), 0u);
        }
    }
    // A pool whose chunk cannot be requested fails cleanly.
    PoolBlockAlloc absurd(0xFFFFFFF0u, 1000, 8);
    EXPECT_EQ(absurd.Alloc(), nullptr);
}

TEST(PoolBlockAlloc, ChunkLifecycle)
{
    PoolBlockAlloc pool(16, 4, 4);
    char * a[4];
    for (char *& element : a)
    {
        element = static_cast<char *>(pool.Alloc());
        std::memset(element, 0x11, 16);
    }
    auto * b0 = static_cast<char *>(pool.Alloc());
    std::memset(b0, 0x22, 16);

    uint32_t cached = CachedBlocks();
    pool.Free(a[1]);
    pool.Free(a[2]);
    pool.Free(a[3]);
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

TEST(PoolBlockAlloc, ThreadsShareOnePool)
{
    PoolBlockAlloc pool(16, 64, 8);
    std::vector<std::thread> threads;
    std::vector<int> faults(4, 0);
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [t, &pool, &faults]
            {
                std::mt19937 random(t);
                std::vector<unsigned char *> live(100, nullptr);
                auto mark = static_cast<unsigned char>(0x40 + t);
                for (int round = 0; round < 20000; ++round)
                {
                    unsigned char *& p = live[random() % live.size()];
                    if (p)
                    {
                        for (int i = 0; i < 16; ++i)
                            faults[t] += p[i] != mark;
                        pool.Free(p);
                    }
                    p = static_cast<unsigned char *>(pool.Alloc());
                    std::memset(p, mark, 16);
                }
                for (unsigned char * p : live)
                    pool.Free(p);
            });
    }
    for (std::thread & thread : threads)
        thread.join();
    for (int t = 0; t < 4; ++t)
        EXPECT_EQ(faults[t], 0) << "thread " << t;
}
