// The raw byte stream under the serialised forms of strings and other records. Files, memory
// files and buffers implement it; a short count means the stream ended or failed.
#pragma once

#include "KivApi.h"

namespace Kiv
{
class KIV_API BinReader
{
public:
    virtual ~BinReader() = default;
    // Reads up to size bytes; returns the bytes actually read.
    virtual unsigned int ReadRaw(void * buffer, unsigned int size) = 0;
};

class KIV_API BinWriter
{
public:
    virtual ~BinWriter() = default;
    // Writes size bytes; returns the bytes actually written.
    virtual unsigned int WriteRaw(const void * buffer, unsigned int size) = 0;
};
} // namespace Kiv
