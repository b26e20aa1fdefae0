// The locks against the standard library's: uncontended and two-thread critical sections, and
// the reader and writer paths of the SWMR guard against std::shared_mutex.
#include "SyncObject.h"

#include <benchmark/benchmark.h>

#include <mutex>
#include <shared_mutex>

namespace
{
Kiv::CriticalSection kivSection;
std::mutex stdMutex;
Kiv::SWMRGuard kivGuard;
std::shared_mutex stdShared;
long sharedCounter = 0;

void CriticalSectionKiv(benchmark::State & state)
{
    for (auto _ : state)
    {
        kivSection.Lock();
        benchmark::DoNotOptimize(++sharedCounter);
        kivSection.Unlock();
    }
}

void CriticalSectionStd(benchmark::State & state)
{
    for (auto _ : state)
    {
        stdMutex.lock();
        benchmark::DoNotOptimize(++sharedCounter);
        stdMutex.unlock();
    }
}

void ReadKiv(benchmark::State & state)
{
    for (auto _ : state)
    {
        kivGuard.WaitToRead();
        benchmark::DoNotOptimize(sharedCounter);
        kivGuard.DoneReading();
    }
}

void ReadStd(benchmark::State & state)
{
    for (auto _ : state)
    {
        stdShared.lock_shared();
        benchmark::DoNotOptimize(sharedCounter);
        stdShared.unlock_shared();
    }
}

void WriteKiv(benchmark::State & state)
{
    for (auto _ : state)
    {
        kivGuard.WaitToWrite();
        benchmark::DoNotOptimize(++sharedCounter);
        kivGuard.DoneWriting();
    }
}

void WriteStd(benchmark::State & state)
{
    for (auto _ : state)
    {
        stdShared.lock();
        benchmark::DoNotOptimize(++sharedCounter);
        stdShared.unlock();
    }
}
} // namespace

BENCHMARK(CriticalSectionKiv)->Name("Lock/critical-section-uncontended:Kiv");
BENCHMARK(CriticalSectionStd)->Name("Lock/critical-section-uncontended:std::mutex");
BENCHMARK(CriticalSectionKiv)->Name("Lock/critical-section-two-threads:Kiv")->Threads(2)->UseRealTime();
BENCHMARK(CriticalSectionStd)
    ->Name("Lock/critical-section-two-threads:std::mutex")
    ->Threads(2)
    ->UseRealTime();
BENCHMARK(ReadKiv)->Name("SWMR/read-uncontended:Kiv");
BENCHMARK(ReadStd)->Name("SWMR/read-uncontended:std::shared_mutex");
BENCHMARK(WriteKiv)->Name("SWMR/write-uncontended:Kiv");
BENCHMARK(WriteStd)->Name("SWMR/write-uncontended:std::shared_mutex");
BENCHMARK(ReadKiv)->Name("SWMR/read-two-threads:Kiv")->Threads(2)->UseRealTime();
BENCHMARK(ReadStd)->Name("SWMR/read-two-threads:std::shared_mutex")->Threads(2)->UseRealTime();
