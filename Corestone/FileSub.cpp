// Substitution members (directories and links) and the member walks of a substitution entry.
#include "FileSub.h"

#include "FilePlatform.h"
#include "FileSubstList.h"
#include "SyncObject.h"

#include <cstring>
#include <new>

namespace Kiv
{
namespace
{
// Links may point at each other: a walk visits each entry once, and one nested deeper than
// this through links finds nothing, which bounds the stack.
const unsigned maxLinkDepth = 16;
// Guarded by the list lock, which every walk holds. A walk entered from no other walk starts
// a new generation; the entries it reaches are stamped with it.
unsigned linkDepth = 0;
uint64_t walkGeneration = 0;

class LinkDepth
{
public:
    LinkDepth()
    {
        if (linkDepth++ == 0)
            ++walkGeneration;
    }
    ~LinkDepth() { --linkDepth; }
    LinkDepth(const LinkDepth &) = delete;
    LinkDepth & operator=(const LinkDepth &) = delete;
    bool TooDeep() const { return linkDepth > maxLinkDepth; }
};

FileSubstitute * LinkedEntry(FileSub * member)
{
    auto * link = dynamic_cast<FileSubLink *>(member);
    return link ? link->Other() : nullptr;
}
} // namespace

FileSub::~FileSub() = default;

bool FileSub::Forget(const FileSubstitute * removed)
{
    return false;
}

bool FileSub::CanRead() const
{
    return true;
}

unsigned FileSub::StoredVersion() const
{
    return 0;
}

bool FileSub::DiskName(const char * name, File::Path & full) const
{
    return false;
}

bool FileSub::Close(File & file)
{
    return FilePlatform::Close(file.handle);
}

FileSub::Listing::~Listing() = default;

bool FileSub::StoredName(const char * name, File::Path & stored)
{
    return false;
}

FileSub::Listing * FileSub::List(const char * folder)
{
    return nullptr;
}

void FileSub::AttachShared(File & file, int shared, const char * name, uint32_t dataStart, uint32_t size)
{
    file.handle = shared;
    file.flags |= File::FOREIGN_HANDLE;
    Adopt(file);
    file.size = size;
    file.dataStart = dataStart;
    file.handlePosition = dataStart;
    file.path = name;
}

void FileSub::AttachOwn(File & file, int own, const char * name)
{
    file.handle = own;
    file.handlePosition = 0;
    Adopt(file);
    file.path = name;
}

void FileSub::Lock() {}

void FileSub::Unlock() {}

FileSubPath::FileSubPath(const char * path, bool writable) : directory(path), writable(writable) {}

bool FileSubPath::DiskName(const char * name, File::Path & full) const
{
    full = directory;
    // A name cut at the path's bound would be another file.
    return full.AddPath(name);
}

bool FileSubPath::OpenWrite(File & file, const char * name)
{
    File::Path full;
    return DiskName(name, full) && Attach(file, full);
}

bool FileSubPath::OpenRead(File & file, const char * name)
{
    File::Path full;
    return DiskName(name, full) && Attach(file, full);
}

bool FileSubPath::Exists(const char * name)
{
    File::Path full;
    FilePlatform::Status status{};
    return DiskName(name, full) && FilePlatform::GetStatus(full, status);
}

bool FileSubPath::Remove(const char * name)
{
    File::Path full;
    return DiskName(name, full) && FilePlatform::RemoveFile(full);
}

bool FileSubPath::GetStamp(const char * name, File::Time & stamp)
{
    File::Path full;
    FilePlatform::Status status{};
    if (!DiskName(name, full) || !FilePlatform::GetStatus(full, status))
        return false;
    stamp.ticks = status.modified;
    return true;
}

bool FileSubPath::SetStamp(const char * name, const File::Time & stamp)
{
    File::Path full;
    return DiskName(name, full) && FilePlatform::SetStamp(full, stamp.ticks);
}

bool FileSubPath::IsSame(const char * path) const
{
    return path && strcmp(directory, path) == 0;
}

bool FileSubLink::Forget(const FileSubstitute * removed)
{
    if (removed != other)
        return false;
    other = nullptr;
    return true;
}

bool FileSubLink::OpenWrite(File & file, const char * name)
{
    return other && other->OpenWrite(file, name);
}

bool FileSubLink::OpenRead(File & file, const char * name)
{
    return other && other->OpenRead(file, name);
}

bool FileSubLink::Exists(const char * name)
{
    return other && other->Exists(name);
}

bool FileSubLink::Remove(const char * name)
{
    return other && other->Remove(name);
}

bool FileSubLink::GetStamp(const char * name, File::Time & stamp)
{
    return other && other->GetStamp(name, stamp);
}

bool FileSubLink::SetStamp(const char * name, const File::Time & stamp)
{
    return other && other->SetStamp(name, stamp);
}

FileSubstitute::FileSubstitute(const PString & name)
    : previous(nullptr), following(nullptr), name(name), members(nullptr), count(0), visited(0)
{
}

FileSubstitute::~FileSubstitute()
{
    Empty();
}

void FileSubstitute::AddFront(FileSub * member)
{
    SingleLock guard(&SubstLock(), true);
    member->next = members;
    members = member;
    ++count;
}

void FileSubstitute::AddBack(FileSub * member)
{
    SingleLock guard(&SubstLock(), true);
    FileSub ** end = &members;
    while (*end)
        end = &(*end)->next;
    member->next = nullptr;
    *end = member;
    ++count;
}

void FileSubstitute::Empty()
{
    SingleLock guard(&SubstLock(), true);
    while (members)
    {
        FileSub * member = members;
        members = member->next;
        --count;
        member->Release();
    }
}

void FileSubstitute::Forget(const FileSubstitute * removed)
{
    SingleLock guard(&SubstLock(), true);
    for (FileSub ** link = &members; *link;)
    {
        FileSub * member = *link;
        if (member->Forget(removed))
        {
            *link = member->next;
            --count;
            member->Release();
        }
        else
        {
            link = &member->next;
        }
    }
}

template <typename Step>
bool FileSubstitute::Walk(bool forWriting, Step step)
{
    SingleLock guard(&SubstLock(), true);
    const LinkDepth depth;
    if (depth.TooDeep() || visited == walkGeneration)
        return false;
    visited = walkGeneration;
    for (FileSub * member = members; member; member = member->next)
    {
        const bool usable = forWriting ? !member->IsReadOnly() : member->CanRead();
        if (usable && step(member))
            return true;
    }
    return false;
}

bool FileSubstitute::OpenRead(File & file, const char * name)
{
    return Walk(false, [&](FileSub * member) { return member->OpenRead(file, name); });
}

bool FileSubstitute::OpenWrite(File & file, const char * name)
{
    return Walk(true, [&](FileSub * member) { return member->OpenWrite(file, name); });
}

bool FileSubstitute::Exists(const char * name)
{
    return Walk(false, [&](FileSub * member) { return member->Exists(name); });
}

bool FileSubstitute::Remove(const char * name)
{
    return Walk(true, [&](FileSub * member) { return member->Remove(name); });
}

bool FileSubstitute::GetStamp(const char * name, File::Time & stamp)
{
    return Walk(false, [&](FileSub * member) { return member->GetStamp(name, stamp); });
}

bool FileSubstitute::SetStamp(const char * name, const File::Time & stamp)
{
    return Walk(true, [&](FileSub * member) { return member->SetStamp(name, stamp); });
}

bool FileSubstitute::DiskName(const char * name, File::Path & full, bool forWriting)
{
    return FindDisk(name, full, true) || (forWriting && FindDisk(name, full, false));
}

// One pass of DiskName: the first place holding the name, or the first writable one.
bool FileSubstitute::FindDisk(const char * name, File::Path & full, bool existing)
{
    return Walk(!existing,
                [&](FileSub * member)
                {
                    FileSubstitute * linked = LinkedEntry(member);
                    if (linked)
                        return linked->FindDisk(name, full, existing);
                    FilePlatform::Status status{};
                    return member->DiskName(name, full) &&
                           (!existing || FilePlatform::GetStatus(full, status));
                });
}

FileSub ** FileSubstitute::TakePlaces(unsigned & placeCount)
{
    SingleLock guard(&SubstLock(), true);
    placeCount = CollectPlaces(nullptr, 0);
    if (!placeCount)
        return nullptr;
    // An array of member pointers, one a place.
    auto ** places = static_cast<FileSub **>(Alloc::New(placeCount * sizeof(void *)));
    if (!places)
        throw std::bad_alloc();
    CollectPlaces(places, placeCount);
    return places;
}

// Counts the places and fills at most `capacity` of them.
unsigned FileSubstitute::CollectPlaces(FileSub ** places, unsigned capacity)
{
    unsigned found = 0;
    Walk(false,
         [&](FileSub * member)
         {
             FileSubstitute * linked = LinkedEntry(member);
             if (linked)
             {
                 found += linked->CollectPlaces(found < capacity ? places + found : nullptr,
                                                found < capacity ? capacity - found : 0);
             }
             else
             {
                 if (found < capacity)
                 {
                     member->AddRef();
                     places[found] = member;
                 }
                 ++found;
             }
             return false;
         });
    return found;
}

void FileSubstitute::ReleasePlaces(FileSub ** places, unsigned placeCount)
{
    for (unsigned index = 0; index < placeCount; ++index)
        places[index]->Release();
    if (places)
        Alloc::Delete(places);
}
} // namespace Kiv
