// Portable stand-ins for the Windows runtime helpers the string classes are written against.
// Each gives the result the Windows runtime gives, on every target, so text behaves the same
// whether the library runs on Windows or elsewhere.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace Kiv::CRuntime
{
// Case-insensitive comparisons of bytes lowered by the current locale, as _stricmp/_strnicmp.
int Stricmp(const char * a, const char * b);
int Strnicmp(const char * a, const char * b, size_t count);
int Wcsicmp(const wchar_t * a, const wchar_t * b);
// Radix 2 to 36, lower-case digits; only radix 10 writes a sign, others show the two's complement.
char * Itoa(int value, char * buffer, int radix);
wchar_t * Witoa(int value, wchar_t * buffer, int radix);
char * Strlwr(char * text);
char * Strupr(char * text);
wchar_t * Wcslwr(wchar_t * text);
wchar_t * Wcsupr(wchar_t * text);
// Characters of the current multibyte set; an invalid byte counts as one character.
size_t Mbslen(const unsigned char * text);

// Formatting of at most count characters into a buffer of count + 1, NUL-terminated: the count
// written, or -1 when the text is longer. A text the runtime cannot produce at all (an
// unconvertible character) gives FormatImpossible, so callers stop growing their buffer.
constexpr int FormatImpossible = -2;
int Vsnprintf(char * buffer, size_t count, const char * format, va_list args);
int Vsnwprintf(wchar_t * buffer, size_t count, const wchar_t * format, va_list args);

// Multibyte/wide conversion of at most maxChars characters (stopping at a NUL) through the current
// locale. With a null output only counts. Returns the characters produced, or -1 when a character
// cannot be converted.
long MultiByteToWide(const char * text, size_t maxChars, wchar_t * out);
// Converts at most length wide characters (stopping at a NUL) into at most room bytes, whole
// characters only; returns the bytes, or -1 when a character that would be reached cannot be
// converted. Without a room out needs MB_CUR_MAX bytes per character.
long WideToMultiByte(const wchar_t * text, size_t length, char * out, size_t room = SIZE_MAX);

// UTF-16 little-endian is the stored form of wide text on every target. Utf16Units gives the units
// the text needs; EncodeUtf16 writes them (2 bytes each). DecodeUtf16 turns units back into
// wchar_t and returns the characters written (out needs one per unit).
size_t Utf16Units(const wchar_t * text, size_t length);
void EncodeUtf16(const wchar_t * text, size_t length, unsigned char * out);
size_t DecodeUtf16(const unsigned char * bytes, size_t units, wchar_t * out);

// The Windows runtime's atof: only the decimal form is read (leading blanks, a sign, digits with an
// optional point, an optional exponent), so hexadecimal text, "inf" and "nan" give 0 as they do
// there, whatever the host's strtod also accepts.
double Atof(const char * text);

// The Windows runtime's _gcvt: digits significant digits (1 to 40) in the fixed form when the
// value's decimal exponent lies from -1 to digits - 1, else in the exponent form with a sign and at
// least three exponent digits ("1.2345679e+008"); trailing zeros after the point are dropped but
// the point stays ("100."), except that a value with exactly digits integer digits has no point at
// all ("12345678"), as there. The digits are the exact value's, rounded half up, the same on every
// target. Infinities are "1.#INF" and "-1.#INF"; a quiet NaN without payload is "1.#IND" or
// "-1.#IND" and any other NaN "1.#QNAN" or "-1.#QNAN", so that the text names the NaN it came from
// as closely as these forms can. buffer needs digits + 10 bytes; answers buffer.
char * Gcvt(double value, int digits, char * buffer);

inline void PutLittleEndian32(unsigned char * out, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<unsigned char>(value >> (8 * i));
}
inline uint32_t GetLittleEndian32(const unsigned char * in)
{
    return in[0] | (in[1] << 8) | (in[2] << 16) | (static_cast<uint32_t>(in[3]) << 24);
}
} // namespace Kiv::CRuntime
