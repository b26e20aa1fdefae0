// The "CFIL" form: writing it from plain bytes, and the file object's side of it, chunk refills,
// the chunk walk of a seek and the write cycle that compresses a file when it is closed.
#include "CompressedFile.h"

#include "Alloc.h"
#include "BPE.h"
#include "CRuntime.h"
#include "FilePlatform.h"
#include "PString.h"

#include <atomic>
#include <cstdio>
#include <cstring>

namespace Kiv
{
namespace CompressedFile
{
namespace
{
std::atomic<uint32_t> temporaryCount{0};

unsigned int ReadFully(int handle, void * data, unsigned int length)
{
    return FilePlatform::MoveAll(static_cast<unsigned char *>(data), length,
                                 [handle](unsigned char * at, uint32_t count)
                                 { return FilePlatform::Read(handle, at, count); });
}

// Raw bytes to an operating-system handle.
class HandleWriter : public BinWriter
{
public:
    explicit HandleWriter(int handle) : handle(handle) {}

    unsigned int WriteRaw(const void * data, unsigned int length) override
    {
        return FilePlatform::WriteAll(handle, data, length);
    }

private:
    int handle;
};

// Copies a whole file; used when the temporary cannot be renamed onto another volume. True only
// when every byte reached the copy.
bool CopyFile(const char * from, const char * to)
{
    const int in = FilePlatform::Open(
        from, {FilePlatform::ReadOnly, FilePlatform::OpenExisting, FilePlatform::DenyWrite});
    if (in < 0)
        return false;
    const int out =
        FilePlatform::Open(to, {FilePlatform::WriteOnly, FilePlatform::CreateNew, FilePlatform::DenyAll});
    const int64_t length = FilePlatform::Length(in);
    int64_t copied = 0;
    auto * bytes = static_cast<unsigned char *>(Alloc::New(CHUNK_BYTES));
    HandleWriter writer(out);
    for (unsigned int got = CHUNK_BYTES; bytes && out >= 0 && got == CHUNK_BYTES;)
    {
        got = ReadFully(in, bytes, CHUNK_BYTES);
        if (writer.WriteRaw(bytes, got) != got)
            break;
        copied += got;
    }
    if (bytes)
        Alloc::Delete(bytes);
    FilePlatform::Close(in);
    return out >= 0 && FilePlatform::Close(out) && copied == length;
}
} // namespace

bool WriteCompressedForm(BinReader & plain, uint32_t length, BinWriter & target)
{
    unsigned char header[HEADER_BYTES] = {'C', 'F', 'I', 'L'};
    CRuntime::PutLittleEndian32(header + 4, VERSION);
    CRuntime::PutLittleEndian32(header + 8, length);
    if (target.WriteRaw(header, HEADER_BYTES) != HEADER_BYTES)
        return false;
    // The plain chunk, then its coded form behind room for the length word.
    auto * work = static_cast<unsigned char *>(Alloc::New(2 * CHUNK_BYTES + 2));
    if (!work)
        return false;
    unsigned char * input = work;
    unsigned char * chunk = work + CHUNK_BYTES;
    bool good = true;
    while (good && length)
    {
        const uint32_t take = length < CHUNK_BYTES ? length : static_cast<uint32_t>(CHUNK_BYTES);
        good = plain.ReadRaw(input, take) == take;
        if (!good)
            break;
        const auto coded = static_cast<uint32_t>(BPE::Comp(chunk + 2, input, take));
        const uint32_t word = coded != take ? coded : take | STORED_CHUNK;
        chunk[0] = static_cast<unsigned char>(word);
        chunk[1] = static_cast<unsigned char>(word >> 8);
        good = target.WriteRaw(chunk, coded + 2) == coded + 2;
        length -= take;
    }
    Alloc::Delete(work);
    return good;
}

File::Path NextTemporaryName(const char * directory)
{
    char name[32];
    snprintf(name, sizeof(name), "%08X.T%08X", static_cast<unsigned>(FilePlatform::ProcessId()),
             static_cast<unsigned>(temporaryCount.fetch_add(1)));
    File::Path path(directory);
    if (path.IsEmpty())
        path = name;
    else
        path.AddPath(name);
    return path;
}

long DecodeChunk(unsigned lengthWord, const unsigned char * payload, unsigned char * out)
{
    const unsigned stored = lengthWord & PAYLOAD_MASK;
    if (stored > CHUNK_BYTES)
        return -1;
    if (lengthWord & STORED_CHUNK)
    {
        memcpy(out, payload, stored);
        return static_cast<long>(stored);
    }
    const unsigned long expanded = BPE::Decomp(out, CHUNK_BYTES, payload, stored);
    return expanded == BPE::BAD_STREAM ? -1 : static_cast<long>(expanded);
}
} // namespace CompressedFile

using namespace CompressedFile;

unsigned int File::ReadHandle(uint32_t physical, void * data, unsigned int length)
{
    auto * out = static_cast<unsigned char *>(data);
    return FilePlatform::MoveAll(out, length,
                                 [this, physical, out](unsigned char * at, uint32_t count)
                                 { return ReadAt(physical + static_cast<uint32_t>(at - out), at, count); });
}

bool File::ReadChunkWord(uint32_t physical, unsigned & word)
{
    unsigned char bytes[2];
    if (ReadHandle(physical, bytes, 2) != 2)
        return false;
    word = bytes[0] | static_cast<unsigned>(bytes[1]) << 8;
    return true;
}

// Fills the buffer with the chunk whose length word is at `physical`; the handle then stands at
// the next chunk.
bool File::LoadChunk(uint32_t physical)
{
    DropReadAhead();
    unsigned word = 0;
    if (!ReadChunkWord(physical, word))
        return false;
    const unsigned stored = word & PAYLOAD_MASK;
    if (stored > CHUNK_BYTES)
        return false;
    long expanded = -1;
    if (word & STORED_CHUNK)
    {
        expanded = ReadHandle(handlePosition, buffer, stored) == stored ? static_cast<long>(stored) : -1;
    }
    else
    {
        unsigned char coded[CHUNK_BYTES];
        if (ReadHandle(handlePosition, coded, stored) == stored)
            expanded = DecodeChunk(word, coded, buffer);
    }
    if (expanded < 0)
        return false;
    buffered = static_cast<uint32_t>(expanded);
    return true;
}

// A chunk that cannot be read ends the data: the size becomes 0, so that Eof holds.
bool File::RefillChunk()
{
    DropReadAhead();
    if (position >= Size())
        return false;
    // An empty chunk while bytes remain is as broken as one that cannot be read.
    if (!LoadChunk(handlePosition) || buffered == 0)
    {
        DropReadAhead();
        size = 0;
        return false;
    }
    // Bytes past the recorded size are not part of the file.
    if (buffered > size - position)
        buffered = size - position;
    return true;
}

unsigned long File::SeekChunk(uint32_t target)
{
    const uint32_t into = static_cast<uint32_t>(cursor - buffer);
    const uint32_t bufferStart = (position - into) & ~(CHUNK_BYTES - 1);
    if (buffered && target >= bufferStart && target - bufferStart < buffered)
    {
        cursor = buffer + (target - bufferStart);
        position = target;
        return position;
    }
    uint64_t physical = dataStart;
    uint64_t logical = 0;
    if (buffered && target >= bufferStart + buffered)
    {
        physical = handlePosition;
        logical = bufferStart + buffered;
    }
    position = target;
    for (;;)
    {
        unsigned word = 0;
        if (physical > 0xFFFFFFFFu || !ReadChunkWord(static_cast<uint32_t>(physical), word))
            break;
        const unsigned stored = word & PAYLOAD_MASK;
        const uint64_t span = (word & STORED_CHUNK) ? stored : CHUNK_BYTES;
        if (target < logical + span)
        {
            if (!LoadChunk(static_cast<uint32_t>(physical)) || target - logical >= buffered)
                break;
            cursor = buffer + (target - logical);
            return position;
        }
        physical += 2 + stored;
        logical += span;
    }
    DropReadAhead();
    size = 0;
    return 0xFFFFFFFF;
}

// The plain length of a file whose header does not hold it: every chunk but the last stands
// for its span, the last for what it expands to.
uint32_t File::ChunkedSize()
{
    uint64_t physical = dataStart;
    uint64_t logical = 0;
    uint64_t last = 0;
    bool any = false;
    unsigned word = 0;
    while (physical <= 0xFFFFFFFFu && ReadChunkWord(static_cast<uint32_t>(physical), word))
    {
        last = physical;
        any = true;
        const unsigned stored = word & PAYLOAD_MASK;
        logical += (word & STORED_CHUNK) ? stored : CHUNK_BYTES;
        physical += 2 + stored;
    }
    if (any && !(word & STORED_CHUNK))
        logical -= LoadChunk(static_cast<uint32_t>(last)) ? CHUNK_BYTES - buffered : CHUNK_BYTES;
    DropReadAhead();
    PlaceHandle(dataStart);
    return logical < 0xFFFFFFFFu ? static_cast<uint32_t>(logical) : 0xFFFFFFFEu;
}

// The data were written plain; they are compressed into a hidden temporary that then takes the
// file's name. When a step fails the data stay where they are, plain or in the temporary, and
// the answer is false.
bool File::FinishCompressedWrite()
{
    const uint32_t length = static_cast<uint32_t>(Size());
    if (!FilePlatform::Close(handle))
        return false;
    handle = -1;
    const Path name = path;
    File plain;
    if (plain.Open(PString(), name, MODE_READ_PLAIN) != RES_OK)
        return false;
    const FilePlatform::OpenRequest request{FilePlatform::WriteOnly, FilePlatform::CreateTruncate,
                                            FilePlatform::DenyAll};
    Path temporary = NextTemporaryName();
    int out = FilePlatform::Open(temporary, request);
    if (out < 0)
    {
        // A current directory we may not write to: use the file's own.
        Path folder = name;
        folder.DelFileName();
        temporary = NextTemporaryName(folder);
        out = FilePlatform::Open(temporary, request);
    }
    if (out < 0)
        return false;
    FilePlatform::SetHidden(temporary, true);
    HandleWriter writer(out);
    const bool written = WriteCompressedForm(plain, length, writer);
    const bool closed = FilePlatform::Close(out);
    plain.Close();
    if (!written || !closed || !FilePlatform::RemoveFile(name))
    {
        FilePlatform::RemoveFile(temporary);
        return false;
    }
    const bool moved = FilePlatform::Rename(temporary, name) ||
                       (CopyFile(temporary, name) && FilePlatform::RemoveFile(temporary));
    return moved && FilePlatform::SetHidden(name, false);
}
} // namespace Kiv
