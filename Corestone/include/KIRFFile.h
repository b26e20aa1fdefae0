// KIRF chunk files: a header ("KIRF", the byte count that follows it, a file identifier) and
// blocks of an identifier, a payload length and the payload; blocks may hold blocks. Strings in
// payloads are padded to four bytes. Every number is 32-bit little-endian on every target, also
// where the interface says unsigned long.
#pragma once

#include "Exception.h"
#include "File.h"
#include "KivApi.h"

namespace Kiv
{
class PString;
class String;

class KIV_API KIRFFile : public File
{
public:
    enum Results
    {
        RES_OK = 0,
        RES_UNKNOWN,
        RES_NOTKIRF,
        RES_WRONGID
    };
    static const ResultTable results[];
    using Result = ResultClass<KIRFFile>;

    // Writes "KIRF", a size of 0 and the identifier; the offset of the size field.
    unsigned int WriteHeader(unsigned long id);
    // Writes the identifier and the length, then the payload when data is given (else the caller
    // writes it); the offset of the length field.
    unsigned int WriteBlock(unsigned long id, unsigned int length, const void * data);
    // Writes the value at offset and returns to where the file stood.
    void WriteAt(unsigned int offset, unsigned long value);
    // Writes at offset the count of bytes from the end of that field to the current position.
    void WriteSizeAt(unsigned int offset);
    void WriteAt(unsigned int offset) { WriteSizeAt(offset); }
    // The count (characters plus one; 0 null, 0xFFFFFFFF empty), the characters, zeros to four.
    bool WritePadded(const PString & text);
    bool WritePadded(const String & text);

    Result ReadHeader(unsigned long id);
    // Also gives the bytes of the blocks after the identifier, stored before any check.
    Result ReadHeader(unsigned long id, unsigned int & size);
    Result ReadBlockHeader(unsigned long & id, unsigned int & length);
    // With the identifier expected: reads at most size bytes of the payload into buffer (none when
    // buffer is null), skips the rest and gives the full length in size. With another identifier
    // only the block header is consumed and size is the length, to skip by.
    Result ReadBlock(unsigned long id, unsigned int & size, void * buffer);
    // A count that runs past the end of the file answers RES_UNKNOWN with a null string.
    Result ReadPadded(PString & text);
    Result ReadPadded(String & text);

private:
    Result ReadPaddedBytes(unsigned char *& bytes, uint32_t & count);
    template <class Text>
    Result ReadPaddedText(Text & text);
    void Skip(uint32_t bytes);
};

// Writes a placeholder length and, when it ends, the count of bytes written after it. Ends
// quietly on a file that cannot seek back (closed, or written compressed): the length stays 0.
class KIV_API KIRFWriteSize
{
public:
    KIRFWriteSize(KIRFFile & file, unsigned int offset) : file(file), offset(offset) {}
    ~KIRFWriteSize();
    KIRFWriteSize(const KIRFWriteSize &) = delete;
    KIRFWriteSize & operator=(const KIRFWriteSize &) = delete;

protected:
    KIRFFile & file;
    unsigned int offset;
};

// The file header, its size filled in when the object ends.
class KIV_API KIRFWriteHeader : public KIRFWriteSize
{
public:
    KIRFWriteHeader(KIRFFile & file, unsigned long id) : KIRFWriteSize(file, file.WriteHeader(id)) {}
};

// A block whose payload is written while the object lives; its length is filled in at the end.
class KIV_API KIRFWriteBlock : public KIRFWriteSize
{
public:
    KIRFWriteBlock(KIRFFile & file, unsigned long id) : KIRFWriteSize(file, file.WriteBlock(id, 0, nullptr))
    {
    }
};
} // namespace Kiv
