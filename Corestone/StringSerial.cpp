#include "StringSerial.h"

namespace Kiv::StringSerial
{
bool ReadWord(BinReader & reader, uint32_t & word)
{
    unsigned char bytes[4];
    if (reader.ReadRaw(bytes, 4) != 4)
        return false;
    word = CRuntime::GetLittleEndian32(bytes);
    return true;
}

bool WriteCounted(BinWriter & writer, uint32_t word, const void * bytes, unsigned int size)
{
    unsigned char count[4];
    CRuntime::PutLittleEndian32(count, word);
    return writer.WriteRaw(count, 4) == 4 && (size == 0 || writer.WriteRaw(bytes, size) == size);
}

bool ReadBytes(BinReader & reader, uint32_t count, ByteScratch & into)
{
    if (count > TextOps::MaxTextBytes)
        return false;
    const uint32_t piece = 65536;
    for (uint32_t got = 0; got < count;)
    {
        uint32_t step = count - got < piece ? count - got : piece;
        unsigned char * data = into.Reserve(static_cast<size_t>(got) + step + 2);
        if (data == nullptr || reader.ReadRaw(data + got, step) != step)
            return false;
        got += step;
    }
    unsigned char * data = into.Reserve(static_cast<size_t>(count) + 2);
    data[count] = 0;
    data[count + 1] = 0;
    return true;
}

bool WriteWide(BinWriter & writer, const wchar_t * text, unsigned int length)
{
    size_t bytes = 2 * CRuntime::Utf16Units(text, length);
    ByteScratch units;
    unsigned char * data = units.Reserve(bytes);
    if (data == nullptr || bytes >= WideFlag)
        return false;
    CRuntime::EncodeUtf16(text, length, data);
    return WriteCounted(writer, WideFlag | static_cast<uint32_t>(bytes), data,
                        static_cast<unsigned int>(bytes));
}
} // namespace Kiv::StringSerial
