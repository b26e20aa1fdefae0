#include "Time.h"

#include <ctime>
#include <windows.h>

#include <mmsystem.h>

namespace Kiv
{
uint32_t Time::Ms()
{
    return timeGetTime();
}

void Time::Delay(unsigned long ms)
{
    Sleep(ms);
}

uint64_t Time::GetCounter()
{
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return static_cast<uint64_t>(counter.QuadPart);
}

uint64_t Time::QueryCounterFrequency()
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<uint64_t>(frequency.QuadPart);
}

int64_t Time::TimeStamp()
{
    return _time64(nullptr);
}

char * Time::Str(char * buffer)
{
    return _strtime(buffer);
}

char * Date::Str(char * buffer)
{
    return _strdate(buffer);
}

void Debugger::Output(const char * text)
{
    OutputDebugStringA(text);
}

bool Debugger::IsReadValid(const void * address, unsigned int size)
{
    return !IsBadReadPtr(address, size);
}
} // namespace Kiv
