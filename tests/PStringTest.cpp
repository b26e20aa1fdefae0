#include "PString.h"
#include "String.h"
#include "StringTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

using Kiv::PString;
using Kiv::PStringCache;

namespace
{
PStringCache & Pool()
{
    return *PString::cache;
}

unsigned int BucketOf(const char * text)
{
    return PStringCache::GetHash(reinterpret_cast<const unsigned char *>(text),
                                 static_cast<unsigned int>(std::strlen(text))) %
           Pool().GetBucketCount();
}

// Sweeps every bucket once, freeing whatever no handle refers to.
void SweepAll()
{
    for (unsigned int i = 0; i < Pool().GetBucketCount(); ++i)
        Pool().CollectGarbage();
}
} // namespace

// Texts whose last 16 bytes are equal share a bucket and are told apart by length and content.
TEST(PString, HashLooksAtTheLastSixteenBytes)
{
    ASSERT_NE(PString::cache, nullptr);
    EXPECT_EQ(Pool().GetBucketCount(), 997u);
    const unsigned char abc[] = "abc";
    EXPECT_EQ(PStringCache::GetHash(abc, 3), ((97u << 3 ^ 98u) << 3) ^ 99u);
    EXPECT_EQ(PStringCache::GetHash(abc, 0), 0u);
    const char * first = "first/0123456789abcdef";
    const char * second = "second-path/0123456789abcdef";
    EXPECT_EQ(BucketOf(first), BucketOf(second));
    PString a(first);
    PString b(second);
    EXPECT_NE(a, b);
    EXPECT_EQ(PString(first), a);
    EXPECT_EQ(PString(second), b);
}

TEST(PString, EqualTextsShareOneCountedNode)
{
    unsigned int live = Pool().GetLiveStrings();
    unsigned int references = Pool().GetReferences();
    PString a("pooled-name-shared");
    PString b("pooled-name-shared");
    EXPECT_EQ(a.GetNode(), b.GetNode());
    EXPECT_EQ(a.GetNode()->references, 2);
    EXPECT_EQ(Pool().GetLiveStrings(), live + 1);
    EXPECT_EQ(Pool().GetReferences(), references + 2);
    EXPECT_TRUE(PString(static_cast<const char *>(nullptr)).IsNull());
    EXPECT_FALSE(PString("").IsNull());
    EXPECT_EQ(PString(L"pooled-name-shared"), a);
}

TEST(PString, ReleasedNodesWaitForTheSweep)
{
    unsigned int bucket = BucketOf("released-and-made-again");
    PStringCache::Node * first = nullptr;
    {
        PString name("released-and-made-again");
        first = name.GetNode();
    }
    unsigned int made = Pool().GetNodesMade();
    unsigned int hits = Pool().GetHits();
    EXPECT_EQ(PString("released-and-made-again").GetNode(), first);
    EXPECT_EQ(Pool().GetHits(), hits + 1);
    EXPECT_EQ(Pool().GetNodesMade(), made);
    unsigned int nodes = Pool().GetBucketNodes(bucket);
    SweepAll();
    EXPECT_EQ(Pool().GetBucketNodes(bucket), nodes - 1);
    PString fresh("released-and-made-again");
    EXPECT_EQ(Pool().GetNodesMade(), made + 1);
}

TEST(PString, EditsCopyOnWriteAndReintern)
{
    PString a("Edit-Me");
    PString b(a);
    b.ToLower();
    EXPECT_STREQ(a, "Edit-Me");
    EXPECT_EQ(b, PString("edit-me"));
    b.Strip("-");
    b.Ins("X", 6);
    b.Del(0, 4);
    b.ToUpper();
    // An edit that ends on a text already pooled joins its node.
    PString existing("MEX");
    EXPECT_EQ(b, existing);
    EXPECT_EQ(existing.GetNode()->references, 2);
    b.Setf("%s-%d", "n", 5);
    EXPECT_EQ(b.Addf("+%d", 6), 2);
    EXPECT_STREQ(b, "n-5+6");
    PString grown;
    grown.Ins("from-null", 0);
    EXPECT_STREQ(grown, "from-null");
    EXPECT_EQ(PStringCache::Find(grown.GetNode(), '-', 0), 4);
    EXPECT_EQ(PStringCache::Find(nullptr, '-', 0), -1);
    char buffer[5];
    EXPECT_EQ(PStringCache::GetANSI(grown.GetNode(), buffer, sizeof(buffer)), 4);
    EXPECT_STREQ(buffer, "from");
}

TEST(PString, ComparisonRules)
{
    PString null;
    PString empty("");
    PString abc("abc");
    EXPECT_EQ(null.Compare(static_cast<const char *>(nullptr)), 0);
    EXPECT_EQ(null.Compare("a"), -1);
    EXPECT_EQ(empty.Compare(static_cast<const char *>(nullptr)), 0);
    EXPECT_EQ(abc.Compare(static_cast<const char *>(nullptr)), 1);
    EXPECT_EQ(abc.Compare("\xe9"), -1);
    EXPECT_TRUE(abc.EqualsIgnoreCase("ABC"));
    EXPECT_EQ(abc.CompareIgnoreCase("ABD"), -1);
    EXPECT_LT(PString::SortPtr(&abc, &empty) * -1, 0);
}

TEST(PString, WalkAndIdentifiers)
{
    PString name("walked-name");
    name.GetNode()->identifier = 7;
    bool seen = false;
    while (PStringCache::Node * node = Pool().Next())
        seen = seen || node == name.GetNode();
    EXPECT_TRUE(seen);
    Pool().ClearIDs();
    EXPECT_EQ(name.GetNode()->identifier, 0u);
}

namespace
{
// Held names, and how often one walk over the pool met each of them. Returned nodes are compared
// by address only: a node nobody holds may be swept as soon as the walk has handed it out.
struct Census
{
    explicit Census(const char * prefix)
    {
        for (int i = 0; i < 64; ++i)
            held.emplace_back((prefix + std::to_string(i)).c_str());
    }
    void Meet(const PStringCache::Node * node)
    {
        for (size_t i = 0; i < held.size(); ++i)
            met[i] += held[i].GetNode() == node;
    }
    std::vector<PString> held;
    std::vector<int> met = std::vector<int>(64, 0);
};

void FinishWalk()
{
    while (Pool().Next() != nullptr)
        continue;
}

// Makes names and drops them again: their nodes stay pooled, unreferenced, until swept.
std::vector<const PStringCache::Node *> Dropped(const std::string & prefix)
{
    std::vector<const PStringCache::Node *> nodes;
    for (int i = 0; i < 300; ++i)
        nodes.push_back(PString((prefix + std::to_string(i)).c_str()).GetNode());
    return nodes;
}
} // namespace

// The sweep frees the node the walk stands on, and edits unlink and free nodes around it; the walk
// goes on and still meets every held name exactly once.
TEST(PString, WalkSurvivesSweepsAndEditsBetweenSteps)
{
    Census census("walk-held-");
    FinishWalk();
    std::vector<const PStringCache::Node *> dropped = Dropped("walk-dropped-a-");
    PString edited("walk-edited");
    int sweeps = 0;
    size_t steps = 0;
    while (const PStringCache::Node * node = Pool().Next())
    {
        ASSERT_LT(++steps, 1000000u);
        census.Meet(node);
        if (std::find(dropped.begin(), dropped.end(), node) == dropped.end())
            continue;
        SweepAll();
        edited.Ins("x", 0);
        edited.Del(0, 1);
        dropped = Dropped("walk-dropped-" + std::to_string(++sweeps) + "-");
    }
    EXPECT_GT(sweeps, 0);
    for (int met : census.met)
        EXPECT_EQ(met, 1);
    SweepAll();
}

// A pool of one's own shares the process pool's lock and leaves it behind when it goes.
TEST(PString, APoolOfOnesOwnComesAndGoes)
{
    for (unsigned int buckets : {7u, 0u, 0xFFFFFFFFu})
    {
        PStringCache own(buckets);
        EXPECT_EQ(own.GetBucketCount(), buckets == 7 ? 7u : 1u);
        PStringCache::Node * first = own.Create(reinterpret_cast<const unsigned char *>("own"));
        PStringCache::Node * second = own.Create(reinterpret_cast<const unsigned char *>("own"), 3);
        EXPECT_EQ(first, second);
        own.Destroy(first);
        own.Destroy(second);
    }
    Pool().CollectGarbage();
}

// One bucket holds every name, so each lookup's steps are the nodes before its name in the chain:
// move-to-front, sweeps, edits and a chain longer than any first allocation keep the order.
TEST(PString, LookupsCountTheNodesPassedInChainOrder)
{
    PStringCache own(1);
    const auto make = [&own](const std::string & text)
    { return own.Create(reinterpret_cast<const unsigned char *>(text.c_str())); };
    const auto chain = [&own]()
    {
        std::string names;
        while (PStringCache::Node * node = own.Next())
            names += std::string(node->Text()) + " ";
        return names;
    };
    std::vector<PStringCache::Node *> made;
    for (int i = 0; i < 100; ++i)
        made.push_back(make("n" + std::to_string(i)));
    const unsigned int steps = own.GetSearchSteps();
    EXPECT_EQ(steps, 99u * 100 / 2);
    EXPECT_EQ(make("n0"), made[0]);
    EXPECT_EQ(make("n1"), made[1]);
    EXPECT_EQ(own.GetSearchSteps(), steps + 99 + 99);
    EXPECT_EQ(own.GetHits(), 2u);
    for (int i = 2; i < 98; ++i)
        own.Destroy(made[i]);
    own.CollectGarbage();
    EXPECT_EQ(chain(), "n1 n0 n99 n98 ");
    // Its last reference edited, n0 leaves the chain and comes back as N0.
    own.Destroy(made[0]);
    own.ToUpper(made[0]);
    EXPECT_EQ(chain(), "N0 n1 n99 n98 ");
    make("n98");
    make("new");
    EXPECT_EQ(chain(), "new n98 N0 n1 n99 ");
    EXPECT_EQ(own.GetSearchSteps(), steps + 99 + 99 + 3 + 3 + 4);
}

TEST(PString, SerialisedLikeAnsiStrings)
{
    MemoryWriter writer;
    EXPECT_TRUE(PString("key").Write(writer));
    EXPECT_TRUE(PString().Write(writer));
    EXPECT_EQ(writer.data, (std::vector<unsigned char>{3, 0, 0, 0, 'k', 'e', 'y', 0, 0, 0, 0}));
    MemoryReader reader(writer.data);
    PString back;
    ASSERT_TRUE(back.Read(reader));
    EXPECT_EQ(back, PString("key"));
    MemoryReader broken({9, 0, 0, 0, 'x'});
    EXPECT_FALSE(back.Read(broken));
    EXPECT_TRUE(back.IsNull());
}

TEST(PString, NamesMadeAndDroppedOnManyThreads)
{
    unsigned int live = Pool().GetLiveStrings();
    unsigned int references = Pool().GetReferences();
    PString kept("thread-name-0");
    auto work = [&kept](int t)
    {
        for (int i = 0; i < 5000; ++i)
        {
            PString copy(kept);
            copy = PString(("thread-name-" + std::to_string(i % 50)).c_str());
            if (i % 100 == t)
                Pool().CollectGarbage();
        }
    };
    std::thread threads[] = {std::thread(work, 0), std::thread(work, 1), std::thread(work, 2)};
    for (auto & thread : threads)
        thread.join();
    EXPECT_EQ(kept.GetNode()->references, 1);
    EXPECT_EQ(Pool().GetLiveStrings(), live + 1);
    EXPECT_EQ(Pool().GetReferences(), references + 1);
}
