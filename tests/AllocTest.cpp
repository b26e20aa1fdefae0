#include "Alloc.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
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
    void * big = Alloc::New(5000);
    EXPECT_EQ(Alloc::large - large, 1u);
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

#if defined(_WIN32) && !defined(CORESTONE_WINE_DEATH_TESTS)
TEST(AllocDeathTest, ImpossiblePointersStopInTheDebuggerTrap)
{
    GTEST_SKIP() << "Wine starts its debugger for a breakpoint in the death-test child instead of ending it";
}
#else
TEST(AllocDeathTest, ImpossiblePointersStopInTheDebuggerTrap)
{
    EXPECT_DEATH(Alloc::Delete(nullptr), "");
    EXPECT_DEATH(Alloc::Delete(reinterpret_cast<void *>(uintptr_t(0xFFFF0))), "");
    if (sizeof(void *) == 4)
    {
        EXPECT_DEATH(Alloc::Delete(reinterpret_cast<void *>(uintptr_t(0x80000010u))), "");
    }
}
#endif

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
