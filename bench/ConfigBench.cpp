// Configuration parsing, writing and binary loading against the peers a user would pick instead:
// libconfig++ on the same content in its own syntax, yaml-cpp and toml++ on equivalent YAML and
// TOML, and RapidJSON's DOM on equivalent JSON as the ceiling of what a text parser does.
// The content comes from bench/ConfigCorpus.cpp: one 20 MB text with blocks nested six deep,
// arrays, quoted strings with escapes and floats, and 10,000 small texts of 1-4 KB each. Every
// parser reads from a buffer in memory, so the file system does not dominate the small texts;
// the binary form is loaded from a file, against the text parsed from a file beside it.
// Throughput counts the bytes of each parser's own text; the ratios compare times on the same
// content.
#include "ConfigCorpus.h"
#include "ConfigData.h"
#include "ConfigParser.h"

#include <benchmark/benchmark.h>
#include <libconfig.h++>
#include <rapidjson/document.h>
#include <rapidjson/filewritestream.h>
#include <rapidjson/prettywriter.h>
#include <toml++/toml.h>
#include <yaml-cpp/yaml.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

using ConfigCorpus::Syntax;

namespace
{
namespace fs = std::filesystem;

const size_t largeBytes = 20u << 20;
const int largeDepth = 6;
const int smallCount = 10000;
const size_t smallBytes = 1500;
const int smallDepth = 3;
const int syntaxCount = 5;

// Every text, made once; the scratch folder is removed at exit.
struct Fixture
{
    std::string large[syntaxCount];
    std::vector<std::string> small[syntaxCount];
    size_t smallTotal[syntaxCount] = {};
    std::string folder;

    Fixture()
    {
        const ConfigCorpus::Node root = ConfigCorpus::Generate(1, largeBytes, largeDepth);
        for (int s = 0; s < syntaxCount; ++s)
            large[s] = ConfigCorpus::Write(root, Syntax(s));
        for (int i = 0; i < smallCount; ++i)
        {
            const ConfigCorpus::Node one = ConfigCorpus::Generate(100 + i, smallBytes, smallDepth);
            for (int s = 0; s < syntaxCount; ++s)
            {
                small[s].push_back(ConfigCorpus::Write(one, Syntax(s)));
                smallTotal[s] += small[s].back().size();
            }
        }
        folder = (fs::temp_directory_path() / ("corestone-configbench-" + std::to_string(getpid()))).string();
        fs::create_directories(folder);
    }
    ~Fixture() { fs::remove_all(folder); }

    std::string Path(const char * name) const { return folder + "/" + name; }
};

Fixture & Texts()
{
    static Fixture fixture;
    return fixture;
}

[[noreturn]] void Fail(const char * what)
{
    fprintf(stderr, "ConfigBench: %s\n", what);
    abort();
}

// One parse of a text held in memory, its tree built and dropped.
void ParseKiv(const std::string & text)
{
    Kiv::ConfigParser parser;
    if (!parser.Parse("bench", const_cast<char *>(text.data()), static_cast<unsigned int>(text.size()))
             .Succeeded())
        Fail("Kiv parse failed");
    benchmark::DoNotOptimize(std::as_const(parser).GetConfig());
}

void ParseLibconfig(const std::string & text)
{
    libconfig::Config config;
    config.readString(text.c_str());
    benchmark::DoNotOptimize(&config.getRoot());
}

void ParseYaml(const std::string & text)
{
    YAML::Node node = YAML::Load(text);
    benchmark::DoNotOptimize(node.size());
}

void ParseToml(const std::string & text)
{
    toml::table table = toml::parse(text);
    benchmark::DoNotOptimize(table.size());
}

void ParseRapidJson(const std::string & text)
{
    rapidjson::Document document;
    if (document.Parse(text.data(), text.size()).HasParseError())
        Fail("RapidJSON parse failed");
    benchmark::DoNotOptimize(document.MemberCount());
}

template <void (*parse)(const std::string &), Syntax syntax>
void ParseLarge(benchmark::State & state)
{
    const std::string & text = Texts().large[int(syntax)];
    for (auto _ : state)
        parse(text);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

template <void (*parse)(const std::string &), Syntax syntax>
void ParseSmall(benchmark::State & state)
{
    const std::vector<std::string> & texts = Texts().small[int(syntax)];
    for (auto _ : state)
        for (const std::string & text : texts)
            parse(text);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * smallCount);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Texts().smallTotal[int(syntax)]));
}

// Trees parsed once, written again every iteration to a file of the scratch folder.
void WriteKiv(benchmark::State & state)
{
    const std::string & text = Texts().large[int(Syntax::KIV)];
    Kiv::ConfigParser parser;
    if (!parser.Parse("bench", const_cast<char *>(text.data()), static_cast<unsigned int>(text.size()))
             .Succeeded())
        Fail("Kiv parse failed");
    const std::string out = Texts().Path("write.cfg");
    for (auto _ : state)
        if (!parser.Save(out.c_str(), false, 0).Succeeded())
            Fail("Kiv save failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fs::file_size(out)));
}

void WriteLibconfig(benchmark::State & state)
{
    libconfig::Config config;
    config.readString(Texts().large[int(Syntax::LIBCONFIG)].c_str());
    const std::string out = Texts().Path("write.libconfig");
    for (auto _ : state)
        config.writeFile(out.c_str());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fs::file_size(out)));
}

// Indented as the others' output is.
void WriteRapidJson(benchmark::State & state)
{
    rapidjson::Document document;
    document.Parse(Texts().large[int(Syntax::JSON)].c_str());
    const std::string out = Texts().Path("write.json");
    std::vector<char> buffer(65536);
    for (auto _ : state)
    {
        FILE * file = fopen(out.c_str(), "wb");
        if (file == nullptr)
            Fail("cannot write the JSON file");
        rapidjson::FileWriteStream stream(file, buffer.data(), buffer.size());
        rapidjson::PrettyWriter<rapidjson::FileWriteStream> writer(stream);
        writer.SetIndent(' ', 2);
        document.Accept(writer);
        stream.Flush();
        fclose(file);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fs::file_size(out)));
}

// The binary form against the text, both read through Kiv::File from files of the scratch folder.
struct Stored
{
    std::string text, binary;

    Stored() : text(Texts().Path("load.cfg")), binary(Texts().Path("load.cfgbin"))
    {
        const std::string & source = Texts().large[int(Syntax::KIV)];
        FILE * file = fopen(text.c_str(), "wb");
        if (file == nullptr || fwrite(source.data(), 1, source.size(), file) != source.size() ||
            fclose(file) != 0)
            Fail("cannot write the text file");
        Kiv::ConfigParser parser;
        if (!parser.Parse(text.c_str()).Succeeded() ||
            !std::as_const(parser).GetConfig()->WriteBin(binary.c_str(), false, 0))
            Fail("cannot write the binary file");
    }
};

Stored & Files()
{
    static Stored stored;
    return stored;
}

void LoadBinary(benchmark::State & state)
{
    for (auto _ : state)
    {
        Kiv::ConfigData root;
        if (!root.ReadBin(Files().binary.c_str()))
            Fail("binary load failed");
        benchmark::DoNotOptimize(root.GetChildCount());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fs::file_size(Files().binary)));
}

void LoadText(benchmark::State & state)
{
    for (auto _ : state)
    {
        Kiv::ConfigParser parser;
        if (!parser.Parse(Files().text.c_str()).Succeeded())
            Fail("text load failed");
        benchmark::DoNotOptimize(std::as_const(parser).GetConfig());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fs::file_size(Files().text)));
}
} // namespace

BENCHMARK(ParseLarge<ParseKiv, Syntax::KIV>)->Name("ConfigParse/20MB:Kiv")->Unit(benchmark::kMillisecond);
BENCHMARK(ParseLarge<ParseLibconfig, Syntax::LIBCONFIG>)
    ->Name("ConfigParse/20MB:libconfig")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ParseLarge<ParseYaml, Syntax::YAML>)
    ->Name("ConfigParse/20MB:yaml-cpp")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ParseLarge<ParseToml, Syntax::TOML>)
    ->Name("ConfigParse/20MB:toml++")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ParseLarge<ParseRapidJson, Syntax::JSON>)
    ->Name("ConfigParse/20MB:RapidJSON")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ParseSmall<ParseKiv, Syntax::KIV>)
    ->Name("ConfigParse/10k-small:Kiv")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ParseSmall<ParseLibconfig, Syntax::LIBCONFIG>)
    ->Name("ConfigParse/10k-small:libconfig")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ParseSmall<ParseYaml, Syntax::YAML>)
    ->Name("ConfigParse/10k-small:yaml-cpp")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ParseSmall<ParseToml, Syntax::TOML>)
    ->Name("ConfigParse/10k-small:toml++")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ParseSmall<ParseRapidJson, Syntax::JSON>)
    ->Name("ConfigParse/10k-small:RapidJSON")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(WriteKiv)->Name("ConfigWrite/20MB:Kiv")->Unit(benchmark::kMillisecond);
BENCHMARK(WriteLibconfig)->Name("ConfigWrite/20MB:libconfig")->Unit(benchmark::kMillisecond);
BENCHMARK(WriteRapidJson)->Name("ConfigWrite/20MB:RapidJSON")->Unit(benchmark::kMillisecond);
BENCHMARK(LoadBinary)->Name("ConfigLoad/20MB:Kiv")->Unit(benchmark::kMillisecond);
BENCHMARK(LoadText)->Name("ConfigLoad/20MB:Kiv-text")->Unit(benchmark::kMillisecond);
