#include "Time.h"

#include <cmath>

namespace Kiv
{
// Read at its place in the load order (Startup.cpp).
uint64_t Time::freq;
bool Time::frameLock;
double Time::frameLockTime;
double Time::frameLockDelta;
uint32_t Time::frameLockCount;

uint64_t Time::Usq()
{
    return GetCounter();
}

uint32_t Time::Us()
{
    return static_cast<uint32_t>(GetCounter());
}

// The frequency is read at load, but a static of another unit may read the clock before this
// unit's initialisers have run: it then finds 0 and reads the frequency itself.
uint64_t Time::GetCounterFrequency()
{
    uint64_t frequency = __atomic_load_n(&freq, __ATOMIC_RELAXED);
    if (frequency == 0)
    {
        frequency = QueryCounterFrequency();
        __atomic_store_n(&freq, frequency, __ATOMIC_RELAXED);
    }
    return frequency;
}

double Time::GetSeconds()
{
    return static_cast<double>(GetCounter()) / static_cast<double>(GetCounterFrequency());
}

void Time::SetFrameLockTime(double delta)
{
    frameLock = true;
    frameLockDelta = delta;
}

void Time::IncFrame()
{
    frameLockTime = frameLockCount * frameLockDelta;
    ++frameLockCount;
}

double Time::FrameLockSeconds()
{
    return frameLock ? frameLockTime : GetSeconds();
}

// The locked time is scaled by 0.001, not 1000: callers depend on this arithmetic as it stands.
// Like the millisecond clock it wraps at 2^32, where a plain conversion of a larger value would
// be undefined.
uint32_t Time::FrameLockMs()
{
    if (!frameLock)
    {
        return Ms();
    }
    const double scaled = frameLockTime * 0.001;
    return std::fabs(scaled) < 9.2e18 ? static_cast<uint32_t>(static_cast<int64_t>(scaled)) : 0;
}

void Debugger::Break() {}

void Debugger::LogCallStack() {}
} // namespace Kiv
