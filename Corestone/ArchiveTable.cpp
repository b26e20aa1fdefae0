// The archive's table of stored files: a growing array in block order with 401 hash chains.
#include "ArchiveTable.h"

#include "Alloc.h"

#include <cstring>

namespace Kiv
{
ArchiveTable::ArchiveTable() : records(nullptr), used(0), capacity(0), live(0)
{
    memset(buckets, 0, sizeof(buckets));
}

ArchiveTable::~ArchiveTable()
{
    if (records)
        Alloc::Delete(records);
}

uint32_t ArchiveTable::Hash(const char * name)
{
    uint32_t hash = 2166136261u;
    for (; *name; ++name)
        hash = (hash ^ static_cast<unsigned char>(Fold(*name))) * 16777619u;
    return hash;
}

bool ArchiveTable::SameName(const char * a, const char * b)
{
    for (; *a && Fold(*a) == Fold(*b); ++a, ++b)
    {
    }
    return Fold(*a) == Fold(*b);
}

ArchiveTable::Record * ArchiveTable::Find(const char * name) const
{
    const uint32_t hash = Hash(name);
    for (uint32_t index = buckets[hash % BUCKETS]; index; index = records[index - 1].nextInBucket)
    {
        Record & record = records[index - 1];
        if (record.hash == hash && SameName(record.entry.name, name))
            return &record;
    }
    return nullptr;
}

bool ArchiveTable::Grow()
{
    const uint64_t wanted = capacity ? uint64_t(capacity) * 2 : 64;
    const uint64_t bytes = wanted * sizeof(Record);
    if (bytes > 0xFFFFFFF0u)
        return false;
    auto * grown = static_cast<Record *>(Alloc::New(static_cast<unsigned>(bytes)));
    if (!grown)
        return false;
    if (used)
        memcpy(static_cast<void *>(grown), records, used * sizeof(Record));
    if (records)
        Alloc::Delete(records);
    records = grown;
    capacity = static_cast<uint32_t>(wanted);
    return true;
}

bool ArchiveTable::Add(uint32_t dataOffset, uint32_t dataLength, const File::Entry & entry)
{
    // Room first: a failed growth keeps the older record.
    if (used == capacity && !Grow())
        return false;
    if (Record * older = Find(entry.name))
        Remove(older);
    Record & record = records[used];
    record.dataOffset = dataOffset;
    record.dataLength = dataLength;
    record.entry = entry;
    record.hash = Hash(entry.name);
    record.live = true;
    uint32_t & bucket = buckets[record.hash % BUCKETS];
    record.nextInBucket = bucket;
    bucket = ++used;
    ++live;
    return true;
}

void ArchiveTable::Remove(Record * record)
{
    const uint32_t index = static_cast<uint32_t>(record - records) + 1;
    uint32_t * link = &buckets[record->hash % BUCKETS];
    while (*link && *link != index)
        link = &records[*link - 1].nextInBucket;
    if (*link)
        *link = record->nextInBucket;
    record->live = false;
    --live;
}

void ArchiveTable::Clear()
{
    used = 0;
    live = 0;
    memset(buckets, 0, sizeof(buckets));
}

uint32_t ArchiveTable::End(uint32_t first) const
{
    uint32_t end = first;
    for (uint32_t index = 0; index < used; ++index)
    {
        const uint32_t blockEnd = records[index].dataOffset + records[index].dataLength;
        if (blockEnd > end)
            end = blockEnd;
    }
    return end;
}
} // namespace Kiv
