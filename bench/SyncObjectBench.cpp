// The locks against the standard library's: uncontended and two-thread critical sections, and
// the reader and writer paths of the SWMR guard against std::shared_mutex.
#include "SyncObject.h"

#include <benchmark/benchmark.h>

#include <mutex>
#include <shared_mutex>
#include <thread>

namespace
{
Kiv::CriticalSection kivSection;
std::mutex stdMutex;
Kiv::SWMRGuard kivGuard;
std::shared_mutex stdShared;
long sharedCounter = 0;

// One pass through the guarded region per iteration; the counter stands for the shared data.
template <typename Enter, typename Leave>
void Guarded(benchmark::State & state, Enter enter, Leave leave)
{
    for (auto _ : state)
    {
        enter();
        benchmark::DoNotOptimize(++sharedCounter);
        leave();
    }
}

// Registers one lock's enter and leave, alone or on two threads at once.
template <typename Enter, typename Leave>
void Register(const char * name, Enter enter, Leave leave, int threads = 1)
{
    auto * benchmark =
        benchmark::RegisterBenchmark(name, [=](benchmark::State & state) { Guarded(state, enter, leave); });
    if (threads > 1)
    {
        benchmark->Threads(threads)->UseRealTime();
    }
}

// The same single pass once the process has had a second thread, so that the C library's and
// the lock's own shortcuts for a single-threaded process are off for good: the price a threaded
// program pays. Registered after the uncontended critical sections, which assume a single thread
// (every case after the first two-thread one runs in a threaded process anyway).
template <typename Enter, typename Leave>
void RegisterThreaded(const char * name, Enter enter, Leave leave)
{
    benchmark::RegisterBenchmark(name,
                                 [=](benchmark::State & state)
                                 {
                                     std::thread([] {}).join();
                                     Guarded(state, enter, leave);
                                 });
}

const auto csKivEnter = [] { kivSection.Lock(); };
const auto csKivLeave = [] { kivSection.Unlock(); };
const auto csStdEnter = [] { stdMutex.lock(); };
const auto csStdLeave = [] { stdMutex.unlock(); };
const auto readKivEnter = [] { kivGuard.WaitToRead(); };
const auto readKivLeave = [] { kivGuard.DoneReading(); };
const auto readStdEnter = [] { stdShared.lock_shared(); };
const auto readStdLeave = [] { stdShared.unlock_shared(); };

const bool registered = []
{
    Register("Lock/critical-section-uncontended:Kiv", csKivEnter, csKivLeave);
    Register("Lock/critical-section-uncontended:std::mutex", csStdEnter, csStdLeave);
    Register("Lock/critical-section-two-threads:Kiv", csKivEnter, csKivLeave, 2);
    Register("Lock/critical-section-two-threads:std::mutex", csStdEnter, csStdLeave, 2);
    Register("SWMR/read-uncontended:Kiv", readKivEnter, readKivLeave);
    Register("SWMR/read-uncontended:std::shared_mutex", readStdEnter, readStdLeave);
    Register("SWMR/read-two-threads:Kiv", readKivEnter, readKivLeave, 2);
    Register("SWMR/read-two-threads:std::shared_mutex", readStdEnter, readStdLeave, 2);
    Register(
        "SWMR/write-uncontended:Kiv", [] { kivGuard.WaitToWrite(); }, [] { kivGuard.DoneWriting(); });
    Register(
        "SWMR/write-uncontended:std::shared_mutex", [] { stdShared.lock(); }, [] { stdShared.unlock(); });
    RegisterThreaded("Lock/critical-section-threaded-process:Kiv", csKivEnter, csKivLeave);
    RegisterThreaded("Lock/critical-section-threaded-process:std::mutex", csStdEnter, csStdLeave);
    return true;
}();
} // namespace
