// Sequential reads through Kiv::File against stdio, iostreams and raw read(2); line reading
// against fgets and std::getline; opening through a substitution of three directories, found
// in the one searched last, against a plain open.
#include "File.h"
#include "PString.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

using Kiv::File;

namespace
{
namespace fs = std::filesystem;

const size_t dataBytes = 256u << 20;
const size_t textBytes = 100u << 20;

// The files every benchmark reads, made once and removed at exit.
struct Fixture
{
    std::string folder;
    std::string data;
    std::string text;

    Fixture()
    {
        folder = (fs::temp_directory_path() / ("corestone-filebench-" + std::to_string(getpid()))).string();
        for (const char * sub : {"", "/one", "/two", "/three"})
            fs::create_directories(folder + sub);
        data = folder + "/data.bin";
        text = folder + "/text.txt";
        std::vector<char> block(1 << 20);
        for (size_t i = 0; i < block.size(); ++i)
            block[i] = static_cast<char>(i * 131);
        std::ofstream out(data, std::ios::binary);
        for (size_t done = 0; done < dataBytes; done += block.size())
            out.write(block.data(), static_cast<std::streamsize>(block.size()));
        std::ofstream lines(text, std::ios::binary);
        std::string line;
        for (size_t done = 0, n = 0; done < textBytes; done += line.size(), ++n)
        {
            line = "line " + std::to_string(n) + std::string(n % 97, 'x') + "\r\n";
            lines << line;
        }
        out.close();
        lines.close();
        // Every contender starts from the page cache, not from the first one's disk reads.
        for (const std::string & name : {data, text})
        {
            std::ifstream warm(name, std::ios::binary);
            while (warm.read(block.data(), static_cast<std::streamsize>(block.size())))
            {
            }
        }
        std::ofstream(folder + "/one/target.txt") << "target";
        File::Subst(Kiv::PString("bench"), (folder + "/one/").c_str());
        File::Subst(Kiv::PString("bench"), (folder + "/two/").c_str());
        File::Subst(Kiv::PString("bench"), (folder + "/three/").c_str());
    }
    ~Fixture()
    {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }
};

Fixture & Files()
{
    static Fixture fixture;
    return fixture;
}

void Report(benchmark::State & state, size_t bytes)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void ReadKiv(benchmark::State & state)
{
    const Fixture & files = Files();
    const auto request = static_cast<unsigned long>(state.range(0));
    std::vector<char> buffer(request);
    for (auto _ : state)
    {
        File file;
        file.Open(files.data.c_str(), File::MODE_READ);
        while (file.Read(buffer.data(), request, 1) == request)
            benchmark::DoNotOptimize(buffer.data());
    }
    Report(state, dataBytes);
}

void ReadStdio(benchmark::State & state)
{
    const Fixture & files = Files();
    const auto request = static_cast<size_t>(state.range(0));
    std::vector<char> buffer(request);
    for (auto _ : state)
    {
        FILE * file = fopen(files.data.c_str(), "rb");
        while (fread(buffer.data(), 1, request, file) == request)
            benchmark::DoNotOptimize(buffer.data());
        fclose(file);
    }
    Report(state, dataBytes);
}

void ReadStream(benchmark::State & state)
{
    const Fixture & files = Files();
    const auto request = static_cast<std::streamsize>(state.range(0));
    std::vector<char> buffer(static_cast<size_t>(request));
    for (auto _ : state)
    {
        std::ifstream file(files.data, std::ios::binary);
        while (file.read(buffer.data(), request))
            benchmark::DoNotOptimize(buffer.data());
    }
    Report(state, dataBytes);
}

void ReadRaw(benchmark::State & state)
{
    const Fixture & files = Files();
    const auto request = static_cast<size_t>(state.range(0));
    std::vector<char> buffer(request);
    for (auto _ : state)
    {
        const int file = open(files.data.c_str(), O_RDONLY);
        while (read(file, buffer.data(), request) == static_cast<ssize_t>(request))
            benchmark::DoNotOptimize(buffer.data());
        close(file);
    }
    Report(state, dataBytes);
}

void LinesKiv(benchmark::State & state)
{
    const Fixture & files = Files();
    char line[4096];
    for (auto _ : state)
    {
        File file;
        file.Open(files.text.c_str(), File::MODE_READ);
        while (file.ReadLine(line, sizeof(line)))
            benchmark::DoNotOptimize(line);
    }
    Report(state, textBytes);
}

void LinesStdio(benchmark::State & state)
{
    const Fixture & files = Files();
    char line[4096];
    for (auto _ : state)
    {
        FILE * file = fopen(files.text.c_str(), "rb");
        while (fgets(line, sizeof(line), file))
            benchmark::DoNotOptimize(line);
        fclose(file);
    }
    Report(state, textBytes);
}

void LinesStream(benchmark::State & state)
{
    const Fixture & files = Files();
    std::string line;
    for (auto _ : state)
    {
        std::ifstream file(files.text, std::ios::binary);
        while (std::getline(file, line))
            benchmark::DoNotOptimize(line.data());
    }
    Report(state, textBytes);
}

void OpenThroughSubst(benchmark::State & state)
{
    Files();
    for (auto _ : state)
    {
        File file;
        benchmark::DoNotOptimize(file.Open("bench:target.txt", File::MODE_READ));
    }
}

void OpenPlain(benchmark::State & state)
{
    const std::string name = Files().folder + "/one/target.txt";
    for (auto _ : state)
    {
        File file;
        benchmark::DoNotOptimize(file.Open(name.c_str(), File::MODE_READ));
    }
}
} // namespace

BENCHMARK(ReadKiv)->Name("File/read-64:Kiv")->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadStdio)->Name("File/read-64:fread")->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadStream)->Name("File/read-64:ifstream")->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadRaw)->Name("File/read-64:read")->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadKiv)->Name("File/read-4K:Kiv")->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadStdio)->Name("File/read-4K:fread")->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadStream)->Name("File/read-4K:ifstream")->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadRaw)->Name("File/read-4K:read")->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadKiv)->Name("File/read-1M:Kiv")->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadStdio)->Name("File/read-1M:fread")->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadStream)->Name("File/read-1M:ifstream")->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadRaw)->Name("File/read-1M:read")->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(LinesKiv)->Name("File/lines:Kiv")->Unit(benchmark::kMillisecond);
BENCHMARK(LinesStdio)->Name("File/lines:fgets")->Unit(benchmark::kMillisecond);
BENCHMARK(LinesStream)->Name("File/lines:getline")->Unit(benchmark::kMillisecond);
BENCHMARK(OpenThroughSubst)->Name("File/open:Kiv");
BENCHMARK(OpenPlain)->Name("File/open:plain");
