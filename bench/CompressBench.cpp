// BPE coding and decoding against zlib (levels 1 and 6), LZ4 and zstd (level 1) on the corpus of
// bench/corpus.sh; reading a whole CFIL file through Kiv::File against gzread of the same data;
// Crc::Calc against zlib's crc32. BPE works in 16,384-byte chunks, as in CFIL files; the peers
// code each file whole. Throughput counts plain bytes; "ratio" is coded size / plain size.
#include "BPE.h"
#include "File.h"

#include <benchmark/benchmark.h>
#include <lz4.h>
#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

using Kiv::BPE;
using Kiv::File;

namespace
{
using Bytes = std::vector<unsigned char>;
const size_t chunkBytes = 16384;

Bytes Load(const std::string & name)
{
    std::ifstream in(std::string(CORESTONE_BENCH_CORPUS) + "/" + name, std::ios::binary);
    Bytes bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (bytes.empty())
        fprintf(stderr, "corpus file %s is missing: run bench/corpus.sh\n", name.c_str());
    return bytes;
}

// One coder: code the whole input into `out` (answering the coded size) and expand it back.
struct Codec
{
    size_t (*code)(const Bytes & in, Bytes & out);
    void (*expand)(const Bytes & coded, size_t codedSize, Bytes & out);
};

// Chunk after chunk, each a length word and the coded or stored bytes, as in CFIL files.
size_t BpeCode(const Bytes & in, Bytes & out)
{
    out.resize(in.size() + 2 * (in.size() / chunkBytes + 1));
    size_t at = 0;
    for (size_t done = 0; done < in.size(); done += chunkBytes)
    {
        const size_t take = std::min(chunkBytes, in.size() - done);
        const unsigned long coded = BPE::Comp(out.data() + at + 2, in.data() + done, take);
        const unsigned word = coded != take ? coded : take | 0x8000;
        out[at] = static_cast<unsigned char>(word);
        out[at + 1] = static_cast<unsigned char>(word >> 8);
        at += 2 + coded;
    }
    return at;
}

void BpeExpand(const Bytes & coded, size_t codedSize, Bytes & out)
{
    size_t written = 0;
    for (size_t at = 0; at < codedSize;)
    {
        const unsigned word = coded[at] | coded[at + 1] << 8;
        const unsigned length = word & 0x7FFF;
        if (word & 0x8000)
        {
            memcpy(out.data() + written, coded.data() + at + 2, length);
            written += length;
        }
        else
        {
            written += BPE::Decomp(out.data() + written, std::min(chunkBytes, out.size() - written),
                                   coded.data() + at + 2, length);
        }
        at += 2 + length;
    }
}

template <int level>
size_t ZlibCode(const Bytes & in, Bytes & out)
{
    uLongf length = compressBound(in.size());
    out.resize(length);
    compress2(out.data(), &length, in.data(), in.size(), level);
    return length;
}

void ZlibExpand(const Bytes & coded, size_t codedSize, Bytes & out)
{
    uLongf length = out.size();
    uncompress(out.data(), &length, coded.data(), codedSize);
}

size_t Lz4Code(const Bytes & in, Bytes & out)
{
    out.resize(static_cast<size_t>(LZ4_compressBound(static_cast<int>(in.size()))));
    return static_cast<size_t>(
        LZ4_compress_default(reinterpret_cast<const char *>(in.data()), reinterpret_cast<char *>(out.data()),
                             static_cast<int>(in.size()), static_cast<int>(out.size())));
}

void Lz4Expand(const Bytes & coded, size_t codedSize, Bytes & out)
{
    LZ4_decompress_safe(reinterpret_cast<const char *>(coded.data()), reinterpret_cast<char *>(out.data()),
                        static_cast<int>(codedSize), static_cast<int>(out.size()));
}

size_t ZstdCode(const Bytes & in, Bytes & out)
{
    out.resize(ZSTD_compressBound(in.size()));
    return ZSTD_compress(out.data(), out.size(), in.data(), in.size(), 1);
}

void ZstdExpand(const Bytes & coded, size_t codedSize, Bytes & out)
{
    ZSTD_decompress(out.data(), out.size(), coded.data(), codedSize);
}

void Code(benchmark::State & state, const char * file, Codec codec)
{
    const Bytes in = Load(file);
    Bytes out;
    size_t coded = 0;
    for (auto _ : state)
    {
        coded = codec.code(in, out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * in.size()));
    state.counters["ratio"] = static_cast<double>(coded) / static_cast<double>(in.size());
}

void Expand(benchmark::State & state, const char * file, Codec codec)
{
    const Bytes in = Load(file);
    Bytes coded;
    const size_t codedSize = codec.code(in, coded);
    Bytes out(in.size());
    codec.expand(coded, codedSize, out);
    if (out != in)
        state.SkipWithError("the expansion differs from the input");
    for (auto _ : state)
    {
        codec.expand(coded, codedSize, out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * in.size()));
    state.counters["ratio"] = static_cast<double>(codedSize) / static_cast<double>(in.size());
}

const Codec kiv{BpeCode, BpeExpand};
const Codec zlib1{ZlibCode<1>, ZlibExpand};
const Codec zlib6{ZlibCode<6>, ZlibExpand};
const Codec lz4{Lz4Code, Lz4Expand};
const Codec zstd1{ZstdCode, ZstdExpand};

// The whole corpus as a CFIL file and as a gzip file (level 6), read in 4 KB requests.
struct ReadFixture
{
    std::string cfil;
    std::string gz;
    size_t plainBytes = 0;

    ReadFixture()
    {
        const std::string stem = "/tmp/corestone-compressbench-" + std::to_string(getpid());
        cfil = stem + ".cfil";
        gz = stem + ".gz";
        Bytes all;
        for (const char * name : {"text.txt", "source.h", "program.bin", "photo.tga", "sprites.tga"})
        {
            const Bytes part = Load(name);
            all.insert(all.end(), part.begin(), part.end());
        }
        plainBytes = all.size();
        File file;
        file.Open(cfil.c_str(), File::MODE_WRITE_COMPRESSED | File::MODE_CREATE);
        file.Write(all.data(), static_cast<unsigned long>(all.size()), 1);
        file.Close();
        gzFile out = gzopen(gz.c_str(), "wb6");
        gzwrite(out, all.data(), static_cast<unsigned>(all.size()));
        gzclose(out);
    }
    ~ReadFixture()
    {
        remove(cfil.c_str());
        remove(gz.c_str());
    }
};

ReadFixture & Files()
{
    static ReadFixture fixture;
    return fixture;
}

void ReadCfil(benchmark::State & state)
{
    ReadFixture & files = Files();
    char piece[4096];
    for (auto _ : state)
    {
        File file;
        file.Open(files.cfil.c_str(), File::MODE_READ);
        while (file.Read(piece, sizeof(piece), 1))
            benchmark::DoNotOptimize(piece);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * files.plainBytes));
}

void ReadGz(benchmark::State & state)
{
    ReadFixture & files = Files();
    char piece[4096];
    for (auto _ : state)
    {
        gzFile in = gzopen(files.gz.c_str(), "rb");
        while (gzread(in, piece, sizeof(piece)) > 0)
            benchmark::DoNotOptimize(piece);
        gzclose(in);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * files.plainBytes));
}

void CrcKiv(benchmark::State & state)
{
    const Bytes data(1 << 20, 0x5A);
    unsigned long crc = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            crc = Kiv::Crc::Calc(data.data(), static_cast<unsigned long>(data.size()), crc));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}

void CrcZlib(benchmark::State & state)
{
    const Bytes data(1 << 20, 0x5A);
    uLong crc = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(crc = crc32(crc, data.data(), static_cast<uInt>(data.size())));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}

int Register()
{
    const struct
    {
        const char * name;
        const Codec * codec;
    } codecs[] = {{"Kiv", &kiv}, {"zlib1", &zlib1}, {"zlib6", &zlib6}, {"lz4", &lz4}, {"zstd1", &zstd1}};
    for (const char * file : {"text.txt", "source.h", "program.bin", "photo.tga", "sprites.tga"})
        for (const auto & codec : codecs)
        {
            const std::string suffix = std::string(file) + ":" + codec.name;
            benchmark::RegisterBenchmark(("Compress/" + suffix).c_str(), Code, file, *codec.codec)
                ->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark(("Decompress/" + suffix).c_str(), Expand, file, *codec.codec)
                ->Unit(benchmark::kMillisecond);
        }
    benchmark::RegisterBenchmark("ReadCompressed/corpus:Kiv", ReadCfil)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("ReadCompressed/corpus:gzread", ReadGz)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("Crc/1MB:Kiv", CrcKiv);
    benchmark::RegisterBenchmark("Crc/1MB:zlib", CrcZlib);
    return 0;
}

const int registered = Register();
} // namespace
