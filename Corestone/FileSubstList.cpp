// The process-wide substitution list: entries in ascending order of their name's identity, one
// lock over the list and every entry's members, and the File statics that edit it.
#include "FileSubstList.h"

#include "FileSub.h"
#include "SyncObject.h"

#include <cstring>

namespace Kiv
{
namespace
{
const char module[] = "Corestone/FileSubstList";

// A circular doubly linked list; `head` is its lowest entry.
struct SubstList
{
    CriticalSection lock{"FileSubstList"};
    FileSubstitute * head = nullptr;

    ~SubstList()
    {
        while (head)
            RemoveSubst(head);
    }
};

SubstList & List()
{
    static SubstList list;
    return list;
}

const void * Identity(const PString & name)
{
    return static_cast<const char *>(name);
}

void Insert(FileSubstitute * entry)
{
    SubstList & list = List();
    if (!list.head)
    {
        entry->previous = entry->following = entry;
        list.head = entry;
        return;
    }
    FileSubstitute * before = list.head;
    do
    {
        if (Identity(before->Name()) > Identity(entry->Name()))
            break;
        before = before->following;
    } while (before != list.head);
    entry->following = before;
    entry->previous = before->previous;
    before->previous->following = entry;
    before->previous = entry;
    if (Identity(entry->Name()) < Identity(list.head->Name()))
        list.head = entry;
}

FileSubstitute * FindOrCreate(const PString & name)
{
    FileSubstitute * entry = FileSubstitute::Find(name);
    if (!entry)
    {
        entry = new FileSubstitute(name);
        Insert(entry);
    }
    return entry;
}

// A path ending in a separator is a directory; any other names an archive file.
FileSub * MakeMember(const char * path, bool writable)
{
    const size_t length = strlen(path);
    if (length && (path[length - 1] == '/' || path[length - 1] == '\\'))
        return new FileSubPath(path, writable);
    return new FileSubArchive(path, writable);
}
} // namespace

void RemoveSubst(FileSubstitute * entry)
{
    SubstList & list = List();
    SingleLock guard(&list.lock, true);
    entry->Empty();
    for (FileSubstitute * other = entry->following; other != entry; other = other->following)
        other->Forget(entry);
    if (entry->following == entry)
    {
        list.head = nullptr;
    }
    else
    {
        entry->previous->following = entry->following;
        entry->following->previous = entry->previous;
        if (list.head == entry)
            list.head = entry->following;
    }
    delete entry;
}

void RemoveSubst(const PString & name)
{
    SingleLock guard(&List().lock, true);
    FileSubstitute * entry = FileSubstitute::Find(name);
    if (!entry)
        throw FileEx(module, __LINE__, "Subst(%s) Closing non-existant subst?",
                     static_cast<const char *>(name));
    RemoveSubst(entry);
}

CriticalSection & SubstLock()
{
    return List().lock;
}

FileSubstitute * FileSubstitute::Find(const PString & name)
{
    const char * text = name;
    if (!text || !*text)
        return nullptr;
    SubstList & list = List();
    SingleLock guard(&list.lock, true);
    FileSubstitute * entry = list.head;
    if (!entry)
        return nullptr;
    do
    {
        if (entry->Name() == name)
            return entry;
        entry = entry->following;
    } while (entry != list.head);
    return nullptr;
}

bool FileSubstitute::SplitPrefix(const char * name, PString & prefix, const char *& rest)
{
    rest = name;
    const char * colon = name ? strchr(name, ':') : nullptr;
    if (!colon || colon - name < 2)
        return false;
    char text[File::MAX_PATH_LENGTH];
    const size_t length = static_cast<size_t>(colon - name) < sizeof(text) ? colon - name : sizeof(text) - 1;
    memcpy(text, name, length);
    text[length] = 0;
    prefix = PString(text);
    rest = colon + 1;
    return true;
}

void File::Subst(const PString & name, const char * path, bool writable)
{
    const char * text = name;
    if (!text || !*text)
        return;
    SingleLock guard(&List().lock, true);
    if (!path)
    {
        if (FileSubstitute::Find(name))
            RemoveSubst(name);
        return;
    }
    FileSub * member = MakeMember(path, writable);
    FindOrCreate(name)->AddFront(member);
}

void File::SubstLink(const PString & name, const PString & other)
{
    SingleLock guard(&List().lock, true);
    FileSubstitute * linked = FileSubstitute::Find(other);
    if (!linked)
        throw FileEx(module, __LINE__, "SubstLink(%s,%s) Other subst (%s) not found",
                     static_cast<const char *>(name), static_cast<const char *>(other),
                     static_cast<const char *>(other));
    FindOrCreate(name)->AddBack(new FileSubLink(linked));
}

File::Result File::SubstExists(const PString & subst)
{
    return FileSubstitute::Find(subst) ? RES_OK : RES_SUBSTNOTFOUND;
}
} // namespace Kiv
