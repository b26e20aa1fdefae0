#include "ConfigData.h"

#include "CRuntime.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace Kiv
{
namespace
{
const PString nullText;

size_t ElementSize(ConfigData::DataType type)
{
    switch (type)
    {
    case ConfigData::TYPE_BYTEARRAY:
        return 1;
    case ConfigData::TYPE_STRINGARRAY:
        return sizeof(PString);
    default:
        return 4;
    }
}

size_t ElementsOffset(ConfigData::DataType type)
{
    switch (type)
    {
    case ConfigData::TYPE_BYTEARRAY:
        return offsetof(ConfigData::ByteArray, elements);
    case ConfigData::TYPE_STRINGARRAY:
        return offsetof(ConfigData::PStringArray, elements);
    default:
        return offsetof(ConfigData::IntArray, elements);
    }
}

int32_t & CountOf(void * block)
{
    return *static_cast<int32_t *>(block);
}

// Copies count elements into place; strings are counted up.
void CopyElements(ConfigData::DataType type, void * to, const void * from, int count)
{
    if (type != ConfigData::TYPE_STRINGARRAY)
    {
        if (count > 0)
            std::memcpy(to, from, static_cast<size_t>(count) * ElementSize(type));
        return;
    }
    for (int i = 0; i < count; ++i)
        new (static_cast<PString *>(to) + i) PString(static_cast<const PString *>(from)[i]);
}

// The x86 conversion: a float outside the range, or not a number, gives the lowest integer.
int TruncateToInt(float value)
{
    return value >= -2147483648.0f && value < 2147483648.0f ? static_cast<int>(value) : INT_MIN;
}

// The 32-bit runtime goes through a 64-bit integer and keeps its low half.
unsigned int TruncateToUnsigned(float value)
{
    bool inRange = value > -9.2233720e18f && value < 9.2233720e18f;
    return inRange ? static_cast<unsigned int>(static_cast<long long>(value)) : 0u;
}

// strtol base 10 with a 32-bit long: out-of-range text stops at the limits.
int ReadInt(const char * text)
{
    if (text == nullptr)
        return 0;
    long long value = std::strtoll(text, nullptr, 10);
    return value > INT_MAX ? INT_MAX : value < INT_MIN ? INT_MIN : static_cast<int>(value);
}

// strtoul base 0 with a 32-bit long: a minus negates, a magnitude past 32 bits gives the maximum.
unsigned int ReadUnsigned(const char * text)
{
    if (text == nullptr)
        return 0;
    while (std::isspace(static_cast<unsigned char>(*text)))
        ++text;
    bool negative = *text == '-';
    text += *text == '-' || *text == '+';
    if (!std::isdigit(static_cast<unsigned char>(*text)))
        return 0;
    errno = 0;
    unsigned long long magnitude = std::strtoull(text, nullptr, 0);
    if (errno == ERANGE || magnitude > UINT_MAX)
        return UINT_MAX;
    auto value = static_cast<unsigned int>(magnitude);
    return negative ? 0u - value : value;
}

template <class T, class Via>
void Narrow(const ConfigData & node, T & value)
{
    if (node)
        value = static_cast<T>(static_cast<Via>(node));
}
} // namespace

void * ConfigData::Elements(DataType arrayType, void * block)
{
    return static_cast<unsigned char *>(block) + ElementsOffset(arrayType);
}

void * ConfigData::NewBlock(DataType arrayType, int count)
{
    if (count < 0 || static_cast<size_t>(count) > (0x7FFFFFF0u - 8) / ElementSize(arrayType))
        return nullptr;
    size_t bytes = ElementsOffset(arrayType) + static_cast<size_t>(count) * ElementSize(arrayType);
    void * block = Alloc::New(static_cast<unsigned int>(bytes));
    if (block != nullptr)
        CountOf(block) = count;
    return block;
}

void ConfigData::FreeBlock(DataType arrayType, void * block)
{
    if (block == nullptr)
        return;
    if (arrayType == TYPE_STRINGARRAY)
    {
        auto * strings = static_cast<PString *>(Elements(arrayType, block));
        for (int i = 0; i < CountOf(block); ++i)
            strings[i].~PString();
    }
    Alloc::Delete(block);
}

ConfigData::PStringArray * ConfigData::CopyPStringArray(const PStringArray * array)
{
    if (array == nullptr)
        return nullptr;
    void * block = NewBlock(TYPE_STRINGARRAY, array->count);
    if (block != nullptr)
        CopyElements(TYPE_STRINGARRAY, Elements(TYPE_STRINGARRAY, block), array->elements, array->count);
    return static_cast<PStringArray *>(block);
}

void ConfigData::ClearData()
{
    if (type == TYPE_STRING)
        data.text.~PString();
    else if (type >= TYPE_BYTEARRAY)
        FreeBlock(static_cast<DataType>(type), data.block);
    data.block = nullptr;
    type = TYPE_NONE;
}

void ConfigData::CopyData(const ConfigData & other)
{
    if (this == &other || !*this)
        return;
    if (other.type >= TYPE_BYTEARRAY)
    {
        auto arrayType = static_cast<DataType>(other.type);
        SetArray(arrayType, Elements(arrayType, other.data.block), CountOf(other.data.block));
    }
    else if (other.type == TYPE_STRING)
    {
        PString value(other.data.text);
        ClearData();
        new (&data.text) PString(value);
        type = TYPE_STRING;
    }
    else if (other.type == TYPE_FLOAT)
        SetFloatData(other.data.real);
    else if (other.type == TYPE_INT)
        SetInt(other.data.integer);
    else
        ClearData();
}

// The new block is filled before the old data goes, since values may lie in the old block.
void ConfigData::SetArray(DataType arrayType, const void * values, int count)
{
    if (!*this)
        return;
    void * block = NewBlock(arrayType, count < 0 ? 0 : count);
    if (block != nullptr)
        CopyElements(arrayType, Elements(arrayType, block), values, CountOf(block));
    ClearData();
    if (block == nullptr)
        return;
    data.block = block;
    type = arrayType;
}

void ConfigData::AddArray(DataType arrayType, const void * values, int count)
{
    if (!*this)
        return;
    if (type == TYPE_NONE)
        return SetArray(arrayType, values, count);
    if (type != arrayType || count <= 0)
        return;
    int old = CountOf(data.block);
    void * block = count <= INT_MAX - old ? NewBlock(arrayType, old + count) : nullptr;
    if (block == nullptr)
        return;
    size_t oldBytes = static_cast<size_t>(old) * ElementSize(arrayType);
    auto * elements = static_cast<unsigned char *>(Elements(arrayType, block));
    CopyElements(arrayType, elements, Elements(arrayType, data.block), old);
    CopyElements(arrayType, elements + oldBytes, values, count);
    FreeBlock(arrayType, data.block);
    data.block = block;
}

int ConfigData::GetArrayCount() const
{
    if (type == TYPE_NONE)
        return 0;
    return type < TYPE_BYTEARRAY ? 1 : CountOf(data.block);
}

unsigned char * ConfigData::GetByteArray() const
{
    return type == TYPE_BYTEARRAY ? GetInnerByteArr()->elements : nullptr;
}

int * ConfigData::GetIntArray() const
{
    return type == TYPE_INTARRAY ? GetInnerIntArr()->elements : nullptr;
}

float * ConfigData::GetFloatArray() const
{
    return type == TYPE_FLOATARRAY ? GetInnerFloatArr()->elements : nullptr;
}

PString * ConfigData::GetPStringArray() const
{
    return type == TYPE_STRINGARRAY ? GetInnerPStringArr()->elements : nullptr;
}

ConfigData::operator const PString &() const
{
    return type == TYPE_STRING ? data.text : nullText;
}

ConfigData::operator const char *() const
{
    return type == TYPE_STRING ? static_cast<const char *>(data.text) : nullptr;
}

void ConfigData::SetIntData(long value)
{
    SetInt(value);
}

ConfigData & ConfigData::SetInt(long value)
{
    if (!*this)
        return *this;
    ClearData();
    data.integer = static_cast<int32_t>(value);
    type = TYPE_INT;
    return *this;
}

void ConfigData::SetFloatData(float value)
{
    if (!*this)
        return;
    ClearData();
    data.real = value;
    type = TYPE_FLOAT;
}

void ConfigData::SetPStringData(const PString & value)
{
    // value may be this node's own item, which ClearData releases.
    PString kept(value);
    ClearData();
    if (kept.Length() == 0 || !*this)
        return;
    new (&data.text) PString(static_cast<PString &&>(kept));
    type = TYPE_STRING;
}

void ConfigData::SetByteArray(const unsigned char * values, int count)
{
    SetArray(TYPE_BYTEARRAY, values, count);
}

void ConfigData::SetIntArray(const int * values, int count)
{
    SetArray(TYPE_INTARRAY, values, count);
}

void ConfigData::SetFloatArray(const float * values, int count)
{
    SetArray(TYPE_FLOATARRAY, values, count);
}

void ConfigData::SetPStringArray(const PString * values, int count)
{
    SetArray(TYPE_STRINGARRAY, values, count);
}

void ConfigData::AddByteArray(const unsigned char * values, int count)
{
    AddArray(TYPE_BYTEARRAY, values, count);
}

void ConfigData::AddIntArray(const int * values, int count)
{
    AddArray(TYPE_INTARRAY, values, count);
}

void ConfigData::AddFloatArray(const float * values, int count)
{
    AddArray(TYPE_FLOATARRAY, values, count);
}

void ConfigData::AddPStringArray(const PString * values, int count)
{
    AddArray(TYPE_STRINGARRAY, values, count);
}

void ConfigData::SetPStringList(const PStringList & list)
{
    SetPStringArray(list.GetData(), list.GetCount());
}

bool ConfigData::SetAnsi(const AnsiString & text)
{
    if (!*this)
        return false;
    if (text.Length() == 0)
    {
        ClearData();
        new (&data.text) PString();
        type = TYPE_STRING;
        return true;
    }
    PString pooled(text);
    if (pooled.IsNull())
        return false;
    SetPStringData(pooled);
    return true;
}

bool ConfigData::SetUnicode(const UnicodeString & text)
{
    AnsiString converted(text);
    if (text.Length() > 0 && converted.Length() == 0)
        return false;
    return SetAnsi(converted);
}

ConfigData & ConfigData::operator<<(float value)
{
    SetFloatData(value);
    return *this;
}

ConfigData & ConfigData::operator<<(const PString & value)
{
    SetPStringData(value);
    return *this;
}

ConfigData & ConfigData::operator<<(const AnsiString & value)
{
    SetPStringData(PString(value));
    return *this;
}

ConfigData & ConfigData::operator<<(const char * value)
{
    SetPStringData(PString(value));
    return *this;
}

ConfigData & ConfigData::SetInts(const int * values, int count)
{
    SetIntArray(values, count);
    return *this;
}

ConfigData & ConfigData::SetFloats(const float * values, int count)
{
    SetFloatArray(values, count);
    return *this;
}

ConfigData & ConfigData::operator<<(const Range<int> & value)
{
    const int values[] = {value.low, value.high};
    return SetInts(values, 2);
}

ConfigData & ConfigData::operator<<(const Point & value)
{
    const int values[] = {value.x, value.y};
    return SetInts(values, 2);
}

ConfigData & ConfigData::operator<<(const Size & value)
{
    const int values[] = {value.width, value.height};
    return SetInts(values, 2);
}

ConfigData & ConfigData::operator<<(const Rect & value)
{
    const int values[] = {value.x, value.y, value.width, value.height};
    return SetInts(values, 4);
}

ConfigData & ConfigData::operator<<(const Range<float> & value)
{
    const float values[] = {value.low, value.high};
    return SetFloats(values, 2);
}

ConfigData & ConfigData::operator<<(const Vector2 & value)
{
    const float values[] = {value.x, value.y};
    return SetFloats(values, 2);
}

ConfigData & ConfigData::operator<<(const Vector3 & value)
{
    const float values[] = {value.x, value.y, value.z};
    return SetFloats(values, 3);
}

ConfigData & ConfigData::operator<<(const Vector4 & value)
{
    const float values[] = {value.x, value.y, value.z, value.w};
    return SetFloats(values, 4);
}

ConfigData & ConfigData::operator<<(const Color & value)
{
    const float values[] = {value.r, value.g, value.b, value.a};
    return SetFloats(values, 4);
}

ConfigData & ConfigData::operator<<(const Quaternion & value)
{
    const float values[] = {value.x, value.y, value.z, value.w};
    return SetFloats(values, 4);
}

ConfigData::operator int() const
{
    switch (type)
    {
    case TYPE_INT:
        return data.integer;
    case TYPE_FLOAT:
        return TruncateToInt(data.real);
    case TYPE_STRING:
        return ReadInt(data.text);
    default:
        return 0;
    }
}

ConfigData::operator unsigned int() const
{
    switch (type)
    {
    case TYPE_INT:
        return static_cast<unsigned int>(data.integer);
    case TYPE_FLOAT:
        return TruncateToUnsigned(data.real);
    case TYPE_STRING:
        return ReadUnsigned(data.text);
    default:
        return 0;
    }
}

ConfigData::operator float() const
{
    switch (type)
    {
    case TYPE_FLOAT:
        return data.real;
    case TYPE_INT:
        return static_cast<float>(data.integer);
    case TYPE_STRING:
        return data.text.IsNull() ? 0.0f : static_cast<float>(CRuntime::Atof(data.text));
    default:
        return 0.0f;
    }
}

// Integer arrays are read as they are and float arrays truncated; missing places are 0. Answers
// the elements the node holds.
int ConfigData::GetInts(int * values, int count) const
{
    int have = type == TYPE_INTARRAY || type == TYPE_FLOATARRAY ? CountOf(data.block) : 0;
    for (int i = 0; i < count; ++i)
    {
        if (i >= have)
            values[i] = 0;
        else
            values[i] = type == TYPE_INTARRAY ? GetIntArray()[i] : TruncateToInt(GetFloatArray()[i]);
    }
    return have;
}

// Float arrays are read as they are and integer arrays converted; missing places are 0.
int ConfigData::GetFloats(float * values, int count) const
{
    int have = type == TYPE_INTARRAY || type == TYPE_FLOATARRAY ? CountOf(data.block) : 0;
    for (int i = 0; i < count; ++i)
    {
        if (i >= have)
            values[i] = 0.0f;
        else
            values[i] = type == TYPE_FLOATARRAY ? GetFloatArray()[i] : static_cast<float>(GetIntArray()[i]);
    }
    return have;
}

ConfigData::operator Vector2() const
{
    Vector2 value;
    GetFloats(&value.x, 2);
    return value;
}

ConfigData::operator Vector3() const
{
    float values[3];
    GetFloats(values, 3);
    return {values[0], values[1], values[2]};
}

ConfigData::operator Vector4() const
{
    float values[4];
    GetFloats(values, 4);
    return {values[0], values[1], values[2], values[3]};
}

ConfigData::operator Color() const
{
    float values[4];
    int have = GetFloats(values, 4);
    return {values[0], values[1], values[2], have < 4 ? 1.0f : values[3]};
}

ConfigData::operator Quaternion() const
{
    float values[4];
    Quaternion value;
    if (GetFloats(values, 4) == 3)
    {
        value.Set(values[0], values[1], values[2]);
        return value;
    }
    value = {values[0], values[1], values[2], values[3]};
    value.Normalize();
    return value;
}

ConfigData::operator Point() const
{
    int values[2];
    GetInts(values, 2);
    return {values[0], values[1]};
}

ConfigData::operator Size() const
{
    int values[2];
    GetInts(values, 2);
    return {values[0], values[1]};
}

ConfigData::operator Rect() const
{
    int values[4];
    GetInts(values, 4);
    return {values[0], values[1], values[2], values[3]};
}

const ConfigData & ConfigData::operator>>(bool & value) const
{
    if (!*this)
        return *this;
    if (type == TYPE_INT || type == TYPE_NONE)
        value = type == TYPE_INT && data.integer != 0;
    else if (type == TYPE_STRING)
        value =
            !data.text.IsNull() && (std::strcmp(data.text, "1") == 0 || data.text.EqualsIgnoreCase("true"));
    return *this;
}

const ConfigData & ConfigData::operator>>(char & value) const
{
    Narrow<char, int>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(short & value) const
{
    Narrow<short, int>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(int & value) const
{
    Narrow<int, int>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(long & value) const
{
    Narrow<long, int>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(unsigned char & value) const
{
    Narrow<unsigned char, unsigned int>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(unsigned short & value) const
{
    Narrow<unsigned short, unsigned int>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(unsigned int & value) const
{
    Narrow<unsigned int, unsigned int>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(unsigned long & value) const
{
    Narrow<unsigned long, unsigned int>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(float & value) const
{
    Narrow<float, float>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(PString & value) const
{
    if (*this)
        value = DataToPString();
    return *this;
}

const ConfigData & ConfigData::operator>>(String & value) const
{
    if (*this)
        value = DataToPString();
    return *this;
}

const ConfigData & ConfigData::operator>>(Range<int> & value) const
{
    Point pair = *this;
    if (*this)
        value = {pair.x, pair.y};
    return *this;
}

const ConfigData & ConfigData::operator>>(Point & value) const
{
    Narrow<Point, Point>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(Size & value) const
{
    Narrow<Size, Size>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(Rect & value) const
{
    Narrow<Rect, Rect>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(Range<float> & value) const
{
    Vector2 pair = *this;
    if (*this)
        value = {pair.x, pair.y};
    return *this;
}

const ConfigData & ConfigData::operator>>(Vector2 & value) const
{
    Narrow<Vector2, Vector2>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(Vector3 & value) const
{
    Narrow<Vector3, Vector3>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(Vector4 & value) const
{
    Narrow<Vector4, Vector4>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(Color & value) const
{
    Narrow<Color, Color>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(Quaternion & value) const
{
    Narrow<Quaternion, Quaternion>(*this, value);
    return *this;
}

const ConfigData & ConfigData::operator>>(ConfigData & value) const
{
    if (*this)
        value = *this;
    return *this;
}

int ConfigData::FloatText(float value, char * buffer)
{
    CRuntime::Gcvt(value, 8, buffer);
    auto length = static_cast<int>(std::strlen(buffer));
    if (buffer[length - 1] == '.')
    {
        buffer[length++] = '0';
        buffer[length] = 0;
    }
    return length;
}

PString ConfigData::DataToPString() const
{
    char text[FloatTextSize];
    switch (type)
    {
    case TYPE_STRING:
        return data.text;
    case TYPE_INT:
        return PString(CRuntime::Itoa(data.integer, text, 10));
    case TYPE_FLOAT:
        FloatText(data.real, text);
        return PString(text);
    default:
        return PString();
    }
}

// A string answers true unless it is a pooled empty text; a handle left null by SetAnsi("") reads
// as the empty text it was given.
bool ConfigData::GetAnsi(AnsiString & text) const
{
    if (!*this)
        return false;
    if (type == TYPE_STRING && data.text.IsNull())
    {
        text = "";
        return true;
    }
    if (type > TYPE_STRING || type == TYPE_NONE)
    {
        text = "";
        return false;
    }
    text = DataToPString();
    return text.Length() > 0;
}

bool ConfigData::GetUnicode(UnicodeString & text) const
{
    AnsiString narrow;
    if (!*this)
        return false;
    bool answer = GetAnsi(narrow);
    text = UnicodeString(narrow);
    return answer;
}
} // namespace Kiv
