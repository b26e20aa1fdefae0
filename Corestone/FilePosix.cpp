// The file seam on POSIX systems. Windows share modes are emulated with open-file-description
// locks, so two opens of one file conflict as they do on Windows, within a process or across two.
#define _FILE_OFFSET_BITS 64
#include "FilePlatform.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Kiv
{
namespace FilePlatform
{
namespace
{
// Stamps count 100 ns from 1601; the Unix epoch lies this many seconds later.
const uint64_t epochDifference = 11644473600ULL;
const uint64_t ticksPerSecond = 10000000ULL;

// A name as the system wants it: '/' separators only.
class SystemName
{
public:
    explicit SystemName(const char * name)
    {
        const size_t length = name ? strlen(name) : 0;
        valid = name && length < sizeof(text);
        if (!valid)
            return;
        for (size_t i = 0; i <= length; ++i)
            text[i] = name[i] == '\\' ? '/' : name[i];
    }

    bool IsValid() const { return valid; }
    operator const char *() const { return valid ? text : ""; }

private:
    char text[PATH_MAX];
    bool valid;
};

Stamp ToStamp(const timespec & time)
{
    return (static_cast<uint64_t>(time.tv_sec) + epochDifference) * ticksPerSecond +
           static_cast<uint64_t>(time.tv_nsec) / 100;
}

timespec FromStamp(Stamp stamp)
{
    timespec time{};
    time.tv_sec = static_cast<time_t>(stamp / ticksPerSecond - epochDifference);
    time.tv_nsec = static_cast<long>(stamp % ticksPerSecond * 100);
    return time;
}

void FillStatus(const struct stat & info, const char * name, Status & status)
{
    status.size = static_cast<uint64_t>(info.st_size);
    status.modified = ToStamp(info.st_mtim);
    status.created = ToStamp(info.st_ctim);
    status.directory = S_ISDIR(info.st_mode);
    const char * slash = strrchr(name, '/');
    const char * base = slash ? slash + 1 : name;
    status.hidden = base[0] == '.' && base[1] != 0 && strcmp(base, "..") != 0;
    status.readOnly = (info.st_mode & S_IWUSR) == 0;
}

// A link is described by what it points at, and by itself when that is gone.
bool StatusOf(const char * name, Status & status)
{
    struct stat info
    {
    };
    if (lstat(name, &info) != 0)
        return false;
    status.link = S_ISLNK(info.st_mode);
    if (status.link)
        stat(name, &info);
    FillStatus(info, name, status);
    return true;
}

int OpenFlags(const OpenRequest & request)
{
    static const int access[] = {O_RDONLY, O_WRONLY, O_RDWR};
    static const int creation[] = {0, O_CREAT | O_TRUNC, O_CREAT, O_CREAT | O_EXCL};
    return access[request.access] | creation[request.creation] | O_CLOEXEC;
}

// A writer holds an exclusive lock and so keeps every other open out; a reader that denies
// writing holds a shared one, which lets readers in and writers not.
bool TakeShareLock(int handle, const OpenRequest & request)
{
    if (request.share == ShareAll)
        return true;
    struct flock lock
    {
    };
    const bool exclusive =
        request.access == WriteOnly || (request.access == ReadWrite && request.share == DenyAll);
    lock.l_type = exclusive ? F_WRLCK : F_RDLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(handle, F_OFD_SETLK, &lock) == 0)
        return true;
    // A kernel or emulator without these locks cannot enforce sharing; the open still works.
    return errno == EINVAL;
}

bool DenyOthers(const OpenRequest & request)
{
    return request.share != ShareAll;
}

// A probe that neither truncates nor creates, to learn whether the wanted share lock is free.
bool SharingAllows(const char * name, const OpenRequest & request)
{
    const int probe = open(name, (request.access == ReadOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC);
    if (probe < 0)
        return true;
    const bool free = TakeShareLock(probe, request);
    close(probe);
    return free;
}
} // namespace

int Open(const char * name, const OpenRequest & request)
{
    const SystemName systemName(name);
    if (!systemName.IsValid() || !*name)
        return -1;
    // Truncating a file that another user holds would destroy its data before the lock
    // refuses us, so the lock is tried on the existing file first.
    if (request.creation == CreateTruncate && DenyOthers(request) && !SharingAllows(systemName, request))
        return -1;
    const int handle = open(systemName, OpenFlags(request), 0666);
    if (handle < 0)
        return -1;
    struct stat info
    {
    };
    if (fstat(handle, &info) != 0 || S_ISDIR(info.st_mode) || !TakeShareLock(handle, request))
    {
        close(handle);
        return -1;
    }
    return handle;
}

int Read(int handle, void * data, uint32_t count)
{
    ssize_t done;
    do
        done = read(handle, data, count < maxTransfer ? count : maxTransfer);
    while (done < 0 && errno == EINTR);
    return static_cast<int>(done);
}

int Write(int handle, const void * data, uint32_t count)
{
    ssize_t done;
    do
        done = write(handle, data, count < maxTransfer ? count : maxTransfer);
    while (done < 0 && errno == EINTR);
    return static_cast<int>(done);
}

int ReadAt(int handle, void * data, uint32_t count, int64_t offset)
{
    ssize_t done;
    do
        done = pread(handle, data, count < maxTransfer ? count : maxTransfer, static_cast<off_t>(offset));
    while (done < 0 && errno == EINTR);
    return static_cast<int>(done);
}

bool Truncate(int handle, int64_t length)
{
    return ftruncate(handle, static_cast<off_t>(length)) == 0;
}

int64_t Seek(int handle, int64_t offset, int origin)
{
    return lseek(handle, static_cast<off_t>(offset), origin);
}

int64_t Length(int handle)
{
    struct stat info
    {
    };
    return fstat(handle, &info) == 0 ? static_cast<int64_t>(info.st_size) : -1;
}

bool Commit(int handle)
{
    return fsync(handle) == 0;
}

bool Close(int handle)
{
    // After EINTR the descriptor is gone all the same.
    return close(handle) == 0 || errno == EINTR;
}

bool GetStamp(int handle, Stamp & modified)
{
    struct stat info
    {
    };
    if (fstat(handle, &info) != 0)
        return false;
    modified = ToStamp(info.st_mtim);
    return true;
}

bool SetStamp(int handle, Stamp modified)
{
    const timespec times[2] = {FromStamp(modified), FromStamp(modified)};
    return futimens(handle, times) == 0;
}

bool GetStatus(const char * name, Status & status)
{
    const SystemName systemName(name);
    return systemName.IsValid() && StatusOf(systemName, status);
}

bool SetStamp(const char * name, Stamp modified)
{
    const SystemName systemName(name);
    const timespec times[2] = {FromStamp(modified), FromStamp(modified)};
    return systemName.IsValid() && utimensat(AT_FDCWD, systemName, times, 0) == 0;
}

bool SetReadOnly(const char * name, bool readOnly)
{
    const SystemName systemName(name);
    struct stat info
    {
    };
    if (!systemName.IsValid() || stat(systemName, &info) != 0)
        return false;
    const mode_t writable = S_IWUSR | S_IWGRP | S_IWOTH;
    const mode_t wanted = readOnly ? info.st_mode & ~writable : info.st_mode | S_IWUSR;
    return chmod(systemName, wanted & 07777) == 0;
}

// Hidden files on POSIX are those whose names start with '.'; there is no flag to change.
bool SetHidden(const char * name, bool hidden)
{
    return true;
}

bool RemoveFile(const char * name)
{
    const SystemName systemName(name);
    return systemName.IsValid() && unlink(systemName) == 0;
}

bool Rename(const char * from, const char * to)
{
    const SystemName systemFrom(from);
    const SystemName systemTo(to);
    return systemFrom.IsValid() && systemTo.IsValid() && rename(systemFrom, systemTo) == 0;
}

bool MakeDirectory(const char * name)
{
    const SystemName systemName(name);
    return systemName.IsValid() && mkdir(systemName, 0777) == 0;
}

bool DeleteDirectory(const char * name)
{
    const SystemName systemName(name);
    return systemName.IsValid() && rmdir(systemName) == 0;
}

bool ChangeDirectory(const char * name)
{
    const SystemName systemName(name);
    return systemName.IsValid() && chdir(systemName) == 0;
}

bool CurrentDirectory(char * buffer, unsigned size)
{
    return getcwd(buffer, size) != nullptr;
}

bool FullName(const char * name, char * buffer, unsigned size)
{
    const SystemName systemName(name);
    char resolved[PATH_MAX];
    if (!systemName.IsValid() || !realpath(systemName, resolved) || strlen(resolved) >= size)
        return false;
    strcpy(buffer, resolved);
    return true;
}

bool IgnoresCase()
{
    return false;
}

bool DirectoryWalk::Open(const char * name)
{
    Close();
    const SystemName systemName(name && *name ? name : ".");
    if (!systemName.IsValid() || strlen(systemName) >= sizeof(directory))
        return false;
    strcpy(directory, systemName);
    walk = opendir(directory);
    return walk != nullptr;
}

bool DirectoryWalk::Next(DirectoryItem & item)
{
    while (walk)
    {
        const dirent * entry = readdir(static_cast<DIR *>(walk));
        if (!entry)
            return false;
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0 ||
            strlen(entry->d_name) >= sizeof(item.name))
            continue;
        strcpy(item.name, entry->d_name);
        char full[PATH_MAX];
        snprintf(full, sizeof(full), "%s/%s", directory, entry->d_name);
        if (StatusOf(full, item.status))
            return true;
    }
    return false;
}

uint32_t ProcessId()
{
    return static_cast<uint32_t>(getpid());
}

void DirectoryWalk::Close()
{
    if (walk)
        closedir(static_cast<DIR *>(walk));
    walk = nullptr;
}
} // namespace FilePlatform
} // namespace Kiv
