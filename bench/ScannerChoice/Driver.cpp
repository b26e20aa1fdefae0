// Times one scanner (the library's re2c scanner, or the flex one with USE_FLEX) over a large
// configuration text and over many small ones: every token is read and its value touched.
#ifdef USE_FLEX
#include "FlexScanner.h"
using Scanner = FlexScanner;
#else
#include "ConfigGrammerNew.h"
using Scanner = Kiv::scfgFlexLexer;
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace
{
std::string Load(const char * name)
{
    std::ifstream in(name, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

unsigned long Scan(const std::string & text)
{
    Scanner scanner(text.data(), static_cast<uint32_t>(text.size()));
    Kiv::ConfigValue value{};
    unsigned long sum = 0;
    for (int code; (code = scanner.Lex(value)) > 0;)
        sum += static_cast<unsigned long>(code) + (code == 272 ? value.text.length : 0);
    return sum;
}

template <class Work>
double BestMs(Work work)
{
    double best = 1e30;
    for (int run = 0; run < 5; ++run)
    {
        const auto start = std::chrono::steady_clock::now();
        work();
        best = std::min(
            best,
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}
} // namespace

int main(int argc, char ** argv)
{
    const std::string big = Load(argv[1]);
    std::vector<std::string> small;
    for (int i = 2; i < argc; ++i)
        small.push_back(Load(argv[i]));
    unsigned long sum = 0;
    const double bigMs = BestMs([&] { sum += Scan(big); });
    const double smallMs = BestMs(
        [&]
        {
            for (const std::string & text : small)
                sum += Scan(text);
        });
    size_t smallBytes = 0;
    for (const std::string & text : small)
        smallBytes += text.size();
    std::printf(
        "large text %.1f MB: %.1f ms (%.0f MB/s); %zu small texts, %.1f MB: %.2f ms (%.0f MB/s) [%lu]\n",
        big.size() / 1e6, bigMs, big.size() / bigMs / 1e3, small.size(), smallBytes / 1e6, smallMs,
        smallBytes / smallMs / 1e3, sum % 1000);
}
