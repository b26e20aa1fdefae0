#include "BPE.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

using Kiv::BPE;
using Kiv::Crc;
using TestSupport::DataFile;
using TestSupport::ReadBytes;

namespace
{
using Bytes = std::vector<unsigned char>;

Bytes Compress(const Bytes & input)
{
    Bytes out(input.size() + 1, 0xEE);
    const unsigned long length =
        BPE::Comp(out.data(), input.data(), static_cast<unsigned long>(input.size()));
    // The coder never writes past the source's length.
    EXPECT_EQ(0xEE, out.back());
    out.resize(length);
    return out;
}

// Expands with the bounded decoder into exactly `capacity` bytes followed by guard bytes.
unsigned long BoundedDecode(const Bytes & coded, unsigned long capacity, Bytes & out)
{
    out.assign(capacity + 64, 0xA5);
    const unsigned long length =
        BPE::Decomp(out.data(), capacity, coded.data(), static_cast<unsigned long>(coded.size()));
    for (size_t i = capacity; i < out.size(); ++i)
        EXPECT_EQ(0xA5, out[i]) << "written past the capacity at " << i;
    if (length != BPE::BAD_STREAM)
        out.resize(length);
    return length;
}

void ExpectRoundTrip(const Bytes & input, const std::string & what)
{
    SCOPED_TRACE(what);
    const Bytes coded = Compress(input);
    if (coded.size() == input.size())
    {
        EXPECT_EQ(input, coded) << "a stored result is the input itself";
        return;
    }
    EXPECT_LT(coded.size(), input.size());
    Bytes out(input.size());
    EXPECT_EQ(input.size(), BPE::Decomp(out.data(), coded.data(), static_cast<unsigned long>(coded.size())));
    EXPECT_EQ(input, out);
    Bytes bounded;
    EXPECT_EQ(input.size(), BoundedDecode(coded, static_cast<unsigned long>(input.size()), bounded));
    EXPECT_EQ(input, bounded);
    if (!input.empty())
    {
        EXPECT_EQ(BPE::BAD_STREAM,
                  BoundedDecode(coded, static_cast<unsigned long>(input.size() - 1), bounded));
    }
}

Bytes Slice(const Bytes & whole, size_t start, size_t length)
{
    start = whole.empty() ? 0 : start % whole.size();
    length = std::min(length, whole.size() - start);
    return {whole.begin() + static_cast<long>(start), whole.begin() + static_cast<long>(start + length)};
}

} // namespace

TEST(BPE, EdgeCases)
{
    unsigned char scratch[8] = {};
    EXPECT_EQ(0u, BPE::Comp(scratch, "x", 0));
    EXPECT_EQ(0u, BPE::Decomp(scratch, "", 0));
    EXPECT_EQ(0u, BPE::Decomp(scratch, 0, "", 0));

    Bytes every(256);
    for (int i = 0; i < 256; ++i)
        every[i] = static_cast<unsigned char>(255 - i);
    EXPECT_EQ(every, Compress(every));

    // One repeated byte: a long chain of pairs expanding to exactly the input.
    const Bytes same(16384, 'q');
    const Bytes coded = Compress(same);
    EXPECT_LT(coded.size(), 16384u / 64);
    Bytes out;
    EXPECT_EQ(16384u, BoundedDecode(coded, 16384, out));
    EXPECT_EQ(same, out);

    // Two bytes, three bytes: too short for a pair to pay.
    EXPECT_EQ((Bytes{1, 2}), Compress(Bytes{1, 2}));
    EXPECT_EQ((Bytes{7, 7, 7}), Compress(Bytes{7, 7, 7}));
}

TEST(BPE, RoundTripsRealAndMadeData)
{
    const Bytes text = ReadBytes("/usr/share/common-licenses/GPL-3");
    const Bytes program = ReadBytes("/bin/ls");
    ASSERT_TRUE(!text.empty() && !program.empty());
    std::mt19937 random(7);
    Bytes noise(70000);
    for (auto & byte : noise)
        byte = static_cast<unsigned char>(random());
    // Few values, so blocks hold 2,048 bytes and free codes run short.
    Bytes small(40000);
    for (auto & byte : small)
        byte = static_cast<unsigned char>('a' + random() % 5);
    // Every value occurs early: blocks end at 210 distinct values.
    Bytes wide(40000);
    for (size_t i = 0; i < wide.size(); ++i)
        wide[i] = static_cast<unsigned char>(i < 256 ? i : (i % 3 ? i * 31 : 0));

    const size_t lengths[] = {1, 2, 4, 17, 255, 2047, 2048, 2049, 4096, 9000, 16383, 16384};
    for (const Bytes * source : std::initializer_list<const Bytes *>{&text, &program, &noise, &small, &wide})
        for (const size_t length : lengths)
            ExpectRoundTrip(Slice(*source, length * 13, length), std::to_string(length));
    EXPECT_LT(Compress(Slice(text, 0, 16384)).size(), 16384u * 7 / 10);
}

TEST(BPE, GoldenStreams)
{
    // Streams written once; every target must code the inputs to the same bytes and back.
    for (const char * name : {"BPEText", "BPEBinary", "BPERuns"})
    {
        SCOPED_TRACE(name);
        const Bytes input = ReadBytes(DataFile(std::string(name) + ".in"));
        const Bytes golden = ReadBytes(DataFile(std::string(name) + ".bpe"));
        ASSERT_FALSE(input.empty());
        EXPECT_EQ(golden, Compress(input));
        Bytes out;
        EXPECT_EQ(input.size(), BoundedDecode(golden, static_cast<unsigned long>(input.size()), out));
        EXPECT_EQ(input, out);
    }
}

TEST(BPE, HostileStreamsFailCleanly)
{
    const Bytes text = ReadBytes("/usr/share/common-licenses/GPL-3");
    const Bytes coded = Compress(Slice(text, 0, 6000));
    ASSERT_LT(coded.size(), 6000u);
    // Cut anywhere: a block cut short is refused, never read past.
    Bytes out;
    for (size_t cut = 0; cut < coded.size(); ++cut)
    {
        const Bytes part(coded.begin(), coded.begin() + static_cast<long>(cut));
        const unsigned long length = BoundedDecode(part, 6000, out);
        if (length != BPE::BAD_STREAM)
        {
            EXPECT_EQ(0, memcmp(out.data(), text.data(), length));
        }
        Bytes unbounded(6000);
        EXPECT_LE(BPE::Decomp(unbounded.data(), part.data(), static_cast<unsigned long>(part.size())), 6000u);
    }

    // Codes 1 and 2 expand into each other, as do 3 and 4; 5 is a plain pair. A loop only
    // fails the stream when the data use it.
    const Bytes table = {128, 1, 2, 'a', 1, 'b', 1, 4, 'c', 3, 'd', 0, 'x', 'y', 254, 250};
    Bytes loop = table;
    loop.insert(loop.end(), {0, 3, 5, 'z', 1});
    EXPECT_EQ(BPE::BAD_STREAM, BoundedDecode(loop, 1000, out));
    Bytes fine = table;
    fine.insert(fine.end(), {0, 3, 5, 'z', 5});
    EXPECT_EQ(5u, BoundedDecode(fine, 1000, out));
    EXPECT_EQ(Bytes({'x', 'y', 'z', 'x', 'y'}), out);

    // A run passing code 255, a skip passing it, a length beyond the input.
    EXPECT_EQ(BPE::BAD_STREAM, BoundedDecode({127 + 127, 127 + 127, 2, 1, 2, 3, 0, 0}, 100, out));
    EXPECT_EQ(BPE::BAD_STREAM, BoundedDecode({127 + 127, 127 + 127, 127 + 3, 0, 0}, 100, out));
    EXPECT_EQ(BPE::BAD_STREAM, BoundedDecode({127 + 127, 127 + 127, 127 + 2, 0, 9, 'a'}, 100, out));

    // Each code doubles the one before: 2^200 bytes asked for, answered at once.
    EXPECT_EQ(BPE::BAD_STREAM, BoundedDecode(TestSupport::DoublingBlock(177), 1 << 20, out));
}

TEST(Crc, CheckValueAndContinuation)
{
    EXPECT_EQ(0xFC891918ul, Crc::Calc("123456789", 9, 0));
    EXPECT_EQ(0x12345678ul, Crc::Calc("", 0, 0x12345678));
    // Going on from a partial result gives the one-step result.
    EXPECT_EQ(0xFC891918ul, Crc::Calc("56789", 5, Crc::Calc("1234", 4, 0)));
}
