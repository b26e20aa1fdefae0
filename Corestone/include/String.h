// Kiv::AnsiString and Kiv::String: 8-bit text in a shared, reference-counted record that is
// copied on write. A copy is one interlocked increment. The null string (no text) is distinct
// from the empty string "": it converts to a null pointer and sorts before "".
#pragma once

#include "KivApi.h"

#include <cstdarg>

namespace Kiv
{
class BinReader;
class BinWriter;
class PString;
class UnicodeString;

class KIV_API AnsiString
{
public:
    AnsiString();
    AnsiString(const char * text);
    AnsiString(const char * text, unsigned int count);
    AnsiString(unsigned int character, unsigned int count);
    AnsiString(const wchar_t * text);
    AnsiString(const wchar_t * text, unsigned int count);
    AnsiString(const UnicodeString & text);
    AnsiString(const PString & text);
    AnsiString(const AnsiString & other);
    AnsiString(AnsiString && other) noexcept;
    ~AnsiString();

    AnsiString & operator=(const AnsiString & other);
    AnsiString & operator=(AnsiString && other) noexcept;
    AnsiString & operator=(const char * text);
    AnsiString & operator=(const wchar_t * text);
    AnsiString & operator=(const UnicodeString & text);
    AnsiString & operator=(const PString & text);

    unsigned int Length() const;
    unsigned int Size() const;
    unsigned int AllocSize() const;
    bool IsBufferNULL() const;
    operator const char *() const;
    // The byte at the index, not checked against the length.
    unsigned int operator[](unsigned int index) const;
    unsigned int operator[](int index) const;
    // A reference into the shared record: writing through it changes every string sharing the
    // text. Copy first when a private buffer is needed. A null string has no text to share: a
    // write into it is lost.
    char & operator[](unsigned int index);
    char & operator[](int index);

    int GetInt(int base = 10) const;
    unsigned int GetUInt(int base = 10) const;
    float GetFloat() const;
    double GetDouble() const;
    // Copies with a NUL; returns the characters copied, or -1 for a zero-size buffer.
    int GetANSI(char * buffer, unsigned int size) const;
    // Converts through the current locale; returns the characters, or -1 (empty buffer).
    int GetUnicode(wchar_t * buffer, unsigned int sizeInBytes) const;

    // Case-sensitive byte order, null before "".
    bool operator==(const char * text) const;
    bool operator!=(const char * text) const;
    bool operator<(const char * text) const;
    bool operator>(const char * text) const;
    bool operator<=(const char * text) const;
    bool operator>=(const char * text) const;
    bool operator==(const AnsiString & other) const;
    bool operator!=(const AnsiString & other) const;
    bool operator<(const AnsiString & other) const;
    bool operator>(const AnsiString & other) const;
    bool operator<=(const AnsiString & other) const;
    bool operator>=(const AnsiString & other) const;
    bool EqualsIgnoreCase(const char * text) const;
    // -1, 0 or 1 for two texts; with a null side: 1 for two nulls, 0 when only this is null and
    // 2 when only the other is.
    int Compare(const char * other) const;
    int CompareIgnoreCase(const char * other) const;

    int Find(unsigned int character, unsigned int start = 0) const;
    int Find(const char * text, unsigned int start = 0) const;
    int FindIgnoreCase(unsigned int character, unsigned int start = 0) const;
    int FindIgnoreCase(const char * text, unsigned int start = 0) const;
    static int FindIgnoreCase(const char * text, unsigned int character, unsigned int start);
    static int FindIgnoreCase(const char * text, unsigned int textLength, const char * needle,
                              unsigned int start);

    // Formatted text; an empty result makes the string null.
    void Set(const char * format, va_list args);
    void Setf(const char * format, ...);
    // Appends formatted text; returns the characters formatted.
    int Add(const char * format, va_list args);
    int Addf(const char * format, ...);
    void Setn(const char * text, unsigned int count);
    bool SetANSI(const char * text, int count = -1);
    void Set(int value, unsigned int radix);
    bool SetUnicode(const wchar_t * text, int count = -1);
    void Ins(const char * text, unsigned int pos);
    void Ins(unsigned int character, unsigned int pos, unsigned int count);
    void Ins(const wchar_t * text, unsigned int pos);
    AnsiString & operator+=(const char * text);
    AnsiString & operator+=(const AnsiString & text);
    AnsiString & operator+=(const wchar_t * text);
    AnsiString & operator+=(const PString & text);
    void Del(unsigned int pos, unsigned int count);
    void Left(unsigned int count);
    void Right(unsigned int count);
    AnsiString Mid(unsigned int start, unsigned int count) const;
    // Lowers the length to count, or only reserves room when count is longer.
    void SetLength(unsigned int count);
    // Removes every character of the set, wherever it stands.
    void Strip(const char * set);
    // Cuts the next run of non-delimiters off the front; the delimiter behind it stays.
    AnsiString Token(const char * delimiters);
    void ToLower();
    void ToUpper();

    bool Write(BinWriter & writer) const;
    // A malformed or short record leaves the string null and returns false.
    bool Read(BinReader & reader);

    struct Record;

private:
    enum CompareResult
    {
        Less,
        Equal,
        Greater
    };
    CompareResult CompareWithMatchCase(const char * text) const;
    CompareResult CompareWith(const char * text) const;
    int NullCompare(const char * other) const;
    bool Writable(unsigned int size) const;
    void MakeBufferUnique(unsigned int size, bool keep);
    void ReplaceRecord(unsigned int size, bool keep);
    void Replace(const char * text, unsigned int count);
    void Insert(const char * text, unsigned int count, unsigned int pos);
    void Release();
    char * Text() const;

    Record * record;
};

bool KIV_API operator==(const char * text, const AnsiString & string);
bool KIV_API operator!=(const char * text, const AnsiString & string);

class KIV_API String : public AnsiString
{
public:
    String() = default;
    String(const char * text) : AnsiString(text) {}
    String(const char * text, unsigned int count) : AnsiString(text, count) {}
    String(unsigned int character, unsigned int count) : AnsiString(character, count) {}
    String(const wchar_t * text) : AnsiString(text) {}
    String(const wchar_t * text, unsigned int count) : AnsiString(text, count) {}
    String(const UnicodeString & text) : AnsiString(text) {}
    String(const PString & text) : AnsiString(text) {}
    String(const AnsiString & other) : AnsiString(other) {}
    // The text from start; count < 0 or past the end takes the rest; null when start is past it.
    String(const String & other, unsigned int start, int count);

    using AnsiString::operator=;
};
} // namespace Kiv
