#include "Profile.h"
#include "Console.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <string>

namespace
{
// The profiler reads this clock in the tests, so times are exact.
std::uint32_t now = 0;

class ProfileTest : public testing::Test
{
protected:
    void SetUp() override
    {
        Kiv::Profile::SetClock([] { return now; });
        Kiv::Profile::Enable(1);
        Kiv::Profile::ChildTime(false);
        Kiv::Profile::SetDisplayFrequency(1.0f);
        Kiv::Profile::SortBy(Kiv::Profile::SortOption::Total);
        Kiv::Profile::Reset();
    }
    void TearDown() override
    {
        Kiv::Profile::Disable();
        Kiv::Profile::SetClock(nullptr);
    }
};

// Spends the time in a scope of info, calls times over.
void Spend(Kiv::Profile::Info & info, std::uint32_t microseconds, int calls = 1)
{
    for (int i = 0; i < calls; ++i)
    {
        Kiv::Profile scope(&info);
        now += microseconds;
    }
}

// A parent that spends 10 + 5 microseconds itself around a child of 100.
void RunParentAndChild(Kiv::Profile::Info & parent, Kiv::Profile::Info & child)
{
    Kiv::Profile outer(&parent);
    now += 10;
    Spend(child, 100);
    now += 5;
}

std::string Line(const Kiv::Console & console, int row)
{
    const std::string line(console.GetLine(row), console.GetWidth());
    return line.substr(0, line.find_last_not_of(' ') + 1);
}
} // namespace

TEST_F(ProfileTest, NestingChildTimeAndMasks)
{
    static Kiv::Profile::Info parent("parent"), child("child"), other("other", 2);
    RunParentAndChild(parent, child);
    EXPECT_EQ(parent.total, 115u);
    EXPECT_EQ(child.total, 100u);

    Kiv::Profile::ChildTime(true);
    RunParentAndChild(parent, child);
    EXPECT_EQ(parent.total, 115u + 15u);
    EXPECT_EQ(child.total, 200u);
    EXPECT_EQ(parent.count, 2u);

    // A function outside the enable mask is not even counted, and is not a parent either.
    {
        Kiv::Profile skipped(&other);
        EXPECT_EQ(Kiv::Profile::GetDepth(), 0);
        RunParentAndChild(parent, child);
    }
    EXPECT_EQ(other.count, 0u);
    Kiv::Profile::Enable(3);
    Spend(other, 7);
    EXPECT_EQ(other.total, 7u);
}

TEST_F(ProfileTest, SortingAndTheDisplayedTable)
{
    static Kiv::Profile::Info many("many"), slow("slow"), quiet("quiet");
    Spend(many, 50, 10);
    Spend(slow, 1000, 2);
    Spend(quiet, 63);
    Kiv::Profile::SortBy(Kiv::Profile::SortOption::Average);
    Kiv::Profile::Sort();
    const Kiv::Profile::Info * byAverage[] = {&slow, &quiet, &many};
    EXPECT_TRUE(std::equal(byAverage, byAverage + 3, Kiv::Profile::GetFuncs()));
    Kiv::Profile::SortBy(Kiv::Profile::SortOption::Total);
    Kiv::Profile::Sort();

    // The quiet function (63 microseconds in all) ends the list. The bars share 36 columns by
    // 64-microsecond units: 31 + 7 shown, so slow gets 36 * 2000 / (64 * 38) and many 36 * 500 / (64 * 38).
    Kiv::Console console;
    ASSERT_TRUE(console.Init({120, 10}));
    Kiv::Profile::Display(console, 10);
    EXPECT_EQ(Line(console, 0), "Function:                       Count    Total    Avg  Total: 2500000");
    EXPECT_EQ(Line(console, 2),
              "slow                              2  2000000 1000000 1000000 " + std::string(29, '\x12'));
    EXPECT_EQ(Line(console, 3),
              "many                             10   500000  50000  50000 " + std::string(7, '\x12'));
    EXPECT_EQ(slow.count + slow.total, 0u) << "shown counts start again";
}

#ifndef _WIN32
// The report is written at the log's diagnostic level, which is standard error until a log exists.
TEST_F(ProfileTest, LogDisplaySearchesTheWholeTableForCostlyFunctions)
{
    // Sorted by count, a function of many cheap calls comes before the costly ones.
    static Kiv::Profile::Info chatty("chatty"), costly("costly"), edge("edge"), under("under");
    Spend(chatty, 1, 40);
    Spend(costly, 500);
    Spend(edge, 64);
    Spend(under, 63);
    Kiv::Profile::SortBy(Kiv::Profile::SortOption::Count);
    testing::internal::CaptureStderr();
    Kiv::Profile::LogDisplay();
    std::string report = testing::internal::GetCapturedStderr();
    EXPECT_NE(report.find("costly"), std::string::npos) << report;
    EXPECT_NE(report.find("edge"), std::string::npos) << report;
    EXPECT_EQ(report.find("under"), std::string::npos) << report;
    EXPECT_EQ(report.find("chatty"), std::string::npos) << report;

    // At most 20 lines, however many functions qualify.
    static std::deque<std::string> names;
    static std::deque<Kiv::Profile::Info> crowd;
    for (int i = 0; i < 25; ++i)
    {
        names.push_back("crowd" + std::to_string(i));
        crowd.emplace_back(names.back().c_str());
        Spend(crowd.back(), 100);
    }
    testing::internal::CaptureStderr();
    Kiv::Profile::LogDisplay();
    report = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(report.begin(), report.end(), '\n'), 20) << report;
}
#endif

TEST_F(ProfileTest, TraceRing)
{
    EXPECT_EQ(Kiv::Profile::RegisterTracePoint("START"), 0);
    EXPECT_EQ(Kiv::Profile::RegisterTracePoint(nullptr), -337);
    const std::int32_t first = Kiv::Profile::RegisterTracePoint("first");
    EXPECT_EQ(first, 1);
    // Each registration takes a point of its own, whatever its name; "START" is always 0.
    EXPECT_EQ(Kiv::Profile::RegisterTracePoint("first"), 2);
    EXPECT_EQ(Kiv::Profile::RegisterTracePoint("START"), 0);
    static char names[Kiv::Profile::maxTracePoints][16];
    while (Kiv::Profile::GetNumTracePoints() < Kiv::Profile::maxTracePoints)
    {
        const int n = Kiv::Profile::GetNumTracePoints();
        std::snprintf(names[n], sizeof names[n], "point%d", n);
        EXPECT_EQ(Kiv::Profile::RegisterTracePoint(names[n]), n);
    }
    // The 129th name is refused with the fixed invalid point, which records nothing.
    EXPECT_EQ(Kiv::Profile::RegisterTracePoint("one too many"), -337);

    const int startFrame = Kiv::Profile::GetTraceFrame();
    now = 1000;
    Kiv::Profile::TracePoint(0);
    const int frame = (startFrame + 1) % Kiv::Profile::traceFrames;
    // Only the invalid point is dropped; numbers no name was given are recorded as they come.
    Kiv::Profile::TracePoint(-337);
    Kiv::Profile::TracePoint(5000);
    now = 1010;
    Kiv::Profile::TracePoint(first);
    const Kiv::Profile::TraceFrame & recorded = Kiv::Profile::GetFrameTraceData()[frame];
    ASSERT_EQ(recorded.count, 3u);
    EXPECT_EQ(recorded.entries[0].point, 0);
    EXPECT_EQ(recorded.entries[1].point, 5000);
    EXPECT_EQ(recorded.entries[2].point, first);
    EXPECT_EQ(recorded.entries[2].time, 1010u);

    // A frame keeps its first 128 points, whatever numbers come after.
    now = 2000;
    for (int i = 0; i < 200; ++i, ++now)
        Kiv::Profile::TracePoint(1 + i * 1000003);
    EXPECT_EQ(recorded.count, 128u);
    EXPECT_EQ(recorded.entries[127].time, 2000u + 124);

    // The ring wraps after 128 frames and a new frame starts empty.
    for (int i = 0; i < Kiv::Profile::traceFrames; ++i)
        Kiv::Profile::TracePoint(0);
    EXPECT_EQ(Kiv::Profile::GetTraceFrame(), frame);
    EXPECT_EQ(recorded.count, 1u);
}
