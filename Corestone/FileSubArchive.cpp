// Archive substitutions: one archive file serving as a folder of stored files, read through a
// handle shared by every file opened from it, appended to block by block, and indexed on close.
#include "FileSub.h"

#include "AllocObject.h"
#include "ArchiveTable.h"
#include "CRuntime.h"
#include "CompressedFile.h"
#include "FilePlatform.h"

#include <cstdio>
#include <cstring>

namespace Kiv
{
namespace
{
const char module[] = "Corestone/FileSubArchive";
const uint32_t archiveSignature = 0x41524330;
const uint32_t newVersion = 258;
const uint32_t infoLength = 32;
const uint32_t firstBlock = 44;
const uint32_t headerBytes = 8;
const uint32_t entryBytes = 288;
// A block's header and entry; also the size of one index record.
const uint32_t recordBytes = 296;
const uint32_t copyBytes = 16384;
// The block search expects its block first; a file of other headers ends it here.
const unsigned searchLimit = 1024;

enum : uint8_t
{
    INDEX_LOADED = 1,
    MODIFIED = 2
};

using Record = ArchiveTable::Record;

uint32_t Get32(const unsigned char * in)
{
    return CRuntime::GetLittleEndian32(in);
}

void Put32(unsigned char * out, uint32_t value)
{
    CRuntime::PutLittleEndian32(out, value);
}

// The four characters of a block identifier or magic word.
void PutId(unsigned char * out, const char * id)
{
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<unsigned char>(id[i]);
}

void PutHeader(unsigned char * out, const char * id, uint32_t length)
{
    PutId(out, id);
    Put32(out + 4, length);
}

void PutEntry(unsigned char * out, const File::Entry & entry)
{
    memcpy(out, entry.name, File::MAX_PATH_LENGTH);
    Put32(out + 260, entry.size);
    memcpy(out + 264, entry.times, sizeof(entry.times));
    out[284] = entry.attributes;
    out[285] = 0;
    out[286] = static_cast<unsigned char>(entry.reserved);
    out[287] = static_cast<unsigned char>(entry.reserved >> 8);
}

void GetEntry(const unsigned char * in, File::Entry & entry)
{
    memcpy(entry.name, in, File::MAX_PATH_LENGTH);
    entry.name[File::MAX_PATH_LENGTH - 1] = 0;
    entry.size = Get32(in + 260);
    memcpy(entry.times, in + 264, sizeof(entry.times));
    entry.attributes = in[284];
    entry.spare = 0;
    entry.reserved = static_cast<uint16_t>(in[286] | in[287] << 8);
}

bool IsSeparator(char c)
{
    return c == '/' || c == '\\';
}

const char * WithoutLeadingSeparator(const char * name)
{
    return name && IsSeparator(*name) ? name + 1 : name;
}

File::Time CreatedOf(const File::Entry & entry)
{
    File::Time created;
    created.ticks = Get32(entry.times + 8) | static_cast<uint64_t>(Get32(entry.times + 12)) << 32;
    return created;
}

// A stored file's data inside the file, its block after the INFO block.
bool BlockFits(uint64_t dataOffset, uint64_t dataLength, uint64_t fileLength)
{
    return dataOffset >= firstBlock + recordBytes && dataOffset + dataLength <= fileLength;
}

// Bytes read from a handle at increasing offsets, and written where another handle stands.
class HandleStream : public BinReader, public BinWriter
{
public:
    HandleStream(int from, int to) : from(from), to(to), read(0), written(0) {}

    unsigned int ReadRaw(void * data, unsigned int length) override
    {
        const int got = FilePlatform::ReadAt(from, data, length, read);
        read += got > 0 ? static_cast<uint32_t>(got) : 0;
        return got > 0 ? static_cast<unsigned>(got) : 0;
    }

    unsigned int WriteRaw(const void * data, unsigned int length) override
    {
        const uint32_t done = FilePlatform::WriteAll(to, data, length);
        written += done;
        return done;
    }

    uint64_t Written() const { return written; }

private:
    int from;
    int to;
    uint32_t read;
    uint64_t written;
};

// The files of an archive folder, copied when the listing starts.
class ArchiveListing : public FileSub::Listing
{
public:
    ArchiveListing(File::Entry * entries, unsigned count) : entries(entries), count(count), next(0) {}
    ~ArchiveListing() override { Alloc::Delete(entries); }

    bool Next(File::Entry & entry) override
    {
        if (next >= count)
            return false;
        entry = entries[next++];
        return true;
    }

private:
    File::Entry * entries;
    unsigned count;
    unsigned next;
};

// Whether `name` lies below `folder` (empty, or ending in a separator); `skip` gets the folder's length.
bool InFolder(const char * name, const char * folder, size_t & skip)
{
    for (skip = 0; folder[skip]; ++skip)
        if (ArchiveTable::Fold(name[skip]) != ArchiveTable::Fold(folder[skip]))
            return false;
    return name[skip] != 0;
}

bool Listed(const File::Entry * entries, unsigned count, const char * name)
{
    for (unsigned index = 0; index < count; ++index)
        if (entries[index].IsDir() && ArchiveTable::SameName(entries[index].name, name))
            return true;
    return false;
}
} // namespace

// A file being written for the archive: its temporary disk file and the name it will be stored under.
struct FileSubArchive::Writing
{
    File * file;
    File::Path name;
    File::Path temporary;
    bool compressed;
    Writing * next;
};

FileSubArchive::FileSubArchive(const char * archivePath, bool isWritable)
    : path(archivePath), handle(-1), version(0), recordCount(0), indexOffset(0), blocksEnd(firstBlock),
      writable(isWritable), state(0), lock("FileSubArchive"), table(nullptr), writings(nullptr)
{
    // A path cut at the bound would name another file.
    const bool fits = strlen(archivePath) < File::MAX_PATH_LENGTH;
    const FilePlatform::Access access = writable ? FilePlatform::ReadWrite : FilePlatform::ReadOnly;
    if (fits)
        handle = FilePlatform::Open(path, {access, FilePlatform::OpenExisting, FilePlatform::ShareAll});
    if (handle != -1)
    {
        table = new ArchiveTable;
        if (!Load())
            Discard();
        return;
    }
    if (writable && !fits)
        throw FileEx(module, __LINE__, "Substitute() Open new archive failed");
    if (writable)
        Create();
}

FileSubArchive::~FileSubArchive()
{
    if (writable && handle != -1 && (state & INDEX_LOADED) && (state & MODIFIED))
        WriteIndex();
    while (writings)
    {
        Writing * done = writings;
        writings = done->next;
        DeleteObject(done);
    }
    if (handle != -1)
        FilePlatform::Close(handle);
    delete table;
}

void FileSubArchive::Discard()
{
    FilePlatform::Close(handle);
    handle = -1;
    version = 0;
    state = 0;
    if (table)
        table->Clear();
}

void FileSubArchive::Create()
{
    handle = FilePlatform::Open(
        path, {FilePlatform::ReadWrite, FilePlatform::OpenOrCreate, FilePlatform::ShareAll});
    version = newVersion;
    if (handle == -1 || !WriteInfo())
    {
        if (handle != -1)
            FilePlatform::Close(handle);
        handle = -1;
        throw FileEx(module, __LINE__, "Substitute() Open new archive failed");
    }
    table = new ArchiveTable;
    state = INDEX_LOADED | MODIFIED;
}

bool FileSubArchive::ReadAt(uint64_t offset, void * data, uint32_t length) const
{
    auto * bytes = static_cast<unsigned char *>(data);
    const auto step = [this, offset, bytes](unsigned char * at, uint32_t count)
    { return FilePlatform::ReadAt(handle, at, count, static_cast<int64_t>(offset + (at - bytes))); };
    return FilePlatform::MoveAll(bytes, length, step) == length;
}

bool FileSubArchive::WriteAt(uint64_t offset, const void * data, uint32_t length) const
{
    return FilePlatform::Seek(handle, static_cast<int64_t>(offset), SEEK_SET) ==
               static_cast<int64_t>(offset) &&
           FilePlatform::WriteAll(handle, data, length) == length;
}

bool FileSubArchive::WriteInfo() const
{
    unsigned char start[firstBlock] = {};
    PutId(start, "ARCH");
    PutHeader(start + 4, "INFO", infoLength);
    Put32(start + 12, archiveSignature);
    Put32(start + 16, version);
    Put32(start + 20, recordCount);
    Put32(start + 24, indexOffset);
    return WriteAt(0, start, sizeof(start));
}

bool FileSubArchive::Load()
{
    unsigned char magic[4];
    if (!ReadAt(0, magic, sizeof(magic)) || memcmp(magic, "ARCH", 4) != 0)
        return false;
    // The block search: headers one after another, without skipping a block's data.
    unsigned char header[headerBytes];
    unsigned char info[infoLength];
    uint64_t at = 4;
    unsigned searched = 0;
    for (;; at += headerBytes)
    {
        if (++searched > searchLimit || !ReadAt(at, header, headerBytes))
            return false;
        if (memcmp(header, "INFO", 4) == 0)
            break;
    }
    if (Get32(header + 4) < infoLength || !ReadAt(at + headerBytes, info, infoLength))
        return false;
    version = Get32(info + 4);
    if (Get32(info) != archiveSignature || version < 257 || version >= 259)
        return false;
    recordCount = Get32(info + 8);
    indexOffset = Get32(info + 12);
    if (LoadIndex(FileLength()))
    {
        state = INDEX_LOADED;
    }
    else
    {
        // Rebuilt from the blocks below; a writable archive then gets a fresh index.
        table->Clear();
        indexOffset = 0;
        state = INDEX_LOADED | (writable ? MODIFIED : 0);
    }
    blocksEnd = table->End(firstBlock);
    Scan();
    return true;
}

// Offsets are 32-bit: what lies beyond 4 GB cannot be reached.
uint64_t FileSubArchive::FileLength() const
{
    const int64_t length = FilePlatform::Length(handle);
    return length < 0 ? 0 : length > 0xFFFFFFFF ? 0xFFFFFFFF : static_cast<uint64_t>(length);
}

bool FileSubArchive::LoadIndex(uint64_t fileLength)
{
    const uint64_t indexLength = uint64_t(recordCount) * recordBytes;
    unsigned char header[headerBytes];
    if (indexOffset < firstBlock || indexOffset + headerBytes + indexLength > fileLength ||
        !ReadAt(indexOffset, header, headerBytes) || memcmp(header, "IDX ", 4) != 0 ||
        Get32(header + 4) != indexLength)
        return false;
    unsigned char records[16 * recordBytes];
    for (uint32_t done = 0; done < recordCount;)
    {
        const uint32_t batch = recordCount - done < 16 ? recordCount - done : 16;
        if (!ReadAt(indexOffset + headerBytes + uint64_t(done) * recordBytes, records, batch * recordBytes))
            return false;
        for (uint32_t index = 0; index < batch; ++index)
        {
            const unsigned char * record = records + index * recordBytes;
            File::Entry entry;
            GetEntry(record + 8, entry);
            if (!BlockFits(Get32(record), Get32(record + 4), fileLength) || !entry.name[0] ||
                !table->Add(Get32(record), Get32(record + 4), entry))
                return false;
        }
        done += batch;
    }
    return true;
}

// Walks the blocks after the last known one, so that files appended after the index was written
// are found. Stops at a header that cannot be read, a block running past the end of the file, or
// anything that is not a block.
void FileSubArchive::Scan()
{
    const uint64_t fileLength = FileLength();
    uint64_t at = blocksEnd;
    bool found = false;
    unsigned char block[recordBytes];
    while (at + headerBytes <= fileLength && ReadAt(at, block, headerBytes))
    {
        const uint64_t end = at + headerBytes + Get32(block + 4);
        const bool live = memcmp(block, "FIL\0", 4) == 0;
        const bool dead = memcmp(block, "FIL!", 4) == 0;
        if (end > fileLength || ((live || dead) && Get32(block + 4) < entryBytes))
            break;
        if (live)
        {
            File::Entry entry;
            if (!ReadAt(at + headerBytes, block + headerBytes, entryBytes))
                break;
            GetEntry(block + headerBytes, entry);
            if (!entry.name[0] ||
                !table->Add(static_cast<uint32_t>(at + recordBytes), Get32(block + 4) - entryBytes, entry))
                break;
            found = true;
        }
        else if (!dead && memcmp(block, "IDX ", 4) != 0)
        {
            break;
        }
        at = end;
        if (live || dead)
            blocksEnd = static_cast<uint32_t>(at);
    }
    // An index with blocks after it stands in their midst: the next one goes after them.
    if (indexOffset && blocksEnd > indexOffset)
        indexOffset = 0;
    if (found && writable)
        state |= MODIFIED;
}

ArchiveRecord * FileSubArchive::Lookup(const char * name)
{
    name = WithoutLeadingSeparator(name);
    if (!table || !name || !*name)
        return nullptr;
    if (Record * record = table->Find(name))
        return record;
    Scan();
    return table->Find(name);
}

bool FileSubArchive::IsReadOnly() const
{
    return !writable || handle == -1;
}

unsigned FileSubArchive::StoredVersion() const
{
    return version == 257 ? 257 : 0;
}

bool FileSubArchive::OpenRead(File & file, const char * name)
{
    if (ModeOf(file) & File::MODE_WRITE_MASK)
        return OpenWrite(file, name);
    SingleLock guard(&lock, true);
    const Record * record = Lookup(name);
    if (!record)
        return false;
    // Plain data are read no further than the block holds.
    const File::Entry & entry = record->entry;
    const uint32_t size =
        entry.IsCompressed() || entry.size < record->dataLength ? entry.size : record->dataLength;
    AttachShared(file, handle, entry.name, record->dataOffset, size);
    return true;
}

bool FileSubArchive::OpenWrite(File & file, const char * name)
{
    name = WithoutLeadingSeparator(name);
    if (IsReadOnly() || !name || !*name || strlen(name) >= File::MAX_PATH_LENGTH)
        return false;
    const unsigned long mode = ModeOf(file);
    const unsigned long creation = mode & File::MODE_CREATE_MASK;
    SingleLock guard(&lock, true);
    const Record * record = Lookup(name);
    if (record ? creation == File::MODE_CREATE_NEW : creation == 0)
        return false;
    // An existing file opened without truncation starts from its stored bytes, which cannot be
    // written to when they are in the "CFIL" form.
    const bool keep = record && (creation == 0 || creation == File::MODE_APPEND);
    unsigned char magic[4] = {};
    if (keep && record->dataLength >= 4 && ReadAt(record->dataOffset, magic, 4) &&
        memcmp(magic, "CFIL", 4) == 0)
        return false;
    auto * writing = NewObject<Writing>();
    if (!writing)
        return false;
    File::Path folder(path);
    folder.DelFileName();
    writing->temporary = CompressedFile::NextTemporaryName(folder);
    const int own = FilePlatform::Open(
        writing->temporary, {FilePlatform::ReadWrite, FilePlatform::CreateTruncate, FilePlatform::DenyAll});
    if (own == -1 || (keep && (!CopyData(handle, record->dataOffset, own, record->dataLength) ||
                               FilePlatform::Seek(own, 0, SEEK_SET) != 0)))
    {
        if (own != -1)
        {
            FilePlatform::Close(own);
            FilePlatform::RemoveFile(writing->temporary);
        }
        DeleteObject(writing);
        return false;
    }
    FilePlatform::SetHidden(writing->temporary, true);
    writing->file = &file;
    writing->name = name;
    // Readers of version 257 take stored "CFIL" files with the magic alone: theirs are kept plain.
    writing->compressed = (mode & File::MODE_WRITE_MASK) == File::MODE_WRITE_COMPRESSED && version != 257;
    writing->next = writings;
    writings = writing;
    AttachOwn(file, own, name);
    return true;
}

// Moves `length` bytes read at `offset` of `from` to where `to` stands.
bool FileSubArchive::CopyData(int from, uint64_t offset, int to, uint32_t length)
{
    auto * bytes = static_cast<unsigned char *>(Alloc::New(copyBytes));
    bool done = bytes != nullptr;
    for (uint32_t moved = 0; done && moved < length;)
    {
        const uint32_t step = length - moved < copyBytes ? length - moved : copyBytes;
        const int got = FilePlatform::ReadAt(from, bytes, step, static_cast<int64_t>(offset + moved));
        done = got > 0 &&
               FilePlatform::WriteAll(to, bytes, static_cast<uint32_t>(got)) == static_cast<uint32_t>(got);
        moved += done ? static_cast<uint32_t>(got) : 0;
    }
    if (bytes)
        Alloc::Delete(bytes);
    return done;
}

bool FileSubArchive::Close(File & file)
{
    SingleLock guard(&lock, true);
    Writing ** link = &writings;
    while (*link && (*link)->file != &file)
        link = &(*link)->next;
    // A stored file read through the shared handle has nothing to give back.
    Writing * writing = *link;
    if (!writing)
        return true;
    *link = writing->next;
    const int own = HandleOf(file);
    const bool kept = AppendBlock(*writing, own);
    FilePlatform::Close(own);
    FilePlatform::RemoveFile(writing->temporary);
    DeleteObject(writing);
    return kept;
}

// Appends the written file as a block where the blocks end, plain or in the "CFIL" form, then
// marks an older block of the same name "FIL!".
bool FileSubArchive::AppendBlock(Writing & writing, int own)
{
    const int64_t length = FilePlatform::Length(own);
    const uint64_t at = blocksEnd;
    const uint64_t dataStart = at + recordBytes;
    if (length < 0 || length > 0xFFFFFFFF ||
        FilePlatform::Seek(handle, static_cast<int64_t>(dataStart), SEEK_SET) !=
            static_cast<int64_t>(dataStart))
        return false;
    File::Entry entry;
    entry.spare = 0;
    strcpy(entry.name, writing.name);
    entry.size = static_cast<uint32_t>(length);
    HandleStream stream(own, handle);
    if (writing.compressed)
    {
        entry.attributes = File::Entry::ATTRIBUTE_COMPRESSED;
        if (!CompressedFile::WriteCompressedForm(stream, entry.size, stream))
            return false;
    }
    else if (!CopyData(own, 0, handle, entry.size))
    {
        return false;
    }
    const uint64_t dataLength = writing.compressed ? stream.Written() : entry.size;
    if (dataStart + dataLength > 0xFFFFFFFF)
        return false;
    File::Time modified;
    FilePlatform::GetStamp(own, modified.ticks);
    const Record * older = table->Find(entry.name);
    const uint32_t olderBlock = older ? older->dataOffset - recordBytes : 0;
    entry.SetStamp(modified, older ? CreatedOf(older->entry) : modified);
    unsigned char block[recordBytes];
    PutHeader(block, "FIL\0", static_cast<uint32_t>(entryBytes + dataLength));
    PutEntry(block + headerBytes, entry);
    if (!WriteAt(at, block, recordBytes) ||
        !table->Add(static_cast<uint32_t>(dataStart), static_cast<uint32_t>(dataLength), entry))
        return false;
    if (olderBlock)
        WriteAt(olderBlock, "FIL!", 4);
    blocksEnd = static_cast<uint32_t>(dataStart + dataLength);
    indexOffset = blocksEnd;
    state |= MODIFIED;
    return true;
}

bool FileSubArchive::Exists(const char * name)
{
    SingleLock guard(&lock, true);
    return Lookup(name) != nullptr;
}

bool FileSubArchive::Remove(const char * name)
{
    if (IsReadOnly())
        return false;
    SingleLock guard(&lock, true);
    Record * record = Lookup(name);
    if (!record || !WriteAt(record->dataOffset - recordBytes, "FIL!", 4))
        return false;
    table->Remove(record);
    state |= MODIFIED;
    return true;
}

bool FileSubArchive::StoredName(const char * name, File::Path & stored)
{
    SingleLock guard(&lock, true);
    const Record * record = Lookup(name);
    if (record)
        stored = record->entry.name;
    return record != nullptr;
}

bool FileSubArchive::GetStamp(const char * name, File::Time & stamp)
{
    SingleLock guard(&lock, true);
    const Record * record = Lookup(name);
    if (record)
        stamp = record->entry.GetStamp();
    return record != nullptr;
}

bool FileSubArchive::SetStamp(const char * name, const File::Time & stamp)
{
    if (IsReadOnly())
        return false;
    SingleLock guard(&lock, true);
    Record * record = Lookup(name);
    if (!record)
        return false;
    File::Entry entry = record->entry;
    entry.SetStamp(stamp, CreatedOf(entry));
    unsigned char stored[entryBytes];
    PutEntry(stored, entry);
    if (!WriteAt(record->dataOffset - entryBytes, stored, entryBytes))
        return false;
    record->entry = entry;
    state |= MODIFIED;
    return true;
}

void FileSubArchive::Lock()
{
    lock.Lock();
}

void FileSubArchive::Unlock()
{
    lock.Unlock();
}

bool FileSubArchive::IsSame(const char * other) const
{
    return other && strcmp(path, other) == 0;
}

unsigned FileSubArchive::FileCount()
{
    SingleLock guard(&lock, true);
    return table ? table->Count() : 0;
}

FileSub::Listing * FileSubArchive::List(const char * folder)
{
    SingleLock guard(&lock, true);
    if (!table)
        return nullptr;
    Scan();
    File::Path inside(WithoutLeadingSeparator(folder ? folder : ""));
    if (!inside.IsEmpty())
        inside.AddSlash();
    const unsigned most = table->Count() ? table->Count() : 1;
    auto * entries =
        static_cast<File::Entry *>(Alloc::New(most * static_cast<unsigned>(sizeof(File::Entry))));
    if (!entries)
        return nullptr;
    unsigned count = 0;
    for (uint32_t index = 0; index < table->Used(); ++index)
    {
        const Record & record = table->At(index);
        size_t skip = 0;
        if (!record.live || !InFolder(record.entry.name, inside, skip))
            continue;
        File::Entry & listed = entries[count];
        listed = record.entry;
        memmove(listed.name, listed.name + skip, strlen(listed.name + skip) + 1);
        char * separator = strpbrk(listed.name, "/\\");
        if (separator)
        {
            *separator = 0;
            if (separator == listed.name || Listed(entries, count, listed.name))
                continue;
            memset(listed.times, 0, sizeof(listed.times));
            listed.size = 0;
            listed.attributes = File::Entry::ATTRIBUTE_DIRECTORY;
        }
        ++count;
    }
    return new ArchiveListing(entries, count);
}

bool FileSubArchive::WriteIndex()
{
    SingleLock guard(&lock, true);
    if (IsReadOnly())
        return false;
    const uint32_t at = indexOffset ? indexOffset : blocksEnd;
    if (at + uint64_t(headerBytes) + uint64_t(table->Count()) * recordBytes > 0xFFFFFFFF)
        return false;
    indexOffset = at;
    recordCount = 0;
    unsigned char records[16 * recordBytes];
    PutHeader(records, "IDX ", 0);
    if (!WriteAt(at, records, headerBytes))
        return false;
    uint32_t batch = 0;
    uint64_t next = at + headerBytes;
    for (uint32_t index = 0; index <= table->Used(); ++index)
    {
        const bool last = index == table->Used();
        if (batch == 16 || (last && batch))
        {
            if (!WriteAt(next, records, batch * recordBytes))
                return false;
            next += batch * recordBytes;
            recordCount += batch;
            batch = 0;
        }
        if (last || !table->At(index).live)
            continue;
        const Record & record = table->At(index);
        unsigned char * out = records + batch++ * recordBytes;
        Put32(out, record.dataOffset);
        Put32(out + 4, record.dataLength);
        PutEntry(out + headerBytes, record.entry);
    }
    unsigned char length[4];
    Put32(length, recordCount * recordBytes);
    if (!WriteAt(at + 4, length, 4) || !WriteInfo())
        return false;
    FilePlatform::Truncate(handle, static_cast<int64_t>(next));
    state &= ~MODIFIED;
    return true;
}
} // namespace Kiv
