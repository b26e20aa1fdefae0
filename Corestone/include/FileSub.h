// Substitutions: named search paths of directories, archives and links to other substitutions,
// kept in one process-wide list and searched newest place first.
#pragma once

#include "Alloc.h"
#include "File.h"
#include "KivApi.h"
#include "PString.h"
#include "SyncObject.h"

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
    // The files and folders of a member that keeps them itself, one at a time.
    class KIV_API Listing : public AllocBase
    {
    public:
        Listing() = default;
        Listing(const Listing &) = delete;
        Listing & operator=(const Listing &) = delete;
        virtual ~Listing();
        virtual bool Next(File::Entry & entry) = 0;
    };

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
    // files closes the handle. False when what was written could not be kept.
    virtual bool Close(File & file);
    virtual void Lock();
    virtual void Unlock();
    virtual bool IsSame(const char * path) const = 0;
    // The spelling under which a member that keeps its files itself stores `name`, found whatever
    // its case; false when it keeps no such file (directories answer through DiskName).
    virtual bool StoredName(const char * name, File::Path & stored);
    // What lies directly inside `folder` (empty for the top): its files, and each subfolder once
    // as a directory. Null when the member lists nothing this way; directories list through
    // DiskName instead.
    virtual Listing * List(const char * folder);

    FileSub * next = nullptr;

protected:
    // Only Release destroys a member.
    virtual ~FileSub();

    static bool Attach(File & file, const char * fullName) { return file.AttachDisk(fullName); }
    // Marks an opened file as the member's own: the file holds a reference to the member and
    // hands its close to it.
    void Adopt(File & file) { file.member = this; }
    // Lends `file` a handle of the member's, read at `dataStart` for `size` bytes and never
    // closed by the file.
    void AttachShared(File & file, int handle, const char * name, uint32_t dataStart, uint32_t size);
    // Gives `file` a handle the member made for it; the member takes it back in Close.
    void AttachOwn(File & file, int handle, const char * name);
    static unsigned long ModeOf(const File & file) { return file.mode; }
    static int HandleOf(const File & file) { return file.handle; }

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

class ArchiveTable;
struct ArchiveRecord;

// An archive file serving as a folder of stored files. The file holds "ARCH", an INFO block,
// one block per stored file ("FIL" and a zero byte while live, "FIL!" once removed or replaced)
// and an index block "IDX " that is rewritten when the substitution closes. All numbers are
// 32-bit little-endian.
//
// Choices of this reader and writer:
// - Names are found whatever their case and whichever separator they use: lookups, like
//   removal, fold ASCII letters to lower case (and '\' to '/'); a stored name keeps the
//   writer's spelling. One leading separator of a name is dropped.
// - The entry's 20 time bytes hold the modification stamp (8 bytes), the creation stamp
//   (8 bytes) and 4 reserved zero bytes; the byte at 285 is written as zero. A stored file
//   takes its modification stamp from the file written for it (set it with File::SetStamp
//   before closing) and keeps the creation stamp of the file it replaces.
// - A file written through the archive goes to a temporary disk file beside the archive while
//   open; on close its block is appended ("CFIL" form when opened with the compressed write
//   mode, flagged compressed in its entry; plain in a version 257 archive, whose stored "CFIL"
//   files carry the magic alone) and an older block of the same name is then marked "FIL!".
//   Blocks are appended where the archive's blocks end, over the old index, which is written
//   again after them; the file is cut after the index.
// - Opened for writing without truncation (or for reading and writing), a stored file starts
//   from a copy of its stored bytes; one stored in the "CFIL" form cannot be opened so.
// - Listing a folder gives its files and each subfolder once, as a directory entry.
// - The index is taken only when it begins with "IDX ", its length is the INFO record count
//   times 296, it lies inside the file, and every record's block lies inside the file after
//   the INFO block. Otherwise the table is rebuilt by walking the blocks from the first, and a
//   writable archive writes a fresh index when it closes. Blocks found after the index (a
//   writer that stopped before rewriting it) join the table the same way.
class KIV_API FileSubArchive : public FileSub
{
public:
    // Opens the archive, or creates it when writable and missing: "Substitute() Open new archive
    // failed" when that fails. An archive that is not valid holds no files.
    FileSubArchive(const char * path, bool writable);

    bool IsReadOnly() const override;
    unsigned StoredVersion() const override;
    bool OpenWrite(File & file, const char * name) override;
    bool OpenRead(File & file, const char * name) override;
    bool Exists(const char * name) override;
    bool Remove(const char * name) override;
    bool GetStamp(const char * name, File::Time & stamp) override;
    bool SetStamp(const char * name, const File::Time & stamp) override;
    bool Close(File & file) override;
    void Lock() override;
    void Unlock() override;
    bool IsSame(const char * path) const override;
    bool StoredName(const char * name, File::Path & stored) override;
    Listing * List(const char * folder) override;

    // Whether the archive opened (or was created) and holds a table of files.
    bool IsValid() const { return handle != -1; }
    unsigned FileCount();
    // Writes the index where the old one stood (or after the last block) and the INFO block
    // again; false, with the INFO block untouched, when a record could not be written.
    bool WriteIndex();

protected:
    // The last reference gone: the index is written when the archive was modified.
    ~FileSubArchive() override;

private:
    struct Writing;

    bool Load();
    uint64_t FileLength() const;
    bool LoadIndex(uint64_t fileLength);
    void Scan();
    void Create();
    void Discard();
    ArchiveRecord * Lookup(const char * name);
    bool ReadAt(uint64_t offset, void * data, uint32_t length) const;
    bool WriteAt(uint64_t offset, const void * data, uint32_t length) const;
    bool WriteInfo() const;
    bool AppendBlock(Writing & writing, int own);
    static bool CopyData(int from, uint64_t offset, int to, uint32_t length);

    File::Path path;
    int handle;
    uint32_t version;
    uint32_t recordCount;
    uint32_t indexOffset;
    // Where the blocks walked so far end; new blocks go there.
    uint32_t blocksEnd;
    bool writable;
    uint8_t state;
    CriticalSection lock;
    ArchiveTable * table;
    Writing * writings;
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
