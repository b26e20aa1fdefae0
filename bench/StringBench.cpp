// Strings and pooled names against the standard library a user would reach for instead:
// interning in std::unordered_set<std::string>, copying, appending, formatting and searching
// std::string.
#include "PString.h"
#include "String.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <unordered_set>
#include <vector>

namespace
{
std::vector<std::string> Names(const char * prefix, int count)
{
    std::vector<std::string> names;
    names.reserve(count);
    for (int i = 0; i < count; ++i)
        names.push_back(std::string("textures/") + prefix + "/object_" + std::to_string(i * 7919) + ".tga");
    return names;
}

constexpr int missBatch = 1000;

std::vector<Kiv::PString> Pooled(const std::vector<std::string> & names)
{
    std::vector<Kiv::PString> pool;
    pool.reserve(names.size());
    for (const std::string & name : names)
        pool.emplace_back(name.c_str());
    return pool;
}

// Looks up names that are all pooled already, with `live` names in the pool.
void PooledHit(benchmark::State & state)
{
    auto live = static_cast<int>(state.range(0));
    std::vector<std::string> names = Names("hit", live);
    std::vector<Kiv::PString> pool = Pooled(names);
    size_t next = 0;
    for (auto _ : state)
    {
        Kiv::PString name(names[next].c_str());
        benchmark::DoNotOptimize(name.GetNode());
        next = next + 1 == names.size() ? 0 : next + 1;
    }
}

void SetHit(benchmark::State & state)
{
    auto live = static_cast<int>(state.range(0));
    std::vector<std::string> names = Names("hit", live);
    std::unordered_set<std::string> pool(names.begin(), names.end());
    size_t next = 0;
    for (auto _ : state)
    {
        const std::string & name = *pool.emplace(names[next].c_str()).first;
        benchmark::DoNotOptimize(&name);
        next = next + 1 == names.size() ? 0 : next + 1;
    }
}

// Adds names never seen before; every batch is dropped again (and swept) outside the timing.
void PooledMiss(benchmark::State & state)
{
    std::vector<std::string> names = Names("live", static_cast<int>(state.range(0)));
    std::vector<Kiv::PString> pool = Pooled(names);
    std::vector<std::string> fresh = Names("miss", missBatch);
    std::vector<Kiv::PString> made;
    made.reserve(missBatch);
    for (auto _ : state)
    {
        made.emplace_back(fresh[made.size()].c_str());
        if (made.size() == missBatch)
        {
            state.PauseTiming();
            made.clear();
            for (unsigned int b = 0; b < Kiv::PString::cache->GetBucketCount(); ++b)
                Kiv::PString::cache->CollectGarbage();
            state.ResumeTiming();
        }
    }
}

void SetMiss(benchmark::State & state)
{
    std::vector<std::string> names = Names("live", static_cast<int>(state.range(0)));
    std::unordered_set<std::string> pool(names.begin(), names.end());
    std::vector<std::string> fresh = Names("miss", missBatch);
    size_t made = 0;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(&*pool.emplace(fresh[made].c_str()).first);
        if (++made == missBatch)
        {
            state.PauseTiming();
            for (const std::string & name : fresh)
                pool.erase(name);
            made = 0;
            state.ResumeTiming();
        }
    }
}

template <class Text>
void Copy(benchmark::State & state)
{
    const Text source(std::string(static_cast<size_t>(state.range(0)), 'c').c_str());
    for (auto _ : state)
    {
        Text copy(source);
        benchmark::DoNotOptimize(&copy);
    }
}

// Appends five characters at a time to a fresh string; "reserved" rows ask for the room first.
void AppendKiv(benchmark::State & state)
{
    auto pieces = static_cast<int>(state.range(0));
    bool reserve = state.range(1) != 0;
    for (auto _ : state)
    {
        Kiv::AnsiString text;
        if (reserve)
            text.SetLength(static_cast<unsigned int>(5 * pieces));
        for (int i = 0; i < pieces; ++i)
            text += "piece";
        benchmark::DoNotOptimize(static_cast<const char *>(text));
    }
}

void AppendStd(benchmark::State & state)
{
    auto pieces = static_cast<int>(state.range(0));
    bool reserve = state.range(1) != 0;
    for (auto _ : state)
    {
        std::string text;
        if (reserve)
            text.reserve(static_cast<size_t>(5 * pieces));
        for (int i = 0; i < pieces; ++i)
            text += "piece";
        benchmark::DoNotOptimize(text.data());
    }
}

void FormatKiv(benchmark::State & state)
{
    Kiv::AnsiString text;
    for (auto _ : state)
    {
        text.Setf("%s/%d: %.3f", "frame", 1234, 16.667);
        benchmark::DoNotOptimize(static_cast<const char *>(text));
    }
}

void FormatStd(benchmark::State & state)
{
    std::string text;
    for (auto _ : state)
    {
        char buffer[1024];
        int count = std::snprintf(buffer, sizeof(buffer), "%s/%d: %.3f", "frame", 1234, 16.667);
        text.assign(buffer, static_cast<size_t>(count));
        benchmark::DoNotOptimize(text.data());
    }
}

std::string Haystack()
{
    std::string text;
    while (text.size() < 4000)
        text += "a configuration line, key = value; ";
    return text + "needle-at-the-end";
}

void FindKiv(benchmark::State & state)
{
    Kiv::AnsiString text(Haystack().c_str());
    for (auto _ : state)
        benchmark::DoNotOptimize(text.Find("needle"));
}

void FindStd(benchmark::State & state)
{
    std::string text = Haystack();
    for (auto _ : state)
        benchmark::DoNotOptimize(text.find("needle"));
}

// The case carries the argument, so every pool size and text length is its own row.
void RegisterAll()
{
    for (int live : {1000, 10000, 100000})
    {
        std::string size = std::to_string(live);
        benchmark::RegisterBenchmark(("PStringHit/live-" + size + ":Kiv").c_str(), PooledHit)->Arg(live);
        benchmark::RegisterBenchmark(("PStringHit/live-" + size + ":unordered_set").c_str(), SetHit)
            ->Arg(live);
        benchmark::RegisterBenchmark(("PStringMiss/live-" + size + ":Kiv").c_str(), PooledMiss)->Arg(live);
        benchmark::RegisterBenchmark(("PStringMiss/live-" + size + ":unordered_set").c_str(), SetMiss)
            ->Arg(live);
    }
    for (int pieces : {64, 1000})
    {
        for (int reserve : {0, 1})
        {
            std::string row = "StringAppend/" + std::to_string(pieces) + "x5" + (reserve ? "-reserved" : "");
            benchmark::RegisterBenchmark((row + ":Kiv").c_str(), AppendKiv)->Args({pieces, reserve});
            benchmark::RegisterBenchmark((row + ":std").c_str(), AppendStd)->Args({pieces, reserve});
        }
    }
    for (int chars : {8, 64})
    {
        std::string size = std::to_string(chars);
        benchmark::RegisterBenchmark(("StringCopy/chars-" + size + ":Kiv").c_str(), Copy<Kiv::AnsiString>)
            ->Arg(chars);
        benchmark::RegisterBenchmark(("StringCopy/chars-" + size + ":std").c_str(), Copy<std::string>)
            ->Arg(chars);
    }
}

const int registered = (RegisterAll(), 0);
} // namespace

BENCHMARK(FormatKiv)->Name("StringFormat/short:Kiv");
BENCHMARK(FormatStd)->Name("StringFormat/short:snprintf");
BENCHMARK(FindKiv)->Name("StringFind/4k:Kiv");
BENCHMARK(FindStd)->Name("StringFind/4k:std");
