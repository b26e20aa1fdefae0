// Pseudo-random generators: a one-word congruential generator and a table-driven XOR-feedback
// generator seeded from it. Every output is bit-identical on every target and compiler.
#pragma once

#include "KivApi.h"

#include <cstdint>

namespace Kiv
{
// Scaling of a raw 32-bit word into the ranged outputs, shared by both generators. The arithmetic
// is double precision, rounded to single precision only at the end of the float forms.
namespace RandScale
{
constexpr double wordMax = 4294967295.0;

// Truncation toward zero; a value outside the int range gives INT32_MIN, as the x86 conversion does.
inline std::int32_t TruncateToInt(double value)
{
    return value > -2147483649.0 && value < 2147483648.0 ? static_cast<std::int32_t>(value) : INT32_MIN;
}
inline std::uint32_t TruncateToUnsigned(double value)
{
    return value >= 0.0 && value < 4294967296.0 ? static_cast<std::uint32_t>(value) : 0u;
}
inline std::int32_t Int(std::int32_t n, std::uint32_t word)
{
    return TruncateToInt(n / wordMax * word);
}
inline std::int32_t Int(std::int32_t lo, std::int32_t hi, std::uint32_t word)
{
    // The span wraps in 32 bits, as the generators always have.
    const auto span =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(hi) - static_cast<std::uint32_t>(lo));
    return TruncateToInt(span / wordMax * word + lo);
}
inline double Double(double max, std::uint32_t word)
{
    return max / wordMax * word;
}
inline double Double(double lo, double hi, std::uint32_t word)
{
    return lo + (hi - lo) / wordMax * word;
}
} // namespace RandScale

// A multiplicative congruential generator, 16807 x mod (2^32 - 1), in one word of state.
class KIV_API LCRand
{
public:
    // Seeded from the engine clock, so a frame-locked replay repeats the sequence.
    LCRand();
    explicit LCRand(std::uint32_t seed) : state(seed) {}

    void Randomise();
    void SetSeed(std::uint32_t seed) { state = seed; }
    std::uint32_t GetSeed() const { return state; }

    // One step of the generator: the new state is also the result.
    static std::uint32_t Step(std::uint32_t x)
    {
        constexpr std::uint32_t q = 255546, r = 5673, a = 16807;
        if (x <= q)
        {
            return x * a % 0xFFFFFFFFu;
        }
        std::uint32_t next = x % q * a - x / q * r;
        // Schrage's correction reads the word as signed, so a true result of 2^31 or more also loses
        // one: recorded sequences depend on exactly this step.
        if (static_cast<std::int32_t>(next) <= 0)
        {
            next -= 1;
        }
        return next;
    }

    std::uint32_t GetRandom() { return state = Step(state); }
    std::uint32_t operator()() { return GetRandom(); }

    std::int32_t NextInt() { return static_cast<std::int32_t>(GetRandom() & 0x7FFFFFFFu); }
    std::int32_t NextInt(std::int32_t n) { return RandScale::Int(n, GetRandom()); }
    std::int32_t NextInt(std::int32_t lo, std::int32_t hi) { return RandScale::Int(lo, hi, GetRandom()); }
    float NextFloat() { return static_cast<float>(GetRandom() / RandScale::wordMax); }
    float NextFloat(float max) { return static_cast<float>(RandScale::Double(max, GetRandom())); }
    float NextFloat(float lo, float hi) { return static_cast<float>(RandScale::Double(lo, hi, GetRandom())); }
    double NextDouble() { return GetRandom() / RandScale::wordMax; }
    double NextDouble(double max) { return RandScale::Double(max, GetRandom()); }
    double NextDouble(double lo, double hi) { return RandScale::Double(lo, hi, GetRandom()); }
    bool NextBool() { return (GetRandom() & 1u) != 0; }

private:
    std::uint32_t state;
};

// A lagged XOR-feedback generator over a table of 32-bit words (250 by default), filled from the
// congruential generator through a Bays-Durham shuffle. Usable once seeded (SetSeed or Randomise).
// Copies share their tables (the last owner frees them), so a copy continues the same register.
class KIV_API Rand
{
public:
    Rand();
    explicit Rand(std::int32_t size);
    Rand(std::int32_t size, std::int32_t seedTableSize);
    Rand(const Rand & other);
    Rand & operator=(const Rand & other);
    ~Rand();

    void SetSeed(std::uint32_t seed);
    void Randomise();
    std::uint32_t GetSeed() const { return seedState; }

    std::uint32_t GetSize() const { return size; }
    std::uint32_t GetSeedTableSize() const { return seedTableSize; }
    std::int32_t GetLag() const { return lag; }

    // The raw output: one step of the feedback register.
    std::uint32_t GetRandom()
    {
        const std::int32_t j = index < lag ? index - lag + static_cast<std::int32_t>(size) : index - lag;
        const std::uint32_t word = table[index] ^= table[j];
        index = index == static_cast<std::int32_t>(size) - 1 ? 0 : index + 1;
        return word;
    }

    std::int32_t NextInt() { return static_cast<std::int32_t>(GetRandom() & 0x7FFFFFFFu); }
    bool NextBool() { return (GetRandom() & 1u) != 0; }
    // The scaled forms below give 0 for a raw word of 0, even where the range starts elsewhere.
    std::uint32_t operator()(std::uint32_t n)
    {
        const std::uint32_t word = GetRandom();
        return word == 0 ? 0 : RandScale::TruncateToUnsigned(n / RandScale::wordMax * word);
    }
    std::int32_t NextInt(std::int32_t n)
    {
        const std::uint32_t word = GetRandom();
        return word == 0 ? 0 : RandScale::Int(n, word);
    }
    std::int32_t NextInt(std::int32_t lo, std::int32_t hi)
    {
        const std::uint32_t word = GetRandom();
        return word == 0 ? 0 : RandScale::Int(lo, hi, word);
    }
    std::int32_t operator()(std::int32_t lo, std::int32_t hi) { return NextInt(lo, hi); }
    float NextFloat() { return static_cast<float>(GetRandom() / RandScale::wordMax); }
    float operator()() { return NextFloat(); }
    float NextFloat(float max) { return static_cast<float>(NextDouble(max)); }
    float operator()(float max) { return NextFloat(max); }
    float NextFloat(float lo, float hi) { return static_cast<float>(NextDouble(lo, hi)); }
    float operator()(float lo, float hi) { return NextFloat(lo, hi); }
    double NextDouble() { return GetRandom() / RandScale::wordMax; }
    double NextDouble(double max)
    {
        const std::uint32_t word = GetRandom();
        return word == 0 ? 0.0 : RandScale::Double(max, word);
    }
    double NextDouble(double lo, double hi)
    {
        const std::uint32_t word = GetRandom();
        return word == 0 ? 0.0 : RandScale::Double(lo, hi, word);
    }

    // Normal deviates by the polar method. The second deviate of each draw is kept in one value
    // shared by every generator of the process; only the flag saying it is there is per generator.
    float Gaussian(float mean, float deviation);

protected:
    void Init(std::int32_t size, std::int32_t seedTableSize);
    void RandLC() { seedState = LCRand::Step(seedState); }

private:
    void ReleaseTables();

    std::int32_t index = 0;
    std::int32_t lag = 0;
    std::uint32_t size = 0;
    std::uint32_t seedTableSize = 0;
    bool hasSpare = false;
    std::uint32_t seedState = 0;
    std::uint32_t * shuffle = nullptr;
    std::uint32_t * table = nullptr;
};
} // namespace Kiv
