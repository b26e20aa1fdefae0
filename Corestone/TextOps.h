// Edits and searches on a counted, NUL-terminated text in a caller's buffer, shared by the 8-bit,
// wide and pooled strings. Every index is checked against the length: an index out of range
// changes nothing and finds nothing.
#pragma once

#include "Alloc.h"
#include "CRuntime.h"

#include <cctype>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <type_traits>

namespace Kiv::TextOps
{
template <class Char>
unsigned int Span(const Char * text)
{
    unsigned int length = 0;
    while (text[length] != 0)
        ++length;
    return length;
}

template <class Char>
bool Contains(const Char * set, Char character)
{
    if (set == nullptr)
        return false;
    for (; *set != 0; ++set)
        if (*set == character)
            return true;
    return false;
}

// Text stays below the flag bit of the serialised count word, so its byte count always fits
// there; an edit that would grow a text past it changes nothing.
constexpr unsigned int MaxTextBytes = 0x3FFFFFFF;

template <class Char>
bool Fits(uint64_t characters)
{
    return characters <= MaxTextBytes / sizeof(Char);
}

// Capacity grows in steps of 16 bytes so that appends usually fit in place.
inline unsigned int NewSize(unsigned int bytes)
{
    return (bytes + 17) & ~15u;
}

// A buffer replaced while its text is kept never shrinks.
inline unsigned int KeptCapacity(unsigned int needed, unsigned int old)
{
    return needed > old ? needed : old;
}

// A null string has no text to write into: a write through its index lands in a per-thread slot
// that reads as a NUL again at the next call, and every other null string stays untouched.
template <class Char>
Char & NullSlot()
{
    thread_local Char slot;
    slot = 0;
    return slot;
}

// Copies with a NUL, cutting to size - 1 characters; -1 for a zero-size buffer.
template <class Char>
int CopyOut(const Char * text, unsigned int length, Char * buffer, unsigned int size)
{
    if (size == 0)
        return -1;
    unsigned int count = length < size ? length : size - 1;
    std::memcpy(buffer, text, count * sizeof(Char));
    buffer[count] = 0;
    return static_cast<int>(count);
}

// Multibyte text to wide through the current locale, within a buffer of sizeInBytes; the
// characters converted, or -1 (with an empty buffer) when the text cannot be converted.
inline int ToWide(const char * text, wchar_t * buffer, unsigned int sizeInBytes)
{
    unsigned int room = sizeInBytes / sizeof(wchar_t);
    if (room == 0)
        return -1;
    long count = CRuntime::MultiByteToWide(text, room - 1, buffer);
    buffer[count < 0 ? 0 : count] = 0;
    return static_cast<int>(count);
}

template <class Char>
void Delete(Char * text, unsigned int & length, unsigned int pos, unsigned int count)
{
    if (count == 0 || pos >= length)
        return;
    if (count >= length - pos)
        length = pos;
    else
    {
        std::memmove(text + pos, text + pos + count, (length - pos - count) * sizeof(Char));
        length -= count;
    }
    text[length] = 0;
}

// The buffer must hold length + count characters and a NUL.
template <class Char>
void OpenGap(Char * text, unsigned int & length, unsigned int pos, unsigned int count)
{
    if (pos < length)
        std::memmove(text + pos + count, text + pos, (length - pos) * sizeof(Char));
    length += count;
    text[length] = 0;
}

template <class Char>
void Strip(Char * text, unsigned int & length, const Char * set)
{
    unsigned int kept = 0;
    for (unsigned int i = 0; i < length; ++i)
        if (!Contains(set, text[i]))
            text[kept++] = text[i];
    length = kept;
    text[length] = 0;
}

// The next token: its first character and its length (0 when there is none).
template <class Char>
unsigned int FindToken(const Char * text, unsigned int length, const Char * delimiters, unsigned int & start)
{
    start = 0;
    while (start < length && Contains(delimiters, text[start]))
        ++start;
    unsigned int end = start;
    while (end < length && !Contains(delimiters, text[end]))
        ++end;
    return end - start;
}

template <class Char>
int FindChar(const Char * text, unsigned int length, unsigned int character, unsigned int start)
{
    for (unsigned int i = start; i <= length; ++i)
        if (static_cast<Char>(character) == text[i])
            return static_cast<int>(i);
    return -1;
}

// A null needle is no text at all and is found nowhere; an empty one is found at start.
template <class Char>
int FindText(const Char * text, unsigned int length, const Char * needle, unsigned int start)
{
    if (needle == nullptr)
        return -1;
    unsigned int needleLength = Span(needle);
    if (start > length || needleLength > length - start)
        return -1;
    for (unsigned int i = start; i + needleLength <= length; ++i)
        if (std::memcmp(text + i, needle, needleLength * sizeof(Char)) == 0)
            return static_cast<int>(i);
    return -1;
}

// The other case of a byte: ASCII letters flip bit 0x20, higher bytes follow the locale.
// The 8-bit searches use the runtime's tuned scans; the text is NUL-terminated at its length.
inline int FindChar(const char * text, unsigned int length, unsigned int character, unsigned int start)
{
    if (start > length)
        return -1;
    const void * found = std::memchr(text + start, static_cast<int>(character & 0xFF), length - start + 1);
    return found != nullptr ? static_cast<int>(static_cast<const char *>(found) - text) : -1;
}

inline int FindText(const char * text, unsigned int length, const char * needle, unsigned int start)
{
    if (needle == nullptr || start > length)
        return -1;
    const char * found = std::strstr(text + start, needle);
    return found != nullptr ? static_cast<int>(found - text) : -1;
}

inline char OtherCase(char character)
{
    auto byte = static_cast<unsigned char>(character);
    if (byte < 128)
        return std::isalpha(byte) ? static_cast<char>(byte ^ 0x20) : character;
    auto lower = static_cast<unsigned char>(std::tolower(byte));
    return static_cast<char>(lower != byte ? lower : std::toupper(byte));
}
inline wchar_t OtherCase(wchar_t character)
{
    auto lower = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(character)));
    return lower != character ? lower : static_cast<wchar_t>(std::towupper(static_cast<wint_t>(character)));
}

template <class Char>
int FindCharIgnoreCase(const Char * text, unsigned int length, unsigned int character, unsigned int start)
{
    auto one = static_cast<Char>(character);
    Char other = OtherCase(one);
    for (unsigned int i = start; i < length; ++i)
        if (text[i] == one || text[i] == other)
            return static_cast<int>(i);
    return -1;
}

inline int CompareNoCase(const char * a, const char * b, size_t count)
{
    return CRuntime::Strnicmp(a, b, count);
}
inline int CompareNoCase(const wchar_t * a, const wchar_t * b, size_t count)
{
    for (; count > 0; --count, ++a, ++b)
    {
        if (std::towlower(static_cast<wint_t>(*a)) != std::towlower(static_cast<wint_t>(*b)))
            return 1;
    }
    return 0;
}

template <class Char>
int FindTextIgnoreCase(const Char * text, unsigned int length, const Char * needle, unsigned int start)
{
    if (needle == nullptr)
        return -1;
    unsigned int needleLength = Span(needle);
    if (needleLength == 0)
        return static_cast<int>(start);
    if (start > length || needleLength > length - start)
        return -1;
    unsigned int last = length - needleLength;
    for (int at = FindCharIgnoreCase(text, last + 1, static_cast<unsigned int>(needle[0]), start); at >= 0;
         at = FindCharIgnoreCase(text, last + 1, static_cast<unsigned int>(needle[0]), at + 1))
    {
        if (CompareNoCase(text + at, needle, needleLength) == 0)
            return at;
    }
    return -1;
}

// Unsigned unit-by-unit comparison: negative, 0 or positive.
template <class Char>
int CompareUnits(const Char * a, const Char * b)
{
    using Unit = std::make_unsigned_t<Char>;
    for (;; ++a, ++b)
    {
        if (*a != *b)
            return static_cast<Unit>(*a) < static_cast<Unit>(*b) ? -1 : 1;
        if (*a == 0)
            return 0;
    }
}

// Case-sensitive order with a null text before any other.
template <class Char>
int OrderWithNulls(const Char * a, const Char * b)
{
    if (a == nullptr || b == nullptr)
        return (a != nullptr ? 1 : 0) - (b != nullptr ? 1 : 0);
    return CompareUnits(a, b);
}

// Compare keeps a mixed convention for nulls that existing callers rely on: 1 for two nulls, 0
// when only this side is null and 2 when only the other is; two texts go to order.
template <class Char, class Order>
int CompareWithNulls(const Char * self, const Char * other, Order order)
{
    if (self == nullptr || other == nullptr)
        return self == nullptr ? (other == nullptr ? 1 : 0) : 2;
    return order(self, other);
}

inline int Sign(int order)
{
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

template <class Char>
int FormatOnce(Char * buffer, size_t count, const Char * format, va_list args)
{
    va_list copy;
    va_copy(copy, args);
    int written = 0;
    if constexpr (std::is_same_v<Char, char>)
        written = CRuntime::Vsnprintf(buffer, count, format, copy);
    else
        written = CRuntime::Vsnwprintf(buffer, count, format, copy);
    va_end(copy);
    return written;
}

// Formatted text, short texts on the stack, longer ones in blocks growing fourfold up to 32M
// characters; a text that still does not fit, or cannot be formatted at all, is empty, and so is
// the text of a null format.
template <class Char>
class FormattedText
{
public:
    FormattedText(const Char * format, va_list args)
    {
        stack[0] = 0;
        length = format != nullptr ? FormatOnce(stack, 1023, format, args) : 0;
        if (length >= 0)
            return;
        for (size_t characters = 32768; length == -1; characters *= 4)
        {
            block =
                characters < 0x8000000 ? static_cast<Char *>(Alloc::New(characters * sizeof(Char))) : nullptr;
            if (block == nullptr)
                break;
            length = FormatOnce(block, characters - 1, format, args);
            if (length > 0)
                return;
            Alloc::Delete(block);
            block = nullptr;
        }
        length = 0;
        stack[0] = 0;
    }
    ~FormattedText()
    {
        if (block != nullptr)
            Alloc::Delete(block);
    }
    FormattedText(const FormattedText &) = delete;
    FormattedText & operator=(const FormattedText &) = delete;

    const Char * Text() const { return block != nullptr ? block : stack; }
    unsigned int Length() const { return static_cast<unsigned int>(length); }

private:
    Char stack[1024];
    Char * block = nullptr;
    int length;
};

// A scratch area on the stack that moves to Kiv::Alloc when it must grow, keeping its contents.
template <class Char, unsigned int StackCount>
class Scratch
{
public:
    Scratch() = default;
    ~Scratch()
    {
        if (data != stack)
            Alloc::Delete(data);
    }
    Scratch(const Scratch &) = delete;
    Scratch & operator=(const Scratch &) = delete;

    // Room for count characters, or null when memory runs out.
    Char * Reserve(size_t count)
    {
        if (count <= capacity)
            return data;
        size_t grown = count > 2 * capacity ? count : 2 * capacity;
        auto * larger = grown < 0x40000000 ? static_cast<Char *>(Alloc::New(grown * sizeof(Char))) : nullptr;
        if (larger == nullptr)
            return nullptr;
        std::memcpy(larger, data, capacity * sizeof(Char));
        if (data != stack)
            Alloc::Delete(data);
        data = larger;
        capacity = grown;
        return data;
    }
    Char * Data() { return data; }

private:
    Char stack[StackCount];
    Char * data = stack;
    size_t capacity = StackCount;
};

// Wide text in the current multibyte set, written to a scratch area; the bytes, or -1 when a
// character cannot be converted or the result could outgrow what a text may hold.
inline long ToMultiByte(const wchar_t * text, size_t length, Scratch<char, 4094> & scratch)
{
    size_t perCharacter = MB_CUR_MAX;
    char * bytes =
        length <= MaxTextBytes / perCharacter ? scratch.Reserve(length * perCharacter + 1) : nullptr;
    return bytes != nullptr ? CRuntime::WideToMultiByte(text, length, bytes) : -1;
}
} // namespace Kiv::TextOps
