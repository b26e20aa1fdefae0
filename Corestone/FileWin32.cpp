// The file seam on Windows: the runtime's low-level descriptors opened with share modes, and
// the Win32 calls for attributes, stamps and directory listing.
#include "AllocObject.h"
#include "FilePlatform.h"

#include <cstdio>
#include <cstring>
#include <direct.h>
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <windows.h>

namespace Kiv
{
namespace FilePlatform
{
namespace
{
Stamp ToStamp(const FILETIME & time)
{
    return (static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

FILETIME FromStamp(Stamp stamp)
{
    FILETIME time;
    time.dwLowDateTime = static_cast<DWORD>(stamp);
    time.dwHighDateTime = static_cast<DWORD>(stamp >> 32);
    return time;
}

void FillStatus(const WIN32_FILE_ATTRIBUTE_DATA & data, Status & status)
{
    status.size = (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    status.modified = ToStamp(data.ftLastWriteTime);
    status.created = ToStamp(data.ftCreationTime);
    status.directory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    status.hidden = (data.dwFileAttributes & FILE_ATTRIBUTE_HIDDEN) != 0;
    status.readOnly = (data.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
    status.link = (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

bool ChangeAttribute(const char * name, DWORD attribute, bool set)
{
    const DWORD attributes = GetFileAttributesA(name);
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return false;
    DWORD wanted = set ? attributes | attribute : attributes & ~attribute;
    if (wanted == 0)
        wanted = FILE_ATTRIBUTE_NORMAL;
    return SetFileAttributesA(name, wanted) != 0;
}

bool ReplaceBackSlashes(char * text)
{
    for (; *text; ++text)
        if (*text == '\\')
            *text = '/';
    return true;
}
} // namespace

int Open(const char * name, const OpenRequest & request)
{
    static const int access[] = {_O_RDONLY, _O_WRONLY, _O_RDWR};
    static const int creation[] = {0, _O_CREAT | _O_TRUNC, _O_CREAT, _O_CREAT | _O_EXCL};
    static const int share[] = {_SH_DENYNO, _SH_DENYWR, _SH_DENYRW};
    if (!name || !*name)
        return -1;
    const int flags = access[request.access] | creation[request.creation] | _O_BINARY | _O_NOINHERIT;
    return _sopen(name, flags, share[request.share], _S_IREAD | _S_IWRITE);
}

int Read(int handle, void * data, uint32_t count)
{
    return _read(handle, data, count < maxTransfer ? count : maxTransfer);
}

int Write(int handle, const void * data, uint32_t count)
{
    return _write(handle, data, count < maxTransfer ? count : maxTransfer);
}

int ReadAt(int handle, void * data, uint32_t count, int64_t offset)
{
    const HANDLE file = reinterpret_cast<HANDLE>(_get_osfhandle(handle));
    if (file == INVALID_HANDLE_VALUE)
        return -1;
    OVERLAPPED at{};
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(static_cast<uint64_t>(offset) >> 32);
    DWORD done = 0;
    if (!ReadFile(file, data, count < maxTransfer ? count : maxTransfer, &done, &at))
        return GetLastError() == ERROR_HANDLE_EOF ? 0 : -1;
    return static_cast<int>(done);
}

bool Truncate(int handle, int64_t length)
{
    return _chsize_s(handle, length) == 0;
}

int64_t Seek(int handle, int64_t offset, int origin)
{
    return _lseeki64(handle, offset, origin);
}

int64_t Length(int handle)
{
    return _filelengthi64(handle);
}

bool Commit(int handle)
{
    return _commit(handle) == 0;
}

bool Close(int handle)
{
    return _close(handle) == 0;
}

bool GetStamp(int handle, Stamp & modified)
{
    FILETIME written;
    const HANDLE file = reinterpret_cast<HANDLE>(_get_osfhandle(handle));
    if (file == INVALID_HANDLE_VALUE || !GetFileTime(file, nullptr, nullptr, &written))
        return false;
    modified = ToStamp(written);
    return true;
}

bool SetStamp(int handle, Stamp modified)
{
    const FILETIME written = FromStamp(modified);
    const HANDLE file = reinterpret_cast<HANDLE>(_get_osfhandle(handle));
    return file != INVALID_HANDLE_VALUE && SetFileTime(file, nullptr, &written, &written) != 0;
}

bool GetStatus(const char * name, Status & status)
{
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExA(name, GetFileExInfoStandard, &data))
        return false;
    FillStatus(data, status);
    return true;
}

bool SetStamp(const char * name, Stamp modified)
{
    const HANDLE file = CreateFileA(name, FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    const FILETIME written = FromStamp(modified);
    const bool done = SetFileTime(file, nullptr, &written, &written) != 0;
    CloseHandle(file);
    return done;
}

bool SetReadOnly(const char * name, bool readOnly)
{
    return ChangeAttribute(name, FILE_ATTRIBUTE_READONLY, readOnly);
}

bool SetHidden(const char * name, bool hidden)
{
    return ChangeAttribute(name, FILE_ATTRIBUTE_HIDDEN, hidden);
}

uint32_t ProcessId()
{
    return GetCurrentProcessId();
}

bool RemoveFile(const char * name)
{
    return DeleteFileA(name) != 0;
}

bool Rename(const char * from, const char * to)
{
    return MoveFileA(from, to) != 0;
}

bool MakeDirectory(const char * name)
{
    return CreateDirectoryA(name, nullptr) != 0;
}

bool DeleteDirectory(const char * name)
{
    return RemoveDirectoryA(name) != 0;
}

bool ChangeDirectory(const char * name)
{
    return SetCurrentDirectoryA(name) != 0;
}

bool CurrentDirectory(char * buffer, unsigned size)
{
    const DWORD length = GetCurrentDirectoryA(size, buffer);
    return length != 0 && length < size && ReplaceBackSlashes(buffer);
}

bool FullName(const char * name, char * buffer, unsigned size)
{
    const DWORD length = GetFullPathNameA(name, size, buffer, nullptr);
    if (length == 0 || length >= size)
        return false;
    // The long form gives the names' stored case; a missing file keeps the given spelling.
    char longName[MAX_PATH];
    const DWORD longLength = GetLongPathNameA(buffer, longName, sizeof(longName));
    if (longLength != 0 && longLength < size && longLength < sizeof(longName))
        strcpy(buffer, longName);
    return ReplaceBackSlashes(buffer);
}

bool IgnoresCase()
{
    return true;
}

// The walk's state: the find handle and the item found but not yet reported.
struct FindState
{
    HANDLE find;
    WIN32_FIND_DATAA data;
    bool pending;
};

bool DirectoryWalk::Open(const char * name)
{
    Close();
    const char * folder = name && *name ? name : ".";
    char pattern[MAX_PATH + 4];
    if (strlen(folder) >= sizeof(directory))
        return false;
    strcpy(directory, folder);
    snprintf(pattern, sizeof(pattern), "%s/*", folder);
    auto * state = NewObject<FindState>();
    if (state == nullptr)
        return false;
    state->find = FindFirstFileA(pattern, &state->data);
    state->pending = state->find != INVALID_HANDLE_VALUE;
    walk = state;
    return state->pending;
}

bool DirectoryWalk::Next(DirectoryItem & item)
{
    auto * state = static_cast<FindState *>(walk);
    while (state && state->pending)
    {
        const WIN32_FIND_DATAA & data = state->data;
        const bool usable = strcmp(data.cFileName, ".") != 0 && strcmp(data.cFileName, "..") != 0 &&
                            strlen(data.cFileName) < sizeof(item.name);
        if (usable)
        {
            strcpy(item.name, data.cFileName);
            WIN32_FILE_ATTRIBUTE_DATA attributes;
            attributes.dwFileAttributes = data.dwFileAttributes;
            attributes.ftCreationTime = data.ftCreationTime;
            attributes.ftLastAccessTime = data.ftLastAccessTime;
            attributes.ftLastWriteTime = data.ftLastWriteTime;
            attributes.nFileSizeHigh = data.nFileSizeHigh;
            attributes.nFileSizeLow = data.nFileSizeLow;
            FillStatus(attributes, item.status);
        }
        state->pending = FindNextFileA(state->find, &state->data) != 0;
        if (usable)
            return true;
    }
    return false;
}

void DirectoryWalk::Close()
{
    auto * state = static_cast<FindState *>(walk);
    if (state && state->find != INVALID_HANDLE_VALUE)
        FindClose(state->find);
    DeleteObject(state);
    walk = nullptr;
}
} // namespace FilePlatform
} // namespace Kiv
