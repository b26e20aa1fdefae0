// Directory search: names matching a wildcard, in one directory or in every directory of a
// substitution in the list's order, newest first; a name already found in a newer place is
// not reported again from an older one.
#include "File.h"

#include "FilePlatform.h"
#include "FileSub.h"
#include "FileSubstList.h"
#include "PString.h"
#include "SyncObject.h"

#include <cstdio>
#include <cstring>

namespace Kiv
{
namespace
{
const char module[] = "Corestone/FileFind";

FileSub::Listing * ListingOf(void * walk)
{
    return static_cast<FileSub::Listing *>(walk);
}

// A disk directory listed as entries.
class DirectoryListing : public FileSub::Listing
{
public:
    bool Open(const char * directory) { return walk.Open(directory); }

    bool Next(File::Entry & entry) override
    {
        FilePlatform::DirectoryItem item;
        if (!walk.Next(item))
            return false;
        entry = File::Entry();
        strcpy(entry.name, item.name);
        entry.size = item.status.size > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(item.status.size);
        File::Time modified;
        File::Time created;
        modified.ticks = item.status.modified;
        created.ticks = item.status.created;
        entry.SetStamp(modified, created);
        entry.attributes = (item.status.hidden ? File::Entry::ATTRIBUTE_HIDDEN : 0) |
                           (item.status.directory ? File::Entry::ATTRIBUTE_DIRECTORY : 0);
        return true;
    }

private:
    FilePlatform::DirectoryWalk walk;
};

bool IsDrive(const char * pattern, const char * colon)
{
    return colon == pattern + 1 && (colon[1] == '/' || colon[1] == '\\');
}
} // namespace

File::Find::Find() : walk(nullptr), places(nullptr), placeCount(0), placeIndex(0), results(0) {}

File::Find::~Find()
{
    Close();
}

void File::Find::Close()
{
    delete ListingOf(walk);
    walk = nullptr;
    if (places)
    {
        SingleLock guard(&SubstLock(), true);
        FileSubstitute::ReleasePlaces(places, placeCount);
    }
    places = nullptr;
    placeCount = 0;
    placeIndex = 0;
    results = 0;
}

// Splits the pattern into the folder part (kept with its separator) and the name wildcard. "*.*"
// lists every name, those without a '.' too, which the matcher alone would not.
void File::Find::ReduceWildcard(const char * pattern)
{
    wildcard.GetFileName(pattern);
    if (wildcard.IsEmpty() || strcmp(wildcard, "*.*") == 0)
        wildcard = "*";
    prefix.GetPath(pattern);
}

bool File::Find::Open(const char * pattern)
{
    Close();
    const char * colon = pattern ? strchr(pattern, ':') : nullptr;
    if (colon && !IsDrive(pattern, colon))
    {
        char name[MAX_PATH_LENGTH];
        const size_t length =
            static_cast<size_t>(colon - pattern) < sizeof(name) ? colon - pattern : sizeof(name) - 1;
        memcpy(name, pattern, length);
        name[length] = 0;
        return Open(colon + 1, PString(name));
    }
    ReduceWildcard(pattern);
    directory = prefix;
    return FirstDirect();
}

bool File::Find::Open(const char * pattern, const PString & substName)
{
    Close();
    {
        SingleLock guard(&SubstLock(), true);
        FileSubstitute * subst = FileSubstitute::Find(substName);
        if (!subst)
            throw FileEx(module, __LINE__, "Open() Subst not found");
        places = subst->TakePlaces(placeCount);
    }
    ReduceWildcard(pattern);
    folder = prefix;
    char named[2 * MAX_PATH_LENGTH];
    snprintf(named, sizeof(named), "%s:%s", static_cast<const char *>(substName), folder.Text());
    prefix = named;
    placeIndex = 0;
    return StartMember() || NextSearch();
}

// Lists the current place's folder: a directory on disk, or the place's own listing.
bool File::Find::StartMember()
{
    if (placeIndex >= placeCount)
        return false;
    SingleLock guard(&SubstLock(), true);
    const bool onDisk = places[placeIndex]->DiskName(folder, directory);
    guard.Unlock();
    if (onDisk)
        return FirstDirect();
    delete ListingOf(walk);
    walk = places[placeIndex]->List(folder);
    return NextDirect();
}

bool File::Find::NextSearch()
{
    while (placeIndex + 1 < placeCount)
    {
        ++placeIndex;
        if (StartMember())
            return true;
    }
    return false;
}

bool File::Find::FirstDirect()
{
    delete ListingOf(walk);
    auto * listing = new DirectoryListing;
    walk = listing;
    return listing->Open(directory.IsEmpty() ? "." : directory.Text()) && NextDirect();
}

bool File::Find::NextDirect()
{
    while (ListingOf(walk) && ListingOf(walk)->Next(entry))
    {
        if (CheckFiles())
        {
            ++results;
            return true;
        }
    }
    return false;
}

// Whether the current item matches and is not hidden behind the same name in a newer place.
bool File::Find::CheckFiles()
{
    // A result whose full name would be cut at the path's bound would name another file.
    Path full(prefix);
    if (!Path::IsMatch(entry.name, wildcard) || !full.AddPath(entry.name))
        return false;
    if (!places)
        return true;
    // A name cut at the path's bound would be another file's.
    Path name(folder);
    if (!name.AddPath(entry.name))
        return false;
    SingleLock guard(&SubstLock(), true);
    for (unsigned newer = 0; newer < placeIndex; ++newer)
        if (places[newer]->Exists(name))
            return false;
    return true;
}

bool File::Find::NextFile()
{
    return NextDirect() || NextSearch();
}

bool File::Find::Next()
{
    return NextFile();
}

File::Path File::Find::GetNameAndPath() const
{
    Path full(prefix);
    full.AddPath(entry.name);
    return full;
}

void File::Find::Dump()
{
    int index = 0;
    if (!results)
        return;
    do
        printf("%d. %s\n", ++index, GetNameAndPath().Text());
    while (Next());
}
} // namespace Kiv
