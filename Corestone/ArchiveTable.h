// The stored files of one archive, in the order their blocks were found, hashed by name with
// ASCII case and the two separators folded.
#pragma once

#include "Alloc.h"
#include "File.h"

#include <cstdint>

namespace Kiv
{
struct ArchiveRecord
{
    uint32_t dataOffset;
    uint32_t dataLength;
    File::Entry entry;
    uint32_t hash;
    // The next record of the same bucket, counted from 1; 0 ends the chain.
    uint32_t nextInBucket;
    bool live;
};

class ArchiveTable : public AllocBase
{
public:
    using Record = ArchiveRecord;

    ArchiveTable();
    ~ArchiveTable();
    ArchiveTable(const ArchiveTable &) = delete;
    ArchiveTable & operator=(const ArchiveTable &) = delete;

    // The live record of that name, or null; valid until the next Add.
    Record * Find(const char * name) const;
    // Adds a record; a live one of the same name is dropped. False when memory is out.
    bool Add(uint32_t dataOffset, uint32_t dataLength, const File::Entry & entry);
    void Remove(Record * record);
    void Clear();

    unsigned Count() const { return live; }
    // Records in order, dead ones included: walk 0 to Used() and skip those not live.
    uint32_t Used() const { return used; }
    const Record & At(uint32_t index) const { return records[index]; }
    // Where the furthest block of the table ends; `first` when it is empty.
    uint32_t End(uint32_t first) const;

    static uint32_t Hash(const char * name);
    static bool SameName(const char * a, const char * b);
    static char Fold(char c)
    {
        return c == '\\' ? '/' : c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }

private:
    bool Grow();

    enum : uint32_t
    {
        BUCKETS = 401
    };

    Record * records;
    uint32_t used;
    uint32_t capacity;
    uint32_t live;
    uint32_t buckets[BUCKETS];
};
} // namespace Kiv
