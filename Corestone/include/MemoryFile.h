// Data in memory: Kiv::MemoryFile, a read cursor over a block (the caller's, or one loaded from a
// file, UTF-16 text optionally turned into 8-bit text on the way), and Kiv::DynamicBuffer, a
// growable byte buffer with a position. Both move values in little-endian order and carry the
// serialised strings byte for byte as a file does.
#pragma once

#include "BinReader.h"
#include "File.h"
#include "KivApi.h"
#include "String.h"

#include <cstdint>

namespace Kiv
{
class PString;
class UnicodeString;

// Typed reads shared by the memory classes, whose Read answers a byte count.
namespace ByteStream
{
template <class Stream, typename T>
bool ReadItem(Stream & stream, T & value)
{
    return stream.Read(&value, 1, sizeof(T)) == sizeof(T);
}
// A value stored in a narrower type, such as a long kept in 32 bits on every target.
template <typename Stored, class Stream, typename T>
bool ReadStored(Stream & stream, T & value)
{
    Stored stored = 0;
    const bool done = ReadItem(stream, stored);
    value = stored;
    return done;
}
} // namespace ByteStream

class KIV_API MemoryFile : public BinReader, public BinWriter
{
public:
    MemoryFile() = default;
    MemoryFile(const void * data, unsigned int size, bool text = false, int encoding = 0);
    MemoryFile(File & file, bool text = false, int encoding = 0);
    MemoryFile(File & file, unsigned int size, bool text = false, int encoding = 0);
    // Loads size bytes of the named file, or all of it when size is 0. A char pointer picks this
    // form: memory holding text is passed as const void *.
    MemoryFile(const char * name, unsigned int size = 0);
    // A copy of an owned block is a block of its own; a view stays a view of the same memory.
    MemoryFile(const MemoryFile & other);
    MemoryFile & operator=(const MemoryFile & other);
    ~MemoryFile() override;

    // Encoding 0 looks for the FF FE mark, 1 is 8-bit text and 2 UTF-16; without the text flag
    // the bytes are taken as they are. Each answers whether there is a block to read.
    bool Open(const void * data, unsigned int size, bool text = false, int encoding = 0);
    bool Open(File & file, unsigned int size, bool text = false, int encoding = 0);
    // Loads from the file's position to its end.
    bool Open(File & file, bool text = false, int encoding = 0);
    bool Open(const char * name, unsigned int size = 0);
    // An owned, zeroed block of size bytes, to be filled with Write.
    bool Open(unsigned int size);
    void Close();
    bool IsOpen() const { return start != nullptr; }

    // All or nothing: count * itemSize bytes when that many remain, answering the byte count
    // (not the item count), else 0 with the cursor where it was.
    unsigned int Read(void * data, unsigned int count, unsigned int itemSize = 1);
    bool Read(char & value) { return ReadItem(value); }
    bool Read(signed char & value) { return ReadItem(value); }
    bool Read(unsigned char & value) { return ReadItem(value); }
    bool Read(short & value) { return ReadItem(value); }
    bool Read(unsigned short & value) { return ReadItem(value); }
    bool Read(int & value) { return ReadItem(value); }
    bool Read(unsigned int & value) { return ReadItem(value); }
    // A long is stored in 32 bits on every target.
    bool Read(long & value) { return ReadStored<int32_t>(value); }
    bool Read(unsigned long & value) { return ReadStored<uint32_t>(value); }
    bool Read(float & value) { return ReadItem(value); }
    // Each gives 0 when the value does not remain.
    unsigned char Readubyte() { return ReadValue<unsigned char>(); }
    signed char Readsbyte() { return ReadValue<signed char>(); }
    unsigned short Readuword() { return ReadValue<unsigned short>(); }
    short Readsword() { return ReadValue<short>(); }
    unsigned int Readudword() { return ReadValue<unsigned int>(); }
    int Readsdword() { return ReadValue<int>(); }
    float Readfloat() { return ReadValue<float>(); }
    // The next byte without moving, or -1 at the end.
    int Peek() const;
    // A serialised string, interned. Characters that do not remain give the empty name with the
    // cursor after the count word. The stored flag alone decides whether the text is UTF-16; the
    // second argument is accepted for callers that state what they expect.
    bool Read(PString & text, bool wide = false);
    bool Read(AnsiString & text) { return text.Read(*this); }
    bool Read(String & text) { return text.Read(*this); }
    bool Read(UnicodeString & text);

    // Copies only when the bytes fit before the end of the block; the bytes written or 0.
    unsigned int Write(const void * data, unsigned int size);
    bool Write(const AnsiString & text) { return text.Write(*this); }
    bool Write(const String & text) { return text.Write(*this); }
    bool Write(const UnicodeString & text);
    bool Write(const PString & text);

    // Origin 2 counts the offset back from the end. A cursor before the start goes back to it;
    // one past the end stays there and reads nothing. Answers the position.
    unsigned int Seek(int offset, File::FileSeek origin);
    unsigned int SeekSet(int offset) { return Seek(offset, File::FROM_START); }
    unsigned int SeekCur(int offset) { return Seek(offset, File::FROM_CURRENT); }
    unsigned int SeekEnd(int offset) { return Seek(offset, File::FROM_END); }
    unsigned int Tell() const { return cursor; }
    bool Eof() const { return cursor >= size; }
    unsigned int Size() const { return size; }
    // The byte under the cursor (null when nothing is open); the block's start is Data().
    unsigned char * CurrentPosition() const { return start != nullptr ? start + cursor : nullptr; }
    unsigned char * Data() const { return start; }
    const AnsiString & Name() const { return name; }
    void SetName(const char * newName) { name = newName; }

    unsigned int ReadRaw(void * data, unsigned int length) override { return Read(data, length, 1); }
    unsigned int WriteRaw(const void * data, unsigned int length) override { return Write(data, length); }

private:
    template <typename T>
    bool ReadItem(T & value)
    {
        return ByteStream::ReadItem(*this, value);
    }
    template <typename Stored, typename T>
    bool ReadStored(T & value)
    {
        return ByteStream::ReadStored<Stored>(*this, value);
    }
    template <typename T>
    T ReadValue()
    {
        T value = 0;
        ReadItem(value);
        return value;
    }
    uint32_t Remaining() const { return cursor < size ? size - cursor : 0; }
    bool Adopt(unsigned char * block, uint32_t bytes, bool owned);
    bool ConvertUtf16(const unsigned char * units, uint32_t bytes, bool byLine);
    bool Load(File & file, uint32_t bytes, bool wide);

    // The cursor is kept as an offset so that a seek past the end forms no wild pointer.
    uint32_t cursor = 0;
    unsigned char * start = nullptr;
    uint32_t size = 0;
    bool owns = false;
    AnsiString name;
};

class KIV_API DynamicBuffer : public BinReader, public BinWriter
{
public:
    enum : unsigned long
    {
        DEFAULT_GRANULARITY = 512
    };

    // A granularity of 0 means the default.
    explicit DynamicBuffer(unsigned long capacity = 0, unsigned long granularity = DEFAULT_GRANULARITY);
    DynamicBuffer(void * data, unsigned long length, bool readOnly);
    // A copy owns a copy of the data; a copy of a read-only buffer views the same memory.
    DynamicBuffer(const DynamicBuffer & other);
    DynamicBuffer & operator=(const DynamicBuffer & other);
    ~DynamicBuffer() override;

    // Drops the data and starts again with an empty owned block of the given capacity.
    bool ReInit(unsigned long capacity, unsigned long granularity = DEFAULT_GRANULARITY);
    // Not read-only: the data are copied into an owned block. Read-only: the caller's memory is
    // used in place, never grown nor freed.
    void SetData(void * data, unsigned long length, bool readOnly);
    // Frees an owned block and forgets everything.
    void Clean();
    // Empties the buffer, keeping its block.
    void Reset();
    void Rewind() { position = 0; }

    // The item count written; 0 for no data, no bytes or a read-only buffer.
    unsigned long Write(const void * data, unsigned long count, unsigned long itemSize = 1);
    bool Write(char value) { return WriteItem(value); }
    bool Write(signed char value) { return WriteItem(value); }
    bool Write(unsigned char value) { return WriteItem(value); }
    bool Write(short value) { return WriteItem(value); }
    bool Write(unsigned short value) { return WriteItem(value); }
    bool Write(long value) { return Write32(static_cast<int>(value)); }
    bool Write(unsigned long value) { return Write32(static_cast<unsigned int>(value)); }
    bool Write(float value) { return WriteItem(value); }
    bool Write32(int value) { return WriteItem(value); }
    bool Write32(unsigned int value) { return WriteItem(value); }
    bool Write(const AnsiString & text) { return text.Write(*this); }
    bool Write(const String & text) { return text.Write(*this); }
    bool Write(const UnicodeString & text);
    bool Write(const PString & text);

    // Copies what remains of the request before the length; the byte count.
    unsigned long Read(void * data, unsigned long count, unsigned long itemSize = 1);
    bool Read(char & value) { return ReadItem(value); }
    bool Read(signed char & value) { return ReadItem(value); }
    bool Read(unsigned char & value) { return ReadItem(value); }
    bool Read(short & value) { return ReadItem(value); }
    bool Read(unsigned short & value) { return ReadItem(value); }
    bool Read(long & value) { return ReadStored<int32_t>(value); }
    bool Read(unsigned long & value) { return ReadStored<uint32_t>(value); }
    bool Read(float & value) { return ReadItem(value); }
    bool Read32(int & value) { return ReadItem(value); }
    bool Read32(unsigned int & value) { return ReadItem(value); }
    bool Read(AnsiString & text) { return text.Read(*this); }
    bool Read(String & text) { return text.Read(*this); }
    bool Read(UnicodeString & text);
    bool Read(PString & text);

    // Makes room for n bytes at the position, in whole steps of the granularity; false when the
    // buffer cannot grow so far.
    bool AddLength(unsigned long n);
    // Bounded by the capacity, not the length: a position past the capacity stops at it (false).
    bool Seek(unsigned long newPosition);
    bool SetSize(unsigned long newLength);
    bool IsReadOnly() const { return readOnly; }
    void * GetCurrentData() const { return data != nullptr ? data + position : nullptr; }
    void * GetData() const { return data; }
    unsigned long GetPosition() const { return position; }
    unsigned long GetLength() const { return length; }
    unsigned long GetCapacity() const { return capacity; }
    unsigned long GetGranularity() const { return granularity; }

    unsigned int ReadRaw(void * bytes, unsigned int count) override;
    unsigned int WriteRaw(const void * bytes, unsigned int count) override;

private:
    template <typename T>
    bool ReadItem(T & value)
    {
        return ByteStream::ReadItem(*this, value);
    }
    template <typename Stored, typename T>
    bool ReadStored(T & value)
    {
        return ByteStream::ReadStored<Stored>(*this, value);
    }
    template <typename T>
    bool WriteItem(const T & value)
    {
        return Write(&value, 1, sizeof(T)) == 1;
    }
    bool Grow(uint64_t newCapacity);
    void Free();

    unsigned char * data = nullptr;
    uint32_t position = 0;
    uint32_t capacity = 0;
    uint32_t length = 0;
    uint32_t granularity = DEFAULT_GRANULARITY;
    bool readOnly = false;
};
} // namespace Kiv
