// The file-system operations of Kiv::File: existence, removal, renaming, directories, stamps and
// the read-only flag, each on a plain name, a "subst:name" or an explicit substitution.
#include "File.h"

#include "CRuntime.h"
#include "FilePlatform.h"
#include "FileSub.h"
#include "FileSubstList.h"
#include "PString.h"
#include "SyncObject.h"

#include <cstring>

namespace Kiv
{
namespace
{
const char module[] = "Corestone/File";

bool IsSeparator(char c)
{
    return c == '/' || c == '\\';
}

bool IsDirectory(const char * name)
{
    FilePlatform::Status status{};
    return FilePlatform::GetStatus(name, status) && status.directory;
}

// Calls `operation` with the substitution and the name that a plain name stands for.
template <typename Operation>
auto WithPrefix(const char * name, Operation operation)
{
    PString prefix;
    const char * rest = name;
    FileSubstitute::SplitPrefix(name, prefix, rest);
    return operation(prefix, rest);
}

// Calls `onEntry` with the substitution's entry, under the list lock so that the entry cannot be
// removed meanwhile, or `plain` when the name has no entry.
template <typename OnEntry, typename Plain>
auto ThroughSubst(const PString & subst, OnEntry onEntry, Plain plain)
{
    const char * text = subst;
    SingleLock guard(&SubstLock(), text && *text);
    FileSubstitute * entry = FileSubstitute::Find(subst);
    if (entry)
        return onEntry(entry);
    guard.Unlock();
    return plain();
}

bool IsUnknown(const PString & subst)
{
    const char * text = subst;
    return text && *text && !FileSubstitute::Find(subst);
}

// The disk name an operation acts on: through the substitution when there is one, else as given.
bool DiskName(const PString & subst, const char * name, File::Path & full, bool forWriting)
{
    if (!name || strlen(name) >= File::MAX_PATH_LENGTH)
        return false;
    return ThroughSubst(
        subst, [&](FileSubstitute * entry) { return entry->DiskName(name, full, forWriting); },
        [&]
        {
            full = name;
            return true;
        });
}

// Finds each component of `name` whatever its case, by listing the folders on the way.
bool FindIgnoringCase(const char * name, File::Path & found)
{
    File::Path walked;
    const char * component = name;
    if (IsSeparator(*component))
        walked = "/";
    while (*component)
    {
        while (IsSeparator(*component))
            ++component;
        size_t length = 0;
        while (component[length] && !IsSeparator(component[length]))
            ++length;
        if (!length)
            break;
        char wanted[File::MAX_PATH_LENGTH];
        memcpy(wanted, component, length);
        wanted[length] = 0;
        component += length;
        File::Path candidate = walked;
        candidate.AddPath(wanted);
        if (wanted[length - 1] == ':')
        {
            // A drive is taken as it stands, with its root folder.
            walked = candidate;
            walked.AddPath(nullptr);
            continue;
        }
        // A system that ignores case is still asked for the stored spelling.
        FilePlatform::Status status{};
        if (FilePlatform::IgnoresCase() || !FilePlatform::GetStatus(candidate, status))
        {
            FilePlatform::DirectoryWalk walk;
            FilePlatform::DirectoryItem item;
            bool matched = false;
            if (walk.Open(walked.IsEmpty() ? "." : walked.Text()))
                while (!matched && walk.Next(item))
                    matched = CRuntime::Stricmp(item.name, wanted) == 0;
            if (!matched)
                return false;
            candidate = walked;
            candidate.AddPath(item.name);
        }
        walked = candidate;
    }
    found = walked;
    return !walked.IsEmpty();
}

bool PruneDisk(const char * directory)
{
    FilePlatform::DirectoryWalk walk;
    FilePlatform::DirectoryItem item;
    bool removedAll = walk.Open(directory);
    while (removedAll && walk.Next(item))
    {
        File::Path child(directory);
        child.AddPath(item.name);
        if (child.Length() + 1 >= File::MAX_PATH_LENGTH)
            removedAll = false;
        else if (item.status.directory && !item.status.link)
            removedAll = PruneDisk(child);
        else
            removedAll = (!item.status.readOnly || FilePlatform::SetReadOnly(child, false)) &&
                         FilePlatform::RemoveFile(child);
    }
    walk.Close();
    return removedAll && FilePlatform::DeleteDirectory(directory);
}

bool MakeDirectories(const char * name)
{
    File::Path directory(name);
    directory.DelSlash();
    char * text = directory.Buffer();
    for (char * at = text + 1; *at; ++at)
    {
        // A drive's root ("c:/") is not a folder to create.
        if (!IsSeparator(*at) || at[-1] == ':')
            continue;
        const char separator = *at;
        *at = 0;
        if (!IsDirectory(text))
            FilePlatform::MakeDirectory(text);
        *at = separator;
    }
    return FilePlatform::MakeDirectory(text) || IsDirectory(text);
}
} // namespace

File::Result File::Exists(const char * name)
{
    return WithPrefix(name, [](const PString & subst, const char * rest) { return Exists(subst, rest); });
}

File::Result File::Exists(const PString & subst, const char * name)
{
    if (IsUnknown(subst))
        return RES_SUBSTNOTFOUND;
    const bool found = ThroughSubst(
        subst, [&](FileSubstitute * entry) { return entry->Exists(name); },
        [&]
        {
            FilePlatform::Status status{};
            return name && FilePlatform::GetStatus(name, status);
        });
    return found ? RES_OK : RES_FILENOTFOUND;
}

File::Result File::ExistsIgnoreCase(const char * name, Path & found)
{
    return WithPrefix(name, [&](const PString & subst, const char * rest)
                      { return ExistsIgnoreCase(subst, rest, found); });
}

File::Result File::ExistsIgnoreCase(const PString & subst, const char * name, Path & found)
{
    if (IsUnknown(subst))
        return RES_SUBSTNOTFOUND;
    if (!name || strlen(name) >= MAX_PATH_LENGTH)
        return RES_FILENOTFOUND;
    const bool exists = ThroughSubst(
        subst,
        [&](FileSubstitute * entry)
        {
            unsigned count = 0;
            FileSub ** places = entry->TakePlaces(count);
            bool matched = false;
            for (unsigned index = 0; index < count && !matched; ++index)
            {
                Path full;
                if (places[index]->DiskName(name, full))
                    matched = FindIgnoringCase(full, found);
                else if (places[index]->StoredName(name, full))
                {
                    // A stored file is named through the substitution, as it is spelt there.
                    found.Make(subst, full);
                    matched = true;
                }
            }
            FileSubstitute::ReleasePlaces(places, count);
            return matched;
        },
        [&] { return FindIgnoringCase(name, found); });
    return exists ? RES_OK : RES_FILENOTFOUND;
}

bool File::Remove(const char * name)
{
    return WithPrefix(name, [](const PString & subst, const char * rest) { return Remove(subst, rest); });
}

bool File::Remove(const PString & subst, const char * name)
{
    return ThroughSubst(
        subst, [&](FileSubstitute * entry) { return entry->Remove(name); },
        [&] { return name && FilePlatform::RemoveFile(name); });
}

bool File::Rename(const char * from, const char * to)
{
    return WithPrefix(from,
                      [&](const PString & subst, const char * rest)
                      {
                          PString ignored;
                          const char * target = to;
                          FileSubstitute::SplitPrefix(to, ignored, target);
                          return Rename(subst, rest, target);
                      });
}

// As on Windows, renaming never replaces an existing file.
bool File::Rename(const PString & subst, const char * from, const char * to)
{
    Path oldName;
    Path newName;
    FilePlatform::Status status{};
    return DiskName(subst, from, oldName, false) && DiskName(subst, to, newName, true) &&
           !FilePlatform::GetStatus(newName, status) && FilePlatform::Rename(oldName, newName);
}

bool File::Md(const char * name)
{
    return WithPrefix(name, [](const PString & subst, const char * rest) { return Md(subst, rest); });
}

bool File::Md(const PString & subst, const char * name)
{
    Path full;
    return DiskName(subst, name, full, true) && MakeDirectories(full);
}

bool File::Rd(const char * name)
{
    return WithPrefix(name, [](const PString & subst, const char * rest) { return Rd(subst, rest); });
}

bool File::Rd(const PString & subst, const char * name)
{
    Path full;
    return DiskName(subst, name, full, false) && FilePlatform::DeleteDirectory(full);
}

bool File::Cd(const char * name)
{
    return WithPrefix(name, [](const PString & subst, const char * rest) { return Cd(subst, rest); });
}

bool File::Cd(const PString & subst, const char * name)
{
    Path full;
    return DiskName(subst, name, full, false) && FilePlatform::ChangeDirectory(full);
}

bool File::GetCwd(Path & directory)
{
    return FilePlatform::CurrentDirectory(directory.Buffer(), MAX_PATH_LENGTH);
}

bool File::Prune(const char * directory)
{
    return WithPrefix(directory, [](const PString & subst, const char * rest) { return Prune(subst, rest); });
}

bool File::Prune(const PString & subst, const char * directory)
{
    Path full;
    return DiskName(subst, directory, full, false) && IsDirectory(full) && PruneDisk(full);
}

bool File::TrueName(char * name)
{
    if (!name || !*name || strnlen(name, MAX_PATH_LENGTH) >= MAX_PATH_LENGTH)
        return false;
    Path full;
    if (!FilePlatform::FullName(name, full.Buffer(), MAX_PATH_LENGTH))
    {
        // A name that does not exist yet is made absolute by hand; one cut at the bound would be
        // another file's.
        if (IsSeparator(name[0]) || name[1] == ':')
            full = name;
        else if (!GetCwd(full) || !full.AddPath(name))
            return false;
        full.Normalize();
    }
    memcpy(name, full.Text(), full.Length() + 1);
    return true;
}

bool File::GetStamp(Time & stamp, const char * name)
{
    return WithPrefix(name,
                      [&](const PString & subst, const char * rest) { return GetStamp(stamp, subst, rest); });
}

bool File::GetStamp(Time & stamp, const PString & subst, const char * name)
{
    return ThroughSubst(
        subst, [&](FileSubstitute * entry) { return entry->GetStamp(name, stamp); },
        [&]
        {
            FilePlatform::Status status{};
            if (!name || !FilePlatform::GetStatus(name, status))
                return false;
            stamp.ticks = status.modified;
            return true;
        });
}

void File::SetStamp(const Time & stamp, const char * name)
{
    WithPrefix(name,
               [&](const PString & subst, const char * rest)
               {
                   SetStamp(stamp, subst, rest);
                   return true;
               });
}

void File::SetStamp(const Time & stamp, const PString & subst, const char * name)
{
    const bool done = ThroughSubst(
        subst, [&](FileSubstitute * entry) { return entry->SetStamp(name, stamp); },
        [&] { return name && FilePlatform::SetStamp(name, stamp.ticks); });
    if (!done)
        throw FileEx(module, __LINE__, "SetStamp() failure");
}

bool File::SetReadonly(const char * name, bool readOnly)
{
    return WithPrefix(name, [&](const PString & subst, const char * rest)
                      { return SetReadonly(subst, rest, readOnly); });
}

bool File::SetReadonly(const PString & subst, const char * name, bool readOnly)
{
    Path full;
    return DiskName(subst, name, full, false) && FilePlatform::SetReadOnly(full, readOnly);
}

File::Result File::CheckWriteMode(const char * name)
{
    return WithPrefix(name,
                      [](const PString & subst, const char * rest) { return CheckWriteMode(subst, rest); });
}

// Whether the name may be written: a missing file may be created, an existing one must not be
// read-only.
File::Result File::CheckWriteMode(const PString & subst, const char * name)
{
    if (IsUnknown(subst))
        return RES_SUBSTNOTFOUND;
    Path full;
    FilePlatform::Status status{};
    if (!DiskName(subst, name, full, true))
        return RES_FILENOTFOUND;
    return FilePlatform::GetStatus(full, status) && status.readOnly ? RES_READONLY : RES_OK;
}
} // namespace Kiv
