// The serialised string: a 32-bit little-endian count, then the characters without a NUL. With
// bit 30 set the rest of the count is a byte count of UTF-16 little-endian text.
#pragma once

#include "BinReader.h"
#include "TextOps.h"

#include <cstdint>

namespace Kiv::StringSerial
{
constexpr uint32_t WideFlag = 0x40000000;

using ByteScratch = TextOps::Scratch<unsigned char, 1024>;

bool ReadWord(BinReader & reader, uint32_t & word);
// The count word, then size bytes; false when a write falls short.
bool WriteCounted(BinWriter & writer, uint32_t word, const void * bytes, unsigned int size);
// Reads count bytes into the scratch area, which grows only as the bytes arrive, so an absurd
// count fails at the end of the data instead of allocating for it. Two NUL bytes follow the data.
bool ReadBytes(BinReader & reader, uint32_t count, ByteScratch & into);
// Wide text as stored: UTF-16 units whatever the width of wchar_t.
bool WriteWide(BinWriter & writer, const wchar_t * text, unsigned int length);
} // namespace Kiv::StringSerial
