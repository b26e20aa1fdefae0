// Growing arrays of the library: Kiv::DynamicArray, one contiguous block of objects that grows in
// steps, and Kiv::FastDynamicArray, a ring of fixed blocks of plain values that never moves an
// element once stored. Both take their memory from Kiv::Alloc and report a refused allocation by
// returning false, leaving the array as it was. Kiv::Less is the ordering both use for sorted
// work.
#pragma once

#include "Alloc.h"

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

namespace Kiv
{
// Orders an element against a key; the key type defaults to the element type.
template <class T, class Key = T>
struct Less
{
    bool operator()(const T & element, const Key & key) const { return element < key; }
};

// Objects in one block of Kiv::Alloc. Step is the least number of places added when the block
// grows; growth is at least by half the capacity, so appends stay cheap for long arrays.
template <class T, int Step, class Order = Less<T, T>>
class DynamicArray
{
    static_assert(Step > 0, "the growth step must be positive");

public:
    DynamicArray() = default;
    DynamicArray(const DynamicArray & other) { CopyFrom(other); }
    DynamicArray(DynamicArray && other) noexcept { Take(other); }
    ~DynamicArray() { Free(); }
    DynamicArray & operator=(const DynamicArray & other)
    {
        if (this != &other)
        {
            DynamicArray copy(other);
            Swap(copy);
        }
        return *this;
    }
    DynamicArray & operator=(DynamicArray && other) noexcept
    {
        if (this != &other)
        {
            Free();
            Take(other);
        }
        return *this;
    }

    int GetCount() const { return count; }
    bool IsEmpty() const { return count == 0; }
    // Not checked against the count.
    T & operator[](int index) { return items[index]; }
    const T & operator[](int index) const { return items[index]; }
    T * GetData() { return items; }
    const T * GetData() const { return items; }
    T * begin() { return items; }
    T * end() { return items + count; }
    const T * begin() const { return items; }
    const T * end() const { return items + count; }

    bool Reserve(int wanted)
    {
        if (wanted <= capacity)
            return true;
        if (static_cast<uint64_t>(wanted) * sizeof(T) > 0x7FFFFFFFu)
            return false;
        T * larger = static_cast<T *>(Alloc::New(static_cast<unsigned int>(wanted * sizeof(T))));
        if (larger == nullptr)
            return false;
        for (int i = 0; i < count; ++i)
        {
            new (larger + i) T(std::move(items[i]));
            items[i].~T();
        }
        if (items != nullptr)
            Alloc::Delete(items);
        items = larger;
        capacity = wanted;
        return true;
    }

    bool Add(const T & value) { return Insert(count, value); }
    // An index out of range appends.
    bool Insert(int index, const T & value)
    {
        if (index < 0 || index > count)
            index = count;
        // value may live in the block that growing frees.
        T copy(value);
        if (count == capacity && !Reserve(capacity + (capacity / 2 > Step ? capacity / 2 : Step)))
            return false;
        if (index == count)
            new (items + count) T(std::move(copy));
        else
        {
            new (items + count) T(std::move(items[count - 1]));
            for (int i = count - 1; i > index; --i)
                items[i] = std::move(items[i - 1]);
            items[index] = std::move(copy);
        }
        ++count;
        return true;
    }
    // False for an index out of range.
    bool Remove(int index)
    {
        if (index < 0 || index >= count)
            return false;
        for (int i = index; i + 1 < count; ++i)
            items[i] = std::move(items[i + 1]);
        items[--count].~T();
        return true;
    }
    void RemoveAll()
    {
        while (count > 0)
            items[--count].~T();
    }

    // The first index holding an equal element, or -1.
    int Find(const T & value) const
    {
        for (int i = 0; i < count; ++i)
            if (items[i] == value)
                return i;
        return -1;
    }
    // For an array kept sorted by Order: the first index whose element is not less than key.
    template <class Key>
    int LowerBound(const Key & key) const
    {
        int low = 0;
        for (int high = count; low < high;)
        {
            int middle = low + (high - low) / 2;
            if (Order()(items[middle], key))
                low = middle + 1;
            else
                high = middle;
        }
        return low;
    }
    bool AddSorted(const T & value) { return Insert(LowerBound(value), value); }
    // Stable insertion sort by Order: arrays of this kind are short.
    void Sort()
    {
        for (int i = 1; i < count; ++i)
        {
            T moving(std::move(items[i]));
            int j = i;
            for (; j > 0 && Order()(moving, items[j - 1]); --j)
                items[j] = std::move(items[j - 1]);
            items[j] = std::move(moving);
        }
    }

    void Swap(DynamicArray & other) noexcept
    {
        std::swap(items, other.items);
        std::swap(count, other.count);
        std::swap(capacity, other.capacity);
    }

private:
    void CopyFrom(const DynamicArray & other)
    {
        if (!Reserve(other.count))
            return;
        for (; count < other.count; ++count)
            new (items + count) T(other.items[count]);
    }
    void Take(DynamicArray & other)
    {
        items = other.items;
        count = other.count;
        capacity = other.capacity;
        other.items = nullptr;
        other.count = other.capacity = 0;
    }
    void Free()
    {
        RemoveAll();
        if (items != nullptr)
            Alloc::Delete(items);
        items = nullptr;
        capacity = 0;
    }

    T * items = nullptr;
    int count = 0;
    int capacity = 0;
};

// Plain values (pointers, numbers) in a ring of blocks of Size entries, in insertion order. Each
// block carries its own used count; a block is added when the last one is full and freed when its
// last entry is removed, so an element never moves to another block while it is stored. An array
// made with new lives in Kiv::Alloc like its blocks.
template <class T, int Size, class Order = Less<T, T>>
class FastDynamicArray : public AllocBase
{
    static_assert(std::is_trivially_copyable<T>::value, "entries are copied as plain values");
    static_assert(Size > 0, "a block holds at least one entry");

public:
    struct Block
    {
        Block * next;
        Block * previous;
        int32_t used;
        T entries[Size];
    };

    class Iterator
    {
    public:
        Iterator(const FastDynamicArray * array, Block * block, int slot)
            : array(array), block(block), slot(slot)
        {
        }
        T & operator*() const { return block->entries[slot]; }
        Iterator & operator++()
        {
            if (++slot >= block->used)
            {
                block = block->next != array->first ? block->next : nullptr;
                slot = 0;
            }
            return *this;
        }
        bool operator==(const Iterator & other) const { return block == other.block && slot == other.slot; }
        bool operator!=(const Iterator & other) const { return !(*this == other); }

    private:
        const FastDynamicArray * array;
        Block * block;
        int slot;
    };

    FastDynamicArray() = default;
    ~FastDynamicArray() { RemoveAll(); }
    FastDynamicArray(const FastDynamicArray &) = delete;
    FastDynamicArray & operator=(const FastDynamicArray &) = delete;

    int GetCount() const { return count; }
    bool IsEmpty() const { return count == 0; }
    Block * GetFirstBlock() const { return first; }

    Iterator begin() const { return Iterator(this, first, 0); }
    Iterator end() const { return Iterator(this, nullptr, 0); }

    // False, with nothing stored, when a new block cannot be had.
    bool Add(const T & value)
    {
        Block * last = first != nullptr ? first->previous : nullptr;
        if (last == nullptr || last->used == Size)
        {
            last = NewBlock();
            if (last == nullptr)
                return false;
        }
        last->entries[last->used++] = value;
        ++count;
        return true;
    }
    // The index-th entry in order; null for an index out of range.
    T * Get(int index) const
    {
        if (index < 0 || index >= count)
            return nullptr;
        Block * block = first;
        for (; index >= block->used; block = block->next)
            index -= block->used;
        return &block->entries[index];
    }
    // The last entry, or null when there is none; with RemoveLast the array serves as a stack.
    T * Last() const
    {
        return first != nullptr ? &first->previous->entries[first->previous->used - 1] : nullptr;
    }
    void RemoveLast()
    {
        if (first != nullptr)
            RemoveFrom(first->previous, first->previous->used - 1);
    }
    // The first index holding an equal value, or -1.
    int Find(const T & value) const
    {
        int index = 0;
        for (const T & entry : *this)
        {
            if (entry == value)
                return index;
            ++index;
        }
        return -1;
    }
    // Removes the index-th entry, keeping the order of the others; false when out of range.
    bool Remove(int index)
    {
        if (index < 0 || index >= count)
            return false;
        Block * block = first;
        for (; index >= block->used; block = block->next)
            index -= block->used;
        RemoveFrom(block, index);
        return true;
    }
    // Removes every entry the predicate accepts (it is called once for each entry, in order, and
    // may dispose of the entry it accepts); returns the entries removed.
    template <class Predicate>
    int RemoveIf(Predicate accept)
    {
        int removed = 0;
        Block * block = first;
        for (int blocks = BlockCount(); blocks > 0; --blocks)
        {
            Block * next = block->next;
            int kept = 0;
            for (int i = 0; i < block->used; ++i)
            {
                if (accept(block->entries[i]))
                    ++removed;
                else
                    block->entries[kept++] = block->entries[i];
            }
            count -= block->used - kept;
            block->used = kept;
            if (kept == 0)
                Unlink(block);
            block = next;
        }
        return removed;
    }
    void RemoveAll()
    {
        while (first != nullptr)
            Unlink(first);
        count = 0;
    }

private:
    Block * NewBlock()
    {
        auto * block = static_cast<Block *>(Alloc::New(sizeof(Block)));
        if (block == nullptr)
            return nullptr;
        block->used = 0;
        if (first == nullptr)
        {
            block->next = block->previous = block;
            first = block;
            return block;
        }
        block->next = first;
        block->previous = first->previous;
        first->previous->next = block;
        first->previous = block;
        return block;
    }
    void RemoveFrom(Block * block, int slot)
    {
        for (int i = slot; i + 1 < block->used; ++i)
            block->entries[i] = block->entries[i + 1];
        --block->used;
        --count;
        if (block->used == 0)
            Unlink(block);
    }
    void Unlink(Block * block)
    {
        if (block->next == block)
            first = nullptr;
        else
        {
            block->previous->next = block->next;
            block->next->previous = block->previous;
            if (first == block)
                first = block->next;
        }
        Alloc::Delete(block);
    }
    int BlockCount() const
    {
        int blocks = 0;
        for (Block * block = first; block != nullptr && (blocks == 0 || block != first); block = block->next)
            ++blocks;
        return blocks;
    }

    Block * first = nullptr;
    int count = 0;
};
} // namespace Kiv
