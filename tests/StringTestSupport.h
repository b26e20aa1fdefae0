// Byte streams in memory for the string tests: what a writer wrote, and a reader over given bytes.
#pragma once

#include "BinReader.h"

#include <algorithm>
#include <cstring>
#include <vector>

class MemoryWriter : public Kiv::BinWriter
{
public:
    unsigned int WriteRaw(const void * buffer, unsigned int size) override
    {
        const auto * bytes = static_cast<const unsigned char *>(buffer);
        data.insert(data.end(), bytes, bytes + size);
        return size;
    }
    std::vector<unsigned char> data;
};

class MemoryReader : public Kiv::BinReader
{
public:
    explicit MemoryReader(std::vector<unsigned char> bytes) : data(std::move(bytes)) {}
    unsigned int ReadRaw(void * buffer, unsigned int size) override
    {
        auto count = static_cast<unsigned int>(std::min<size_t>(size, data.size() - position));
        std::memcpy(buffer, data.data() + position, count);
        position += count;
        largestRequest = std::max(largestRequest, size);
        return count;
    }
    std::vector<unsigned char> data;
    size_t position = 0;
    unsigned int largestRequest = 0;
};

// A writer that accepts only so many bytes, as a full disk does.
class ShortWriter : public Kiv::BinWriter
{
public:
    explicit ShortWriter(unsigned int room) : room(room) {}
    unsigned int WriteRaw(const void *, unsigned int size) override
    {
        unsigned int count = std::min(size, room);
        room -= count;
        return count;
    }
    unsigned int room;
};
