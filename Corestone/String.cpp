#include "String.h"

#include "Alloc.h"
#include "CRuntime.h"
#include "PString.h"
#include "StringSerial.h"
#include "TextOps.h"
#include "UnicodeString.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace Kiv
{
// Laid out as stored by Kiv::Alloc: count, capacity, length, then capacity bytes of text.
struct AnsiString::Record
{
    std::atomic<int32_t> references;
    uint32_t capacity;
    uint32_t length;

    char * Text() { return reinterpret_cast<char *>(this + 1); }
};
static_assert(sizeof(AnsiString::Record) == 12, "the text follows the three header words");

namespace
{
struct NullRecord
{
    AnsiString::Record record;
    char text[4];
};
// Constant-initialised, so it exists before any static string of any translation unit.
NullRecord nullRecord = {{{1}, 0, 0}, {0, 0, 0, 0}};

AnsiString::Record * NewRecord(unsigned int capacity)
{
    if (capacity == 0)
        capacity = 4;
    auto * record = static_cast<AnsiString::Record *>(Alloc::New(capacity + sizeof(AnsiString::Record)));
    new (&record->references) std::atomic<int32_t>(1);
    record->capacity = capacity;
    record->length = 0;
    record->Text()[0] = 0;
    return record;
}
} // namespace

// Inline, so the library's own calls do not go through its export table.
inline char * AnsiString::Text() const
{
    return record->Text();
}

// A record whose count is 1 belongs to this string alone: no other string can start sharing it, so
// it is freed without the interlocked decrement.
inline void AnsiString::Release()
{
    if (record->capacity != 0 && (record->references.load(std::memory_order_acquire) == 1 ||
                                  record->references.fetch_sub(1, std::memory_order_acq_rel) == 1))
        Alloc::Delete(record);
}

// Whether the record is this string's alone and holds size bytes, so it can be written in place.
inline bool AnsiString::Writable(unsigned int size) const
{
    return record->capacity >= size && record->capacity != 0 &&
           record->references.load(std::memory_order_acquire) == 1;
}

AnsiString::AnsiString() : record(&nullRecord.record) {}

AnsiString::AnsiString(const char * text) : AnsiString()
{
    if (text != nullptr)
        Replace(text, static_cast<unsigned int>(std::strlen(text)));
}

AnsiString::AnsiString(const char * text, unsigned int count) : AnsiString()
{
    if (text != nullptr)
        Replace(text, count);
}

AnsiString::AnsiString(unsigned int character, unsigned int count) : AnsiString()
{
    Ins(character, 0, count);
}

AnsiString::AnsiString(const wchar_t * text) : AnsiString()
{
    SetUnicode(text);
}

AnsiString::AnsiString(const wchar_t * text, unsigned int count) : AnsiString()
{
    if (TextOps::Fits<char>(count))
        SetUnicode(text, static_cast<int>(count));
}

AnsiString::AnsiString(const UnicodeString & text) : AnsiString()
{
    *this = text;
}

AnsiString::AnsiString(const PString & text) : AnsiString()
{
    *this = text;
}

AnsiString::AnsiString(const AnsiString & other) : record(other.record)
{
    if (record->capacity != 0)
        record->references.fetch_add(1, std::memory_order_relaxed);
}

AnsiString::AnsiString(AnsiString && other) noexcept : record(other.record)
{
    other.record = &nullRecord.record;
}

AnsiString::~AnsiString()
{
    Release();
}

AnsiString & AnsiString::operator=(const AnsiString & other)
{
    if (this == &other || record == other.record)
        return *this;
    if (other.record->capacity != 0)
        other.record->references.fetch_add(1, std::memory_order_relaxed);
    Release();
    record = other.record;
    return *this;
}

AnsiString & AnsiString::operator=(AnsiString && other) noexcept
{
    if (this != &other)
    {
        Release();
        record = other.record;
        other.record = &nullRecord.record;
    }
    return *this;
}

AnsiString & AnsiString::operator=(const char * text)
{
    if (text == nullptr)
        *this = AnsiString();
    else if (text >= Text() && text <= Text() + record->length)
        *this = AnsiString(text);
    else
        Replace(text, static_cast<unsigned int>(std::strlen(text)));
    return *this;
}

AnsiString & AnsiString::operator=(const wchar_t * text)
{
    SetUnicode(text);
    return *this;
}

AnsiString & AnsiString::operator=(const UnicodeString & text)
{
    if (text.IsBufferNULL())
        return *this = AnsiString();
    SetUnicode(text, static_cast<int>(text.Length()));
    return *this;
}

AnsiString & AnsiString::operator=(const PString & text)
{
    if (text.IsNull())
        return *this = AnsiString();
    Replace(text, text.Length());
    return *this;
}

inline void AnsiString::MakeBufferUnique(unsigned int size, bool keep)
{
    if (!Writable(size))
        ReplaceRecord(size, keep);
}

void AnsiString::ReplaceRecord(unsigned int size, bool keep)
{
    Record * fresh = NewRecord(keep ? TextOps::KeptCapacity(size, record->capacity) : size);
    if (keep)
    {
        std::memcpy(fresh->Text(), Text(), record->length + 1);
        fresh->length = record->length;
    }
    Release();
    record = fresh;
}

// A text too long for a record leaves the string null.
void AnsiString::Replace(const char * text, unsigned int count)
{
    if (!TextOps::Fits<char>(count))
    {
        *this = AnsiString();
        return;
    }
    MakeBufferUnique(TextOps::NewSize(count), false);
    std::memcpy(Text(), text, count);
    record->length = count;
    Text()[count] = 0;
}

void AnsiString::Insert(const char * text, unsigned int count, unsigned int pos)
{
    if (count == 0 || pos > record->length || !TextOps::Fits<char>(uint64_t{record->length} + count))
        return;
    if (record->capacity != 0 && text >= Text() && text < Text() + record->capacity)
    {
        // The piece lives in the record about to be moved or reallocated.
        AnsiString piece(text, count);
        Insert(piece.Text(), count, pos);
        return;
    }
    MakeBufferUnique(TextOps::NewSize(record->length + count), true);
    TextOps::OpenGap(Text(), record->length, pos, count);
    std::memcpy(Text() + pos, text, count);
}

unsigned int AnsiString::Length() const
{
    return record->length;
}

unsigned int AnsiString::Size() const
{
    return record->capacity == 0 ? 0 : record->length + 1;
}

unsigned int AnsiString::AllocSize() const
{
    return record->capacity;
}

bool AnsiString::IsBufferNULL() const
{
    return record->capacity == 0;
}

AnsiString::operator const char *() const
{
    return record->capacity == 0 ? nullptr : Text();
}

unsigned int AnsiString::operator[](unsigned int index) const
{
    return record->capacity == 0 ? 0 : static_cast<unsigned char>(Text()[index]);
}

unsigned int AnsiString::operator[](int index) const
{
    return (*this)[static_cast<unsigned int>(index)];
}

char & AnsiString::operator[](unsigned int index)
{
    return record->capacity == 0 ? TextOps::NullSlot<char>() : Text()[index];
}

char & AnsiString::operator[](int index)
{
    return (*this)[static_cast<unsigned int>(index)];
}

int AnsiString::GetInt(int base) const
{
    return static_cast<int>(std::strtol(Text(), nullptr, base));
}

unsigned int AnsiString::GetUInt(int base) const
{
    return static_cast<unsigned int>(std::strtoul(Text(), nullptr, base));
}

float AnsiString::GetFloat() const
{
    return static_cast<float>(std::atof(Text()));
}

double AnsiString::GetDouble() const
{
    return std::atof(Text());
}

int AnsiString::GetANSI(char * buffer, unsigned int size) const
{
    return TextOps::CopyOut(Text(), record->length, buffer, size);
}

int AnsiString::GetUnicode(wchar_t * buffer, unsigned int sizeInBytes) const
{
    return TextOps::ToWide(Text(), buffer, sizeInBytes);
}

AnsiString::CompareResult AnsiString::CompareWithMatchCase(const char * text) const
{
    bool otherNull = text == nullptr;
    if (record->capacity == 0)
        return otherNull ? Equal : Less;
    if (otherNull)
        return Greater;
    int order = TextOps::CompareUnits(Text(), text);
    return order < 0 ? Less : order == 0 ? Equal : Greater;
}

AnsiString::CompareResult AnsiString::CompareWith(const char * text) const
{
    if (record->capacity == 0 || text == nullptr)
        return CompareWithMatchCase(text);
    int order = CRuntime::Stricmp(Text(), text);
    return order < 0 ? Less : order == 0 ? Equal : Greater;
}

bool AnsiString::operator==(const char * text) const
{
    return CompareWithMatchCase(text) == Equal;
}
bool AnsiString::operator!=(const char * text) const
{
    return CompareWithMatchCase(text) != Equal;
}
bool AnsiString::operator<(const char * text) const
{
    return CompareWithMatchCase(text) == Less;
}
bool AnsiString::operator>(const char * text) const
{
    return CompareWithMatchCase(text) == Greater;
}
bool AnsiString::operator<=(const char * text) const
{
    return CompareWithMatchCase(text) != Greater;
}
bool AnsiString::operator>=(const char * text) const
{
    return CompareWithMatchCase(text) != Less;
}
bool AnsiString::operator==(const AnsiString & other) const
{
    return record == other.record || *this == static_cast<const char *>(other);
}
bool AnsiString::operator!=(const AnsiString & other) const
{
    return !(*this == other);
}
bool AnsiString::operator<(const AnsiString & other) const
{
    return *this < static_cast<const char *>(other);
}
bool AnsiString::operator>(const AnsiString & other) const
{
    return *this > static_cast<const char *>(other);
}
bool AnsiString::operator<=(const AnsiString & other) const
{
    return *this <= static_cast<const char *>(other);
}
bool AnsiString::operator>=(const AnsiString & other) const
{
    return *this >= static_cast<const char *>(other);
}

bool operator==(const char * text, const AnsiString & string)
{
    return string == text;
}
bool operator!=(const char * text, const AnsiString & string)
{
    return string != text;
}

bool AnsiString::EqualsIgnoreCase(const char * text) const
{
    return CompareWith(text) == Equal;
}

// The mixed convention of the null cases is relied on by existing callers.
int AnsiString::NullCompare(const char * other) const
{
    if (record->capacity == 0)
        return other == nullptr ? 1 : 0;
    return 2;
}

int AnsiString::Compare(const char * other) const
{
    if (record->capacity == 0 || other == nullptr)
        return NullCompare(other);
    return TextOps::CompareUnits(Text(), other);
}

int AnsiString::CompareIgnoreCase(const char * other) const
{
    if (record->capacity == 0 || other == nullptr)
        return NullCompare(other);
    return CRuntime::Stricmp(Text(), other);
}

int AnsiString::Find(unsigned int character, unsigned int start) const
{
    return record->capacity == 0 ? -1 : TextOps::FindChar(Text(), record->length, character, start);
}

int AnsiString::Find(const char * text, unsigned int start) const
{
    return record->capacity == 0 ? -1 : TextOps::FindText(Text(), record->length, text, start);
}

int AnsiString::FindIgnoreCase(unsigned int character, unsigned int start) const
{
    return TextOps::FindCharIgnoreCase(Text(), record->length, character, start);
}

int AnsiString::FindIgnoreCase(const char * text, unsigned int start) const
{
    return FindIgnoreCase(Text(), record->length, text, start);
}

int AnsiString::FindIgnoreCase(const char * text, unsigned int character, unsigned int start)
{
    return text == nullptr ? -1 : TextOps::FindCharIgnoreCase(text, TextOps::Span(text), character, start);
}

int AnsiString::FindIgnoreCase(const char * text, unsigned int textLength, const char * needle,
                               unsigned int start)
{
    return text == nullptr ? -1 : TextOps::FindTextIgnoreCase(text, textLength, needle, start);
}

void AnsiString::Set(const char * format, va_list args)
{
    TextOps::FormattedText<char> formatted(format, args);
    if (formatted.Length() == 0)
        *this = AnsiString();
    else
        Replace(formatted.Text(), formatted.Length());
}

void AnsiString::Setf(const char * format, ...)
{
    va_list args;
    va_start(args, format);
    Set(format, args);
    va_end(args);
}

int AnsiString::Add(const char * format, va_list args)
{
    TextOps::FormattedText<char> formatted(format, args);
    Insert(formatted.Text(), formatted.Length(), record->length);
    return static_cast<int>(formatted.Length());
}

int AnsiString::Addf(const char * format, ...)
{
    va_list args;
    va_start(args, format);
    int count = Add(format, args);
    va_end(args);
    return count;
}

void AnsiString::Setn(const char * text, unsigned int count)
{
    unsigned int length = 0;
    while (text != nullptr && length < count && text[length] != 0)
        ++length;
    *this = AnsiString(text, length);
}

bool AnsiString::SetANSI(const char * text, int count)
{
    if (count < 0)
        *this = text;
    else
        *this = AnsiString(text, static_cast<unsigned int>(count));
    return true;
}

void AnsiString::Set(int value, unsigned int radix)
{
    char digits[40];
    *this = CRuntime::Itoa(value, digits, static_cast<int>(radix));
}

bool AnsiString::SetUnicode(const wchar_t * text, int count)
{
    if (text == nullptr)
    {
        *this = AnsiString();
        return false;
    }
    size_t length = count < 0 ? std::wcslen(text) : static_cast<size_t>(count);
    TextOps::Scratch<char, 4094> scratch;
    long converted = TextOps::ToMultiByte(text, length, scratch);
    if (converted < 0)
    {
        *this = AnsiString();
        return false;
    }
    Replace(scratch.Data(), static_cast<unsigned int>(converted));
    return true;
}

void AnsiString::Ins(const char * text, unsigned int pos)
{
    if (text != nullptr)
        Insert(text, static_cast<unsigned int>(std::strlen(text)), pos);
}

void AnsiString::Ins(unsigned int character, unsigned int pos, unsigned int count)
{
    if (count == 0 || pos > record->length || !TextOps::Fits<char>(uint64_t{record->length} + count))
        return;
    MakeBufferUnique(TextOps::NewSize(record->length + count), true);
    TextOps::OpenGap(Text(), record->length, pos, count);
    std::memset(Text() + pos, static_cast<int>(character), count);
}

void AnsiString::Ins(const wchar_t * text, unsigned int pos)
{
    AnsiString converted(text);
    Insert(converted.Text(), converted.Length(), pos);
}

AnsiString & AnsiString::operator+=(const char * text)
{
    Ins(text, record->length);
    return *this;
}

AnsiString & AnsiString::operator+=(const AnsiString & text)
{
    Insert(text.Text(), text.Length(), record->length);
    return *this;
}

AnsiString & AnsiString::operator+=(const wchar_t * text)
{
    Ins(text, record->length);
    return *this;
}

AnsiString & AnsiString::operator+=(const PString & text)
{
    return *this += AnsiString(text);
}

void AnsiString::Del(unsigned int pos, unsigned int count)
{
    if (count == 0 || pos >= record->length)
        return;
    MakeBufferUnique(record->capacity, true);
    TextOps::Delete(Text(), record->length, pos, count);
}

void AnsiString::Left(unsigned int count)
{
    if (count < record->length)
        Del(count, record->length - count);
}

void AnsiString::Right(unsigned int count)
{
    if (count < record->length)
        Del(0, record->length - count);
}

AnsiString AnsiString::Mid(unsigned int start, unsigned int count) const
{
    AnsiString part(*this);
    part.Del(0, start);
    part.Left(count);
    return part;
}

void AnsiString::SetLength(unsigned int count)
{
    if (!TextOps::Fits<char>(count))
        return;
    MakeBufferUnique(TextOps::NewSize(count), true);
    if (count < record->length)
        record->length = count;
    Text()[count] = 0;
}

void AnsiString::Strip(const char * set)
{
    if (record->capacity == 0 || set == nullptr)
        return;
    MakeBufferUnique(record->capacity, true);
    TextOps::Strip(Text(), record->length, set);
}

AnsiString AnsiString::Token(const char * delimiters)
{
    unsigned int start = 0;
    unsigned int length = TextOps::FindToken(Text(), record->length, delimiters, start);
    if (length == 0)
        return AnsiString();
    AnsiString token(Text() + start, length);
    Del(0, start + length);
    return token;
}

void AnsiString::ToLower()
{
    if (record->length == 0)
        return;
    MakeBufferUnique(record->capacity, true);
    CRuntime::Strlwr(Text());
}

void AnsiString::ToUpper()
{
    if (record->length == 0)
        return;
    MakeBufferUnique(record->capacity, true);
    CRuntime::Strupr(Text());
}

bool AnsiString::Write(BinWriter & writer) const
{
    return StringSerial::WriteCounted(writer, record->length, Text(), record->length);
}

bool AnsiString::Read(BinReader & reader)
{
    uint32_t word = 0;
    StringSerial::ByteScratch bytes;
    bool wide = false;
    bool ok = StringSerial::ReadWord(reader, word);
    if (ok)
    {
        wide = (word & StringSerial::WideFlag) != 0;
        word &= ~StringSerial::WideFlag;
        ok = StringSerial::ReadBytes(reader, word, bytes);
    }
    if (!ok)
    {
        *this = AnsiString();
        return false;
    }
    if (!wide)
    {
        Replace(reinterpret_cast<const char *>(bytes.Data()), word);
        return true;
    }
    UnicodeString text = UnicodeString::FromUtf16(bytes.Data(), word / 2);
    return SetUnicode(text, static_cast<int>(text.Length()));
}

String::String(const String & other, unsigned int start, int count)
{
    if (start >= other.Length())
        return;
    unsigned int rest = other.Length() - start;
    unsigned int take =
        count < 0 || static_cast<unsigned int>(count) > rest ? rest : static_cast<unsigned int>(count);
    Setn(static_cast<const char *>(other) + start, take);
}
} // namespace Kiv
