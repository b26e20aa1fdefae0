#include "PString.h"

#include "Alloc.h"
#include "CRuntime.h"
#include "String.h"
#include "StringSerial.h"
#include "SyncObject.h"
#include "TextOps.h"

#include <cstring>
#include <new>

namespace Kiv
{
PStringCache * PString::cache = nullptr;
bool PString::isFinished = false;

namespace
{
// There is only ever one pool, so its lock is global to the library. It is made on first use and
// outlives every pool, so a pool made and destroyed by a caller cannot take it from the others.
CriticalSection & PoolMutex()
{
    static CriticalSection lock("PStringCache");
    return lock;
}
// Live CorestoneInit objects; the last one to go takes the pool with it.
int initCount = 0;

class PoolLock
{
public:
    PoolLock() { PStringCache::Lock(); }
    ~PoolLock() { PStringCache::Unlock(); }
    PoolLock(const PoolLock &) = delete;
    PoolLock & operator=(const PoolLock &) = delete;
};

unsigned int NodeBytes(unsigned int length)
{
    return (length + static_cast<unsigned int>(sizeof(PStringCache::Node)) + 17) & ~15u;
}

const char * Chars(const unsigned char * text)
{
    return reinterpret_cast<const char *>(text);
}
} // namespace

CorestoneInit::CorestoneInit()
{
    if (initCount++ == 0 && PString::cache == nullptr)
    {
        PString::cache = new (Alloc::New(sizeof(PStringCache))) PStringCache(997);
        PString::isFinished = false;
    }
}

CorestoneInit::~CorestoneInit()
{
    if (--initCount == 0 && PString::cache != nullptr)
    {
        PString::cache->~PStringCache();
        Alloc::Delete(PString::cache);
        PString::cache = nullptr;
        PString::isFinished = true;
    }
}

// A bucket count whose table cannot be had (none, or more than memory holds) gives one bucket.
PStringCache::PStringCache(unsigned int count) : bucketCount(count)
{
    PoolMutex();
    uint64_t bytes = uint64_t{count} * sizeof(Bucket);
    buckets = count != 0 && bytes <= 0x7FFFFFFF
                  ? static_cast<Bucket *>(Alloc::New(static_cast<unsigned int>(bytes)))
                  : nullptr;
    if (buckets == nullptr)
    {
        bucketCount = 1;
        buckets = static_cast<Bucket *>(Alloc::New(sizeof(Bucket)));
    }
    std::memset(buckets, 0, bucketCount * sizeof(Bucket));
}

PStringCache::~PStringCache()
{
    for (unsigned int b = 0; b < bucketCount; ++b)
    {
        for (Node * node = buckets[b].head; node != nullptr;)
        {
            Node * next = node->next;
            Alloc::Delete(node);
            node = next;
        }
        if (buckets[b].keys != nullptr)
            Alloc::Delete(buckets[b].keys);
    }
    Alloc::Delete(buckets);
}

void PStringCache::Lock()
{
    PoolMutex().Lock();
}

void PStringCache::Unlock()
{
    PoolMutex().Unlock();
}

uint32_t PStringCache::GetHash(const unsigned char * text, unsigned int length)
{
    uint32_t hash = 0;
    for (unsigned int i = length > 16 ? length - 16 : 0; i < length; ++i)
        hash = (hash << 3) ^ text[i];
    return hash;
}

PStringCache::Node * PStringCache::Lookup(const char * text, unsigned int length)
{
    const uint32_t hash = GetHash(reinterpret_cast<const unsigned char *>(text), length);
    Bucket & bucket = buckets[hash % bucketCount];
    unsigned int passed = 0;
    Node * node = Search(bucket, hash, text, length, passed);
    searchSteps += passed;
    if (node == nullptr)
        return nullptr;
    if (passed != 0)
        MoveToFront(bucket, node, passed);
    ++hits;
    return node;
}

// The node holding the text, and the number of nodes before it in the chain (all of them when
// none holds it).
PStringCache::Node * PStringCache::Search(const Bucket & bucket, uint32_t hash, const char * text,
                                          unsigned int length, unsigned int & passed) const
{
    if (bucket.keys != nullptr)
    {
        for (passed = 0; passed < bucket.count; ++passed)
        {
            const Key & key = bucket.keys[passed];
            if (key.hash == hash && key.length == length && std::memcmp(key.node->Text(), text, length) == 0)
                return key.node;
        }
        return nullptr;
    }
    passed = 0;
    for (Node * node = bucket.head; node != nullptr; node = node->next, ++passed)
        if (node->length == length && std::memcmp(node->Text(), text, length) == 0)
            return node;
    return nullptr;
}

PStringCache::Bucket & PStringCache::BucketOf(Node * node)
{
    return buckets[GetHash(reinterpret_cast<unsigned char *>(node->Text()), node->length) % bucketCount];
}

// Links at the head of the node's bucket.
void PStringCache::Link(Node * node)
{
    const uint32_t hash = GetHash(reinterpret_cast<unsigned char *>(node->Text()), node->length);
    Bucket & bucket = buckets[hash % bucketCount];
    KeyPush(bucket, hash, node);
    ChainPush(bucket, node);
}

void PStringCache::Unlink(Node * node)
{
    Bucket & bucket = BucketOf(node);
    unsigned int at = 0;
    while (bucket.keys != nullptr && at < bucket.count && bucket.keys[at].node != node)
        ++at;
    if (bucket.keys != nullptr && at < bucket.count)
        std::memmove(bucket.keys + at, bucket.keys + at + 1, (bucket.count - at - 1) * sizeof(Key));
    ChainRemove(bucket, node);
}

void PStringCache::ChainRemove(Bucket & bucket, Node * node)
{
    if (node == walkNode)
        walkNode = node->next;
    (node->previous != nullptr ? node->previous->next : bucket.head) = node->next;
    (node->next != nullptr ? node->next->previous : bucket.tail) = node->previous;
    node->next = node->previous = nullptr;
    --bucket.count;
}

void PStringCache::ChainPush(Bucket & bucket, Node * node)
{
    node->previous = nullptr;
    node->next = bucket.head;
    if (bucket.head != nullptr)
        bucket.head->previous = node;
    else
        bucket.tail = node;
    bucket.head = node;
    ++bucket.count;
}

// The node at position in the chain goes to the head, its key to the front of the keys.
void PStringCache::MoveToFront(Bucket & bucket, Node * node, unsigned int position)
{
    ChainRemove(bucket, node);
    ChainPush(bucket, node);
    if (bucket.keys != nullptr)
    {
        const Key key = bucket.keys[position];
        std::memmove(bucket.keys + 1, bucket.keys, position * sizeof(Key));
        bucket.keys[0] = key;
    }
}

// Called before the node joins the chain. A chain walked node by node stays so until it empties.
void PStringCache::KeyPush(Bucket & bucket, uint32_t hash, Node * node)
{
    if ((bucket.keys == nullptr && bucket.count != 0) ||
        (bucket.count == bucket.capacity && !GrowKeys(bucket)))
        return;
    std::memmove(bucket.keys + 1, bucket.keys, bucket.count * sizeof(Key));
    bucket.keys[0] = Key{hash, node->length, node};
}

// Doubles the room for keys; when the allocator refuses, the chain loses its keys.
bool PStringCache::GrowKeys(Bucket & bucket)
{
    const uint64_t capacity = bucket.capacity != 0 ? uint64_t{bucket.capacity} * 2 : 4;
    const uint64_t bytes = capacity * sizeof(Key);
    auto * keys =
        bytes <= 0x7FFFFFFF ? static_cast<Key *>(Alloc::New(static_cast<unsigned int>(bytes))) : nullptr;
    if (keys != nullptr && bucket.count != 0)
        std::memcpy(keys, bucket.keys, bucket.count * sizeof(Key));
    if (bucket.keys != nullptr)
        Alloc::Delete(bucket.keys);
    bucket.keys = keys;
    bucket.capacity = keys != nullptr ? static_cast<uint32_t>(capacity) : 0;
    return keys != nullptr;
}

PStringCache::Node * PStringCache::NewNode(unsigned int length)
{
    unsigned int bytes = NodeBytes(length);
    auto * node = static_cast<Node *>(Alloc::New(bytes));
    *node = Node{nullptr, nullptr, 0, bytes - static_cast<unsigned int>(sizeof(Node)), 1, 0};
    node->Text()[0] = 0;
    ++nodesMade;
    return node;
}

void PStringCache::Retain(Node * node)
{
    if (node->references++ == 0)
        ++liveStrings;
}

PStringCache::Node * PStringCache::Create(const unsigned char * text)
{
    return text == nullptr ? nullptr : Create(text, static_cast<unsigned int>(std::strlen(Chars(text))));
}

// A text too long for a node is no name: it gives a null node, as a null text does.
PStringCache::Node * PStringCache::Create(const unsigned char * text, unsigned int length)
{
    if (text == nullptr || !TextOps::Fits<char>(length))
        return nullptr;
    PoolLock lock;
    ++references;
    if (Node * found = Lookup(Chars(text), length))
    {
        Retain(found);
        return found;
    }
    Node * node = NewNode(length);
    node->length = length;
    std::memcpy(node->Text(), text, length);
    node->Text()[length] = 0;
    ++liveStrings;
    Link(node);
    return node;
}

PStringCache::Node * PStringCache::CreateANSI(const unsigned char * text, int length)
{
    if (text == nullptr || length < 0)
        return Create(text);
    return Create(text, static_cast<unsigned int>(length));
}

PStringCache::Node * PStringCache::CreateUnicode(const wchar_t * text, int length)
{
    AnsiString converted;
    converted.SetUnicode(text, length);
    return Create(reinterpret_cast<const unsigned char *>(static_cast<const char *>(converted)),
                  converted.Length());
}

PStringCache::Node * PStringCache::Create(unsigned int character, unsigned int count)
{
    AnsiString repeated(character, count);
    return Create(reinterpret_cast<const unsigned char *>(static_cast<const char *>(repeated)), count);
}

void PStringCache::AddReference(Node * node)
{
    if (node == nullptr)
        return;
    PoolLock lock;
    ++references;
    Retain(node);
}

void PStringCache::Destroy(Node * node)
{
    if (node == nullptr)
        return;
    PoolLock lock;
    if (node->references == 1)
        --liveStrings;
    --references;
    --node->references;
}

PStringCache::Node * PStringCache::GetUnique(Node * node, unsigned int newLength)
{
    if (!TextOps::Fits<char>(newLength))
        return nullptr;
    unsigned int capacity = NodeBytes(newLength) - static_cast<unsigned int>(sizeof(Node));
    PoolLock lock;
    if (node == nullptr)
        return NewNode(newLength);
    if (node->references < 2 && capacity <= node->capacity)
    {
        // Its text is about to change, and with it its bucket.
        Unlink(node);
        --references;
        --liveStrings;
        return node;
    }
    Node * copy = NewNode(newLength > node->length ? newLength : node->length);
    copy->length = node->length;
    std::memcpy(copy->Text(), node->Text(), node->length + 1);
    if (--node->references == 0)
        --liveStrings;
    --references;
    return copy;
}

PStringCache::Node * PStringCache::Insert(Node * node)
{
    ++references;
    if (Node * found = Lookup(node->Text(), node->length))
    {
        Retain(found);
        Alloc::Delete(node);
        return found;
    }
    node->references = 1;
    ++liveStrings;
    Link(node);
    return node;
}

template <class Edit>
PStringCache::Node * PStringCache::Edited(Node * node, unsigned int newLength, Edit edit)
{
    Node * unique = GetUnique(node, newLength);
    edit(unique);
    PoolLock lock;
    return Insert(unique);
}

PStringCache::Node * PStringCache::Set(Node * node, const unsigned char * format, va_list args)
{
    TextOps::FormattedText<char> formatted(Chars(format), args);
    Destroy(node);
    if (formatted.Length() == 0)
        return nullptr;
    return Create(reinterpret_cast<const unsigned char *>(formatted.Text()), formatted.Length());
}

PStringCache::Node * PStringCache::Set(Node * node, int value, unsigned int radix)
{
    char digits[40];
    Destroy(node);
    return Create(
        reinterpret_cast<const unsigned char *>(CRuntime::Itoa(value, digits, static_cast<int>(radix))));
}

PStringCache::Node * PStringCache::Ins(Node * node, const unsigned char * text, unsigned int pos)
{
    if (text == nullptr)
        return node;
    // A private copy: the text may be the node's own, which the edit moves.
    AnsiString piece(Chars(text));
    unsigned int length = node != nullptr ? node->length : 0;
    if (piece.Length() == 0 || pos > length || !TextOps::Fits<char>(uint64_t{length} + piece.Length()))
        return node;
    return Edited(node, length + piece.Length(),
                  [&piece, pos](Node * unique)
                  {
                      TextOps::OpenGap(unique->Text(), unique->length, pos, piece.Length());
                      std::memcpy(unique->Text() + pos, static_cast<const char *>(piece), piece.Length());
                  });
}

PStringCache::Node * PStringCache::Ins(Node * node, unsigned int character, unsigned int pos,
                                       unsigned int count)
{
    AnsiString piece(character, count);
    return Ins(node, reinterpret_cast<const unsigned char *>(static_cast<const char *>(piece)), pos);
}

PStringCache::Node * PStringCache::Del(Node * node, unsigned int pos, unsigned int count)
{
    if (node == nullptr || count == 0 || pos >= node->length)
        return node;
    return Edited(node, node->length,
                  [pos, count](Node * unique)
                  { TextOps::Delete(unique->Text(), unique->length, pos, count); });
}

PStringCache::Node * PStringCache::ToLower(Node * node)
{
    if (node == nullptr || node->length == 0)
        return node;
    return Edited(node, node->length, [](Node * unique) { CRuntime::Strlwr(unique->Text()); });
}

PStringCache::Node * PStringCache::ToUpper(Node * node)
{
    if (node == nullptr || node->length == 0)
        return node;
    return Edited(node, node->length, [](Node * unique) { CRuntime::Strupr(unique->Text()); });
}

PStringCache::Node * PStringCache::Strip(Node * node, const unsigned char * set)
{
    if (node == nullptr || set == nullptr)
        return node;
    return Edited(node, node->length,
                  [set](Node * unique) { TextOps::Strip(unique->Text(), unique->length, Chars(set)); });
}

int PStringCache::GetANSI(Node * node, char * buffer, unsigned int size)
{
    return node == nullptr ? TextOps::CopyOut("", 0, buffer, size)
                           : TextOps::CopyOut(node->Text(), node->length, buffer, size);
}

int PStringCache::GetUnicode(Node * node, wchar_t * buffer, unsigned int sizeInBytes)
{
    return TextOps::ToWide(node != nullptr ? node->Text() : "", buffer, sizeInBytes);
}

int PStringCache::Find(Node * node, unsigned int character, unsigned int start)
{
    return node == nullptr ? -1 : TextOps::FindChar(node->Text(), node->length, character, start);
}

int PStringCache::Find(Node * node, const unsigned char * text, unsigned int start)
{
    return node == nullptr ? -1 : TextOps::FindText(node->Text(), node->length, Chars(text), start);
}

// The walk remembers the node it returns next, never one it has returned: a node leaving its
// chain (swept, re-interned or moved to the front) hands the walk on to its successor in ChainRemove,
// so the walk never holds a node that may be freed.
PStringCache::Node * PStringCache::Next()
{
    PoolLock lock;
    Node * node = walkNode;
    while (node == nullptr && ++walkBucket < static_cast<int32_t>(bucketCount))
        node = buckets[walkBucket].head;
    if (node == nullptr)
    {
        walkBucket = -1;
        walkNode = nullptr;
        return nullptr;
    }
    walkNode = node->next;
    return node;
}

void PStringCache::ClearIDs()
{
    PoolLock lock;
    for (unsigned int b = 0; b < bucketCount; ++b)
        for (Node * node = buckets[b].head; node != nullptr; node = node->next)
            node->identifier = 0;
}

void PStringCache::CollectGarbage()
{
    PoolLock lock;
    sweepCursor = sweepCursor + 1 >= static_cast<int32_t>(bucketCount) ? 0 : sweepCursor + 1;
    for (Node * node = buckets[sweepCursor].head; node != nullptr;)
    {
        Node * next = node->next;
        if (node->references == 0)
        {
            Unlink(node);
            Alloc::Delete(node);
        }
        node = next;
    }
}

void PStringCache::Dump()
{
    PoolLock lock;
    unsigned int nodes = 0;
    for (unsigned int b = 0; b < bucketCount; ++b)
        for (Node * node = buckets[b].head; node != nullptr; node = node->next)
            ++nodes;
    (void)nodes;
}

// The handle.

PString::PString(const char * text) : node(cache->Create(reinterpret_cast<const unsigned char *>(text))) {}

PString::PString(const char * text, unsigned int length)
    : node(cache->Create(reinterpret_cast<const unsigned char *>(text), length))
{
}

PString::PString(const wchar_t * text, int length)
    : node(text != nullptr ? cache->CreateUnicode(text, length) : nullptr)
{
}

PString::PString(const AnsiString & text)
    : node(cache->Create(reinterpret_cast<const unsigned char *>(static_cast<const char *>(text)),
                         text.Length()))
{
}

PString::PString(const PString & other) : node(other.node)
{
    cache->AddReference(node);
}

PString::PString(PString && other) noexcept : node(other.node)
{
    other.node = nullptr;
}

PString::~PString()
{
    if (!isFinished && cache != nullptr)
        cache->Destroy(node);
}

void PString::Adopt(PStringCache::Node * counted)
{
    if (!isFinished && cache != nullptr)
        cache->Destroy(node);
    node = counted;
}

PString & PString::operator=(const PString & other)
{
    PString copy(other);
    Adopt(copy.node);
    copy.node = nullptr;
    return *this;
}

PString & PString::operator=(PString && other) noexcept
{
    if (this != &other)
    {
        Adopt(other.node);
        other.node = nullptr;
    }
    return *this;
}

PString & PString::operator=(const char * text)
{
    Adopt(cache->Create(reinterpret_cast<const unsigned char *>(text)));
    return *this;
}

void PString::Setf(const char * format, ...)
{
    va_list args;
    va_start(args, format);
    node = cache->Set(node, reinterpret_cast<const unsigned char *>(format), args);
    va_end(args);
}

int PString::Add(const char * format, va_list args)
{
    TextOps::FormattedText<char> formatted(format, args);
    node = cache->Ins(node, reinterpret_cast<const unsigned char *>(formatted.Text()), Length());
    return static_cast<int>(formatted.Length());
}

int PString::Addf(const char * format, ...)
{
    va_list args;
    va_start(args, format);
    int count = Add(format, args);
    va_end(args);
    return count;
}

void PString::Ins(const char * text, unsigned int pos)
{
    node = cache->Ins(node, reinterpret_cast<const unsigned char *>(text), pos);
}

void PString::Del(unsigned int pos, unsigned int count)
{
    node = cache->Del(node, pos, count);
}

void PString::Strip(const char * set)
{
    node = cache->Strip(node, reinterpret_cast<const unsigned char *>(set));
}

void PString::ToLower()
{
    node = cache->ToLower(node);
}

void PString::ToUpper()
{
    node = cache->ToUpper(node);
}

int PString::Compare(const char * text) const
{
    if (node == nullptr)
        return text == nullptr || text[0] == 0 ? 0 : -1;
    if (text == nullptr)
        return node->length != 0 ? 1 : 0;
    int order = TextOps::CompareUnits(node->Text(), text);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

int PString::Compare(const PString & other) const
{
    return node == other.node ? 0 : Compare(static_cast<const char *>(other));
}

int PString::CompareIgnoreCase(const char * text) const
{
    if (node == nullptr || text == nullptr)
        return Compare(text);
    int order = CRuntime::Stricmp(node->Text(), text);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

bool PString::EqualsIgnoreCase(const char * text) const
{
    return CompareIgnoreCase(text) == 0;
}

int PString::SortPtr(const PString * a, const PString * b)
{
    return a->Compare(*b);
}

bool PString::Write(BinWriter & writer) const
{
    return StringSerial::WriteCounted(writer, Length() & ~StringSerial::WideFlag,
                                      static_cast<const char *>(*this), Length());
}

bool PString::Read(BinReader & reader)
{
    AnsiString text;
    bool ok = text.Read(reader);
    *this = PString(text);
    return ok;
}
} // namespace Kiv
