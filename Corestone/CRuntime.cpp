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

namespace Kiv::CRuntime
{
namespace
{
// The exact decimal digits of a finite double's magnitude: value = 0.D1D2... x 10^point. A double
// is m x 2^e with m below 2^53; the product m x 2^e (or m x 5^-e, shifted -e places) is built in
// limbs of nine decimal digits, which 767 digits of the smallest subnormal fit.
class ExactDecimal
{
public:
    explicit ExactDecimal(double value)
    {
        uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        int field = static_cast<int>(bits >> 52 & 0x7FF);
        uint64_t mantissa = bits & ((uint64_t(1) << 52) - 1);
        int exponent = field == 0 ? -1074 : field - 1075;
        if (field != 0)
            mantissa |= uint64_t(1) << 52;
        limbs[0] = static_cast<uint32_t>(mantissa % limbBase);
        limbs[1] = static_cast<uint32_t>(mantissa / limbBase % limbBase);
        limbs[2] = static_cast<uint32_t>(mantissa / limbBase / limbBase);
        used = 3;
        for (int left = exponent; left > 0; left -= 29)
            Multiply(uint32_t(1) << (left < 29 ? left : 29));
        for (int left = -exponent; left > 0; left -= 13)
            Multiply(PowerOfFive(left < 13 ? left : 13));
        Spell(exponent < 0 ? exponent : 0);
    }

    // The digit at a position, '0' past either end.
    char At(int index) const { return index >= 0 && index < count ? digits[index] : '0'; }
    int Point() const { return point; }
    bool IsZero() const { return count == 0; }

    // Keeps kept significant digits, rounding half up; a carry out of the first digit moves the
    // point.
    void Round(int kept)
    {
        if (kept < 0 || kept >= count)
            return;
        bool up = digits[kept] >= '5';
        count = kept;
        for (int i = kept - 1; up && i >= 0; --i)
        {
            up = digits[i] == '9';
            digits[i] = up ? '0' : static_cast<char>(digits[i] + 1);
        }
        if (up)
        {
            digits[0] = '1';
            count = count > 0 ? count : 1;
            ++point;
        }
    }

private:
    static constexpr uint32_t limbBase = 1000000000;
    static constexpr int maxLimbs = 90;

    static uint32_t PowerOfFive(int power)
    {
        uint32_t result = 1;
        while (power-- > 0)
            result *= 5;
        return result;
    }
    void Multiply(uint32_t factor)
    {
        uint64_t carry = 0;
        for (int i = 0; i < used; ++i)
        {
            uint64_t product = uint64_t(limbs[i]) * factor + carry;
            limbs[i] = static_cast<uint32_t>(product % limbBase);
            carry = product / limbBase;
        }
        for (; carry != 0 && used < maxLimbs; carry /= limbBase)
            limbs[used++] = static_cast<uint32_t>(carry % limbBase);
    }
    // Writes the limbs out as digits without leading or trailing zeros.
    void Spell(int shift)
    {
        while (used > 0 && limbs[used - 1] == 0)
            --used;
        count = 0;
        for (int i = used - 1; i >= 0; --i)
        {
            char nine[10];
            std::snprintf(nine, sizeof nine, i == used - 1 ? "%u" : "%09u", static_cast<unsigned>(limbs[i]));
            for (const char * c = nine; *c != 0; ++c)
                digits[count++] = *c;
        }
        point = count + shift;
        while (count > 0 && digits[count - 1] == '0')
            --count;
    }

    uint32_t limbs[maxLimbs] = {};
    int used = 0;
    char digits[maxLimbs * 9 + 1] = {};
    int count = 0;
    int point = 0;
};

char * PutNonFinite(char * out, uint64_t bits)
{
    uint64_t payload = bits & ((uint64_t(1) << 52) - 1);
    const char * name = payload == 0 ? "1.#INF" : payload == uint64_t(1) << 51 ? "1.#IND" : "1.#QNAN";
    for (; *name != 0; ++name)
        *out++ = *name;
    return out;
}

char * PutExponentForm(char * out, const ExactDecimal & exact, int digits)
{
    *out++ = exact.At(0);
    if (digits > 1)
        *out++ = '.';
    for (int i = 1; i < digits; ++i)
        *out++ = exact.At(i);
    int exponent = exact.IsZero() ? 0 : exact.Point() - 1;
    *out++ = 'e';
    *out++ = exponent < 0 ? '-' : '+';
    unsigned magnitude = static_cast<unsigned>(exponent < 0 ? -exponent : exponent);
    out[0] = static_cast<char>('0' + magnitude / 100);
    out[1] = static_cast<char>('0' + magnitude / 10 % 10);
    out[2] = static_cast<char>('0' + magnitude % 10);
    return out + 3;
}

char * PutFixedForm(char * out, const ExactDecimal & exact, int decimals)
{
    int point = exact.Point();
    if (point <= 0)
        *out++ = '0';
    for (int i = 0; i < point; ++i)
        *out++ = exact.At(i);
    if (decimals > 0)
        *out++ = '.';
    for (int i = 0; i < decimals; ++i)
        *out++ = exact.At(point + i);
    return out;
}

// Drops the zeros that end the digits after the point, before any exponent; the point stays.
void DropTrailingZeros(char * text)
{
    char * point = std::strchr(text, '.');
    if (point == nullptr)
        return;
    char * exponent = std::strchr(point, 'e');
    char * end = exponent != nullptr ? exponent : point + std::strlen(point);
    char * last = end;
    while (last[-1] == '0')
        --last;
    std::memmove(last, end, std::strlen(end) + 1);
}
} // namespace

char * Gcvt(double value, int digits, char * buffer)
{
    digits = digits < 1 ? 1 : digits > 40 ? 40 : digits;
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    char * out = buffer;
    if (bits >> 63 != 0)
        *out++ = '-';
    if ((bits >> 52 & 0x7FF) == 0x7FF)
        *PutNonFinite(out, bits) = 0;
    else
    {
        ExactDecimal exact(value);
        int magnitude = exact.IsZero() ? -1 : exact.Point() - 1;
        exact.Round(digits);
        bool exponentForm = magnitude < -1 || magnitude > digits - 1;
        char * end = exponentForm ? PutExponentForm(out, exact, digits)
                                  : PutFixedForm(out, exact, digits - (magnitude + 1));
        *end = 0;
        DropTrailingZeros(out);
    }
    return buffer;
}
} // namespace Kiv::CRuntime

namespace Kiv::CRuntime
{
double Atof(const char * text)
{
    const char * p = text;
    while (std::isspace(static_cast<unsigned char>(*p)))
        ++p;
    bool negative = *p == '-';
    p += *p == '+' || negative;
    const char * digits = p;
    while (std::isdigit(static_cast<unsigned char>(*p)))
        ++p;
    bool integral = p - digits == 1 && *digits == '0';
    if (*p == '.')
        ++p;
    while (std::isdigit(static_cast<unsigned char>(*p)))
        ++p;
    // No digits at all, or the "0x" a host would read as hexadecimal: the runtime reads 0 there.
    if (p == digits || (p == digits + 1 && *digits == '.'))
        return 0.0;
    if (integral && p == digits + 1 && (*p == 'x' || *p == 'X'))
        return negative ? -0.0 : 0.0;
    return std::strtod(text, nullptr);
}
} // namespace Kiv::CRuntime
