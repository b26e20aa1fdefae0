// The operating-system seam of the file layer: low-level descriptors, always binary, and the
// file-system calls that the file object, the substitutions and the directory search need.
// FilePosix.cpp and FileWin32.cpp implement it; everything above it is shared.
#pragma once

#include <cstdint>

namespace Kiv
{
namespace FilePlatform
{
enum Access
{
    ReadOnly,
    WriteOnly,
    ReadWrite
};

enum Creation
{
    OpenExisting,
    CreateTruncate,
    OpenOrCreate,
    CreateNew
};

// Which other opens of the same file are still allowed while this one is open.
enum Share
{
    ShareAll,
    DenyWrite,
    DenyAll
};

struct OpenRequest
{
    Access access;
    Creation creation;
    Share share;
};

// A file stamp: 100-nanosecond intervals since 1601-01-01 UTC, the same count on every target.
using Stamp = uint64_t;

struct Status
{
    uint64_t size;
    Stamp modified;
    Stamp created;
    bool directory;
    bool hidden;
    bool readOnly;
    bool link; // a symbolic link or other reparse point, described by what it points at
};

// Every name handed to these functions may use '\' or '/' as separators.
int Open(const char * name, const OpenRequest & request);
// Read, Write and ReadAt move at most maxTransfer bytes a call (the runtimes refuse counts past INT_MAX);
// callers loop.
const uint32_t maxTransfer = 1u << 30;
int Read(int handle, void * data, uint32_t count);
int Write(int handle, const void * data, uint32_t count);
// Reads at an offset without using the handle's position, so files sharing one handle do not
// move each other's place.
int ReadAt(int handle, void * data, uint32_t count, int64_t offset);
// The loop callers need: `step(at, count)` until `length` bytes moved, an error or the end.
// Answers the bytes moved.
template <typename Bytes, typename Step>
uint32_t MoveAll(Bytes * data, uint32_t length, Step step)
{
    uint32_t done = 0;
    while (done < length)
    {
        const int moved = step(data + done, length - done);
        if (moved <= 0)
            break;
        done += static_cast<uint32_t>(moved);
    }
    return done;
}
inline uint32_t WriteAll(int handle, const void * data, uint32_t length)
{
    return MoveAll(static_cast<const unsigned char *>(data), length,
                   [handle](const unsigned char * at, uint32_t count) { return Write(handle, at, count); });
}
// Cuts or extends the file to `length` bytes.
bool Truncate(int handle, int64_t length);
int64_t Seek(int handle, int64_t offset, int origin);
int64_t Length(int handle);
bool Commit(int handle);
bool Close(int handle);
bool GetStamp(int handle, Stamp & modified);
bool SetStamp(int handle, Stamp modified);

bool GetStatus(const char * name, Status & status);
bool SetStamp(const char * name, Stamp modified);
bool SetReadOnly(const char * name, bool readOnly);
bool SetHidden(const char * name, bool hidden);
bool RemoveFile(const char * name);
bool Rename(const char * from, const char * to);
bool MakeDirectory(const char * name);
bool DeleteDirectory(const char * name);
bool ChangeDirectory(const char * name);
// Both fill a buffer of `size` bytes with '/' separators and answer false when it is too small.
bool CurrentDirectory(char * buffer, unsigned size);
bool FullName(const char * name, char * buffer, unsigned size);
// Whether names that differ only in case name the same file.
bool IgnoresCase();
// The identifier of this process, which names the temporaries of the compressed write cycle.
uint32_t ProcessId();

struct DirectoryItem
{
    char name[260];
    Status status;
};

// Lists one directory; "." and ".." are never reported.
class DirectoryWalk
{
public:
    DirectoryWalk() = default;
    DirectoryWalk(const DirectoryWalk &) = delete;
    DirectoryWalk & operator=(const DirectoryWalk &) = delete;
    ~DirectoryWalk() { Close(); }

    bool Open(const char * directory);
    bool Next(DirectoryItem & item);
    void Close();

private:
    void * walk = nullptr;
    char directory[260] = {};
};
} // namespace FilePlatform
} // namespace Kiv
