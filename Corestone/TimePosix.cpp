#include "Time.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <sys/uio.h>
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

// write() reports EFAULT for an unreadable source instead of faulting. Where the system cannot
// read this process's memory for itself (emulators, strict sandboxes), one pipe, opened on first
// need (again while the process has no descriptor to spare) and drained after each piece under
// its lock, probes the range instead.
class ProbePipe
{
public:
    ProbePipe() = default;
    ~ProbePipe()
    {
        if (ends[0] >= 0)
        {
            close(ends[0]);
            close(ends[1]);
        }
    }
    ProbePipe(const ProbePipe &) = delete;
    ProbePipe & operator=(const ProbePipe &) = delete;

    bool Probe(const char * p, size_t size)
    {
        std::lock_guard<std::mutex> hold(lock);
        if (ends[0] < 0 && pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        {
            ends[0] = ends[1] = -1;
            return false;
        }
        char drain[4096];
        while (size > 0)
        {
            const size_t piece = size < sizeof drain ? size : sizeof drain;
            const ssize_t written = write(ends[1], p, piece);
            if (written <= 0)
                return false;
            if (read(ends[0], drain, size_t(written)) != written)
                return false;
            p += written;
            size -= size_t(written);
        }
        return true;
    }

private:
    int ends[2] = {-1, -1};
    std::mutex lock;
};

// Reads the range into a scratch buffer through the system's cross-process copy, aimed at this
// very process: no descriptor, no lock. Answers -1 when the system refuses the call itself.
int ProbeByCopy(const char * p, size_t size)
{
    char scratch[4096];
    while (size > 0)
    {
        const size_t piece = size < sizeof scratch ? size : sizeof scratch;
        iovec local{scratch, piece};
        iovec remote{const_cast<char *>(p), piece};
        const ssize_t copied = process_vm_readv(getpid(), &local, 1, &remote, 1, 0);
        if (copied < 0 && (errno == ENOSYS || errno == EPERM))
            return -1;
        if (copied != ssize_t(piece))
            return 0;
        p += piece;
        size -= piece;
    }
    return 1;
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
    // Once refused, the copy is not tried again.
    static bool copyRefused = false;
    const char * start = static_cast<const char *>(address);
    if (!__atomic_load_n(&copyRefused, __ATOMIC_RELAXED))
    {
        const int copied = ProbeByCopy(start, size);
        if (copied >= 0)
            return copied != 0;
        __atomic_store_n(&copyRefused, true, __ATOMIC_RELAXED);
    }
    static ProbePipe pipe;
    return pipe.Probe(start, size);
}
} // namespace Kiv
