#include "Time.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace Kiv
{
namespace
{
uint64_t MonotonicNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return uint64_t(now.tv_sec) * 1000000000u + uint64_t(now.tv_nsec);
}

char * FormatLocalNow(char * buffer, const char * format)
{
    time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    strftime(buffer, 9, format, &local);
    return buffer;
}

// write() reports EFAULT for an unreadable source instead of faulting, so a pipe that is drained
// after each piece probes the range safely.
bool ProbeThroughPipe(int writeEnd, int readEnd, const char * p, size_t size)
{
    char drain[4096];
    while (size > 0)
    {
        size_t piece = size < sizeof drain ? size : sizeof drain;
        ssize_t written = write(writeEnd, p, piece);
        if (written <= 0)
            return false;
        if (read(readEnd, drain, size_t(written)) != written)
            return false;
        p += written;
        size -= size_t(written);
    }
    return true;
}
} // namespace

uint32_t Time::Ms()
{
    return static_cast<uint32_t>(MonotonicNs() / 1000000u);
}

void Time::Delay(unsigned long ms)
{
    timespec wait{time_t(ms / 1000), long(ms % 1000) * 1000000L};
    while (nanosleep(&wait, &wait) != 0 && errno == EINTR)
    {
    }
}

uint64_t Time::GetCounter()
{
    return MonotonicNs();
}

uint64_t Time::QueryCounterFrequency()
{
    return 1000000000u;
}

int64_t Time::TimeStamp()
{
    return static_cast<int64_t>(time(nullptr));
}

char * Time::Str(char * buffer)
{
    return FormatLocalNow(buffer, "%H:%M:%S");
}

char * Date::Str(char * buffer)
{
    return FormatLocalNow(buffer, "%m/%d/%y");
}

void Debugger::Output(const char * text)
{
    std::fputs(text, stderr);
}

bool Debugger::IsReadValid(const void * address, unsigned int size)
{
    if (size == 0)
        return true;
    if (!address)
        return false;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    bool readable = ProbeThroughPipe(ends[1], ends[0], static_cast<const char *>(address), size);
    close(ends[0]);
    close(ends[1]);
    return readable;
}
} // namespace Kiv
