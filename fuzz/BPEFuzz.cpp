// Arbitrary bytes through the bounded decoder, and every input coded and expanded back.
// Input: two bytes of destination capacity (little-endian), then the coded stream.
#include "BPE.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

using Kiv::BPE;

namespace
{
void Expect(bool holds)
{
    if (!holds)
        abort();
}

// The destination is exactly `capacity` bytes long, so any write past it is caught.
void DecodeBounded(const uint8_t * data, size_t size)
{
    if (size < 2)
        return;
    const unsigned long capacity = data[0] | static_cast<unsigned long>(data[1]) << 8;
    std::vector<unsigned char> out(capacity);
    const unsigned long got =
        BPE::Decomp(out.data(), capacity, data + 2, static_cast<unsigned long>(size - 2));
    Expect(got == BPE::BAD_STREAM || got <= capacity);
}

void RoundTrip(const uint8_t * data, size_t size)
{
    const auto length = static_cast<unsigned long>(size);
    std::vector<unsigned char> coded(size);
    std::vector<unsigned char> back(size);
    const unsigned long codedLength = BPE::Comp(coded.data(), data, length);
    Expect(codedLength <= length);
    if (codedLength == length)
    {
        Expect(size == 0 || memcmp(coded.data(), data, size) == 0);
        return;
    }
    Expect(BPE::Decomp(back.data(), length, coded.data(), codedLength) == length);
    Expect(memcmp(back.data(), data, size) == 0);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t * data, size_t size)
{
    DecodeBounded(data, size);
    RoundTrip(data, size);
    return 0;
}
