// Byte-pair encoding, the compression of "CFIL" files, and the library's 32-bit CRC.
#pragma once

#include "KivApi.h"

namespace Kiv
{
class KIV_API BPE
{
public:
    enum : unsigned long
    {
        // What the bounded Decomp answers for a stream it refuses.
        BAD_STREAM = 0xFFFFFFFFul
    };

    // Codes `length` bytes of `source` into `destination`, which must hold `length` bytes, and
    // answers the coded size. When the coded form would not be smaller, the source is copied
    // unchanged and `length` is answered: the caller tells a stored result by its size.
    static unsigned long Comp(void * destination, const void * source, unsigned long length);

    // Expands `length` coded bytes into `destination` and answers the bytes produced. The
    // destination's size is not checked: the caller knows the expanded size. A stream that
    // breaks off ends the expansion where it broke.
    static unsigned long Decomp(void * destination, const void * source, unsigned long length);

    // The same, writing at most `capacity` bytes. Answers BAD_STREAM, having written nothing
    // beyond `capacity`, for a stream that would expand past it, ends inside a block, or holds
    // a pair code that expands into itself.
    static unsigned long Decomp(void * destination, unsigned long capacity, const void * source,
                                unsigned long length);
};

class KIV_API Crc
{
public:
    // The non-reflected CRC-32 over the polynomial 0x04C11DB7 (the BZIP2 form): pass 0 to start
    // and the previous result to go on. A zero length answers `crc` unchanged.
    static unsigned long Calc(const void * data, unsigned long length, unsigned long crc);
};
} // namespace Kiv
