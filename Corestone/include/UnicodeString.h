// Kiv::UnicodeString (wide text) and Kiv::MultiByteString (text in the current multibyte set):
// plain value types that own their buffers. Conversions go through the current C locale. Stored
// wide text is UTF-16 little-endian whatever the width of wchar_t, so it reads back alike on
// every target.
#pragma once

#include "KivApi.h"

#include <cstdarg>

namespace Kiv
{
class AnsiString;
class BinReader;
class BinWriter;
class PString;

class KIV_API UnicodeString
{
public:
    UnicodeString() = default;
    UnicodeString(const wchar_t * text);
    UnicodeString(const wchar_t * text, unsigned int count);
    UnicodeString(unsigned int character, unsigned int count);
    UnicodeString(const char * text);
    UnicodeString(const char * text, unsigned int count);
    UnicodeString(const AnsiString & text);
    UnicodeString(const PString & text);
    UnicodeString(const UnicodeString & other);
    UnicodeString(UnicodeString && other) noexcept;
    ~UnicodeString();
    UnicodeString & operator=(const UnicodeString & other);
    UnicodeString & operator=(UnicodeString && other) noexcept;
    UnicodeString & operator=(const wchar_t * text);

    // Text stored as count UTF-16 little-endian units.
    static UnicodeString FromUtf16(const unsigned char * units, unsigned int count);

    unsigned int Length() const { return length; }
    unsigned int Size() const { return buffer != nullptr ? length + 1 : 0; }
    unsigned int AllocSize() const { return capacity; }
    bool IsBufferNULL() const { return buffer == nullptr; }
    operator const wchar_t *() const { return buffer; }
    // Not checked against the length. A null string reads as NUL, and a write into it is lost.
    wchar_t operator[](unsigned int index) const;
    wchar_t operator[](int index) const;
    wchar_t & operator[](unsigned int index);
    wchar_t & operator[](int index);

    int GetInt(int base = 10) const;
    unsigned int GetUInt(int base = 10) const;
    float GetFloat() const;
    double GetDouble() const;

    // A null text makes the string null. The length is n, else m, else the text's own.
    void Set(const wchar_t * text, int n = -1, int m = -1);
    void Setn(const wchar_t * text, unsigned int count);
    void Set(int value, unsigned int radix);
    // n < 0 converts the whole text. Always true; an unconvertible text leaves the string as it was.
    bool SetANSI(const char * text, int n = -1);
    // The bytes written, or -1 (with an empty buffer) when a character cannot be converted.
    int GetANSI(char * buffer, unsigned int size) const;
    bool SetUnicode(const wchar_t * text, int n = -1);
    int GetUnicode(wchar_t * buffer, unsigned int count) const;

    // Formatted text; unlike the 8-bit string an empty result leaves an empty string.
    void Set(const wchar_t * format, va_list args);
    void Setf(const wchar_t * format, ...);
    int Add(const wchar_t * format, va_list args);
    int Addf(const wchar_t * format, ...);

    void Ins(const wchar_t * text, unsigned int pos);
    void Ins(unsigned int character, unsigned int pos, unsigned int count);
    UnicodeString & operator+=(const wchar_t * text);
    UnicodeString & operator+=(const UnicodeString & text);
    void Del(unsigned int pos, unsigned int count);
    void Left(unsigned int count);
    void Right(unsigned int count);
    void SetLength(unsigned int count);
    void Strip(const wchar_t * set);
    UnicodeString Token(const wchar_t * delimiters);
    void ToLower();
    void ToUpper();

    int Find(unsigned int character, unsigned int start = 0) const;
    int Find(const wchar_t * text, unsigned int start = 0) const;
    int FindIgnoreCase(unsigned int character, unsigned int start = 0) const;
    int FindIgnoreCase(const wchar_t * text, unsigned int start = 0) const;
    static int FindIgnoreCase(const wchar_t * text, unsigned int character, unsigned int start);
    static int FindIgnoreCase(const wchar_t * text, unsigned int textLength, const wchar_t * needle,
                              unsigned int start);

    // Unit order, null before any other text; the null cases of Compare are those of AnsiString.
    int Compare(const wchar_t * other) const;
    int CompareIgnoreCase(const wchar_t * other) const;
    bool EqualsIgnoreCase(const wchar_t * other) const;
    bool operator==(const wchar_t * other) const { return Order(other) == 0; }
    bool operator!=(const wchar_t * other) const { return Order(other) != 0; }
    bool operator<(const wchar_t * other) const { return Order(other) < 0; }
    bool operator>(const wchar_t * other) const { return Order(other) > 0; }
    bool operator<=(const wchar_t * other) const { return Order(other) <= 0; }
    bool operator>=(const wchar_t * other) const { return Order(other) >= 0; }

    bool Write(BinWriter & writer) const;
    bool Read(BinReader & reader);

private:
    int Order(const wchar_t * other) const;
    // Room for count characters and a NUL, keeping the text when asked; false (nothing changed)
    // when the count is absurd or memory runs out.
    bool Reserve(unsigned int count, bool keep);
    void Replace(const wchar_t * text, unsigned int count);
    void Insert(const wchar_t * text, unsigned int count, unsigned int pos);
    bool ConvertANSI(const char * text, int n);
    void Free();

    wchar_t * buffer = nullptr;
    unsigned int capacity = 0;
    unsigned int length = 0;
};

// Text in the current multibyte set, for example UTF-8. Positions and counts of the edits and
// searches are byte offsets into the text, as the searches return them, so a found position can be
// handed straight to Del, Mid or Ins; Size() is the text's bytes and Length() its characters. An
// edit may split a character; its stray bytes then count as one character each, as malformed
// input does. Character arguments are wide characters, stored as their multibyte sequence.
class KIV_API MultiByteString
{
public:
    MultiByteString() = default;
    MultiByteString(const char * text);
    MultiByteString(const char * text, unsigned int size);
    MultiByteString(unsigned int character, unsigned int count);
    MultiByteString(const wchar_t * text);
    MultiByteString(const wchar_t * text, unsigned int count);
    MultiByteString(const UnicodeString & text);
    MultiByteString(const PString & text);
    MultiByteString(const MultiByteString & other);
    MultiByteString(MultiByteString && other) noexcept;
    ~MultiByteString();
    MultiByteString & operator=(const MultiByteString & other);
    MultiByteString & operator=(MultiByteString && other) noexcept;
    MultiByteString & operator=(const char * text);
    MultiByteString & operator=(const wchar_t * text);
    MultiByteString & operator=(const UnicodeString & text);
    MultiByteString & operator=(const PString & text);

    // The byte size and the character count of a NUL-terminated text.
    static unsigned int GetLengthAndSize(const unsigned char * text, unsigned int & size);

    // A null text frees the buffer. size < 0 takes the text up to its NUL.
    void Set(const unsigned char * text, int size = -1, int unused = -1);
    bool SetUnicode(const wchar_t * text, int n = -1);
    int GetUnicode(wchar_t * buffer, unsigned int count) const;
    // count < 0 takes the text up to its NUL; always true.
    bool SetANSI(const char * text, int count = -1);
    // Copies the bytes with a NUL; the bytes copied, or -1 for a zero-size buffer.
    int GetANSI(char * buffer, unsigned int size) const;

    unsigned int Length() const { return length; }
    unsigned int Size() const { return size; }
    unsigned int AllocSize() const { return capacity; }
    bool IsBufferNULL() const { return buffer == nullptr; }
    const char * CStr() const { return buffer; }
    operator const char *() const { return buffer; }
    // The byte at the index, not checked. A null string reads as NUL, and a write into it is lost.
    // A byte written in place is counted as a character by the next edit.
    unsigned int operator[](unsigned int index) const;
    unsigned int operator[](int index) const;
    char & operator[](unsigned int index);
    char & operator[](int index);

    int GetInt(int base = 10) const;
    unsigned int GetUInt(int base = 10) const;
    float GetFloat() const;
    double GetDouble() const;

    // Formatted text; an empty result makes the string null.
    void Set(const char * format, va_list args);
    void Setf(const char * format, ...);
    // Appends formatted text; returns the bytes formatted.
    int Add(const char * format, va_list args);
    int Addf(const char * format, ...);
    void Setn(const char * text, unsigned int size);
    void Set(int value, unsigned int radix);

    void Ins(const char * text, unsigned int pos);
    void Ins(unsigned int character, unsigned int pos, unsigned int count);
    void Ins(const wchar_t * text, unsigned int pos);
    MultiByteString & operator+=(const char * text);
    MultiByteString & operator+=(const MultiByteString & text);
    MultiByteString & operator+=(const wchar_t * text);
    MultiByteString & operator+=(const PString & text);
    void Del(unsigned int pos, unsigned int count);
    void Left(unsigned int count);
    void Right(unsigned int count);
    MultiByteString Mid(unsigned int start, unsigned int count) const;
    // Lowers the size to count bytes, or only reserves room when count is larger.
    void SetLength(unsigned int count);
    // Removes every character of the set, wherever it stands; whole characters are compared, so
    // a multibyte character in the set never strips a byte out of another character.
    void Strip(const char * set);
    // Cuts the next run of characters outside the set off the front; the delimiter behind it stays.
    MultiByteString Token(const char * delimiters);
    // The runtime's byte-wise case rules: bytes of multibyte characters are left alone.
    void ToLower();
    void ToUpper();

    int Find(unsigned int character, unsigned int start = 0) const;
    int Find(const char * text, unsigned int start = 0) const;
    int FindIgnoreCase(unsigned int character, unsigned int start = 0) const;
    int FindIgnoreCase(const char * text, unsigned int start = 0) const;
    static int FindIgnoreCase(const char * text, unsigned int character, unsigned int start);
    static int FindIgnoreCase(const char * text, unsigned int textSize, const char * needle,
                              unsigned int start);

    // Byte order, null before any other text; the null cases of Compare are those of AnsiString.
    int Compare(const char * other) const;
    int CompareIgnoreCase(const char * other) const;
    bool EqualsIgnoreCase(const char * other) const;
    bool operator==(const char * other) const { return Order(other) == 0; }
    bool operator!=(const char * other) const { return Order(other) != 0; }
    bool operator<(const char * other) const { return Order(other) < 0; }
    bool operator>(const char * other) const { return Order(other) > 0; }
    bool operator<=(const char * other) const { return Order(other) <= 0; }
    bool operator>=(const char * other) const { return Order(other) >= 0; }

    bool Write(BinWriter & writer) const;
    bool Read(BinReader & reader);

private:
    int Order(const char * other) const;
    // Room for bytes and a NUL, keeping the text when asked; false (nothing changed) when the
    // size is absurd or memory runs out.
    bool Reserve(unsigned int bytes, bool keep);
    void Insert(const char * text, unsigned int count, unsigned int pos);
    void Recount();
    void Free();

    char * buffer = nullptr;
    unsigned int capacity = 0;
    unsigned int size = 0;
    unsigned int length = 0;
};
} // namespace Kiv
