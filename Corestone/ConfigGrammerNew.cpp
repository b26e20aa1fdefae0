// What the configuration grammar's rules do: the nodes, values and lists they make, and the
// number conversions behind them.
#include "ConfigGrammerNew.h"

#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

namespace Kiv
{
namespace
{
bool IsSpace(char character)
{
    return character == ' ' || (character >= '\t' && character <= '\r');
}

bool IsDigit(char character)
{
    return character >= '0' && character <= '9';
}

const char * SkipDigits(const char * text, const char * end)
{
    while (text < end && IsDigit(*text))
        ++text;
    return text;
}

// Past the blanks and the sign that may lead a number; tells whether the sign was a minus.
const char * SkipLead(const char * text, const char * end, bool & negative)
{
    while (text < end && IsSpace(*text))
        ++text;
    negative = text < end && *text == '-';
    return text + (text < end && (*text == '-' || *text == '+'));
}

int DigitValue(char character)
{
    if (IsDigit(character))
        return character - '0';
    const int lower = character | 0x20;
    return lower >= 'a' && lower <= 'z' ? lower - 'a' + 10 : 99;
}

// The power of ten of a decimal's first significant digit plus its exponent: positive for a
// number too large for a double, negative for one too small.
long Magnitude(const char * text, const char * end)
{
    long magnitude = 0;
    bool significant = false;
    bool fraction = false;
    for (; text < end && (IsDigit(*text) || *text == '.'); ++text)
    {
        if (*text == '.')
            fraction = true;
        else if (*text != '0' || significant)
        {
            magnitude += fraction ? 0 : 1;
            significant = true;
        }
        else if (fraction)
            --magnitude;
    }
    const long exponent =
        text < end ? ConfigNumber::ReadInt(text + 1, static_cast<uint32_t>(end - text - 1)) : 0;
    return magnitude + exponent;
}

// A float as "%f" prints it, and the Windows runtime's texts for the values that are no numbers,
// so that every target writes the same.
int FormatFloat(uint32_t bits, char * text, size_t size)
{
    const char * sign = (bits >> 31) != 0 ? "-" : "";
    const uint32_t magnitude = bits & 0x7FFFFFFF;
    if (magnitude == 0x7F800000)
        return std::snprintf(text, size, "%s1.#INF00", sign);
    if (magnitude > 0x7F800000)
    {
        // The same names as the float text: a NaN whose payload is the quiet bit alone is the
        // indefinite.
        const uint32_t payload = bits & 0x7FFFFF;
        const char * kind = payload == 0x400000 ? "IND00" : (payload & 0x400000) != 0 ? "QNAN0" : "SNAN0";
        return std::snprintf(text, size, "%s1.#%s", sign, kind);
    }
    float value = 0;
    std::memcpy(&value, &bits, sizeof(value));
    return std::snprintf(text, size, "%f", static_cast<double>(value));
}

uint32_t Bits(float value)
{
    uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

bool Negative(ConfigText lexeme)
{
    return lexeme.length > 0 && lexeme.text[0] == '-';
}

// FNV-1a over the whole text.
uint32_t Hash(ConfigText text)
{
    uint32_t hash = 2166136261u;
    for (uint32_t i = 0; i < text.length; ++i)
        hash = (hash ^ static_cast<unsigned char>(text.text[i])) * 16777619u;
    return hash;
}
} // namespace

ConfigNames::~ConfigNames()
{
    Release();
}

void ConfigNames::Release()
{
    if (entries == nullptr)
        return;
    for (uint32_t i = 0; i <= mask; ++i)
        entries[i].~Entry();
    Alloc::Delete(entries);
    entries = nullptr;
}

const PString & ConfigNames::Intern(ConfigText text)
{
    if (2 * (count + 1) > mask)
        Grow();
    const uint32_t hash = Hash(text);
    uint32_t slot = hash & mask;
    for (; !entries[slot].text.IsNull(); slot = (slot + 1) & mask)
    {
        const Entry & known = entries[slot];
        if (known.hash == hash && known.length == text.length &&
            std::memcmp(static_cast<const char *>(known.text), text.text, text.length) == 0)
            return known.text;
    }
    PString made(text.text, text.length);
    if (made.IsNull())
        return none;
    entries[slot].hash = hash;
    entries[slot].length = text.length;
    entries[slot].text = std::move(made);
    ++count;
    return entries[slot].text;
}

void ConfigNames::Grow()
{
    const uint32_t size = mask != 0 ? 2 * (mask + 1) : 256;
    auto * larger = static_cast<Entry *>(Alloc::New(size * static_cast<uint32_t>(sizeof(Entry))));
    if (larger == nullptr)
        throw std::bad_alloc();
    for (uint32_t i = 0; i < size; ++i)
        new (larger + i) Entry{0, 0, PString()};
    for (uint32_t i = 0; entries != nullptr && i <= mask; ++i)
    {
        if (entries[i].text.IsNull())
            continue;
        uint32_t slot = entries[i].hash & (size - 1);
        while (!larger[slot].text.IsNull())
            slot = (slot + 1) & (size - 1);
        larger[slot] = std::move(entries[i]);
    }
    Release();
    entries = larger;
    mask = size - 1;
}

namespace ConfigNumber
{
int32_t ReadInt(const char * text, uint32_t length)
{
    const char * end = text + length;
    bool negative = false;
    text = SkipLead(text, end, negative);
    int base = 10;
    if (text < end && *text == '0')
    {
        base = 8;
        if (end - text > 2 && (text[1] | 0x20) == 'x' && DigitValue(text[2]) < 16)
        {
            base = 16;
            text += 2;
        }
    }
    // Past the 32-bit range the value sticks just above it.
    const uint64_t above = 0x80000001u;
    uint64_t value = 0;
    for (int digit = 0; text < end && (digit = DigitValue(*text)) < base; ++text)
    {
        value = value * static_cast<uint64_t>(base) + static_cast<uint64_t>(digit);
        if (value > above)
            value = above;
    }
    if (negative)
        return value >= 0x80000000u ? INT32_MIN : -static_cast<int32_t>(value);
    return value > INT32_MAX ? INT32_MAX : static_cast<int32_t>(value);
}

double ReadFloat(const char * text, uint32_t length)
{
    const char * end = text + length;
    bool negative = false;
    const char * digits = SkipLead(text, end, negative);
    const char * last = SkipDigits(digits, end);
    bool any = last != digits;
    if (last < end && *last == '.')
    {
        const char * fraction = last + 1;
        last = SkipDigits(fraction, end);
        any = any || last != fraction;
    }
    if (!any)
        return 0.0;
    if (end - last > 1 && (*last | 0x20) == 'e')
    {
        const char * exponent = last + 1 + (last[1] == '+' || last[1] == '-');
        const char * exponentEnd = SkipDigits(exponent, end);
        if (exponentEnd != exponent)
            last = exponentEnd;
    }
    double value = 0.0;
    if (std::from_chars(digits, last, value).ec == std::errc::result_out_of_range)
        value = Magnitude(digits, last) > 0 ? HUGE_VAL : 0.0;
    return negative ? -value : value;
}
} // namespace ConfigNumber

void ConfigBuilder::SetVersion(ConfigText number)
{
    version = static_cast<float>(ConfigNumber::ReadFloat(number.text, number.length));
}

ConfigData * ConfigBuilder::NewNode()
{
    return new ConfigData();
}

ConfigData * ConfigBuilder::IntNode(ConfigText number)
{
    ConfigData * node = NewNode();
    node->SetIntData(ConfigNumber::ReadInt(number.text, number.length));
    return node;
}

ConfigData * ConfigBuilder::FloatNode(uint32_t bits)
{
    ConfigData * node = NewNode();
    float value = 0;
    std::memcpy(&value, &bits, sizeof(value));
    node->SetFloatData(value);
    return node;
}

ConfigData * ConfigBuilder::StringNode(ConfigText text)
{
    ConfigData * node = NewNode();
    node->SetPStringData(names.Intern(text));
    return node;
}

ConfigData * ConfigBuilder::ByteNode(ConfigText bytes)
{
    ConfigData * node = NewNode();
    node->SetByteArray(reinterpret_cast<const unsigned char *>(bytes.text), static_cast<int>(bytes.length));
    return node;
}

ConfigData * ConfigBuilder::Named(ConfigData * node, ConfigText name)
{
    node->SetName(names.Intern(name));
    return node;
}

ConfigData * ConfigBuilder::Block(ConfigData * block, ConfigText name, ConfigText value)
{
    block->SetPStringData(names.Intern(value));
    return Named(block, name);
}

ConfigData * ConfigBuilder::FirstChild(ConfigData * list, ConfigData * child)
{
    return AddChild(list != nullptr ? list : NewNode(), child);
}

ConfigData * ConfigBuilder::AddChild(ConfigData * list, ConfigData * child)
{
    *list << child;
    return list;
}

void ConfigBuilder::Discard(ConfigData * node)
{
    if (node != &root)
        delete node;
}

ConfigItem ConfigBuilder::IntItem(ConfigText number)
{
    ConfigItem item{};
    item.kind = ConfigItem::KIND_INT;
    item.integer = ConfigNumber::ReadInt(number.text, number.length);
    return item;
}

ConfigItem ConfigBuilder::FloatItem(uint32_t bits)
{
    ConfigItem item{};
    item.kind = ConfigItem::KIND_FLOAT;
    item.floatBits = bits;
    return item;
}

ConfigItem ConfigBuilder::StringItem(ConfigText text)
{
    ConfigItem item{};
    item.kind = ConfigItem::KIND_STRING;
    item.text = text;
    return item;
}

void ConfigBuilder::StartList(const ConfigItem & item)
{
    items.RemoveAll();
    AddItem(item);
}

void ConfigBuilder::AddItem(const ConfigItem & item)
{
    if (!items.Add(item))
        throw std::bad_alloc();
}

uint32_t ConfigBuilder::FloatBits(ConfigText number)
{
    return Bits(static_cast<float>(ConfigNumber::ReadFloat(number.text, number.length)));
}

uint32_t ConfigBuilder::InfinityBits(ConfigText lexeme)
{
    return Negative(lexeme) ? 0xFF800000 : 0x7F800000;
}

uint32_t ConfigBuilder::IndefiniteBits(ConfigText lexeme)
{
    return Negative(lexeme) ? 0xFFC00000 : 0x7FC00000;
}

uint32_t ConfigBuilder::QuietNanBits(ConfigText lexeme)
{
    return Negative(lexeme) ? 0xFFE00000 : 0x7FE00000;
}

// The list's type comes from its first item and the first item of another kind, and from
// nothing else: a string there wins, and so does a float over an integer. A third kind later in
// the list is converted like the rest.
int32_t ConfigBuilder::ListKind() const
{
    const int32_t first = items[0].kind;
    for (const ConfigItem & item : items)
    {
        if (item.kind == first)
            continue;
        const bool wins = item.kind == ConfigItem::KIND_STRING ||
                          (item.kind == ConfigItem::KIND_FLOAT && first != ConfigItem::KIND_STRING);
        return wins ? item.kind : first;
    }
    return first;
}

ConfigData * ConfigBuilder::ArrayNode()
{
    ConfigData * node = NewNode();
    switch (ListKind())
    {
    case ConfigItem::KIND_INT:
        FillInts(*node);
        break;
    case ConfigItem::KIND_FLOAT:
        FillFloats(*node);
        break;
    default:
        FillStrings(*node);
        break;
    }
    return node;
}

// Only a list of integers alone is an integer list.
void ConfigBuilder::FillInts(ConfigData & node) const
{
    DynamicArray<int, 64> values;
    values.Reserve(items.GetCount());
    for (const ConfigItem & item : items)
        values.Add(item.integer);
    node.SetIntArray(values.GetData(), values.GetCount());
}

void ConfigBuilder::FillFloats(ConfigData & node) const
{
    DynamicArray<uint32_t, 64> values;
    values.Reserve(items.GetCount());
    for (const ConfigItem & item : items)
    {
        if (item.kind == ConfigItem::KIND_STRING)
            values.Add(Bits(static_cast<float>(ConfigNumber::ReadFloat(item.text.text, item.text.length))));
        else
            values.Add(item.kind == ConfigItem::KIND_INT ? Bits(static_cast<float>(item.integer))
                                                         : item.floatBits);
    }
    node.SetFloatArray(reinterpret_cast<const float *>(values.GetData()), values.GetCount());
}

void ConfigBuilder::FillStrings(ConfigData & node)
{
    DynamicArray<PString, 64> values;
    values.Reserve(items.GetCount());
    for (const ConfigItem & item : items)
    {
        if (item.kind == ConfigItem::KIND_STRING)
        {
            values.Add(names.Intern(item.text));
            continue;
        }
        char text[64];
        const int length = item.kind == ConfigItem::KIND_INT
                               ? std::snprintf(text, sizeof(text), "%d", item.integer)
                               : FormatFloat(item.floatBits, text, sizeof(text));
        values.Add(PString(text, static_cast<unsigned int>(length)));
    }
    node.SetPStringArray(values.GetData(), values.GetCount());
}

void ConfigBuilder::SyntaxError(int line, ConfigText token)
{
    errorLine = line;
    if (token.text == nullptr)
    {
        errorMessage.Setf("Syntax error at %s.", "end of file");
        return;
    }
    // Room for the file name and line in the message's 1,024 characters.
    const int shown = token.length < 512 ? static_cast<int>(token.length) : 512;
    errorMessage.Setf("Syntax error at %.*s.", shown, token.text);
}

void ConfigBuilder::ScanError(int line)
{
    errorLine = line;
    errorMessage = "Syntax error.";
}
} // namespace Kiv
