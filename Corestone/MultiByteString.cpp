#include "UnicodeString.h"

#include "Alloc.h"
#include "CRuntime.h"
#include "PString.h"
#include "String.h"
#include "StringSerial.h"
#include "TextOps.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <utility>

namespace Kiv
{
namespace
{
constexpr unsigned int MaxBytes = TextOps::MaxTextBytes;
constexpr auto WideMax = static_cast<unsigned int>(WCHAR_MAX);

// Bytes of the character at text, never more than remain; a stray or cut-off byte is one.
unsigned int CharacterBytes(const char * text, unsigned int remaining)
{
    // Below 0x80 every multibyte set of the runtime has a one-byte character.
    if (static_cast<unsigned char>(*text) < 0x80)
        return 1;
    std::mbstate_t state{};
    size_t step = std::mbrlen(text, remaining, &state);
    return step == 0 || step > remaining ? 1 : static_cast<unsigned int>(step);
}

unsigned int CountCharacters(const char * text, unsigned int size)
{
    unsigned int characters = 0;
    for (unsigned int at = 0; at < size; at += CharacterBytes(text + at, size - at))
        ++characters;
    return characters;
}

// Whether the set holds the character of the given bytes, compared character by character.
bool SetHolds(const char * set, const char * character, unsigned int bytes)
{
    if (set == nullptr)
        return false;
    auto setSize = static_cast<unsigned int>(std::strlen(set));
    for (unsigned int at = 0; at < setSize;)
    {
        unsigned int step = CharacterBytes(set + at, setSize - at);
        if (step == bytes && std::memcmp(set + at, character, bytes) == 0)
            return true;
        at += step;
    }
    return false;
}

// The first position from at whose character is inside (or outside) the set.
unsigned int SkipWhile(const char * text, unsigned int size, unsigned int at, const char * set, bool inSet)
{
    while (at < size)
    {
        unsigned int step = CharacterBytes(text + at, size - at);
        if (SetHolds(set, text + at, step) != inSet)
            break;
        at += step;
    }
    return at;
}

// The multibyte sequence of a wide character, NUL-terminated; 0 bytes when the current set cannot
// hold it. A character up to 0xFF that the set cannot convert stands for that byte, as in the
// 8-bit string.
unsigned int Encode(unsigned int character, char (&bytes)[MB_LEN_MAX + 1])
{
    std::memset(bytes, 0, sizeof(bytes));
    if (character >= 0x80 && character <= WideMax)
    {
        auto wide = static_cast<wchar_t>(character);
        long count = CRuntime::WideToMultiByte(&wide, 1, bytes);
        if (count > 0)
            return static_cast<unsigned int>(count);
    }
    if (character > 0xFF)
        return 0;
    bytes[0] = static_cast<char>(character);
    return 1;
}

int FindCharacter(const char * text, unsigned int size, unsigned int character, unsigned int start)
{
    char bytes[MB_LEN_MAX + 1];
    unsigned int count = Encode(character, bytes);
    if (text == nullptr || count == 0)
        return -1;
    if (count == 1)
        return TextOps::FindChar(text, size, static_cast<unsigned char>(bytes[0]), start);
    return TextOps::FindText(text, size, static_cast<const char *>(bytes), start);
}

int FindCharacterIgnoreCase(const char * text, unsigned int size, unsigned int character, unsigned int start)
{
    if (character == 0)
        return -1;
    auto fold = [character](wint_t (*change)(wint_t))
    {
        return character <= WideMax ? static_cast<unsigned int>(change(static_cast<wint_t>(character)))
                                    : character;
    };
    int lower = FindCharacter(text, size, fold(std::towlower), start);
    int upper = FindCharacter(text, size, fold(std::towupper), start);
    return lower < 0 ? upper : upper < 0 ? lower : std::min(lower, upper);
}

bool Inside(const char * text, const char * buffer, unsigned int capacity)
{
    return buffer != nullptr && text >= buffer && text < buffer + capacity;
}
} // namespace

MultiByteString::MultiByteString(const char * text)
{
    Set(reinterpret_cast<const unsigned char *>(text));
}

MultiByteString::MultiByteString(const char * text, unsigned int size)
{
    if (size <= MaxBytes)
        Set(reinterpret_cast<const unsigned char *>(text), static_cast<int>(size));
}

MultiByteString::MultiByteString(unsigned int character, unsigned int count)
{
    Ins(character, 0, count);
}

MultiByteString::MultiByteString(const wchar_t * text)
{
    SetUnicode(text);
}

MultiByteString::MultiByteString(const wchar_t * text, unsigned int count)
{
    SetUnicode(text, static_cast<int>(count));
}

MultiByteString::MultiByteString(const UnicodeString & text)
{
    *this = text;
}

MultiByteString::MultiByteString(const PString & text)
{
    *this = text;
}

MultiByteString::MultiByteString(const MultiByteString & other)
{
    Set(reinterpret_cast<const unsigned char *>(other.buffer), static_cast<int>(other.size));
}

MultiByteString::MultiByteString(MultiByteString && other) noexcept
    : buffer(other.buffer), capacity(other.capacity), size(other.size), length(other.length)
{
    other.buffer = nullptr;
    other.capacity = other.size = other.length = 0;
}

MultiByteString::~MultiByteString()
{
    Free();
}

MultiByteString & MultiByteString::operator=(const MultiByteString & other)
{
    if (this != &other)
        Set(reinterpret_cast<const unsigned char *>(other.buffer), static_cast<int>(other.size));
    return *this;
}

MultiByteString & MultiByteString::operator=(MultiByteString && other) noexcept
{
    if (this != &other)
    {
        Free();
        std::swap(buffer, other.buffer);
        std::swap(capacity, other.capacity);
        std::swap(size, other.size);
        std::swap(length, other.length);
    }
    return *this;
}

MultiByteString & MultiByteString::operator=(const char * text)
{
    Set(reinterpret_cast<const unsigned char *>(text));
    return *this;
}

MultiByteString & MultiByteString::operator=(const wchar_t * text)
{
    SetUnicode(text);
    return *this;
}

MultiByteString & MultiByteString::operator=(const UnicodeString & text)
{
    if (text.IsBufferNULL())
        Free();
    else
        SetUnicode(text, static_cast<int>(text.Length()));
    return *this;
}

MultiByteString & MultiByteString::operator=(const PString & text)
{
    Set(reinterpret_cast<const unsigned char *>(static_cast<const char *>(text)),
        static_cast<int>(text.Length()));
    return *this;
}

void MultiByteString::Free()
{
    if (buffer != nullptr)
        Alloc::Delete(buffer);
    buffer = nullptr;
    capacity = size = length = 0;
}

bool MultiByteString::Reserve(unsigned int bytes, bool keep)
{
    if (bytes > MaxBytes)
        return false;
    unsigned int needed = TextOps::NewSize(bytes);
    if (buffer != nullptr && needed <= capacity)
        return true;
    if (keep && buffer != nullptr)
        needed = TextOps::KeptCapacity(needed, capacity);
    auto * fresh = static_cast<char *>(Alloc::New(needed));
    if (fresh == nullptr)
        return false;
    fresh[0] = 0;
    unsigned int keptSize = 0;
    unsigned int keptLength = 0;
    if (keep && buffer != nullptr)
    {
        std::memcpy(fresh, buffer, size + 1);
        keptSize = size;
        keptLength = length;
    }
    Free();
    buffer = fresh;
    capacity = needed;
    size = keptSize;
    length = keptLength;
    return true;
}

void MultiByteString::Recount()
{
    length = CountCharacters(buffer, size);
}

unsigned int MultiByteString::GetLengthAndSize(const unsigned char * text, unsigned int & bytes)
{
    const auto * chars = reinterpret_cast<const char *>(text);
    bytes = chars != nullptr ? static_cast<unsigned int>(std::strlen(chars)) : 0;
    return CountCharacters(chars, bytes);
}

void MultiByteString::Set(const unsigned char * text, int bytes, int)
{
    const auto * chars = reinterpret_cast<const char *>(text);
    unsigned int count = bytes >= 0 ? static_cast<unsigned int>(bytes) : 0;
    if (chars != nullptr && bytes < 0)
        count = static_cast<unsigned int>(std::strlen(chars));
    if (Inside(chars, buffer, capacity))
    {
        *this = MultiByteString(chars, count);
        return;
    }
    if (chars == nullptr || !Reserve(count, false))
    {
        Free();
        return;
    }
    std::memcpy(buffer, chars, count);
    buffer[count] = 0;
    size = count;
    Recount();
}

bool MultiByteString::SetUnicode(const wchar_t * text, int n)
{
    if (text == nullptr)
    {
        Free();
        return false;
    }
    size_t count = n < 0 ? std::wcslen(text) : static_cast<size_t>(n);
    TextOps::Scratch<char, 4094> scratch;
    long converted = TextOps::ToMultiByte(text, count, scratch);
    if (converted < 0)
    {
        Free();
        return false;
    }
    Set(reinterpret_cast<unsigned char *>(scratch.Data()), static_cast<int>(converted));
    return true;
}

int MultiByteString::GetUnicode(wchar_t * out, unsigned int count) const
{
    if (count == 0)
        return -1;
    unsigned int limit = count - 1 < length ? count - 1 : length;
    long converted = CRuntime::MultiByteToWide(buffer != nullptr ? buffer : "", limit, out);
    out[converted < 0 ? 0 : converted] = 0;
    return static_cast<int>(converted);
}

bool MultiByteString::SetANSI(const char * text, int count)
{
    Set(reinterpret_cast<const unsigned char *>(text), count);
    return true;
}

// Whole characters while they fit in outSize - 1 bytes, so the copy never ends in a cut sequence.
int MultiByteString::GetANSI(char * out, unsigned int outSize) const
{
    unsigned int whole = 0;
    while (whole < size && outSize != 0)
    {
        unsigned int step = CharacterBytes(buffer + whole, size - whole);
        if (step > outSize - 1 - whole)
            break;
        whole += step;
    }
    return TextOps::CopyOut(buffer != nullptr ? buffer : "", whole, out, outSize);
}

unsigned int MultiByteString::operator[](unsigned int index) const
{
    return buffer != nullptr ? static_cast<unsigned char>(buffer[index]) : 0;
}

unsigned int MultiByteString::operator[](int index) const
{
    return (*this)[static_cast<unsigned int>(index)];
}

char & MultiByteString::operator[](unsigned int index)
{
    return buffer != nullptr ? buffer[index] : TextOps::NullSlot<char>();
}

char & MultiByteString::operator[](int index)
{
    return (*this)[static_cast<unsigned int>(index)];
}

int MultiByteString::GetInt(int base) const
{
    return static_cast<int>(std::strtol(buffer != nullptr ? buffer : "", nullptr, base));
}

unsigned int MultiByteString::GetUInt(int base) const
{
    return static_cast<unsigned int>(std::strtoul(buffer != nullptr ? buffer : "", nullptr, base));
}

float MultiByteString::GetFloat() const
{
    return static_cast<float>(GetDouble());
}

double MultiByteString::GetDouble() const
{
    return std::atof(buffer != nullptr ? buffer : "");
}

void MultiByteString::Set(const char * format, va_list args)
{
    TextOps::FormattedText<char> formatted(format, args);
    if (formatted.Length() == 0)
        Free();
    else
        Set(reinterpret_cast<const unsigned char *>(formatted.Text()), static_cast<int>(formatted.Length()));
}

void MultiByteString::Setf(const char * format, ...)
{
    va_list args;
    va_start(args, format);
    Set(format, args);
    va_end(args);
}

int MultiByteString::Add(const char * format, va_list args)
{
    TextOps::FormattedText<char> formatted(format, args);
    Insert(formatted.Text(), formatted.Length(), size);
    return static_cast<int>(formatted.Length());
}

int MultiByteString::Addf(const char * format, ...)
{
    va_list args;
    va_start(args, format);
    int count = Add(format, args);
    va_end(args);
    return count;
}

void MultiByteString::Setn(const char * text, unsigned int count)
{
    unsigned int span = 0;
    while (text != nullptr && span < count && text[span] != 0)
        ++span;
    Set(reinterpret_cast<const unsigned char *>(text), static_cast<int>(span));
}

void MultiByteString::Set(int value, unsigned int radix)
{
    char digits[40];
    *this = CRuntime::Itoa(value, digits, static_cast<int>(radix));
}

void MultiByteString::Insert(const char * text, unsigned int count, unsigned int pos)
{
    if (count == 0 || pos > size)
        return;
    if (Inside(text, buffer, capacity))
    {
        MultiByteString piece(text, count);
        Insert(piece.buffer, count, pos);
        return;
    }
    if (count > MaxBytes - size || !Reserve(size + count, true))
        return;
    TextOps::OpenGap(buffer, size, pos, count);
    std::memcpy(buffer + pos, text, count);
    Recount();
}

void MultiByteString::Ins(const char * text, unsigned int pos)
{
    if (text != nullptr)
        Insert(text, static_cast<unsigned int>(std::strlen(text)), pos);
}

void MultiByteString::Ins(unsigned int character, unsigned int pos, unsigned int count)
{
    char bytes[MB_LEN_MAX + 1];
    unsigned int step = Encode(character, bytes);
    uint64_t total = static_cast<uint64_t>(step) * count;
    if (total == 0 || pos > size || total > MaxBytes - size ||
        !Reserve(size + static_cast<unsigned int>(total), true))
        return;
    TextOps::OpenGap(buffer, size, pos, static_cast<unsigned int>(total));
    for (unsigned int i = 0; i < count; ++i)
        std::memcpy(buffer + pos + i * step, bytes, step);
    Recount();
}

void MultiByteString::Ins(const wchar_t * text, unsigned int pos)
{
    MultiByteString converted(text);
    Insert(converted.buffer, converted.size, pos);
}

MultiByteString & MultiByteString::operator+=(const char * text)
{
    Ins(text, size);
    return *this;
}

MultiByteString & MultiByteString::operator+=(const MultiByteString & text)
{
    Insert(text.buffer, text.size, size);
    return *this;
}

MultiByteString & MultiByteString::operator+=(const wchar_t * text)
{
    Ins(text, size);
    return *this;
}

MultiByteString & MultiByteString::operator+=(const PString & text)
{
    Insert(text, text.Length(), size);
    return *this;
}

void MultiByteString::Del(unsigned int pos, unsigned int count)
{
    if (buffer == nullptr)
        return;
    TextOps::Delete(buffer, size, pos, count);
    Recount();
}

void MultiByteString::Left(unsigned int count)
{
    if (count < size)
        Del(count, size - count);
}

void MultiByteString::Right(unsigned int count)
{
    if (count < size)
        Del(0, size - count);
}

MultiByteString MultiByteString::Mid(unsigned int start, unsigned int count) const
{
    MultiByteString part(*this);
    part.Del(0, start);
    part.Left(count);
    return part;
}

void MultiByteString::SetLength(unsigned int count)
{
    if (!Reserve(count, true))
        return;
    size = std::min(size, count);
    buffer[count] = 0;
    Recount();
}

void MultiByteString::Strip(const char * set)
{
    if (buffer == nullptr || set == nullptr)
        return;
    unsigned int kept = 0;
    for (unsigned int at = 0; at < size;)
    {
        unsigned int step = CharacterBytes(buffer + at, size - at);
        if (!SetHolds(set, buffer + at, step))
        {
            std::memmove(buffer + kept, buffer + at, step);
            kept += step;
        }
        at += step;
    }
    size = kept;
    buffer[size] = 0;
    Recount();
}

MultiByteString MultiByteString::Token(const char * delimiters)
{
    unsigned int start = SkipWhile(buffer, size, 0, delimiters, true);
    unsigned int end = SkipWhile(buffer, size, start, delimiters, false);
    if (end == start)
        return MultiByteString();
    MultiByteString token(buffer + start, end - start);
    Del(0, end);
    return token;
}

void MultiByteString::ToLower()
{
    if (size == 0)
        return;
    CRuntime::Strlwr(buffer);
    Recount();
}

void MultiByteString::ToUpper()
{
    if (size == 0)
        return;
    CRuntime::Strupr(buffer);
    Recount();
}

int MultiByteString::Find(unsigned int character, unsigned int start) const
{
    return FindCharacter(buffer, size, character, start);
}

int MultiByteString::Find(const char * text, unsigned int start) const
{
    return buffer == nullptr || text == nullptr ? -1 : TextOps::FindText(buffer, size, text, start);
}

int MultiByteString::FindIgnoreCase(unsigned int character, unsigned int start) const
{
    return FindCharacterIgnoreCase(buffer, size, character, start);
}

int MultiByteString::FindIgnoreCase(const char * text, unsigned int start) const
{
    return FindIgnoreCase(buffer, size, text, start);
}

int MultiByteString::FindIgnoreCase(const char * text, unsigned int character, unsigned int start)
{
    return text == nullptr ? -1
                           : FindCharacterIgnoreCase(text, static_cast<unsigned int>(std::strlen(text)),
                                                     character, start);
}

int MultiByteString::FindIgnoreCase(const char * text, unsigned int textSize, const char * needle,
                                    unsigned int start)
{
    return text == nullptr || needle == nullptr ? -1
                                                : TextOps::FindTextIgnoreCase(text, textSize, needle, start);
}

int MultiByteString::Order(const char * other) const
{
    return TextOps::OrderWithNulls<char>(buffer, other);
}

int MultiByteString::Compare(const char * other) const
{
    return TextOps::CompareWithNulls<char>(buffer, other, TextOps::CompareUnits<char>);
}

int MultiByteString::CompareIgnoreCase(const char * other) const
{
    return TextOps::CompareWithNulls<char>(buffer, other, CRuntime::Stricmp);
}

bool MultiByteString::EqualsIgnoreCase(const char * other) const
{
    if (buffer == nullptr || other == nullptr)
        return buffer == other;
    return CRuntime::Stricmp(buffer, other) == 0;
}

bool MultiByteString::Write(BinWriter & writer) const
{
    return StringSerial::WriteCounted(writer, size, buffer, size);
}

bool MultiByteString::Read(BinReader & reader)
{
    AnsiString text;
    bool ok = text.Read(reader);
    if (ok)
        Set(reinterpret_cast<const unsigned char *>(static_cast<const char *>(text)),
            static_cast<int>(text.Length()));
    else
        Free();
    return ok;
}
} // namespace Kiv
