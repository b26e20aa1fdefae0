#include "Profile.h"

#include "Console.h"
#include "Log.h"
#include "Time.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace Kiv
{
namespace
{
constexpr int logDisplayLines = 20;
// The glyph of the profiler's bars.
constexpr int barGlyph = 18;
constexpr int barColumns = 36;

std::uint32_t PerformanceCounterMicroseconds()
{
    static const double microsecondsPerTick = 1.0e6 / static_cast<double>(Time::GetCounterFrequency());
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(Time::GetCounter() * microsecondsPerTick));
}

std::uint32_t PeriodMs(float hertz)
{
    return hertz > 0.0f ? static_cast<std::uint32_t>(std::min(1000.0f / hertz, 4.0e9f)) : 0xFFFFFFFFu;
}

struct ProfilerState
{
    std::uint32_t enableMask = 0;
    Profile::Clock clock = PerformanceCounterMicroseconds;
    Profile::Info * funcs[Profile::maxFuncs] = {};
    int funcCount = 0;
    Profile * active = nullptr;
    int depth = 0;
    bool childTime = false;
    bool (*comparator)(const Profile::Info *, const Profile::Info *) = Profile::SortTotal;
    float displayHertz = 1.0f;
    float sortHertz = 1.0f;
    float peakResetHertz = 0.1f;
    float displayTimer = 0.0f;
    float sortTimer = 0.0f;
    float peakTimer = 0.0f;
    const char * traceNames[Profile::maxTracePoints] = {"START"};
    int traceNameCount = 1;
    int traceFrame = 0;
    Profile::TraceFrame frames[Profile::traceFrames] = {};
};

ProfilerState state;

std::uint32_t Now()
{
    return state.clock();
}

// The one place the profiler's report leaves the library: a line for the log client "Profile" at
// level Diag once the log exists; until then it goes to the debugger output.
void WriteDiagnosticLine(const char * line)
{
    if (!Log::IsInitialised())
    {
        Debugger::Output(line);
        return;
    }
    static LogClient * const client = Log::GetClient("Profile");
    // The log ends the line itself.
    const size_t length = std::strcspn(line, "\n");
    client->Print(LogClient::LEVEL_DIAG, "%.*s", static_cast<int>(length), line);
}

// The leading functions worth showing: at most maxLines, stopping at the first quiet one.
int ShownCount(int maxLines)
{
    int shown = 0;
    while (shown < std::min(maxLines, state.funcCount) && state.funcs[shown]->total >= Profile::minShownTotal)
    {
        ++shown;
    }
    return shown;
}

std::uint32_t Average(const Profile::Info & info, std::uint64_t periodSeconds)
{
    return info.count == 0
               ? 0
               : static_cast<std::uint32_t>(std::uint64_t(info.total) * 1000 / info.count / periodSeconds);
}

void PrintLine(Console & console, Profile::Info & info, std::uint64_t periodSeconds,
               std::uint64_t sixtyFourths)
{
    const std::uint32_t average = Average(info, periodSeconds);
    info.peakAverage = std::max(info.peakAverage, average);
    console.Printf("%-28.28s %6u %8u %6u %6u ", info.name, info.count,
                   static_cast<std::uint32_t>(std::uint64_t(info.total) * 1000 / periodSeconds), average,
                   info.peakAverage);
    // The function's share of the shown time, in 36 columns.
    const std::uint64_t bar =
        sixtyFourths == 0 ? 0 : barColumns * std::uint64_t(info.total) / (64 * sixtyFourths);
    if (bar >= 1 && bar < barColumns)
    {
        console.Bar(static_cast<int>(bar), barGlyph);
    }
    console.NewLine();
}
} // namespace

// A scope without an info profiles nothing.
Profile::Profile(Info * profiled) : info(nullptr), enclosing(nullptr)
{
    if (profiled != nullptr && (profiled->enableMask & state.enableMask) != 0)
    {
        info = profiled;
        enclosing = state.active;
        state.active = this;
        ++state.depth;
        Entry(profiled);
    }
}

Profile::~Profile()
{
    if (info != nullptr)
    {
        Exit(info);
        state.active = enclosing;
        --state.depth;
    }
}

void Profile::Entry(Info * profiled)
{
    ++profiled->count;
    if (profiled->slot < 0 && state.funcCount < maxFuncs)
    {
        profiled->slot = state.funcCount;
        state.funcs[state.funcCount++] = profiled;
    }
    childTime = 0;
    start = Now();
}

void Profile::Exit(Info * profiled)
{
    const std::uint32_t elapsed = Now() - start;
    profiled->total += elapsed - childTime;
    if (state.childTime && enclosing != nullptr)
    {
        enclosing->childTime += elapsed;
    }
}

void Profile::Enable(std::uint32_t mask)
{
    state.enableMask = mask;
}
void Profile::Disable()
{
    state.enableMask = 0;
}
std::uint32_t Profile::GetEnableMask()
{
    return state.enableMask;
}
void Profile::ChildTime(bool on)
{
    state.childTime = on;
}
bool Profile::GetChildTime()
{
    return state.childTime;
}
void Profile::SetSortFrequency(float hertz)
{
    state.sortHertz = hertz;
}
float Profile::GetSortFrequency()
{
    return state.sortHertz;
}
void Profile::SetDisplayFrequency(float hertz)
{
    state.displayHertz = hertz;
}
float Profile::GetDisplayFrequency()
{
    return state.displayHertz;
}
std::uint32_t Profile::GetDisplayPeriod()
{
    return PeriodMs(state.displayHertz);
}
void Profile::SetPeekResetFrequency(float hertz)
{
    state.peakResetHertz = hertz;
}
void Profile::SetClock(Clock clock)
{
    state.clock = clock != nullptr ? clock : PerformanceCounterMicroseconds;
}
int Profile::GetFuncsCount()
{
    return state.funcCount;
}
Profile::Info * const * Profile::GetFuncs()
{
    return state.funcs;
}
int Profile::GetDepth()
{
    return state.depth;
}

void Profile::SortBy(SortOption option)
{
    state.comparator = option == SortOption::Average ? SortAvg
                       : option == SortOption::Count ? SortCount
                                                     : SortTotal;
}

void Profile::Sort()
{
    // Ties fall back on registration order, so equal entries keep a stable place on screen.
    std::sort(state.funcs, state.funcs + state.funcCount,
              [](const Info * a, const Info * b)
              { return state.comparator(a, b) || (!state.comparator(b, a) && a->slot < b->slot); });
}

bool Profile::SortTotal(const Info * a, const Info * b)
{
    return a->total > b->total;
}

bool Profile::SortAvg(const Info * a, const Info * b)
{
    auto average = [](const Info * info)
    { return info->count == 0 ? 0.0 : double(info->total) / info->count; };
    return average(a) > average(b);
}

bool Profile::SortCount(const Info * a, const Info * b)
{
    return a->count > b->count;
}

void Profile::Reset()
{
    for (int i = 0; i < state.funcCount; ++i)
    {
        state.funcs[i]->count = state.funcs[i]->total = state.funcs[i]->peakAverage = 0;
    }
}

void Profile::ResetPeeks()
{
    for (int i = 0; i < state.funcCount; ++i)
    {
        state.funcs[i]->peakAverage = 0;
    }
}

void Profile::Display(Console & console, int maxLines)
{
    if (state.enableMask == 0)
    {
        return;
    }
    // Whole seconds of the display period, at least one.
    const std::uint64_t periodSeconds = std::max<std::uint32_t>(GetDisplayPeriod() / 1000, 1);
    const int shown = ShownCount(maxLines);
    std::uint64_t sixtyFourths = 0, frameTotal = 0;
    for (int i = 0; i < shown; ++i)
    {
        sixtyFourths += state.funcs[i]->total / 64;
        frameTotal += std::uint64_t(state.funcs[i]->total) * 1000 / periodSeconds;
    }
    console.Printf("Function:                       Count    Total    Avg  Total: %u\n",
                   static_cast<std::uint32_t>(frameTotal));
    console.NewLine();
    for (int i = 0; i < shown; ++i)
    {
        PrintLine(console, *state.funcs[i], periodSeconds, sixtyFourths);
    }
    for (int i = 0; i < state.funcCount; ++i)
    {
        state.funcs[i]->count = state.funcs[i]->total = 0;
    }
}

void Profile::Display(float elapsedSeconds, Console & console, int maxLines)
{
    const float elapsedMs = elapsedSeconds * 1000.0f;
    state.displayTimer += elapsedMs;
    state.sortTimer += elapsedMs;
    state.peakTimer += elapsedMs;
    const auto displayPeriod = static_cast<float>(GetDisplayPeriod());
    if (state.displayTimer < displayPeriod)
    {
        return;
    }
    state.displayTimer -= displayPeriod;
    // A long stall shows once, not once for every period it covered.
    if (state.displayTimer >= displayPeriod)
    {
        state.displayTimer = 0.0f;
    }
    if (state.sortTimer >= static_cast<float>(PeriodMs(state.sortHertz)))
    {
        Sort();
        state.sortTimer = 0.0f;
    }
    console.Clear();
    Display(console, maxLines);
    if (state.peakTimer >= static_cast<float>(PeriodMs(state.peakResetHertz)))
    {
        ResetPeeks();
        state.peakTimer = 0.0f;
    }
}

// The table may be sorted by count or average, so a quiet function can come before a costly one:
// the whole table is searched.
void Profile::LogDisplay()
{
    Sort();
    for (int i = 0, written = 0; i < state.funcCount && written < logDisplayLines; ++i)
    {
        const Info & info = *state.funcs[i];
        if (info.total >= minShownTotal)
        {
            char line[128];
            std::snprintf(line, sizeof line, "Profile: %-28.28s %6u calls %8u us\n", info.name, info.count,
                          info.total);
            WriteDiagnosticLine(line);
            ++written;
        }
    }
}

std::int32_t Profile::RegisterTracePoint(const char * name)
{
    if (name == nullptr)
    {
        return invalidTracePoint;
    }
    if (std::strcmp(name, state.traceNames[0]) == 0)
    {
        return 0;
    }
    if (state.traceNameCount == maxTracePoints)
    {
        return invalidTracePoint;
    }
    state.traceNames[state.traceNameCount] = name;
    return state.traceNameCount++;
}

// Only the invalid point is refused: any other number is recorded as it is, for the reader of
// the trace to make sense of.
void Profile::TracePoint(std::int32_t point)
{
    if (point == invalidTracePoint)
    {
        return;
    }
    if (point == 0)
    {
        state.traceFrame = (state.traceFrame + 1) % traceFrames;
        state.frames[state.traceFrame].count = 0;
    }
    TraceFrame & frame = state.frames[state.traceFrame];
    if (frame.count < entriesPerFrame)
    {
        frame.entries[frame.count++] = {point, Now()};
    }
}

const char * const * Profile::GetTraceInfo()
{
    return state.traceNames;
}
const Profile::TraceFrame * Profile::GetFrameTraceData()
{
    return state.frames;
}
int Profile::GetNumTracePoints()
{
    return state.traceNameCount;
}
int Profile::GetTraceFrame()
{
    return state.traceFrame;
}
} // namespace Kiv
