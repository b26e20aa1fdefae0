// Option sets against a plain std::unordered_map of lower-cased names: merging a string of 1,000
// options (the peer tokenises "-name=value" words naively) and one lookup among 1,000 options
// (the peer lowers the query and finds it; the option set answers a shared string).
#include "Options.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string>
#include <unordered_map>

namespace
{
const std::string & ThousandOptions()
{
    static const std::string text = []
    {
        std::string built;
        for (int i = 0; i < 1000; ++i)
            built += " -Option" + std::to_string(i) + "=value" + std::to_string(i * 7);
        return built;
    }();
    return text;
}

std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

using Map = std::unordered_map<std::string, std::string>;

Map NaiveParse(const std::string & text)
{
    Map options;
    std::istringstream words(text);
    for (std::string word; words >> word;)
    {
        const size_t equals = word.find('=');
        options[Lower(word.substr(1, equals - 1))] =
            equals != std::string::npos ? word.substr(equals + 1) : "";
    }
    return options;
}

void KivParse(benchmark::State & state)
{
    for (auto _ : state)
    {
        Kiv::Options options;
        options.ProcessRaw(ThousandOptions().c_str());
        benchmark::DoNotOptimize(options.GetCount());
    }
}

void MapParse(benchmark::State & state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(NaiveParse(ThousandOptions()).size());
}

void KivGet(benchmark::State & state)
{
    Kiv::Options options;
    options.ProcessRaw(ThousandOptions().c_str());
    Kiv::String value;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(options.Get("OPTION500", value));
        benchmark::DoNotOptimize(value.Length());
    }
}

void MapGet(benchmark::State & state)
{
    const Map options = NaiveParse(ThousandOptions());
    for (auto _ : state)
    {
        const auto found = options.find(Lower("OPTION500"));
        benchmark::DoNotOptimize(found != options.end() ? found->second.size() : 0);
    }
}

const bool registered = []
{
    benchmark::RegisterBenchmark("Options/parse-1000:Kiv", KivParse);
    benchmark::RegisterBenchmark("Options/parse-1000:unordered_map", MapParse);
    benchmark::RegisterBenchmark("Options/get-among-1000:Kiv", KivGet);
    benchmark::RegisterBenchmark("Options/get-among-1000:unordered_map", MapGet);
    return true;
}();
} // namespace
