// The cost of a profiled scope: an enabled Profile object (two reads of the performance counter),
// a disabled one (a mask test), and an empty scope as the baseline.
#include "Profile.h"

#include <benchmark/benchmark.h>

namespace
{
Kiv::Profile::Info benchInfo("bench");

void ProfiledScope(benchmark::State & state)
{
    Kiv::Profile::Enable(1);
    for (auto _ : state)
    {
        Kiv::Profile scope(&benchInfo);
        benchmark::ClobberMemory();
    }
    Kiv::Profile::Disable();
}

void DisabledScope(benchmark::State & state)
{
    Kiv::Profile::Disable();
    for (auto _ : state)
    {
        Kiv::Profile scope(&benchInfo);
        benchmark::ClobberMemory();
    }
}

void EmptyScope(benchmark::State & state)
{
    for (auto _ : state)
    {
        benchmark::ClobberMemory();
    }
}

void ChildTimeScopes(benchmark::State & state)
{
    static Kiv::Profile::Info inner("inner");
    Kiv::Profile::Enable(1);
    Kiv::Profile::ChildTime(true);
    for (auto _ : state)
    {
        Kiv::Profile outer(&benchInfo);
        Kiv::Profile nested(&inner);
        benchmark::ClobberMemory();
    }
    Kiv::Profile::ChildTime(false);
    Kiv::Profile::Disable();
}
} // namespace

BENCHMARK(ProfiledScope)->Name("Profile/scope:Kiv");
BENCHMARK(EmptyScope)->Name("Profile/scope:empty-scope");
BENCHMARK(DisabledScope)->Name("Profile/scope-disabled:Kiv");
BENCHMARK(EmptyScope)->Name("Profile/scope-disabled:empty-scope");
BENCHMARK(ChildTimeScopes)->Name("Profile/nested-pair:Kiv");
BENCHMARK(EmptyScope)->Name("Profile/nested-pair:empty-scope");
