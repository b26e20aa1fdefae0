#include "CRuntime.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>

namespace Kiv::CRuntime
{
namespace
{
int LowerByte(const char * text)
{
    return std::tolower(static_cast<unsigned char>(*text));
}

template <class Char>
Char * WriteRadix(int value, Char * buffer, int radix)
{
    if (radix < 2 || radix > 36)
    {
        buffer[0] = 0;
        return buffer;
    }
    bool negative = radix == 10 && value < 0;
    unsigned int rest = negative ? 0u - static_cast<unsigned int>(value) : static_cast<unsigned int>(value);
    Char digits[34];
    int count = 0;
    do
    {
        digits[count++] = static_cast<Char>("0123456789abcdefghijklmnopqrstuvwxyz"[rest % radix]);
        rest /= radix;
    } while (rest != 0);
    Char * out = buffer;
    if (negative)
        *out++ = '-';
    while (count > 0)
        *out++ = digits[--count];
    *out = 0;
    return buffer;
}

// The buffer has room for count characters and a NUL, so a text of exactly count characters
// fits; C's snprintf reports a longer text by its full length, swprintf by -1.
int FitCount(int written, size_t count)
{
    if (written < 0)
        return errno == EILSEQ ? FormatImpossible : -1;
    return static_cast<size_t>(written) <= count ? written : -1;
}
} // namespace

int Stricmp(const char * a, const char * b)
{
    return Strnicmp(a, b, static_cast<size_t>(-1));
}

int Strnicmp(const char * a, const char * b, size_t count)
{
    for (; count > 0; --count, ++a, ++b)
    {
        int difference = LowerByte(a) - LowerByte(b);
        if (difference != 0 || *a == 0)
            return difference;
    }
    return 0;
}

int Wcsicmp(const wchar_t * a, const wchar_t * b)
{
    for (;; ++a, ++b)
    {
        auto lowerA = static_cast<uint32_t>(std::towlower(static_cast<wint_t>(*a)));
        auto lowerB = static_cast<uint32_t>(std::towlower(static_cast<wint_t>(*b)));
        if (lowerA != lowerB)
            return lowerA < lowerB ? -1 : 1;
        if (*a == 0)
            return 0;
    }
}

char * Itoa(int value, char * buffer, int radix)
{
    return WriteRadix(value, buffer, radix);
}

wchar_t * Witoa(int value, wchar_t * buffer, int radix)
{
    return WriteRadix(value, buffer, radix);
}

char * Strlwr(char * text)
{
    for (char * p = text; *p != 0; ++p)
        *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
    return text;
}

char * Strupr(char * text)
{
    for (char * p = text; *p != 0; ++p)
        *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
    return text;
}

wchar_t * Wcslwr(wchar_t * text)
{
    for (wchar_t * p = text; *p != 0; ++p)
        *p = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(*p)));
    return text;
}

wchar_t * Wcsupr(wchar_t * text)
{
    for (wchar_t * p = text; *p != 0; ++p)
        *p = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(*p)));
    return text;
}

size_t Mbslen(const unsigned char * text)
{
    std::mbstate_t state{};
    size_t characters = 0;
    const char * p = reinterpret_cast<const char *>(text);
    while (*p != 0)
    {
        size_t step = std::mbrlen(p, MB_LEN_MAX, &state);
        if (step == static_cast<size_t>(-1) || step == static_cast<size_t>(-2))
        {
            step = 1;
            state = std::mbstate_t{};
        }
        p += step;
        ++characters;
    }
    return characters;
}

int Vsnprintf(char * buffer, size_t count, const char * format, va_list args)
{
    errno = 0;
    return FitCount(std::vsnprintf(buffer, count + 1, format, args), count);
}

int Vsnwprintf(wchar_t * buffer, size_t count, const wchar_t * format, va_list args)
{
    errno = 0;
    return FitCount(std::vswprintf(buffer, count + 1, format, args), count);
}

long MultiByteToWide(const char * text, size_t maxChars, wchar_t * out)
{
    std::mbstate_t state{};
    long produced = 0;
    for (; static_cast<size_t>(produced) < maxChars; ++produced)
    {
        wchar_t character = 0;
        size_t step = std::mbrtowc(&character, text, MB_LEN_MAX, &state);
        if (step == static_cast<size_t>(-1) || step == static_cast<size_t>(-2))
            return -1;
        if (step == 0)
            break;
        if (out != nullptr)
            out[produced] = character;
        text += step;
    }
    return produced;
}

long WideToMultiByte(const wchar_t * text, size_t length, char * out, size_t room)
{
    std::mbstate_t state{};
    size_t produced = 0;
    for (size_t i = 0; i < length && text[i] != 0 && produced < room; ++i)
    {
        char bytes[MB_LEN_MAX];
        bool direct = room - produced >= MB_LEN_MAX;
        size_t step = std::wcrtomb(direct ? out + produced : bytes, text[i], &state);
        if (step == static_cast<size_t>(-1))
            return -1;
        if (step > room - produced)
            break;
        if (!direct)
            std::memcpy(out + produced, bytes, step);
        produced += step;
    }
    return static_cast<long>(produced);
}

size_t Utf16Units(const wchar_t * text, size_t length)
{
    size_t units = length;
    for (size_t i = 0; i < length; ++i)
    {
        // Only a 32-bit wchar_t holds characters that need a surrogate pair.
        uint32_t code = static_cast<uint32_t>(text[i]);
        units += code > 0xFFFF && code <= 0x10FFFF;
    }
    return units;
}

void EncodeUtf16(const wchar_t * text, size_t length, unsigned char * out)
{
    auto put = [&out](uint32_t unit)
    {
        out[0] = static_cast<unsigned char>(unit);
        out[1] = static_cast<unsigned char>(unit >> 8);
        out += 2;
    };
    for (size_t i = 0; i < length; ++i)
    {
        auto code = static_cast<uint32_t>(text[i]);
        if (code > 0x10FFFF)
            code = 0xFFFD;
        if (code > 0xFFFF)
        {
            put(0xD800 + ((code - 0x10000) >> 10));
            put(0xDC00 + (code & 0x3FF));
        }
        else
            put(code);
    }
}

size_t DecodeUtf16(const unsigned char * bytes, size_t units, wchar_t * out)
{
    size_t written = 0;
    for (size_t i = 0; i < units; ++i)
    {
        uint32_t unit = bytes[2 * i] | (bytes[2 * i + 1] << 8);
        bool pairs = sizeof(wchar_t) > 2 && unit >= 0xD800 && unit < 0xDC00 && i + 1 < units;
        uint32_t low = pairs ? bytes[2 * i + 2] | (bytes[2 * i + 3] << 8) : 0;
        if (low >= 0xDC00 && low < 0xE000)
        {
            unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
            ++i;
        }
        out[written++] = static_cast<wchar_t>(unit);
    }
    return written;
}
} // namespace Kiv::CRuntime
