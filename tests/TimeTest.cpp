#include "Time.h"

#include <gtest/gtest.h>

#include <regex>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace
{
// The frame lock is process-wide state: each test starts unlocked at frame 0.
void ResetFrameLock()
{
    Kiv::Time::frameLock = false;
    Kiv::Time::frameLockTime = 0;
    Kiv::Time::frameLockDelta = 0;
    Kiv::Time::frameLockCount = 0;
}

// A readable page followed by one that cannot be read.
struct GuardedPages
{
    char * base;
    size_t page = 65536;

    GuardedPages()
    {
#if defined(_WIN32)
        base = static_cast<char *>(VirtualAlloc(nullptr, 2 * page, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        DWORD old;
        VirtualProtect(base + page, page, PAGE_NOACCESS, &old);
#else
        base = static_cast<char *>(
            mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(base + page, page, PROT_NONE);
#endif
    }
    ~GuardedPages()
    {
#if defined(_WIN32)
        VirtualFree(base, 0, MEM_RELEASE);
#else
        munmap(base, 2 * page);
#endif
    }
};
} // namespace

TEST(Time, FrameLockScalesByOneThousandth)
{
    ResetFrameLock();
    uint32_t before = Kiv::Time::Ms();
    EXPECT_LE(Kiv::Time::FrameLockMs() - before, 1000u) << "unlocked, it is the clock";

    // The time of a frame is the count before the increment, so the third frame starts at 2 x 40.
    // Milliseconds past 32 bits wrap as the clock does; so do times before zero.
    const struct
    {
        double perFrame;
        int frames;
        uint32_t ms;
    } cases[] = {{40.0, 3, 0},
                 {40.0, 33, 1},
                 {1.0e13, 2, uint32_t(10000000000ull % 4294967296ull)},
                 {-40000.0, 2, uint32_t(-40)}};
    for (const auto & locked : cases)
    {
        ResetFrameLock();
        Kiv::Time::SetFrameLockTime(locked.perFrame);
        for (int frame = 0; frame < locked.frames; ++frame)
            Kiv::Time::IncFrame();
        EXPECT_EQ(Kiv::Time::FrameLockSeconds(), locked.perFrame * (locked.frames - 1)) << locked.perFrame;
        EXPECT_EQ(Kiv::Time::FrameLockMs(), locked.ms) << locked.perFrame << " x " << locked.frames;
    }
    ResetFrameLock();
}

TEST(Time, ClocksAdvanceTogetherAndPrint)
{
    EXPECT_GT(Kiv::Time::GetCounterFrequency(), 0u);
    uint32_t ms = Kiv::Time::Ms();
    uint64_t counter = Kiv::Time::GetCounter();
    double seconds = Kiv::Time::GetSeconds();
    Kiv::Time::Delay(30);
    EXPECT_GE(Kiv::Time::Ms() - ms, 25u);
    uint64_t elapsed = Kiv::Time::Usq() - counter;
    EXPECT_GE(elapsed, Kiv::Time::GetCounterFrequency() * 25 / 1000);
    EXPECT_GE(Kiv::Time::GetSeconds() - seconds, 0.025);
    // Us is the counter's low word, in ticks rather than microseconds.
    uint64_t wide = Kiv::Time::Usq();
    uint32_t low = Kiv::Time::Us();
    EXPECT_LT(static_cast<uint32_t>(low - static_cast<uint32_t>(wide)), Kiv::Time::GetCounterFrequency());
    EXPECT_GT(Kiv::Time::TimeStamp(), 1500000000);

    char time[16];
    char date[16];
    EXPECT_EQ(Kiv::Time::Str(time), time);
    EXPECT_EQ(Kiv::Date::Str(date), date);
    EXPECT_TRUE(std::regex_match(time, std::regex("[0-9]{2}:[0-9]{2}:[0-9]{2}"))) << time;
    EXPECT_TRUE(std::regex_match(date, std::regex("[0-9]{2}/[0-9]{2}/[0-9]{2}"))) << date;
}

// A static of another unit that reads the clock before the frequency was read at load finds 0:
// the clock reads the frequency itself rather than divide by it.
TEST(Time, ClockWorksBeforeTheFrequencyIsRead)
{
    const uint64_t frequency = Kiv::Time::freq;
    Kiv::Time::freq = 0;
    const double seconds = Kiv::Time::GetSeconds();
    EXPECT_EQ(Kiv::Time::GetCounterFrequency(), frequency);
    EXPECT_EQ(Kiv::Time::freq, frequency);
    EXPECT_GT(seconds, 0.0);
    EXPECT_LT(seconds, 1.0e12);
}

TEST(Debugger, ReadProbe)
{
    std::vector<char> heap(100000, 1);
    EXPECT_TRUE(Kiv::Debugger::IsReadValid(heap.data(), static_cast<unsigned int>(heap.size())));
    EXPECT_FALSE(Kiv::Debugger::IsReadValid(nullptr, 4));

    GuardedPages pages;
    ASSERT_NE(pages.base, nullptr);
    EXPECT_TRUE(Kiv::Debugger::IsReadValid(pages.base, static_cast<unsigned int>(pages.page)));
    EXPECT_FALSE(Kiv::Debugger::IsReadValid(pages.base + pages.page, 1));
    // A range that runs from readable memory into the guard page is not readable as a whole.
    EXPECT_FALSE(Kiv::Debugger::IsReadValid(pages.base + pages.page - 8, 16));
    // A range that wraps past the end of the address space.
    EXPECT_FALSE(Kiv::Debugger::IsReadValid(reinterpret_cast<const void *>(~uintptr_t(0) - 7), 64));
    Kiv::Debugger::Break();
    Kiv::Debugger::LogCallStack();

#if !defined(_WIN32)
    // The probe needs no descriptor of its own: it answers alike when the process has none left.
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    // Every descriptor below the limit taken: the limit is set at the lowest free one.
    const int lowestFree = dup(0);
    ASSERT_GE(lowestFree, 0);
    close(lowestFree);
    rlimit tight = saved;
    tight.rlim_cur = rlim_t(lowestFree);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    const int refused = dup(0);
    const bool whole = Kiv::Debugger::IsReadValid(heap.data(), static_cast<unsigned int>(heap.size()));
    const bool guard = Kiv::Debugger::IsReadValid(pages.base + pages.page - 8, 16);
    setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_EQ(refused, -1) << "a descriptor was still free";
    EXPECT_TRUE(whole);
    EXPECT_FALSE(guard);
#endif
}
