#include "Rand.h"

#include "Alloc.h"
#include "Time.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

namespace Kiv
{
namespace
{
constexpr std::uint32_t minimumSize = 250;
constexpr std::uint32_t minimumSeedTableSize = 100;

// The second deviate of the last polar draw, shared by every generator of the process.
float gaussianSpare = 0.0f;

// Tables of 2^30 words or more would overflow a 32-bit byte count: refuse them outright.
std::uint32_t * AllocateWords(std::uint32_t count)
{
    if (count >= 0x40000000u)
    {
        throw std::bad_alloc();
    }
    auto * words = static_cast<std::uint32_t *>(Alloc::New(count * sizeof(std::uint32_t)));
    if (words == nullptr)
    {
        throw std::bad_alloc();
    }
    std::memset(words, 0, count * sizeof(std::uint32_t));
    return words;
}

void FreeWords(std::uint32_t * words)
{
    Alloc::Delete(words);
}

float UnitFloat(std::uint32_t word)
{
    return static_cast<float>(word / RandScale::wordMax);
}
} // namespace

LCRand::LCRand() : state(Time::FrameLockMs() + 10) {}

void LCRand::Randomise()
{
    state = Time::FrameLockMs() + 10;
}

Rand::Rand()
{
    Init(minimumSize, minimumSeedTableSize);
}

Rand::Rand(std::int32_t size)
{
    Init(size, minimumSeedTableSize);
}

Rand::Rand(std::int32_t size, std::int32_t seedTableSize)
{
    Init(size, seedTableSize);
}

// Copies share both tables; the share count lives in the word before the shuffle table.
Rand::Rand(const Rand & other)
    : index(other.index), lag(other.lag), size(other.size), seedTableSize(other.seedTableSize),
      hasSpare(other.hasSpare), seedState(other.seedState), shuffle(other.shuffle), table(other.table)
{
    ++shuffle[-1];
}

Rand & Rand::operator=(const Rand & other)
{
    if (this != &other)
    {
        ++other.shuffle[-1];
        ReleaseTables();
        index = other.index;
        lag = other.lag;
        size = other.size;
        seedTableSize = other.seedTableSize;
        hasSpare = other.hasSpare;
        seedState = other.seedState;
        shuffle = other.shuffle;
        table = other.table;
    }
    return *this;
}

Rand::~Rand()
{
    ReleaseTables();
}

void Rand::ReleaseTables()
{
    if (shuffle != nullptr && --shuffle[-1] == 0)
    {
        FreeWords(shuffle - 1);
        FreeWords(table);
    }
    shuffle = nullptr;
    table = nullptr;
}

void Rand::Init(std::int32_t newSize, std::int32_t newSeedTableSize)
{
    ReleaseTables();
    size = std::max<std::uint32_t>(std::max(newSize, 0), minimumSize);
    seedTableSize = std::max<std::uint32_t>(std::max(newSeedTableSize, 0), minimumSeedTableSize);
    std::uint32_t * block = AllocateWords(seedTableSize + 1);
    try
    {
        table = AllocateWords(size);
    }
    catch (...)
    {
        FreeWords(block);
        throw;
    }
    block[0] = 1;
    shuffle = block + 1;
    index = 0;
    lag = static_cast<std::int32_t>(size / 2 + 22);
}

void Rand::Randomise()
{
    SetSeed(Time::FrameLockMs() + 10);
}

void Rand::SetSeed(std::uint32_t seed)
{
    seedState = seed;
    index = 0;
    for (std::uint32_t k = 0; k < seedTableSize; ++k)
    {
        RandLC();
        shuffle[k] = seedState;
    }
    RandLC();
    // Bays-Durham: each main word takes a shuffle word picked by the generator, which is refilled.
    const auto lastSlot = static_cast<float>(seedTableSize - 1);
    for (std::uint32_t k = 0; k < size; ++k)
    {
        const auto u = static_cast<float>(seedState * 2.3283064365386963e-10);
        const float position = u * lastSlot - 0.5f;
        // lrintf rounds half to even; the bound only matters for tables too large for a float's 24 bits.
        const auto m = std::min(static_cast<std::uint32_t>(std::lrintf(position)), seedTableSize - 1);
        table[k] = shuffle[m];
        RandLC();
        shuffle[m] = seedState;
    }
    for (std::uint32_t k = 0; k < size; ++k)
    {
        RandLC();
        if (seedState > 0x40000000u)
        {
            table[k] |= 0x80000000u;
        }
    }
    // 32 words with a staircase of leading bits are linearly independent, which keeps the
    // feedback register out of short cycles.
    for (std::uint32_t b = 0; b < 32; ++b)
    {
        std::uint32_t & word = table[3 + 7 * b];
        word = (word & (0xFFFFFFFFu >> b)) | (0x80000000u >> b);
    }
}

float Rand::Gaussian(float mean, float deviation)
{
    if (hasSpare)
    {
        hasSpare = false;
        return gaussianSpare * deviation + mean;
    }
    float u = 0.0f;
    float v = 0.0f;
    float s = 0.0f;
    do
    {
        u = UnitFloat(GetRandom()) * 2.0f - 1.0f;
        v = UnitFloat(GetRandom()) * 2.0f - 1.0f;
        s = v * v + u * u;
    } while (s >= 1.0f);
    // Only the logarithm and the factor are rounded to single precision; the quotient and the root
    // stay in double. Recorded sequences depend on exactly these roundings.
    const auto logarithm = static_cast<float>(std::log(static_cast<double>(s)));
    const auto factor = static_cast<float>(std::sqrt(-2.0 * logarithm / s));
    gaussianSpare = factor * v;
    hasSpare = true;
    const float deviate = factor * u;
    return deviate * deviation + mean;
}
} // namespace Kiv
