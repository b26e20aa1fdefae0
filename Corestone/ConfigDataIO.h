// What the text and binary writers of the configuration tree share: multibyte text turned into
// wide characters, and the writer seen as a byte stream for the serialised string records.
#pragma once

#include "BinReader.h"
#include "ConfigData.h"
#include "TextOps.h"

namespace Kiv::ConfigDataIO
{
using WideScratch = TextOps::Scratch<wchar_t, 256>;

// length bytes of multibyte text as wide characters through the current locale; the characters,
// or -1 when a character cannot be converted or memory runs out.
long ToWide(const char * text, unsigned int length, WideScratch & wide);

class SinkStream : public BinWriter
{
public:
    explicit SinkStream(ConfigData::Writer & writer) : writer(writer) {}
    unsigned int WriteRaw(const void * buffer, unsigned int size) override
    {
        return writer.Write(buffer, size, 1) ? size : 0;
    }

private:
    ConfigData::Writer & writer;
};
} // namespace Kiv::ConfigDataIO
