#include "UnicodeString.h"

#include "Alloc.h"
#include "CRuntime.h"
#include "PString.h"
#include "String.h"
#include "StringSerial.h"
#include "TextOps.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <utility>

namespace Kiv
{
namespace
{
unsigned int WideBytes(unsigned int count)
{
    return (count * static_cast<unsigned int>(sizeof(wchar_t)) + static_cast<unsigned int>(sizeof(wchar_t)) +
            16) &
           ~15u;
}
} // namespace

UnicodeString::UnicodeString(const wchar_t * text)
{
    Set(text);
}

UnicodeString::UnicodeString(const wchar_t * text, unsigned int count)
{
    if (text != nullptr)
        Replace(text, count);
}

UnicodeString::UnicodeString(unsigned int character, unsigned int count)
{
    Ins(character, 0, count);
}

UnicodeString::UnicodeString(const char * text)
{
    SetANSI(text);
}

UnicodeString::UnicodeString(const char * text, unsigned int count)
{
    SetANSI(text, static_cast<int>(count));
}

UnicodeString::UnicodeString(const AnsiString & text)
{
    SetANSI(text, static_cast<int>(CRuntime::Mbslen(reinterpret_cast<const unsigned char *>(
                      text.IsBufferNULL() ? "" : static_cast<const char *>(text)))));
}

UnicodeString::UnicodeString(const PString & text) : UnicodeString(AnsiString(text)) {}

UnicodeString::UnicodeString(const UnicodeString & other)
{
    Set(other.buffer, static_cast<int>(other.length));
}

UnicodeString::UnicodeString(UnicodeString && other) noexcept
    : buffer(other.buffer), capacity(other.capacity), length(other.length)
{
    other.buffer = nullptr;
    other.capacity = other.length = 0;
}

UnicodeString::~UnicodeString()
{
    Free();
}

void UnicodeString::Free()
{
    if (buffer != nullptr)
        Alloc::Delete(buffer);
    buffer = nullptr;
    capacity = length = 0;
}

UnicodeString & UnicodeString::operator=(const UnicodeString & other)
{
    if (this != &other)
        Set(other.buffer, static_cast<int>(other.length));
    return *this;
}

UnicodeString & UnicodeString::operator=(UnicodeString && other) noexcept
{
    if (this != &other)
    {
        Free();
        buffer = other.buffer;
        capacity = other.capacity;
        length = other.length;
        other.buffer = nullptr;
        other.capacity = other.length = 0;
    }
    return *this;
}

UnicodeString & UnicodeString::operator=(const wchar_t * text)
{
    Set(text);
    return *this;
}

UnicodeString UnicodeString::FromUtf16(const unsigned char * units, unsigned int count)
{
    UnicodeString text;
    if (!text.Reserve(count, false))
        return text;
    text.length = static_cast<unsigned int>(CRuntime::DecodeUtf16(units, count, text.buffer));
    text.buffer[text.length] = 0;
    return text;
}

bool UnicodeString::Reserve(unsigned int count, bool keep)
{
    if (!TextOps::Fits<wchar_t>(count))
        return false;
    unsigned int needed = WideBytes(count);
    if (buffer != nullptr && needed <= capacity)
        return true;
    if (keep && buffer != nullptr)
        needed = TextOps::KeptCapacity(needed, capacity);
    auto * fresh = static_cast<wchar_t *>(Alloc::New(needed));
    if (fresh == nullptr)
        return false;
    fresh[0] = 0;
    if (keep && buffer != nullptr)
        std::memcpy(fresh, buffer, (length + 1) * sizeof(wchar_t));
    unsigned int kept = keep ? length : 0;
    Free();
    buffer = fresh;
    capacity = needed;
    length = kept;
    return true;
}

// A text too long for a string leaves it null.
void UnicodeString::Replace(const wchar_t * text, unsigned int count)
{
    if (buffer != nullptr && text >= buffer && text < buffer + capacity / sizeof(wchar_t))
    {
        UnicodeString copy(text, count);
        *this = std::move(copy);
        return;
    }
    if (!Reserve(count, false))
    {
        Free();
        return;
    }
    std::memcpy(buffer, text, count * sizeof(wchar_t));
    length = count;
    buffer[count] = 0;
}

void UnicodeString::Set(const wchar_t * text, int n, int m)
{
    if (text == nullptr)
    {
        Free();
        return;
    }
    int count = n >= 0 ? n : m;
    Replace(text, count >= 0 ? static_cast<unsigned int>(count) : TextOps::Span(text));
}

void UnicodeString::Setn(const wchar_t * text, unsigned int count)
{
    unsigned int span = 0;
    while (text != nullptr && span < count && text[span] != 0)
        ++span;
    Set(text, static_cast<int>(span));
}

void UnicodeString::Set(int value, unsigned int radix)
{
    wchar_t digits[40];
    Set(CRuntime::Witoa(value, digits, static_cast<int>(radix)));
}

bool UnicodeString::ConvertANSI(const char * text, int n)
{
    if (text == nullptr)
        return false;
    size_t limit =
        n < 0 ? CRuntime::Mbslen(reinterpret_cast<const unsigned char *>(text)) : static_cast<size_t>(n);
    long count = CRuntime::MultiByteToWide(text, limit, nullptr);
    if (count < 0 || !Reserve(static_cast<unsigned int>(count), false))
        return false;
    CRuntime::MultiByteToWide(text, limit, buffer);
    length = static_cast<unsigned int>(count);
    buffer[length] = 0;
    return true;
}

bool UnicodeString::SetANSI(const char * text, int n)
{
    ConvertANSI(text, n);
    return true;
}

// Whole characters while they fit in size - 1 bytes: a character is never cut, and one that lies
// beyond the room is never looked at.
int UnicodeString::GetANSI(char * out, unsigned int size) const
{
    if (size == 0)
        return -1;
    long count = buffer != nullptr ? CRuntime::WideToMultiByte(buffer, length, out, size - 1) : 0;
    out[count < 0 ? 0 : count] = 0;
    return static_cast<int>(count);
}

bool UnicodeString::SetUnicode(const wchar_t * text, int n)
{
    Set(text, n);
    return text != nullptr;
}

// Where wide characters are UTF-16 units, a cut never separates the two halves of a pair.
int UnicodeString::GetUnicode(wchar_t * out, unsigned int count) const
{
    unsigned int whole = count != 0 && count - 1 < length ? count - 1 : length;
    if (sizeof(wchar_t) == 2 && whole != 0 && whole < length && (buffer[whole - 1] & 0xFC00) == 0xD800 &&
        (buffer[whole] & 0xFC00) == 0xDC00)
        --whole;
    return TextOps::CopyOut(buffer != nullptr ? buffer : L"", whole, out, count);
}

wchar_t UnicodeString::operator[](unsigned int index) const
{
    return buffer != nullptr ? buffer[index] : 0;
}

wchar_t UnicodeString::operator[](int index) const
{
    return (*this)[static_cast<unsigned int>(index)];
}

wchar_t & UnicodeString::operator[](unsigned int index)
{
    return buffer != nullptr ? buffer[index] : TextOps::NullSlot<wchar_t>();
}

wchar_t & UnicodeString::operator[](int index)
{
    return (*this)[static_cast<unsigned int>(index)];
}

int UnicodeString::GetInt(int base) const
{
    return static_cast<int>(std::wcstol(buffer != nullptr ? buffer : L"", nullptr, base));
}

unsigned int UnicodeString::GetUInt(int base) const
{
    return static_cast<unsigned int>(std::wcstoul(buffer != nullptr ? buffer : L"", nullptr, base));
}

float UnicodeString::GetFloat() const
{
    return static_cast<float>(GetDouble());
}

double UnicodeString::GetDouble() const
{
    return std::wcstod(buffer != nullptr ? buffer : L"", nullptr);
}

void UnicodeString::Set(const wchar_t * format, va_list args)
{
    TextOps::FormattedText<wchar_t> formatted(format, args);
    Replace(formatted.Text(), formatted.Length());
}

void UnicodeString::Setf(const wchar_t * format, ...)
{
    va_list args;
    va_start(args, format);
    Set(format, args);
    va_end(args);
}

int UnicodeString::Add(const wchar_t * format, va_list args)
{
    TextOps::FormattedText<wchar_t> formatted(format, args);
    Insert(formatted.Text(), formatted.Length(), length);
    return static_cast<int>(formatted.Length());
}

int UnicodeString::Addf(const wchar_t * format, ...)
{
    va_list args;
    va_start(args, format);
    int count = Add(format, args);
    va_end(args);
    return count;
}

void UnicodeString::Insert(const wchar_t * text, unsigned int count, unsigned int pos)
{
    if (count == 0 || pos > length || !TextOps::Fits<wchar_t>(uint64_t{length} + count))
        return;
    if (buffer != nullptr && text >= buffer && text < buffer + capacity / sizeof(wchar_t))
    {
        UnicodeString piece(text, count);
        Insert(piece.buffer, count, pos);
        return;
    }
    if (!Reserve(length + count, true))
        return;
    TextOps::OpenGap(buffer, length, pos, count);
    std::memcpy(buffer + pos, text, count * sizeof(wchar_t));
}

void UnicodeString::Ins(const wchar_t * text, unsigned int pos)
{
    if (text != nullptr)
        Insert(text, TextOps::Span(text), pos);
}

void UnicodeString::Ins(unsigned int character, unsigned int pos, unsigned int count)
{
    if (count == 0 || pos > length || !TextOps::Fits<wchar_t>(uint64_t{length} + count) ||
        !Reserve(length + count, true))
        return;
    TextOps::OpenGap(buffer, length, pos, count);
    for (unsigned int i = 0; i < count; ++i)
        buffer[pos + i] = static_cast<wchar_t>(character);
}

UnicodeString & UnicodeString::operator+=(const wchar_t * text)
{
    Ins(text, length);
    return *this;
}

UnicodeString & UnicodeString::operator+=(const UnicodeString & text)
{
    Insert(text.buffer, text.length, length);
    return *this;
}

void UnicodeString::Del(unsigned int pos, unsigned int count)
{
    if (buffer != nullptr)
        TextOps::Delete(buffer, length, pos, count);
}

void UnicodeString::Left(unsigned int count)
{
    if (count < length)
        Del(count, length - count);
}

void UnicodeString::Right(unsigned int count)
{
    if (count < length)
        Del(0, length - count);
}

void UnicodeString::SetLength(unsigned int count)
{
    if (!Reserve(count, true))
        return;
    if (count < length)
        length = count;
    buffer[count] = 0;
}

void UnicodeString::Strip(const wchar_t * set)
{
    if (buffer != nullptr && set != nullptr)
        TextOps::Strip(buffer, length, set);
}

UnicodeString UnicodeString::Token(const wchar_t * delimiters)
{
    unsigned int start = 0;
    unsigned int count = buffer != nullptr ? TextOps::FindToken(buffer, length, delimiters, start) : 0;
    if (count == 0)
        return UnicodeString();
    UnicodeString token(buffer + start, count);
    Del(0, start + count);
    return token;
}

void UnicodeString::ToLower()
{
    if (length != 0)
        CRuntime::Wcslwr(buffer);
}

void UnicodeString::ToUpper()
{
    if (length != 0)
        CRuntime::Wcsupr(buffer);
}

int UnicodeString::Find(unsigned int character, unsigned int start) const
{
    return buffer == nullptr ? -1 : TextOps::FindChar(buffer, length, character, start);
}

int UnicodeString::Find(const wchar_t * text, unsigned int start) const
{
    return buffer == nullptr ? -1 : TextOps::FindText(buffer, length, text, start);
}

int UnicodeString::FindIgnoreCase(unsigned int character, unsigned int start) const
{
    return buffer == nullptr ? -1 : TextOps::FindCharIgnoreCase(buffer, length, character, start);
}

int UnicodeString::FindIgnoreCase(const wchar_t * text, unsigned int start) const
{
    return buffer == nullptr ? -1 : TextOps::FindTextIgnoreCase(buffer, length, text, start);
}

int UnicodeString::FindIgnoreCase(const wchar_t * text, unsigned int character, unsigned int start)
{
    return text == nullptr ? -1 : TextOps::FindCharIgnoreCase(text, TextOps::Span(text), character, start);
}

int UnicodeString::FindIgnoreCase(const wchar_t * text, unsigned int textLength, const wchar_t * needle,
                                  unsigned int start)
{
    return text == nullptr ? -1 : TextOps::FindTextIgnoreCase(text, textLength, needle, start);
}

int UnicodeString::Order(const wchar_t * other) const
{
    return TextOps::OrderWithNulls<wchar_t>(buffer, other);
}

int UnicodeString::Compare(const wchar_t * other) const
{
    return TextOps::CompareWithNulls<wchar_t>(buffer, other,
                                              [](const wchar_t * a, const wchar_t * b)
                                              { return TextOps::Sign(TextOps::CompareUnits(a, b)); });
}

int UnicodeString::CompareIgnoreCase(const wchar_t * other) const
{
    return TextOps::CompareWithNulls<wchar_t>(buffer, other, CRuntime::Wcsicmp);
}

bool UnicodeString::EqualsIgnoreCase(const wchar_t * other) const
{
    if (buffer == nullptr || other == nullptr)
        return buffer == other;
    return CRuntime::Wcsicmp(buffer, other) == 0;
}

bool UnicodeString::Write(BinWriter & writer) const
{
    return StringSerial::WriteWide(writer, buffer != nullptr ? buffer : L"", length);
}

bool UnicodeString::Read(BinReader & reader)
{
    uint32_t word = 0;
    StringSerial::ByteScratch bytes;
    bool ok = StringSerial::ReadWord(reader, word) &&
              StringSerial::ReadBytes(reader, word & ~StringSerial::WideFlag, bytes);
    if (ok && (word & StringSerial::WideFlag) != 0)
        *this = FromUtf16(bytes.Data(), (word & ~StringSerial::WideFlag) / 2);
    else if (ok)
        ok = ConvertANSI(reinterpret_cast<const char *>(bytes.Data()), -1);
    if (!ok)
        Free();
    return ok;
}
} // namespace Kiv
