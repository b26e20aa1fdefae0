// A scope-based function profiler with a frame trace, for on-screen statistics of a running game.
// A function declares one static Info and a Profile object in its body:
//
//     static Kiv::Profile::Info info("Render::Draw");
//     Kiv::Profile scope(&info);
//
// The profiler's state is global and unlocked: profile one thread at a time.
#pragma once

#include "KivApi.h"

#include <cstdint>

namespace Kiv
{
class Console;

class KIV_API Profile
{
public:
    // The record of one profiled function. Times are microseconds; the total excludes the time
    // of profiled callees when child-time mode is on.
    struct Info
    {
        constexpr explicit Info(const char * name, std::uint32_t enableMask = 0xFFFFFFFFu)
            : name(name), enableMask(enableMask)
        {
        }

        const char * name;
        std::uint32_t count = 0;
        std::uint32_t total = 0;
        // Registration order in the table, -1 until the function first runs.
        std::int32_t slot = -1;
        // The function is profiled while this shares a bit with the global enable mask.
        std::uint32_t enableMask;
        std::uint32_t peakAverage = 0;
    };

    struct TraceEntry
    {
        std::int32_t point;
        std::uint32_t time;
    };

    struct TraceFrame
    {
        std::uint32_t count;
        TraceEntry entries[128];
    };

    enum class SortOption
    {
        Total,
        Average,
        Count
    };

    using Clock = std::uint32_t (*)();

    static constexpr int maxFuncs = 4096;
    static constexpr int maxTracePoints = 128;
    static constexpr int traceFrames = 128;
    static constexpr int entriesPerFrame = 128;
    // What RegisterTracePoint returns when the names are used up; TracePoint ignores it.
    static constexpr std::int32_t invalidTracePoint = -337;
    // Functions whose total stays below this many microseconds are not shown.
    static constexpr std::uint32_t minShownTotal = 64;

    explicit Profile(Info * info);
    ~Profile();
    Profile(const Profile &) = delete;
    Profile & operator=(const Profile &) = delete;

    void Entry(Info * info);
    void Exit(Info * info);

    static void Enable(std::uint32_t mask);
    static void Disable();
    static std::uint32_t GetEnableMask();
    static void ChildTime(bool on);
    static bool GetChildTime();
    static void SetSortFrequency(float hertz);
    static float GetSortFrequency();
    static void SetDisplayFrequency(float hertz);
    static float GetDisplayFrequency();
    // Milliseconds between two displays.
    static std::uint32_t GetDisplayPeriod();
    static void SetPeekResetFrequency(float hertz);
    // The microsecond clock the profiler reads; null restores the performance counter.
    static void SetClock(Clock clock);

    static int GetFuncsCount();
    static Info * const * GetFuncs();
    static int GetDepth();

    static void SortBy(SortOption option);
    static void Sort();
    // Descending orders for Sort; a function never called has an average of 0.
    static bool SortTotal(const Info * a, const Info * b);
    static bool SortAvg(const Info * a, const Info * b);
    static bool SortCount(const Info * a, const Info * b);

    // Clears counts, totals and peaks of every function; ResetPeeks clears the peaks only.
    static void Reset();
    static void ResetPeeks();

    // Prints the table (at most maxLines functions) and clears the counts and totals.
    static void Display(Console & console, int maxLines);
    // Advances the display, sort and peak-reset timers by the elapsed seconds and, when the
    // display period has passed, sorts as due, clears the console and prints the table.
    static void Display(float elapsedSeconds, Console & console, int maxLines);
    // Sorts the table and writes up to 20 functions of at least 64 microseconds in total to the
    // log at level Diag (the debugger output while there is no log).
    static void LogDisplay();

    // "START" marks frames and is point 0; every other registration takes the next point, 1, 2
    // and so on. When all 128 are taken, or for no name, the result is invalidTracePoint.
    static std::int32_t RegisterTracePoint(const char * name);
    // Point 0 starts the next frame of the ring; every point but invalidTracePoint is recorded
    // with the time while the frame has room.
    static void TracePoint(std::int32_t point);
    static const char * const * GetTraceInfo();
    static const TraceFrame * GetFrameTraceData();
    static int GetNumTracePoints();
    // The ring position of the frame being recorded.
    static int GetTraceFrame();

private:
    Info * info;
    Profile * enclosing;
    std::uint32_t childTime = 0;
    std::uint32_t start = 0;
};
} // namespace Kiv
