// The "CFIL" form of a file: a 12-byte header ("CFIL", version, plain length) and chunks of at
// most 16,384 plain bytes, each a little-endian length word and a payload that is either stored
// (bit 15 set) or one BPE stream. Used by the file object and by archives; exported for the
// library's own tests and tools, not part of the public headers.
#pragma once

#include "BinReader.h"
#include "File.h"
#include "KivApi.h"

#include <cstdint>

namespace Kiv
{
namespace CompressedFile
{
enum : uint32_t
{
    HEADER_BYTES = 12,
    VERSION = 257,
    CHUNK_BYTES = 16384,
    STORED_CHUNK = 0x8000,
    PAYLOAD_MASK = 0x7FFF
};

// Writes the header for `length` plain bytes, then their chunks as read from `plain`; false
// when `plain` gives fewer bytes or `target` takes fewer than asked.
KIV_API bool WriteCompressedForm(BinReader & plain, uint32_t length, BinWriter & target);

// The next temporary name of the write cycle, "%08X.T%08X" (process, then a process-wide count
// that goes up by one at each call), in the current directory or in `directory`.
KIV_API File::Path NextTemporaryName(const char * directory = nullptr);

// Expands one chunk: its length word and the `length & PAYLOAD_MASK` payload bytes, into `out`
// of CHUNK_BYTES bytes. Answers the chunk's plain bytes, or -1 when the chunk is broken (a
// stored payload or coded stream longer than a chunk, or a stream that does not expand cleanly).
KIV_API long DecodeChunk(unsigned lengthWord, const unsigned char * payload, unsigned char * out);
} // namespace CompressedFile
} // namespace Kiv
