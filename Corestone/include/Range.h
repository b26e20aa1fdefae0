// A closed interval [low, high] of a number type, such as a range of sizes or of speeds.
#pragma once

namespace Kiv
{
template <class T>
struct Range
{
    T low = T();
    T high = T();

    constexpr Range() = default;
    constexpr Range(T low, T high) : low(low), high(high) {}

    constexpr bool Contains(T value) const { return low <= value && value <= high; }
    constexpr bool operator==(const Range & other) const { return low == other.low && high == other.high; }
    constexpr bool operator!=(const Range & other) const { return !(*this == other); }
};
} // namespace Kiv
