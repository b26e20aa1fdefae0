#include "Time.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/mman.h>
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

// True when text matches pattern, where '9' stands for any digit.
bool MatchesDigits(const char * text, const char * pattern)
{
    if (std::strlen(text) != std::strlen(pattern))
        return false;
    for (; *pattern; ++pattern, ++text)
    {
        if (*pattern == '9' ? !std::isdigit(static_cast<unsigned char>(*text)) : *pattern != *text)
            return false;
    }
    return true;
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
    uint32_t unlocked = Kiv::Time::FrameLockMs();
    EXPECT_LE(unlocked - before, 1000u);

    Kiv::Time::SetFrameLockTime(40.0);
    for (int frame = 0; frame < 3; ++frame)
        Kiv::Time::IncFrame();
    // The third frame starts at 2 x 40: the time of a frame is the count before the increment.
    EXPECT_EQ(Kiv::Time::FrameLockSeconds(), 80.0);
    EXPECT_EQ(Kiv::Time::FrameLockMs(), 0u);
    for (int frame = 0; frame < 30; ++frame)
        Kiv::Time::IncFrame();
    EXPECT_EQ(Kiv::Time::FrameLockSeconds(), 32 * 40.0);
    EXPECT_EQ(Kiv::Time::FrameLockMs(), 1u);
    ResetFrameLock();
}

TEST(Time, ClocksAdvanceTogether)
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
}

TEST(Time, TextForms)
{
    char time[16];
    char date[16];
    EXPECT_EQ(Kiv::Time::Str(time), time);
    EXPECT_EQ(Kiv::Date::Str(date), date);
    EXPECT_TRUE(MatchesDigits(time, "99:99:99")) << time;
    EXPECT_TRUE(MatchesDigits(date, "99/99/99")) << date;
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
    Kiv::Debugger::Break();
    Kiv::Debugger::LogCallStack();
}
