// Reading a file's bytes into a block of Kiv::Alloc that grows only as the bytes arrive: the
// size a file reports, or a count a file states, may be a damaged header speaking, and must
// cost nothing until the bytes are really there.
#pragma once

#include "File.h"

#include <cstdint>

namespace Kiv
{
// The bytes from the file's position to its end; none for a closed file.
unsigned long RestOf(File & file);

// Reads up to `bytes` from the file's position. The block has one spare byte after the `got`
// bytes for a terminator; null when nothing came or memory ran out.
unsigned char * ReadFileBlock(File & file, uint32_t bytes, uint32_t & got);
} // namespace Kiv
