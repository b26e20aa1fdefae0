// The exception handler's price on the way that does not fault: ExceptionHandler::Main around a
// function that returns at once, against a plain call and a plain try/catch. And the price of a
// call stack: the crash report's walk from a saved context, against backward-cpp's capture.
#include "Exception.h"
#include "ExceptionHandler.h"

#include <benchmark/benchmark.h>

#include <backward.hpp>
#include <ucontext.h>

namespace
{
int Return(void * data)
{
    benchmark::DoNotOptimize(data);
    return 0;
}

int (*volatile function)(void *) = Return;

void MainKiv(benchmark::State & state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(Kiv::ExceptionHandler::Main(function, nullptr));
}
BENCHMARK(MainKiv)->Name("Handler/Main:Kiv");

void MainDirect(benchmark::State & state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(function(nullptr));
}
BENCHMARK(MainDirect)->Name("Handler/Main:Direct");

void MainTryCatch(benchmark::State & state)
{
    for (auto _ : state)
    {
        try
        {
            benchmark::DoNotOptimize(function(nullptr));
        }
        catch (...)
        {
            benchmark::DoNotOptimize(state.iterations());
        }
    }
}
BENCHMARK(MainTryCatch)->Name("Handler/Main:TryCatch");

// The whole report of a fault at this point: registers, the walk and a line per frame.
__attribute__((noinline)) void WalkKiv(benchmark::State & state)
{
    ucontext_t context;
    getcontext(&context);
    Kiv::HardwareException::SignalRecord record{0xC0000005, nullptr, &context};
    for (auto _ : state)
    {
        Kiv::HardwareException report(&record);
        benchmark::DoNotOptimize(report.Description());
    }
}
BENCHMARK(WalkKiv)->Name("Handler/Walk:Kiv");

// backward-cpp's capture alone (the unwinder's addresses, no names or text).
__attribute__((noinline)) void WalkBackward(benchmark::State & state)
{
    for (auto _ : state)
    {
        backward::StackTrace trace;
        trace.load_here(64);
        benchmark::DoNotOptimize(trace.size());
    }
}
BENCHMARK(WalkBackward)->Name("Handler/Walk:Backward");
} // namespace
