// Loading 2048 x 2048 image files from disk into 32-bit pixels: Kiv::Bitmap::Load against
// stb_image (Debian's libstb) asked for 4 channels. stb_image reads no PCX, so that row has no
// peer. The images are drawn here: smooth gradients with some noise, so that a run-length coder
// finds runs without the whole image being one.
#include "Bitmap.h"
#include "PString.h"

#include <benchmark/benchmark.h>
#include <stb/stb_image.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{
namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

const int side = 2048;

void Put16(Bytes & out, uint32_t value)
{
    out.push_back(static_cast<unsigned char>(value));
    out.push_back(static_cast<unsigned char>(value >> 8));
}

void Put32(Bytes & out, uint32_t value)
{
    Put16(out, value);
    Put16(out, value >> 16);
}

// The picture: B, G, R, A of pixel (x, y), and an 8-bit index for the paletted files.
struct Picture
{
    uint32_t state = 1;

    unsigned char Noise() { return static_cast<unsigned char>((state = state * 1103515245 + 12345) >> 29); }
    void Pixel(int x, int y, unsigned char * bgra)
    {
        bgra[0] = static_cast<unsigned char>(x / 8 + Noise());
        bgra[1] = static_cast<unsigned char>(y / 8);
        bgra[2] = static_cast<unsigned char>((x + y) / 16);
        bgra[3] = static_cast<unsigned char>(255 - x / 8);
    }
    // Bands of one index broken now and then, as dithered art has them.
    unsigned char Index(int x, int y)
    {
        return static_cast<unsigned char>(((x / 24) ^ (y / 16)) + (Noise() == 0));
    }
};

Bytes Tga(int bits)
{
    Bytes out = {0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    Put16(out, side);
    Put16(out, side);
    out.push_back(static_cast<unsigned char>(bits));
    out.push_back(bits == 32 ? 8 : 0); // bottom-up, the common layout
    Picture picture;
    for (int y = side - 1; y >= 0; --y)
        for (int x = 0; x < side; ++x)
        {
            unsigned char bgra[4];
            picture.Pixel(x, y, bgra);
            out.insert(out.end(), bgra, bgra + bits / 8);
        }
    return out;
}

Bytes Bmp(int bits)
{
    const uint32_t bytes = uint32_t(bits) / 8;
    const uint32_t paletteSize = bits == 8 ? 1024 : 0;
    const uint32_t imageSize = side * side * bytes;
    Bytes out = {'B', 'M'};
    Put32(out, 54 + paletteSize + imageSize);
    Put32(out, 0);
    Put32(out, 54 + paletteSize);
    for (uint32_t value : {40u, uint32_t(side), uint32_t(side)})
        Put32(out, value);
    Put16(out, 1);
    Put16(out, uint32_t(bits));
    for (uint32_t value : {0u, imageSize, 2835u, 2835u, bits == 8 ? 256u : 0u, 0u})
        Put32(out, value);
    for (uint32_t i = 0; i < paletteSize / 4; ++i)
        Put32(out, i * 0x010203u);
    Picture picture;
    for (int y = side - 1; y >= 0; --y)
        for (int x = 0; x < side; ++x)
        {
            unsigned char bgra[4];
            picture.Pixel(x, y, bgra);
            if (bits == 8)
                out.push_back(picture.Index(x, y));
            else
                out.insert(out.end(), bgra, bgra + bytes);
        }
    return out;
}

Bytes Pcx()
{
    Bytes out(128, 0);
    out[0] = 10, out[1] = 5, out[2] = 1, out[3] = 8, out[65] = 1;
    out[8] = out[10] = (side - 1) & 255, out[9] = out[11] = (side - 1) >> 8;
    out[66] = side & 255, out[67] = side >> 8;
    Picture picture;
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side;)
        {
            const unsigned char index = picture.Index(x, y);
            int run = 1;
            while (x + run < side && run < 63 && picture.Index(x + run, y) == index)
                ++run;
            if (run > 1 || index >= 192)
                out.push_back(static_cast<unsigned char>(192 + run));
            out.push_back(index);
            x += run;
        }
    out.push_back(12);
    for (int i = 0; i < 768; ++i)
        out.push_back(static_cast<unsigned char>(i * 7));
    return out;
}

// The files, made once in a scratch folder and removed at exit.
struct Files
{
    fs::path folder = fs::temp_directory_path() / ("corestone-imagebench-" + std::to_string(getpid()));

    Files()
    {
        fs::create_directories(folder);
        const std::pair<const char *, Bytes> files[] = {
            {"tga24.tga", Tga(24)}, {"tga32.tga", Tga(32)}, {"bmp8.bmp", Bmp(8)},
            {"bmp24.bmp", Bmp(24)}, {"bmp32.bmp", Bmp(32)}, {"pcx8.pcx", Pcx()},
        };
        for (const auto & [name, bytes] : files)
        {
            FILE * out = fopen((folder / name).c_str(), "wb");
            fwrite(bytes.data(), 1, bytes.size(), out);
            fclose(out);
        }
    }
    ~Files() { fs::remove_all(folder); }

    std::string operator[](const char * name) const { return (folder / name).string(); }
};

const Files & TheFiles()
{
    static const Files files;
    return files;
}

void Ours(benchmark::State & state, const char * name)
{
    const Kiv::PString path(TheFiles()[name].c_str());
    const Kiv::PString none;
    for (auto _ : state)
    {
        Kiv::Bitmap bitmap;
        if (!bitmap.Load(path, none))
            state.SkipWithError("not loaded");
        benchmark::DoNotOptimize(bitmap.GetPtr());
    }
}

void Stb(benchmark::State & state, const char * name)
{
    const std::string path = TheFiles()[name];
    for (auto _ : state)
    {
        int width = 0, height = 0, channels = 0;
        unsigned char * pixels = stbi_load(path.c_str(), &width, &height, &channels, 4);
        if (!pixels)
            state.SkipWithError("not loaded");
        benchmark::DoNotOptimize(pixels);
        stbi_image_free(pixels);
    }
}
} // namespace

BENCHMARK_CAPTURE(Ours, tga24, "tga24.tga")->Name("Image/Tga24:Kiv")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Stb, tga24, "tga24.tga")->Name("Image/Tga24:stb")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Ours, tga32, "tga32.tga")->Name("Image/Tga32:Kiv")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Stb, tga32, "tga32.tga")->Name("Image/Tga32:stb")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Ours, bmp8, "bmp8.bmp")->Name("Image/Bmp8:Kiv")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Stb, bmp8, "bmp8.bmp")->Name("Image/Bmp8:stb")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Ours, bmp24, "bmp24.bmp")->Name("Image/Bmp24:Kiv")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Stb, bmp24, "bmp24.bmp")->Name("Image/Bmp24:stb")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Ours, bmp32, "bmp32.bmp")->Name("Image/Bmp32:Kiv")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Stb, bmp32, "bmp32.bmp")->Name("Image/Bmp32:stb")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Ours, pcx8, "pcx8.pcx")->Name("Image/Pcx8:Kiv")->Unit(benchmark::kMillisecond);
