// The file object: opening through substitutions or directly, the transfer buffer, lines in
// both encodings, seeking, and the file layer's result table and exception.
#include "File.h"

#include "Alloc.h"
#include "CRuntime.h"
#include "FilePlatform.h"
#include "FileSub.h"
#include "FileSubstList.h"
#include "PString.h"
#include "String.h"
#include "SyncObject.h"
#include "Time.h"
#include "UnicodeString.h"

#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>

namespace Kiv
{
namespace
{
const char module[] = "Corestone/File";
const uint32_t unknownSize = 0xFFFFFFFF;
const unsigned long lineTemporaryBytes = 4094;

// Files are opened and closed on many threads at once.
std::atomic<unsigned int> openFiles{0};
bool (*transferCallBack)(unsigned long, unsigned long) = nullptr;
bool logOpens = false;

FilePlatform::OpenRequest RequestFor(unsigned long mode)
{
    FilePlatform::OpenRequest request{};
    const bool writing = (mode & File::MODE_WRITE_MASK) != 0;
    request.access = writing ? FilePlatform::ReadWrite : FilePlatform::ReadOnly;
    request.share = writing ? FilePlatform::DenyAll : FilePlatform::DenyWrite;
    switch (mode & File::MODE_CREATE_MASK)
    {
    case File::MODE_CREATE:
        request.creation = FilePlatform::CreateTruncate;
        break;
    case File::MODE_APPEND:
        request.creation = FilePlatform::OpenOrCreate;
        break;
    case File::MODE_CREATE_NEW:
        request.creation = FilePlatform::CreateNew;
        break;
    default:
        request.creation = FilePlatform::OpenExisting;
        break;
    }
    return request;
}

bool Creates(unsigned long mode)
{
    const unsigned long creation = mode & File::MODE_CREATE_MASK;
    return creation == File::MODE_CREATE || creation == File::MODE_CREATE_NEW;
}

// count × itemSize, kept within what one transfer can report.
unsigned long TransferLength(unsigned long count, unsigned long itemSize)
{
    const uint64_t length = static_cast<uint64_t>(count) * itemSize;
    return length > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned long>(length);
}

bool KeepGoing(unsigned long done, unsigned long requested)
{
    return !transferCallBack || transferCallBack(done, requested);
}

// Moves `length` bytes through the handle in as many calls as the system needs; stops at an
// error or the end of the file (setting `refused`), or when the callback (if `reported`) says so.
template <typename Bytes, typename Call>
unsigned long MoveAll(int handle, Bytes * data, unsigned long length, Call call, bool reported,
                      bool * refused = nullptr)
{
    unsigned long done = 0;
    while (done < length)
    {
        const int moved = call(handle, data + done, static_cast<uint32_t>(length - done));
        if (moved <= 0)
        {
            if (refused)
                *refused = true;
            break;
        }
        done += static_cast<unsigned long>(moved);
        if (reported && !KeepGoing(done, length))
            break;
    }
    return done;
}

// A scratch area on the stack when small, from the allocator when not. Sizes are counted in 64
// bits, so a product of counts cannot wrap; one the allocator cannot give throws bad_alloc.
class Scratch
{
public:
    explicit Scratch(uint64_t bytes)
        : data(bytes <= sizeof(local) ? local : Allocate(bytes)),
          capacity(bytes <= sizeof(local) ? sizeof(local) : bytes)
    {
    }
    ~Scratch() { Free(); }
    Scratch(const Scratch &) = delete;
    Scratch & operator=(const Scratch &) = delete;

    template <typename T>
    T * As()
    {
        return reinterpret_cast<T *>(data);
    }

    // Makes room for `bytes`, keeping the first `kept`.
    void Grow(uint64_t bytes, size_t kept)
    {
        if (bytes <= capacity)
            return;
        unsigned char * larger = Allocate(bytes);
        memcpy(larger, data, kept);
        Free();
        data = larger;
        capacity = bytes;
    }

private:
    static unsigned char * Allocate(uint64_t bytes)
    {
        void * block = bytes <= 0x7FFFFFFF ? Alloc::New(static_cast<unsigned>(bytes)) : nullptr;
        if (!block)
            throw std::bad_alloc();
        return static_cast<unsigned char *>(block);
    }

    void Free()
    {
        if (data != local)
            Alloc::Delete(data);
    }

    alignas(wchar_t) unsigned char local[8192];
    unsigned char * data;
    uint64_t capacity;
};

uint32_t GetLittleEndian32(const unsigned char * in)
{
    return CRuntime::GetLittleEndian32(in);
}
} // namespace

#define FILE_THROW(...) throw FileEx(module, __LINE__, __VA_ARGS__)

const ResultTable File::results[] = {
    {"RES_UNKNOWN", "Unknown file error"},
    {"RES_FILENOTFOUND", "File not found"},
    {"RES_ALREADYOPEN", "File is already open"},
    {"RES_MODENOTSUPPORTED", "Open mode not supported"},
    {"RES_CANTWRITECOMPRESSED", "Can't write to a compressed file"},
    {"RES_NOTCOMPRESSED", "Can't open non-compressed as read compressed file"},
    {"RES_SUBSTNOTFOUND", "Subst not found"},
    // These two rows are kept exactly as callers have always seen them.
    {"RES_FILEALREADYEXISTS", "File already exists"
                              "RES_READONLY"},
    {"File is read-only", nullptr},
    {nullptr, nullptr},
};

FileEx::FileEx(const char * moduleName, int line, const char * format, ...) : Exception(moduleName, line)
{
    va_list arguments;
    va_start(arguments, format);
    VSetReasonf(format, arguments);
    va_end(arguments);
}

const char * FileEx::Class() const
{
    return "FileEx";
}

File::File()
    : handle(-1), cursor(nullptr), buffer(static_cast<unsigned char *>(Alloc::New(BUFFER_SIZE))), buffered(0),
      mode(0), size(unknownSize), dataStart(0), position(0), handlePosition(0), dirty(0), flags(OWNS_BUFFER),
      substitute(nullptr), member(nullptr), encoding(ENCODING_ANSI)
{
    cursor = buffer;
}

File::~File()
{
    Close();
    if (flags & OWNS_BUFFER)
        Alloc::Delete(buffer);
}

unsigned int File::OpenCount()
{
    return openFiles;
}

void File::SetCallBack(bool (*callBack)(unsigned long, unsigned long))
{
    transferCallBack = callBack;
}

void File::SetLog(bool on)
{
    logOpens = on;
}

void File::ResetState(unsigned long newMode)
{
    cursor = buffer;
    buffered = 0;
    size = unknownSize;
    dataStart = 0;
    position = 0;
    handlePosition = 0;
    dirty = 0;
    substitute = nullptr;
    member = nullptr;
    flags &= ~(FOREIGN_HANDLE | WRITE_FAILED);
    mode = static_cast<uint32_t>(newMode);
}

File::Result File::Open(const char * name, unsigned long newMode, int newEncoding)
{
    PString prefix;
    const char * rest = name;
    FileSubstitute::SplitPrefix(name, prefix, rest);
    return Open(prefix, rest, newMode, newEncoding);
}

File::Result File::Open(const PString & subst, const char * name, unsigned long newMode, int newEncoding)
{
    encoding = newEncoding ? newEncoding : ENCODING_ANSI;
    if (IsOpen())
        return RES_ALREADYOPEN;
    ResetState(newMode);
    if ((mode & MODE_EXTRA_MASK) == MODE_UNSUPPORTED)
        return RES_MODENOTSUPPORTED;
    if (Creates(mode))
        size = 0;
    if (!name || strlen(name) >= MAX_PATH_LENGTH)
        return Fail(RES_FILENOTFOUND);
    // The entry is used under the list lock, so that it cannot be removed meanwhile.
    const char * substName = subst;
    SingleLock guard(&SubstLock(), substName && *substName);
    FileSubstitute * entry = FileSubstitute::Find(subst);
    if (!entry)
        guard.Unlock();
    const Result opened = entry ? OpenThroughSubst(entry, name) : OpenDisk(name);
    guard.Unlock();
    if (opened != RES_OK)
        return Fail(opened);
    return FinishOpen();
}

File::Result File::OpenThroughSubst(FileSubstitute * entry, const char * name)
{
    substitute = entry;
    const bool opened =
        (mode & MODE_READ_MASK) ? entry->OpenRead(*this, name) : entry->OpenWrite(*this, name);
    // The member that took the file stays alive until the file lets it go.
    if (member)
        member->AddRef();
    if (opened && IsOpen())
        return RES_OK;
    if (mode & MODE_READ_MASK)
        return RES_FILENOTFOUND;
    return (mode & MODE_CREATE_MASK) == MODE_CREATE_NEW ? RES_FILEALREADYEXISTS : RES_FILENOTFOUND;
}

File::Result File::OpenDisk(const char * name)
{
    if (AttachDisk(name))
        return RES_OK;
    return (mode & MODE_CREATE_MASK) == MODE_CREATE_NEW ? RES_FILEALREADYEXISTS : RES_FILENOTFOUND;
}

bool File::AttachDisk(const char * fullName)
{
    handle = FilePlatform::Open(fullName, RequestFor(mode));
    handlePosition = 0;
    path = fullName;
    return IsOpen();
}

File::Result File::FinishOpen()
{
    const unsigned long reading = mode & MODE_READ_MASK;
    if (!Creates(mode) && (reading == MODE_READ || reading == MODE_READ_COMPRESSED))
    {
        const Result detected = DetectCompression();
        if (detected != RES_OK)
            return Fail(detected);
    }
    if (Creates(mode) && reading == MODE_READ)
        mode = (mode & ~MODE_READ_MASK) | MODE_READ_PLAIN;
    // Not through Seek, which a compressed write refuses.
    if ((mode & MODE_CREATE_MASK) == MODE_APPEND)
    {
        position = static_cast<uint32_t>(Size());
        DropReadAhead();
    }
    ++openFiles;
    if (logOpens)
    {
        char line[MAX_PATH_LENGTH + 64];
        snprintf(line, sizeof(line), "File::Open(%s) mode %04lx\n", path.Text(),
                 static_cast<unsigned long>(mode));
        Debugger::Output(line);
    }
    return RES_OK;
}

// A "CFIL" header makes the file compressed; anything else stays in the buffer as the first data.
File::Result File::DetectCompression()
{
    const unsigned storedVersion = member ? member->StoredVersion() : 0;
    const uint32_t headerLength = storedVersion == 257 ? 4 : 12;
    const int got = ReadAt(dataStart, buffer, headerLength);
    if (got < 0)
        return RES_UNKNOWN;
    const bool full = static_cast<uint32_t>(got) == headerLength;
    if (!full || memcmp(buffer, "CFIL", 4) != 0)
    {
        if (full && (mode & MODE_READ_MASK) == MODE_READ_COMPRESSED)
            return RES_NOTCOMPRESSED;
        mode = (mode & ~MODE_READ_MASK) | MODE_READ_PLAIN;
        // A stored file shorter than the header has only its own bytes.
        buffered = static_cast<uint32_t>(got) < size ? static_cast<uint32_t>(got) : size;
        return RES_OK;
    }
    if (mode & MODE_WRITE_MASK)
        return RES_CANTWRITECOMPRESSED;
    mode = (mode & ~MODE_READ_MASK) | MODE_READ_COMPRESSED;
    const uint32_t version = storedVersion ? storedVersion : GetLittleEndian32(buffer + 4);
    if (headerLength == 12 && version >= 257)
        size = GetLittleEndian32(buffer + 8);
    dataStart += headerLength;
    if (size == unknownSize)
        size = ChunkedSize();
    return RES_OK;
}

// A failed open leaves the object closed and reusable.
File::Result File::Fail(Result result)
{
    if (IsOpen())
        CloseHandle();
    else if (member)
        member->Release();
    handle = -1;
    if (logOpens)
    {
        char line[MAX_PATH_LENGTH + 64];
        snprintf(line, sizeof(line), "File::Open(%s) failed: %s\n", path.Text(), result.Message());
        Debugger::Output(line);
    }
    ResetState(mode);
    return result;
}

unsigned long File::Close()
{
    if (!IsOpen())
        return 0;
    const bool written = Flush() && !(flags & WRITE_FAILED);
    // A compressed write is finished only over data that reached the disk whole.
    const bool compressing =
        written && !member && !(flags & FOREIGN_HANDLE) && (mode & MODE_WRITE_MASK) == MODE_WRITE_COMPRESSED;
    const bool closed = compressing ? FinishCompressedWrite() : CloseHandle();
    handle = -1;
    --openFiles;
    ResetState(mode);
    return written && closed ? 0 : RES_UNKNOWN;
}

// The member that opened the file takes it back and is let go; else the handle is closed here
// unless it is the substitution's. False when the system reports that the close failed.
bool File::CloseHandle()
{
    if (member)
    {
        const bool kept = member->Close(*this);
        member->Release();
        member = nullptr;
        return kept;
    }
    return (flags & FOREIGN_HANDLE) || FilePlatform::Close(handle);
}

void File::Commit()
{
    if (!IsOpen() || !dirty)
        return;
    if (!Flush() || !FilePlatform::Commit(handle))
        flags |= WRITE_FAILED;
}

void File::CheckReadable(int line) const
{
    if (!IsOpen())
        throw FileEx(module, line, "Read() File is not open");
    if (!(mode & MODE_READ_MASK))
        throw FileEx(module, line, "Read() File not open for reading");
}

void File::CheckWritable(int line) const
{
    if (!IsOpen())
        throw FileEx(module, line, "Write() File not open");
    if (!(mode & MODE_WRITE_MASK))
        throw FileEx(module, line, "Write() File not open for writing");
}

// A handle shared with other files (an archive's) is moved by them too: it is never placed, only
// read at offsets. `handlePosition` then tells where the next read in order goes.
bool File::PlaceHandle(uint32_t physical)
{
    if (handlePosition == physical)
        return true;
    if (!(flags & FOREIGN_HANDLE) &&
        FilePlatform::Seek(handle, physical, SEEK_SET) != static_cast<int64_t>(physical))
        return false;
    handlePosition = physical;
    return true;
}

int File::ReadAt(uint32_t physical, void * data, uint32_t count)
{
    if (!PlaceHandle(physical))
        return -1;
    const int got = (flags & FOREIGN_HANDLE) ? FilePlatform::ReadAt(handle, data, count, physical)
                                             : FilePlatform::Read(handle, data, count);
    if (got > 0)
        handlePosition += static_cast<uint32_t>(got);
    return got;
}

void File::DropReadAhead()
{
    cursor = buffer;
    buffered = 0;
}

// Writes the pending bytes. What does not reach the file is not counted as written: the position
// falls back to where the writing stopped, the size is asked of the system again, and Close
// reports the loss.
bool File::Flush()
{
    if (!dirty)
        return true;
    const uint32_t pending = dirty;
    unsigned long written = 0;
    if (PlaceHandle(dataStart + position - pending))
        written = MoveAll(handle, buffer, pending, FilePlatform::Write, false);
    handlePosition += static_cast<uint32_t>(written);
    dirty = 0;
    DropReadAhead();
    if (written == pending)
        return true;
    position -= pending - static_cast<uint32_t>(written);
    size = unknownSize;
    flags |= WRITE_FAILED;
    return false;
}

bool File::Refill()
{
    if (IsCompressed())
        return RefillChunk();
    DropReadAhead();
    if (position >= Size())
        return false;
    const uint32_t left = Size() - position;
    const uint32_t wanted = left < BUFFER_SIZE ? left : static_cast<uint32_t>(BUFFER_SIZE);
    const int got = ReadAt(dataStart + position, buffer, wanted);
    if (got <= 0)
        return false;
    buffered = static_cast<uint32_t>(got);
    return KeepGoing(buffered, wanted);
}

unsigned long File::ReadDirect(unsigned char * data, unsigned long length)
{
    const unsigned long available = position < Size() ? Size() - position : 0;
    const unsigned long wanted = length < available ? length : available;
    uint32_t at = dataStart + position;
    const auto readAt = [this, &at](int, unsigned char * to, uint32_t count)
    {
        const int got = ReadAt(at, to, count);
        at += got > 0 ? static_cast<uint32_t>(got) : 0;
        return got;
    };
    const unsigned long done = MoveAll(handle, data, wanted, readAt, true);
    position += static_cast<uint32_t>(done);
    return done;
}

unsigned long File::Read(void * data, unsigned long count, unsigned long itemSize)
{
    CheckReadable(__LINE__);
    if (!Flush())
        return 0;
    const unsigned long total = TransferLength(count, itemSize);
    auto * out = static_cast<unsigned char *>(data);
    unsigned long done = 0;
    while (done < total)
    {
        const unsigned long available = Buffered();
        if (available)
        {
            const unsigned long take = total - done < available ? total - done : available;
            memcpy(out + done, cursor, take);
            cursor += take;
            position += static_cast<uint32_t>(take);
            done += take;
        }
        else if (total - done >= BUFFER_SIZE && !IsCompressed())
        {
            done += ReadDirect(out + done, total - done);
            break;
        }
        else if (!Refill())
        {
            break;
        }
    }
    return itemSize ? done / itemSize : 0;
}

unsigned long File::WriteDirect(const unsigned char * data, unsigned long length)
{
    bool refused = !PlaceHandle(dataStart + position);
    const unsigned long done =
        refused ? 0 : MoveAll(handle, data, length, FilePlatform::Write, true, &refused);
    if (refused)
        flags |= WRITE_FAILED;
    handlePosition += static_cast<uint32_t>(done);
    position += static_cast<uint32_t>(done);
    if (position > size)
        size = position;
    return done;
}

unsigned long File::Write(const void * data, unsigned long count, unsigned long itemSize)
{
    CheckWritable(__LINE__);
    // The size must be known before writes start moving the end of the file.
    Size();
    if (!dirty)
        DropReadAhead();
    // The file's positions are 32-bit: writing stops short of the last one, the unknown size.
    const unsigned long room = position < unknownSize - 1 ? unknownSize - 1 - position : 0;
    const unsigned long wanted = TransferLength(count, itemSize);
    const unsigned long total = wanted < room ? wanted : room;
    const auto * in = static_cast<const unsigned char *>(data);
    const uint32_t start = position;
    unsigned long done = 0;
    while (done < total)
    {
        if (total - done >= BUFFER_SIZE || dirty == BUFFER_SIZE)
        {
            if (Flush())
                done += WriteDirect(in + done, total - done);
            break;
        }
        const unsigned long room = BUFFER_SIZE - dirty;
        const unsigned long take = total - done < room ? total - done : room;
        memcpy(buffer + dirty, in + done, take);
        dirty += static_cast<uint32_t>(take);
        buffered = dirty;
        cursor = buffer + dirty;
        position += static_cast<uint32_t>(take);
        if (position > size)
            size = position;
        done += take;
        if (dirty == BUFFER_SIZE && !Flush())
            break;
    }
    // A failed flush takes back what did not reach the file, of this call too.
    const unsigned long counted = position > start ? position - start : 0;
    return itemSize ? (done < counted ? done : counted) / itemSize : 0;
}

void File::SafeRead(void * data, unsigned long count, unsigned long itemSize)
{
    if (Read(data, count, itemSize) != count)
        FILE_THROW("SafeRead(buffer,%u,%u) failed to read all data", static_cast<unsigned>(count),
                   static_cast<unsigned>(itemSize));
}

void File::SafeWrite(const void * data, unsigned long count, unsigned long itemSize)
{
    if (Write(data, count, itemSize) != count)
        FILE_THROW("SafeWrite(buffer,%u,%u) failed to write all data", static_cast<unsigned>(count),
                   static_cast<unsigned>(itemSize));
}

bool File::Read(long & value)
{
    int32_t stored = 0;
    const bool done = ReadItem(stored);
    value = stored;
    return done;
}

bool File::Read(unsigned long & value)
{
    uint32_t stored = 0;
    const bool done = ReadItem(stored);
    value = stored;
    return done;
}

unsigned int File::ReadRaw(void * data, unsigned int length)
{
    return static_cast<unsigned int>(Read(data, length, 1));
}

unsigned int File::WriteRaw(const void * data, unsigned int length)
{
    return static_cast<unsigned int>(Write(data, length, 1));
}

bool File::Read(AnsiString & text)
{
    return text.Read(*this);
}

bool File::Read(String & text)
{
    return text.Read(*this);
}

bool File::Read(UnicodeString & text)
{
    return text.Read(*this);
}

bool File::Read(PString & text)
{
    return text.Read(*this);
}

bool File::Write(const AnsiString & text)
{
    return text.Write(*this);
}

bool File::Write(const String & text)
{
    return text.Write(*this);
}

bool File::Write(const UnicodeString & text)
{
    return text.Write(*this);
}

bool File::Write(const PString & text)
{
    return text.Write(*this);
}

namespace
{
void BlockHeader(unsigned char * header, const char * id, unsigned long length)
{
    memset(header, 0, 4);
    for (int i = 0; i < 4 && id && id[i]; ++i)
        header[i] = static_cast<unsigned char>(id[i]);
    CRuntime::PutLittleEndian32(header + 4, static_cast<uint32_t>(length));
}
} // namespace

bool File::ReadBlock(const char * id, void * data, unsigned long length)
{
    unsigned char expected[8];
    unsigned char stored[8];
    BlockHeader(expected, id, length);
    if (Read(stored, 1, sizeof(stored)) != 1 || memcmp(stored, expected, sizeof(stored)) != 0)
        return false;
    return Read(data, 1, length) == (length ? 1u : 0u);
}

bool File::WriteBlock(const char * id, const void * data, unsigned long length)
{
    unsigned char header[8];
    BlockHeader(header, id, length);
    return Write(header, 1, sizeof(header)) == 1 && Write(data, 1, length) == (length ? 1u : 0u);
}

// Copies whole units up to and including a line feed, at most `limit` bytes; `ended` tells
// whether the line feed or the end of the file came before the limit.
unsigned long File::ReadLineBytes(unsigned char * out, unsigned long limit, unsigned unitSize, bool & ended)
{
    CheckReadable(__LINE__);
    if (!Flush())
        return 0;
    unsigned long stored = 0;
    ended = false;
    unsigned char unit[2] = {0, 0};
    while (!ended && stored + unitSize <= limit)
    {
        if (Read(unit, 1, unitSize) != 1)
        {
            ended = true;
            break;
        }
        ended = unit[0] == '\n' && (unitSize == 1 || unit[1] == 0);
        memcpy(out + stored, unit, unitSize);
        stored += unitSize;
        if (unitSize == 1 && !ended && stored < limit)
        {
            // Fast path: take the rest of the buffered line in one step.
            const unsigned long available = Buffered();
            const unsigned long room = limit - stored;
            const unsigned long span = available < room ? available : room;
            const auto * feed = static_cast<const unsigned char *>(memchr(cursor, '\n', span));
            const unsigned long take = feed ? static_cast<unsigned long>(feed - cursor) + 1 : span;
            memcpy(out + stored, cursor, take);
            cursor += take;
            position += static_cast<uint32_t>(take);
            stored += take;
            ended = feed != nullptr;
        }
    }
    return stored;
}

// Reads and drops the rest of a line that did not fit, so the next call starts on the next line.
void File::SkipLine(unsigned unitSize)
{
    unsigned char unit[2] = {0, 0};
    while (Read(unit, 1, unitSize) == 1)
        if (unit[0] == '\n' && (unitSize == 1 || unit[1] == 0))
            return;
}

unsigned long File::ReadLine(void * out, unsigned long length, int lineEncoding)
{
    if (length < 2)
        return 0;
    if ((lineEncoding ? lineEncoding : encoding) == ENCODING_UTF16)
        return ReadLineUtf16(static_cast<char *>(out), length);
    auto * text = static_cast<unsigned char *>(out);
    bool ended = false;
    const unsigned long stored = ReadLineBytes(text, length - 2, 1, ended);
    text[stored] = 0;
    if (!ended)
        SkipLine(1);
    return stored;
}

// A line of at most length / 2 units (2,046 at least) is kept; its temporary grows with the line
// read, not with the length the caller offers.
unsigned long File::ReadLineUtf16(char * out, unsigned long length)
{
    const unsigned long most = length > lineTemporaryBytes ? length / 2 : lineTemporaryBytes / 2 - 1;
    unsigned long capacity = lineTemporaryBytes / 2 - 1;
    Scratch stored(uint64_t(capacity) * 2 + 2);
    bool ended = false;
    unsigned long bytes = ReadLineBytes(stored.As<unsigned char>(), capacity * 2, 2, ended);
    while (!ended && capacity < most)
    {
        capacity = most - capacity < capacity ? most : capacity * 2;
        stored.Grow(uint64_t(capacity) * 2 + 2, bytes);
        bytes += ReadLineBytes(stored.As<unsigned char>() + bytes, capacity * 2 - bytes, 2, ended);
    }
    if (!ended)
        SkipLine(2);
    Scratch wide((uint64_t(bytes) / 2 + 1) * sizeof(wchar_t));
    const size_t characters =
        CRuntime::DecodeUtf16(stored.As<unsigned char>(), bytes / 2, wide.As<wchar_t>());
    wide.As<wchar_t>()[characters] = 0;
    // The runtime's conversion misbehaves with a room past the end of memory; the text needs no more.
    const uint64_t needed = uint64_t(characters) * MB_CUR_MAX;
    const size_t room = needed < length - 1 ? static_cast<size_t>(needed) : length - 1;
    const size_t converted = wcstombs(out, wide.As<wchar_t>(), room);
    if (converted == static_cast<size_t>(-1))
    {
        out[0] = 0;
        return 0;
    }
    out[converted] = 0;
    return static_cast<unsigned long>(converted);
}

unsigned long File::WriteLine(const char * text, int lineEncoding)
{
    if (!text || !*text)
        return 0;
    if ((lineEncoding ? lineEncoding : encoding) == ENCODING_UTF16)
        return WriteLineUtf16(text);
    return Write(text, static_cast<unsigned long>(strlen(text)), 1);
}

unsigned long File::WriteLineUtf16(const char * text)
{
    const size_t characters = mbstowcs(nullptr, text, 0);
    if (characters == static_cast<size_t>(-1))
        return 0;
    Scratch wide((uint64_t(characters) + 1) * sizeof(wchar_t));
    mbstowcs(wide.As<wchar_t>(), text, characters + 1);
    const size_t units = CRuntime::Utf16Units(wide.As<wchar_t>(), characters);
    Scratch encoded(uint64_t(units) * 2);
    CRuntime::EncodeUtf16(wide.As<wchar_t>(), characters, encoded.As<unsigned char>());
    return Write(encoded.As<unsigned char>(), static_cast<unsigned long>(units * 2), 1);
}

unsigned long File::Seek(long offset, FileSeek origin)
{
    if ((mode & MODE_WRITE_MASK) == MODE_WRITE_COMPRESSED)
        FILE_THROW("Seek() Can't seek writing compressed file");
    Flush();
    int64_t target;
    switch (origin)
    {
    case FROM_START:
        target = offset;
        break;
    case FROM_CURRENT:
        target = static_cast<int64_t>(position) + offset;
        break;
    case FROM_END:
        target = static_cast<int64_t>(Size()) - offset;
        break;
    default:
        return 0xFFFFFFFF;
    }
    // Nothing is checked against the size: a target before the start becomes a position far past
    // the end, where reads find nothing.
    if (IsCompressed() && target >= 0 && target < static_cast<int64_t>(Size()))
        return SeekChunk(static_cast<uint32_t>(target));
    position = static_cast<uint32_t>(target);
    DropReadAhead();
    return position;
}

unsigned long File::Size()
{
    if (size != unknownSize)
        return size;
    const int64_t length = IsOpen() ? FilePlatform::Length(handle) : -1;
    if (length < 0)
        FILE_THROW("Size() failed to get file length");
    const int64_t logical = length - dataStart;
    size = logical < 0 ? 0 : logical >= unknownSize ? unknownSize - 1 : static_cast<uint32_t>(logical);
    return size;
}

int File::DetectEncoding()
{
    const unsigned long start = Tell();
    unsigned char mark[2];
    if (Read(mark, 1, 2) == 1 && mark[0] == 0xFF && mark[1] == 0xFE)
    {
        encoding = ENCODING_UTF16;
        return encoding;
    }
    SeekSet(static_cast<long>(start));
    encoding = ENCODING_ANSI;
    return encoding;
}

void File::SetBuffer(void * newBuffer)
{
    Flush();
    if (flags & OWNS_BUFFER)
        Alloc::Delete(buffer);
    flags &= ~OWNS_BUFFER;
    buffer = static_cast<unsigned char *>(newBuffer);
    DropReadAhead();
}

bool File::GetStamp(Time & stamp)
{
    return IsOpen() && FilePlatform::GetStamp(handle, stamp.ticks);
}

bool File::SetStamp(const Time & stamp)
{
    return IsOpen() && Flush() && FilePlatform::SetStamp(handle, stamp.ticks);
}

File::Time File::Time::FromUnixSeconds(int64_t seconds)
{
    Time time;
    time.ticks = static_cast<uint64_t>(seconds + 11644473600LL) * 10000000ULL;
    return time;
}

int64_t File::Time::UnixSeconds() const
{
    return static_cast<int64_t>(ticks / 10000000ULL) - 11644473600LL;
}

File::Entry::Entry() : size(0), attributes(0), reserved(0)
{
    memset(name, 0, sizeof(name));
    memset(times, 0, sizeof(times));
}

File::Time File::Entry::GetStamp() const
{
    Time stamp;
    stamp.ticks = GetLittleEndian32(times) | static_cast<uint64_t>(GetLittleEndian32(times + 4)) << 32;
    return stamp;
}

void File::Entry::SetStamp(const Time & modified, const Time & created)
{
    CRuntime::PutLittleEndian32(times, static_cast<uint32_t>(modified.ticks));
    CRuntime::PutLittleEndian32(times + 4, static_cast<uint32_t>(modified.ticks >> 32));
    CRuntime::PutLittleEndian32(times + 8, static_cast<uint32_t>(created.ticks));
    CRuntime::PutLittleEndian32(times + 12, static_cast<uint32_t>(created.ticks >> 32));
}
} // namespace Kiv
