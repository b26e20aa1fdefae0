// Pooled (interned) 8-bit names. Equal texts share one node of the process-wide
// Kiv::PStringCache, so a copy is a count increment and equal names are equal handles.
#pragma once

#include "KivApi.h"

#include <cstdarg>
#include <cstdint>

namespace Kiv
{
class AnsiString;
class BinReader;
class BinWriter;

class KIV_API PStringCache
{
public:
    struct Node
    {
        Node * next;
        Node * previous;
        uint32_t length;
        uint32_t capacity;
        int32_t references;
        uint32_t identifier;

        char * Text() { return reinterpret_cast<char *>(this + 1); }
    };

    // Every pool shares the one lock of the process pool. A bucket count whose table cannot be
    // had (0, or more than memory holds) gives a single bucket.
    explicit PStringCache(unsigned int bucketCount);
    ~PStringCache();
    PStringCache(const PStringCache &) = delete;
    PStringCache & operator=(const PStringCache &) = delete;

    // The hash of at most the last 16 bytes, where names such as paths and keys differ most.
    static uint32_t GetHash(const unsigned char * text, unsigned int length);

    // Each returns a counted node, or null for a null text.
    Node * Create(const unsigned char * text);
    Node * Create(const unsigned char * text, unsigned int length);
    Node * CreateANSI(const unsigned char * text, int length);
    Node * CreateUnicode(const wchar_t * text, int length);
    Node * Create(unsigned int character, unsigned int count);
    // Counts one more handle of a pooled node.
    void AddReference(Node * node);
    // Drops one reference; a node left unreferenced stays pooled until its bucket is swept.
    void Destroy(Node * node);

    // Copy-on-write: a node the caller may change, holding the text of node (which it releases),
    // with room for newLength characters; null, with node untouched, when newLength is past what
    // a text may hold. Insert pools the changed node with the lock held.
    Node * GetUnique(Node * node, unsigned int newLength);
    Node * Insert(Node * node);
    static void Lock();
    static void Unlock();

    // Text operations returning the node that now holds the result.
    Node * Set(Node * node, const unsigned char * format, va_list args);
    Node * Set(Node * node, int value, unsigned int radix);
    Node * Ins(Node * node, const unsigned char * text, unsigned int pos);
    Node * Ins(Node * node, unsigned int character, unsigned int pos, unsigned int count);
    Node * Del(Node * node, unsigned int pos, unsigned int count);
    Node * ToLower(Node * node);
    Node * ToUpper(Node * node);
    Node * Strip(Node * node, const unsigned char * set);

    static int GetANSI(Node * node, char * buffer, unsigned int size);
    static int GetUnicode(Node * node, wchar_t * buffer, unsigned int sizeInBytes);
    static int Find(Node * node, unsigned int character, unsigned int start);
    static int Find(Node * node, const unsigned char * text, unsigned int start);

    // Walks every pooled node; null at the end, after which the walk starts again. Nodes may come
    // and go during a walk on any thread: the walk stays valid, though a node moved or added
    // meanwhile may be missed. A node without references may be swept once Next has returned it.
    Node * Next();
    void ClearIDs();
    // Frees the unreferenced nodes of the next bucket; one bucket a call.
    void CollectGarbage();
    void Dump();

    unsigned int GetLiveStrings() const { return liveStrings; }
    unsigned int GetReferences() const { return references; }
    unsigned int GetHits() const { return hits; }
    unsigned int GetNodesMade() const { return nodesMade; }
    unsigned int GetSearchSteps() const { return searchSteps; }
    unsigned int GetBucketCount() const { return bucketCount; }
    // 0 for a bucket past the table.
    unsigned int GetBucketNodes(unsigned int bucket) const
    {
        return bucket < bucketCount ? buckets[bucket].count : 0;
    }

private:
    // A chain's nodes in chain order with their hashes and lengths, so that a lookup compares
    // words of one block instead of visiting every node it passes over.
    struct Key
    {
        uint32_t hash;
        uint32_t length;
        Node * node;
    };
    struct Bucket
    {
        Node * head;
        Node * tail;
        uint32_t count;
        uint32_t capacity; // of keys
        // Null while a chain whose keys could not grow is walked node by node, until it empties.
        Key * keys;
    };
    Node * Lookup(const char * text, unsigned int length);
    Node * Search(const Bucket & bucket, uint32_t hash, const char * text, unsigned int length,
                  unsigned int & passed) const;
    Node * NewNode(unsigned int length);
    Bucket & BucketOf(Node * node);
    void Link(Node * node);
    void Unlink(Node * node);
    void ChainRemove(Bucket & bucket, Node * node);
    void ChainPush(Bucket & bucket, Node * node);
    void MoveToFront(Bucket & bucket, Node * node, unsigned int position);
    static void KeyPush(Bucket & bucket, uint32_t hash, Node * node);
    static bool GrowKeys(Bucket & bucket);
    void Retain(Node * node);
    template <class Edit>
    Node * Edited(Node * node, unsigned int newLength, Edit edit);

    uint32_t liveStrings = 0;
    uint32_t references = 0;
    uint32_t hits = 0;
    uint32_t nodesMade = 0;
    uint32_t searchSteps = 0;
    uint32_t spare[2] = {0, 0};
    uint32_t bucketCount;
    int32_t sweepCursor = 0;
    Bucket * buckets;
    int32_t walkBucket = -1;
    Node * walkNode = nullptr;
};

class KIV_API PString
{
public:
    static PStringCache * cache;
    static bool isFinished;

    PString() = default;
    PString(const char * text);
    PString(const char * text, unsigned int length);
    PString(const wchar_t * text, int length = -1);
    PString(const AnsiString & text);
    PString(const PString & other);
    PString(PString && other) noexcept;
    ~PString();
    PString & operator=(const PString & other);
    PString & operator=(PString && other) noexcept;
    PString & operator=(const char * text);

    bool IsNull() const { return node == nullptr; }
    unsigned int Length() const { return node != nullptr ? node->length : 0; }
    operator const char *() const { return node != nullptr ? node->Text() : nullptr; }
    PStringCache::Node * GetNode() const { return node; }

    void Setf(const char * format, ...);
    // Appends formatted text; returns the characters formatted.
    int Add(const char * format, va_list args);
    int Addf(const char * format, ...);
    void Ins(const char * text, unsigned int pos);
    void Del(unsigned int pos, unsigned int count);
    void Strip(const char * set);
    void ToLower();
    void ToUpper();

    // Identity: equal texts are one node.
    bool operator==(const PString & other) const { return node == other.node; }
    bool operator!=(const PString & other) const { return node != other.node; }
    bool operator<(const PString & other) const { return Compare(other) < 0; }
    bool operator>(const PString & other) const { return Compare(other) > 0; }
    // -1, 0 or 1; a null handle equals a null or empty text and is less than any other.
    int Compare(const char * text) const;
    int Compare(const PString & other) const;
    int CompareIgnoreCase(const char * text) const;
    bool EqualsIgnoreCase(const char * text) const;
    static int SortPtr(const PString * a, const PString * b);

    bool Write(BinWriter & writer) const;
    bool Read(BinReader & reader);

private:
    explicit PString(PStringCache::Node * counted) : node(counted) {}
    void Adopt(PStringCache::Node * counted);

    PStringCache::Node * node = nullptr;
};

// Makes sure the pool exists before the statics of the translation unit holding one, and
// destroys it after the last of them is gone.
class KIV_API CorestoneInit
{
public:
    CorestoneInit();
    ~CorestoneInit();
    CorestoneInit(const CorestoneInit &) = delete;
    CorestoneInit & operator=(const CorestoneInit &) = delete;
};

static CorestoneInit corestoneInit;
} // namespace Kiv
