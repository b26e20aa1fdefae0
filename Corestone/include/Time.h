// The library's static clock and debugger services.
#pragma once

#include "KivApi.h"

#include <cstdint>

namespace Kiv
{
class KIV_API Time
{
public:
    // Milliseconds of a monotonic clock; wraps at 2^32.
    static uint32_t Ms();
    static void Delay(unsigned long ms);
    // The raw high-resolution counter; Us is its low 32 bits, still in counter ticks.
    static uint64_t GetCounter();
    static uint64_t Usq();
    static uint32_t Us();
    static uint64_t GetCounterFrequency();
    static double GetSeconds();
    // Seconds since 1970.
    static int64_t TimeStamp();
    // Writes the local time as "HH:MM:SS" into buffer (at least 9 chars) and returns it.
    static char * Str(char * buffer);

    // Frame lock: while set, frame time advances by a fixed delta per IncFrame, not by the clock.
    static void SetFrameLockTime(double delta);
    static void IncFrame();
    static double FrameLockSeconds();
    static uint32_t FrameLockMs();

    static uint64_t freq;
    static bool frameLock;
    static double frameLockTime;
    static double frameLockDelta;
    static uint32_t frameLockCount;

private:
    static uint64_t QueryCounterFrequency();
};

class KIV_API Date
{
public:
    // Writes the local date as "MM/DD/YY" into buffer (at least 9 chars) and returns it.
    static char * Str(char * buffer);
};

class KIV_API Debugger
{
public:
    // Text for the attached debugger; standard error where there is no debugger channel.
    static void Output(const char * text);
    // True when every byte of the range can be read.
    static bool IsReadValid(const void * address, unsigned int size);
    // Deliberately empty.
    static void Break();
    static void LogCallStack();
};
} // namespace Kiv
