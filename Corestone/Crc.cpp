// The library's CRC-32: most significant bit first over 0x04C11DB7, eight bytes a step through
// eight tables, each the one before shifted on by a zero byte.
#include "BPE.h"

#include <cstdint>

namespace Kiv
{
namespace
{
const unsigned slices = 8;

struct CrcTables
{
    uint32_t table[slices][256];
};

constexpr CrcTables MakeTables()
{
    CrcTables tables{};
    for (uint32_t i = 0; i < 256; ++i)
    {
        uint32_t crc = i << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc << 1) ^ ((crc & 0x80000000u) ? 0x04C11DB7u : 0);
        tables.table[0][i] = crc;
    }
    for (unsigned k = 1; k < slices; ++k)
        for (uint32_t i = 0; i < 256; ++i)
        {
            const uint32_t before = tables.table[k - 1][i];
            tables.table[k][i] = (before << 8) ^ tables.table[0][before >> 24];
        }
    return tables;
}

constexpr CrcTables tables = MakeTables();

uint32_t BigEndian32(const unsigned char * in)
{
    return static_cast<uint32_t>(in[0]) << 24 | static_cast<uint32_t>(in[1]) << 16 |
           static_cast<uint32_t>(in[2]) << 8 | in[3];
}
} // namespace

unsigned long Crc::Calc(const void * data, unsigned long length, unsigned long crcSoFar)
{
    if (length == 0)
        return crcSoFar;
    const auto & t = tables.table;
    const auto * in = static_cast<const unsigned char *>(data);
    uint32_t crc = ~static_cast<uint32_t>(crcSoFar);
    for (; length >= slices; length -= slices, in += slices)
    {
        const uint32_t x = crc ^ BigEndian32(in);
        crc = t[7][x >> 24] ^ t[6][(x >> 16) & 0xFF] ^ t[5][(x >> 8) & 0xFF] ^ t[4][x & 0xFF] ^ t[3][in[4]] ^
              t[2][in[5]] ^ t[1][in[6]] ^ t[0][in[7]];
    }
    for (; length; --length)
        crc = (crc << 8) ^ t[0][(crc >> 24) ^ *in++];
    return ~crc;
}
} // namespace Kiv
