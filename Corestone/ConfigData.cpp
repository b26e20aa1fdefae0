#include "ConfigData.h"

#include "BPE.h"
#include "CRuntime.h"

#include <cstring>
#include <new>

namespace Kiv
{
// The empty node and the node pool have their places in the library's load order (Startup.cpp):
// built before the library's other statics, which may hold trees, and destroyed after them.
__attribute__((init_priority(103))) ConfigData ConfigData::nullNode;

namespace
{
// Every node of every tree comes from this pool. Programs and libraries using this one are
// unloaded before it, so their static trees have freed their nodes when the pool goes.
__attribute__((init_priority(104))) PoolBlockAlloc nodePool(sizeof(ConfigData), 512, 4);

PoolBlockAlloc & NodePool()
{
    return nodePool;
}

// A node from the pool, or null when the pool is out of memory.
template <class... Arguments>
ConfigData * MakeNode(const Arguments &... arguments)
{
    void * place = NodePool().Alloc();
    return place != nullptr ? new (place) ConfigData(arguments...) : nullptr;
}

bool NameIs(const ConfigData & node, const void * name)
{
    return node.GetName() == *static_cast<const PString *>(name);
}

struct NamedValue
{
    const PString & name;
    const PString & value;
};

bool NameAndValueAre(const ConfigData & node, const void * key)
{
    const auto & wanted = *static_cast<const NamedValue *>(key);
    return node.GetName() == wanted.name && node.GetDataType() == ConfigData::TYPE_STRING &&
           node.GetPStringData() == wanted.value;
}

// The data word as it lies in memory, for the comparisons that look at the word itself.
uint64_t DataWord(const ConfigData & node)
{
    switch (node.GetDataType())
    {
    case ConfigData::TYPE_NONE:
        return 0;
    case ConfigData::TYPE_INT:
        return static_cast<uint32_t>(node.GetIntData());
    case ConfigData::TYPE_FLOAT:
    {
        uint32_t bits = 0;
        float value = node.GetFloatData();
        std::memcpy(&bits, &value, sizeof bits);
        return bits;
    }
    case ConfigData::TYPE_STRING:
        return reinterpret_cast<uintptr_t>(node.GetPStringData().GetNode());
    default:
        return reinterpret_cast<uintptr_t>(node.GetInnerByteArr());
    }
}

bool LikeNode(const ConfigData & node, const void * key)
{
    const auto & like = *static_cast<const ConfigData *>(key);
    return node.GetName() == like.GetName() && node.GetDataType() == like.GetDataType() &&
           DataWord(node) == DataWord(like);
}

unsigned long CrcOf(const void * data, size_t length, unsigned long crc)
{
    return Crc::Calc(data, static_cast<unsigned long>(length), crc);
}

// A name or string feeds its characters and terminating zero; a null one feeds nothing.
unsigned long CrcOfText(const PString & text, unsigned long crc)
{
    return text.IsNull() ? crc : CrcOf(static_cast<const char *>(text), text.Length() + 1, crc);
}

unsigned long CrcOfWord(uint32_t word, unsigned long crc)
{
    unsigned char bytes[4];
    CRuntime::PutLittleEndian32(bytes, word);
    return CrcOf(bytes, 4, crc);
}

unsigned long CrcOfFloat(float value, unsigned long crc)
{
    char text[ConfigData::FloatTextSize];
    return CrcOf(text, static_cast<size_t>(ConfigData::FloatText(value, text)), crc);
}
ConfigData::NodeList * NewList()
{
    try
    {
        return new ConfigData::NodeList;
    }
    catch (const std::bad_alloc &)
    {
        return nullptr;
    }
}
} // namespace

void * ConfigData::operator new(std::size_t size)
{
    void * place = size <= sizeof(ConfigData) ? NodePool().Alloc() : nullptr;
    if (place == nullptr)
        throw std::bad_alloc();
    return place;
}

void ConfigData::operator delete(void * p)
{
    if (p != nullptr)
        NodePool().Free(p);
}

ConfigData & ConfigData::Null()
{
    return nullNode;
}

ConfigData::operator bool() const
{
    return this != &nullNode;
}

ConfigData::ConfigData(const PString & name) : name(name) {}

ConfigData::ConfigData(const PString & name, const PString & value) : name(name)
{
    SetPStringData(value);
}

ConfigData::ConfigData(const ConfigData & other) : name(other.name)
{
    CopyData(other);
    if (other.children != nullptr)
        CopyChildren(other);
}

ConfigData & ConfigData::operator=(const ConfigData & other)
{
    if (this == &other || !*this)
        return *this;
    // other may lie below this node, where the old children take it with them: copy it first.
    ConfigData copy(other);
    ClearData();
    DeleteChildren();
    name = copy.name;
    CopyData(copy);
    children = copy.children;
    copy.children = nullptr;
    return *this;
}

void ConfigData::SetName(const PString & newName)
{
    if (*this)
        name = newName;
}

ConfigData::~ConfigData()
{
    ClearData();
    DeleteChildren();
}

void ConfigData::CopyChildren(const ConfigData & other)
{
    if (!*this || other.children == nullptr || (children == nullptr && (children = NewList()) == nullptr))
        return;
    // Counted first, so that copying a node's children into itself stops at the original ones.
    int count = other.children->GetCount();
    for (ConfigData * child : *other.children)
    {
        if (count-- == 0)
            break;
        ConfigData * copy = MakeNode(*child);
        if (copy == nullptr || !AddChild(copy))
        {
            delete copy;
            break;
        }
    }
}

// Deleting a deep chain by plain recursion would nest once per level. Instead the list is a work
// list: a node's children move onto it, one at a time, above the node, and each node is deleted
// once it has none left, so no destructor nests. Only when the list cannot grow does the rest of a
// subtree go by recursion.
void ConfigData::DeleteChildren()
{
    NodeList * pending = children;
    children = nullptr;
    if (pending == nullptr)
        return;
    while (!pending->IsEmpty())
    {
        ConfigData * node = *pending->Last();
        NodeList * below = node->children;
        if (below != nullptr && !below->IsEmpty() && pending->Add(*below->Last()))
        {
            below->RemoveLast();
            continue;
        }
        pending->RemoveLast();
        delete node;
    }
    delete pending;
}

void ConfigData::AssignNodes(NodeList * list)
{
    if (list == children)
        return;
    DeleteChildren();
    children = list;
    // The null node takes nothing: the list it was given goes at once.
    if (!*this)
        DeleteChildren();
}

bool ConfigData::AddChild(ConfigData * child)
{
    if (!*this)
        return false;
    if (children == nullptr && (children = NewList()) == nullptr)
        return false;
    return children->Add(child);
}

ConfigData & ConfigData::operator<<(ConfigData * child)
{
    if (child != nullptr && !AddChild(child))
        delete child;
    return *this;
}

ConfigData * ConfigData::NthChild(int index, Match match, const void * key) const
{
    if (children == nullptr || index < 0)
        return nullptr;
    for (ConfigData * child : *children)
        if (match(*child, key) && index-- == 0)
            return child;
    return nullptr;
}

int ConfigData::Matches(Match match, const void * key) const
{
    int count = 0;
    if (children != nullptr)
        for (ConfigData * child : *children)
            count += match(*child, key) ? 1 : 0;
    return count;
}

ConfigData & ConfigData::Find(const PString & name) const
{
    return Find(name, 0);
}

ConfigData & ConfigData::Find(const PString & name, int index) const
{
    ConfigData * found = NthChild(index, NameIs, &name);
    return found != nullptr ? *found : nullNode;
}

ConfigData & ConfigData::Find(const PString & name, const PString & value) const
{
    NamedValue key{name, value};
    ConfigData * found = NthChild(0, NameAndValueAre, &key);
    return found != nullptr ? *found : nullNode;
}

ConfigData & ConfigData::Find(int index) const
{
    ConfigData * const * found = children != nullptr ? children->Get(index) : nullptr;
    return found != nullptr ? **found : nullNode;
}

int ConfigData::Count(const PString & name) const
{
    return Matches(NameIs, &name);
}

ConfigData & ConfigData::New()
{
    return New(PString());
}

ConfigData & ConfigData::New(const PString & name)
{
    return New(name, PString());
}

ConfigData & ConfigData::New(const PString & name, const PString & value)
{
    ConfigData * node = MakeNode(name, value);
    if (node != nullptr && AddChild(node))
        return *node;
    delete node;
    return nullNode;
}

// The last of count new children, or the null node when there are none or memory runs out.
ConfigData & ConfigData::Append(const PString & name, const PString & value, int count)
{
    ConfigData * last = &nullNode;
    for (; count > 0; --count)
        if (!*(last = &New(name, value)))
            break;
    return *last;
}

ConfigData & ConfigData::Replace(const PString & name, int index)
{
    ConfigData * found = NthChild(index, NameIs, &name);
    return found != nullptr ? *found : Append(name, PString(), index + 1 - Matches(NameIs, &name));
}

ConfigData & ConfigData::Replace(const PString & name, const PString & value, int index)
{
    NamedValue key{name, value};
    ConfigData * found = NthChild(index, NameAndValueAre, &key);
    return found != nullptr ? *found : Append(name, value, index + 1 - Matches(NameAndValueAre, &key));
}

void ConfigData::Unlink(ConfigData * child)
{
    if (child != nullptr)
        children->RemoveIf([child](ConfigData * entry) { return entry == child; });
}

bool ConfigData::DeleteNth(int index, Match match, const void * key)
{
    ConfigData * child = NthChild(index, match, key);
    Unlink(child);
    delete child;
    return child != nullptr;
}

bool ConfigData::Remove(const PString & name, int index)
{
    return DeleteNth(index, NameIs, &name);
}

bool ConfigData::Remove(const PString & name, const PString & value, int index)
{
    NamedValue key{name, value};
    return DeleteNth(index, NameAndValueAre, &key);
}

bool ConfigData::Remove(const ConfigData & like, int index)
{
    return like && DeleteNth(index, LikeNode, &like);
}

void ConfigData::RemoveAll(const PString & name)
{
    if (children == nullptr)
        return;
    children->RemoveIf(
        [&name](ConfigData * child)
        {
            if (child->name != name)
                return false;
            delete child;
            return true;
        });
}

ConfigData * ConfigData::Extract(const PString & name, int index)
{
    ConfigData * child = NthChild(index, NameIs, &name);
    Unlink(child);
    return child;
}

unsigned long ConfigData::Crc(const PString & excluded) const
{
    return CalcCRC(0, excluded);
}

unsigned long ConfigData::Crc() const
{
    return CalcCRC(0, PString());
}

unsigned long ConfigData::CalcCRC(unsigned long seed, const PString & excluded) const
{
    unsigned long crc = CrcOfText(name, seed);
    int count = GetArrayCount();
    switch (type)
    {
    case TYPE_STRING:
        crc = CrcOfText(data.text, crc);
        break;
    case TYPE_FLOAT:
        crc = CrcOfFloat(data.real, crc);
        break;
    case TYPE_BYTEARRAY:
        crc = CrcOf(data.block, 4 + static_cast<size_t>(count), crc);
        break;
    case TYPE_INTARRAY:
        crc = CrcOf(data.block, 4 + 4 * static_cast<size_t>(count), crc);
        break;
    case TYPE_FLOATARRAY:
        for (int i = 0; i < count; ++i)
            crc = CrcOfFloat(GetFloatArray()[i], crc);
        break;
    case TYPE_STRINGARRAY:
        for (int i = 0; i < count; ++i)
            crc = CrcOfText(GetPStringArray()[i], crc);
        break;
    default:
        crc = CrcOfWord(static_cast<uint32_t>(DataWord(*this)), crc);
        break;
    }
    if (children != nullptr)
        for (ConfigData * child : *children)
            if (excluded.Length() == 0 || child->name != excluded)
                crc = child->CalcCRC(crc, PString());
    return crc;
}

bool ConfigData::CompareData(const ConfigData & other) const
{
    // A node without data reads as a null string, so it equals one.
    int mine = type != TYPE_NONE ? type : int(TYPE_STRING);
    int theirs = other.type != TYPE_NONE ? other.type : int(TYPE_STRING);
    if (mine != theirs)
        return false;
    int count = GetArrayCount();
    switch (mine)
    {
    case TYPE_STRING:
        return static_cast<const PString &>(*this) == static_cast<const PString &>(other);
    case TYPE_BYTEARRAY:
        return count == other.GetArrayCount() &&
               std::memcmp(GetByteArray(), other.GetByteArray(), count) == 0;
    case TYPE_INTARRAY:
    case TYPE_FLOATARRAY:
        return count == other.GetArrayCount() &&
               std::memcmp(GetInnerIntArr()->elements, other.GetInnerIntArr()->elements, 4 * size_t(count)) ==
                   0;
    case TYPE_STRINGARRAY:
        if (count != other.GetArrayCount())
            return false;
        for (int i = 0; i < count; ++i)
            if (GetPStringArray()[i] != other.GetPStringArray()[i])
                return false;
        return true;
    default:
        return DataWord(*this) == DataWord(other);
    }
}
} // namespace Kiv
