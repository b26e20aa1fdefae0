// The flex scanner measured against the library's re2c scanner: the same tokens, values and
// decoding.
#pragma once

#include "ConfigGrammerNew.h"
#include "ConfigGrammerNew.tab.hpp"

#include <cstring>
#include <deque>
#include <string>
#include <vector>

class FlexScanner
{
public:
    FlexScanner(const char * source, uint32_t size);
    ~FlexScanner();
    int Lex(Kiv::ConfigValue & value);

    int Token(const char * text, size_t length, int code)
    {
        current->text = Kiv::ConfigText{text, static_cast<uint32_t>(length)};
        return code;
    }
    int Quoted(const char * text, size_t length)
    {
        for (size_t i = 0; i < length; ++i)
            line += text[i] == '\n';
        if (std::memchr(text, '\\', length) == nullptr)
            return Token(text + 1, length - 2, CFG_STRING);
        strings.emplace_back();
        std::string & out = strings.back();
        for (size_t i = 1; i + 1 < length; ++i)
        {
            char character = text[i];
            if (character == '\\')
            {
                static const char escapes[] = "t\tr\rn\nb\b\"\"\\\\``";
                const char * escape = std::strchr(escapes, text[i + 1]);
                if (escape != nullptr && (escape - escapes) % 2 == 0)
                {
                    character = escape[1];
                    ++i;
                }
            }
            out += character;
        }
        return Token(out.data(), out.size(), CFG_STRING);
    }
    void AddHex(const char * digits)
    {
        auto value = [](char digit) { return digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10; };
        hex.push_back(static_cast<unsigned char>(value(digits[0]) << 4 | value(digits[1])));
    }
    int HexString() { return Token(reinterpret_cast<const char *>(hex.data()), hex.size(), CFG_HEXSTRING); }

    int line = 1;
    std::vector<unsigned char> hex;

private:
    void * scanner = nullptr;
    Kiv::ConfigValue * current = nullptr;
    std::deque<std::string> strings;
};
