// Substitutions: named search paths of directories, archives and links to other substitutions,
// kept in one process-wide list and searched newest place first.
#pragma once

#include "Alloc.h"
#include "File.h"
#include "KivApi.h"
#include "PString.h"

#include <atomic>
#include <cstdint>

namespace Kiv
{
// One place of a substitution. Archives derive from it too. A member is shared: its entry holds
// one reference, and so does every open file and search using it; the last Release destroys it,
// so removing a substitution never frees a member under someone still using it.
class KIV_API FileSub : public AllocBase
{
public:
    FileSub() = default;
    FileSub(const FileSub &) = delete;
    FileSub & operator=(const FileSub &) = delete;

    void AddRef() { references.fetch_add(1, std::memory_order_relaxed); }
    void Release()
    {
        if (references.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

    // Told that a substitution is going away; true when this member refers to it and must go too.
    virtual bool Forget(const FileSubstitute * removed);
    virtual bool IsReadOnly() const = 0;
    virtual bool CanRead() const;
    // The version of the "CFIL" form in which the member stores its files; 0 when not fixed.
    virtual unsigned StoredVersion() const;
    // The disk name under which the member keeps `name`; false when it keeps no disk files.
    virtual bool DiskName(const char * name, File::Path & full) const;
    virtual bool OpenWrite(File & file, const char * name) = 0;
    virtual bool OpenRead(File & file, const char * name) = 0;
    virtual bool Exists(const char * name) = 0;
    virtual bool Remove(const char * name) = 0;
    virtual bool GetStamp(const char * name, File::Time & stamp) = 0;
    virtual bool SetStamp(const char * name, const File::Time & stamp) = 0;
    // Takes back a file that the member opened and marked as its own (Adopt); a member over disk
    // files closes the handle.
    virtual void Close(File & file);
    virtual void Lock();
    virtual void Unlock();
    virtual bool IsSame(const char * path) const = 0;

    FileSub * next = nullptr;

protected:
    // Only Release destroys a member.
    virtual ~FileSub();

    static bool Attach(File & file, const char * fullName) { return file.AttachDisk(fullName); }
    // Marks an opened file as the member's own: the file holds a reference to the member and
    // hands its close to it.
    void Adopt(File & file) { file.member = this; }

private:
    std::atomic<long> references{1};
};

// A directory on disk; names are joined to it.
class KIV_API FileSubPath : public FileSub
{
public:
    FileSubPath(const char * directory, bool writable);

    bool IsReadOnly() const override { return !writable; }
    bool DiskName(const char * name, File::Path & full) const override;
    bool OpenWrite(File & file, const char * name) override;
    bool OpenRead(File & file, const char * name) override;
    bool Exists(const char * name) override;
    bool Remove(const char * name) override;
    bool GetStamp(const char * name, File::Time & stamp) override;
    bool SetStamp(const char * name, const File::Time & stamp) override;
    bool IsSame(const char * path) const override;

private:
    File::Path directory;
    bool writable;
};

// Another substitution, searched after the places of its own entry.
class KIV_API FileSubLink : public FileSub
{
public:
    explicit FileSubLink(FileSubstitute * other) : other(other) {}

    bool Forget(const FileSubstitute * removed) override;
    // The linked walk skips its own read-only places.
    bool IsReadOnly() const override { return false; }
    bool OpenWrite(File & file, const char * name) override;
    bool OpenRead(File & file, const char * name) override;
    bool Exists(const char * name) override;
    bool Remove(const char * name) override;
    bool GetStamp(const char * name, File::Time & stamp) override;
    bool SetStamp(const char * name, const File::Time & stamp) override;
    bool IsSame(const char * path) const override { return false; }

    // The linked entry; null once it was removed.
    FileSubstitute * Other() const { return other; }

private:
    FileSubstitute * other;
};

// A substitution entry: its name and its members, the newest first.
class KIV_API FileSubstitute : public AllocBase
{
public:
    explicit FileSubstitute(const PString & name);
    ~FileSubstitute();
    FileSubstitute(const FileSubstitute &) = delete;
    FileSubstitute & operator=(const FileSubstitute &) = delete;

    const PString & Name() const { return name; }
    unsigned Count() const { return count; }

    void AddFront(FileSub * member);
    void AddBack(FileSub * member);
    void Empty();
    void Forget(const FileSubstitute * removed);

    // Each walks the members under the list lock and stops at the first that succeeds.
    bool OpenRead(File & file, const char * name);
    bool OpenWrite(File & file, const char * name);
    bool Exists(const char * name);
    bool Remove(const char * name);
    bool GetStamp(const char * name, File::Time & stamp);
    bool SetStamp(const char * name, const File::Time & stamp);
    // The disk name of `name` in the first directory that holds it or, when none does and
    // `forWriting`, in the first writable directory; linked entries are searched in their turn.
    bool DiskName(const char * name, File::Path & full, bool forWriting);
    // Every readable place in search order, with those of linked entries in place of the links,
    // each entry once; each place comes with a reference for the caller. The array is from
    // Kiv::Alloc; give it back with ReleasePlaces.
    FileSub ** TakePlaces(unsigned & count);
    static void ReleasePlaces(FileSub ** places, unsigned count);

    // The entry of that name, or null; an empty name finds nothing.
    static FileSubstitute * Find(const PString & name);
    // Splits `name` at its first ':' when the text before it has two or more characters (a
    // one-letter prefix is a drive): `prefix` gets that text and `rest` what follows the colon.
    static bool SplitPrefix(const char * name, PString & prefix, const char *& rest);

    // The list's links, kept in ascending order of the name's identity.
    FileSubstitute * previous;
    FileSubstitute * following;

private:
    template <typename Step>
    bool Walk(bool forWriting, Step step);
    bool FindDisk(const char * name, File::Path & full, bool existing);
    unsigned CollectPlaces(FileSub ** places, unsigned capacity);

    PString name;
    FileSub * members;
    unsigned count;
    // The walk that last visited this entry: a walk visits each entry once.
    uint64_t visited;
};
} // namespace Kiv
