// Generators against the standard library's: raw words, ranged integers, floats and normal
// deviates, 1,000 outputs per iteration.
#include "Rand.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>

namespace
{
constexpr int batch = 1000;

template <typename Draw>
void RunBatches(benchmark::State & state, Draw draw)
{
    for (auto _ : state)
    {
        for (int i = 0; i < batch; ++i)
        {
            benchmark::DoNotOptimize(draw());
        }
    }
    state.SetItemsProcessed(state.iterations() * batch);
}

Kiv::Rand & SeededRand()
{
    static Kiv::Rand generator;
    generator.SetSeed(12345);
    return generator;
}

void WordsKivRand(benchmark::State & state)
{
    Kiv::Rand & generator = SeededRand();
    RunBatches(state, [&] { return generator.GetRandom(); });
}
void WordsMt19937(benchmark::State & state)
{
    std::mt19937 generator(12345);
    RunBatches(state, [&] { return generator(); });
}
void WordsKivLCRand(benchmark::State & state)
{
    Kiv::LCRand generator(12345);
    RunBatches(state, [&] { return generator.GetRandom(); });
}
void WordsMinstd(benchmark::State & state)
{
    std::minstd_rand generator(12345);
    RunBatches(state, [&] { return generator(); });
}

void RangedKivRand(benchmark::State & state)
{
    Kiv::Rand & generator = SeededRand();
    RunBatches(state, [&] { return generator.NextInt(-50, 50); });
}
void RangedMt19937(benchmark::State & state)
{
    std::mt19937 generator(12345);
    std::uniform_int_distribution<int> range(-50, 50);
    RunBatches(state, [&] { return range(generator); });
}
void RangedKivLCRand(benchmark::State & state)
{
    Kiv::LCRand generator(12345);
    RunBatches(state, [&] { return generator.NextInt(-50, 50); });
}
void RangedMinstd(benchmark::State & state)
{
    std::minstd_rand generator(12345);
    std::uniform_int_distribution<int> range(-50, 50);
    RunBatches(state, [&] { return range(generator); });
}

void FloatKivRand(benchmark::State & state)
{
    Kiv::Rand & generator = SeededRand();
    RunBatches(state, [&] { return generator.NextFloat(2.0f, 5.0f); });
}
void FloatMt19937(benchmark::State & state)
{
    std::mt19937 generator(12345);
    std::uniform_real_distribution<float> range(2.0f, 5.0f);
    RunBatches(state, [&] { return range(generator); });
}

void GaussianKivRand(benchmark::State & state)
{
    Kiv::Rand & generator = SeededRand();
    RunBatches(state, [&] { return generator.Gaussian(0.0f, 1.0f); });
}
void GaussianMt19937(benchmark::State & state)
{
    std::mt19937 generator(12345);
    std::normal_distribution<float> normal(0.0f, 1.0f);
    RunBatches(state, [&] { return normal(generator); });
}

void SeedKivRand(benchmark::State & state)
{
    Kiv::Rand generator;
    std::uint32_t seed = 1;
    for (auto _ : state)
    {
        generator.SetSeed(seed++);
        benchmark::DoNotOptimize(generator.GetRandom());
    }
}
void SeedMt19937(benchmark::State & state)
{
    std::mt19937 generator;
    std::uint32_t seed = 1;
    for (auto _ : state)
    {
        generator.seed(seed++);
        benchmark::DoNotOptimize(generator());
    }
}
} // namespace

BENCHMARK(WordsKivRand)->Name("Rand/u32:Kiv");
BENCHMARK(WordsMt19937)->Name("Rand/u32:mt19937");
BENCHMARK(WordsKivLCRand)->Name("LCRand/u32:Kiv");
BENCHMARK(WordsMinstd)->Name("LCRand/u32:minstd_rand");
BENCHMARK(RangedKivRand)->Name("Rand/int-range:Kiv");
BENCHMARK(RangedMt19937)->Name("Rand/int-range:mt19937");
BENCHMARK(RangedKivLCRand)->Name("LCRand/int-range:Kiv");
BENCHMARK(RangedMinstd)->Name("LCRand/int-range:minstd_rand");
BENCHMARK(FloatKivRand)->Name("Rand/float-range:Kiv");
BENCHMARK(FloatMt19937)->Name("Rand/float-range:mt19937");
BENCHMARK(GaussianKivRand)->Name("Gaussian/float:Kiv");
BENCHMARK(GaussianMt19937)->Name("Gaussian/float:mt19937");
BENCHMARK(SeedKivRand)->Name("Rand/seed:Kiv");
BENCHMARK(SeedMt19937)->Name("Rand/seed:mt19937");
