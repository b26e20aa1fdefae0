// Decoding a 2048 x 2048 JPEG (4:2:0, quality 90, baseline and progressive) into a new 32-bit
// image: Bitmap::Load of a memory file against stb_image and libjpeg-turbo's TurboJPEG
// API called directly (BGRX rows). Each allocates its own output, as a loader does. The picture
// is made by TurboJPEG's encoder from smooth shading, edges and a little noise, like a photograph.
#include "Bitmap.h"
#include "MemoryFile.h"

#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_JPEG
#include <stb/stb_image.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace
{
constexpr int SIDE = 2048;

std::vector<unsigned char> Picture()
{
    std::vector<unsigned char> rgb(size_t(SIDE) * SIDE * 3);
    uint32_t noise = 12345;
    for (int y = 0; y < SIDE; ++y)
    {
        for (int x = 0; x < SIDE; ++x)
        {
            noise = noise * 1664525u + 1013904223u;
            const int grain = int(noise >> 30) - 2;
            const double shade = 0.5 + 0.5 * std::sin(x * 0.013) * std::cos(y * 0.009);
            const bool edge = ((x / 160) + (y / 224)) % 3 == 0;
            unsigned char * p = &rgb[(size_t(y) * SIDE + x) * 3];
            p[0] = static_cast<unsigned char>(std::clamp(int(shade * 200) + grain + (edge ? 40 : 0), 0, 255));
            p[1] = static_cast<unsigned char>(std::clamp(int(x * 255 / SIDE) / 2 + 60 + grain, 0, 255));
            p[2] = static_cast<unsigned char>(
                std::clamp(int((1 - shade) * 180) + grain + (edge ? 0 : 30), 0, 255));
        }
    }
    return rgb;
}

std::vector<unsigned char> Encode(int flags)
{
    static const std::vector<unsigned char> rgb = Picture();
    tjhandle encoder = tjInitCompress();
    unsigned char * jpeg = nullptr;
    unsigned long size = 0;
    if (tjCompress2(encoder, rgb.data(), SIDE, SIDE * 3, SIDE, TJPF_RGB, &jpeg, &size, TJSAMP_420, 90,
                    flags) != 0)
        throw std::runtime_error(tjGetErrorStr2(encoder));
    std::vector<unsigned char> bytes(jpeg, jpeg + size);
    tjFree(jpeg);
    tjDestroy(encoder);
    return bytes;
}

const std::vector<unsigned char> & Jpeg(bool progressive)
{
    static const std::vector<unsigned char> baseline = Encode(0);
    static const std::vector<unsigned char> stepped = Encode(TJFLAG_PROGRESSIVE);
    return progressive ? stepped : baseline;
}

template <bool progressive>
void DecodeKiv(benchmark::State & state)
{
    const std::vector<unsigned char> & jpeg = Jpeg(progressive);
    for (auto _ : state)
    {
        Kiv::MemoryFile file(jpeg.data(), static_cast<unsigned>(jpeg.size()));
        file.SetName("picture.jpg");
        Kiv::Bitmap bitmap;
        if (!bitmap.Load(file))
            state.SkipWithError("Kiv refused the picture");
        benchmark::DoNotOptimize(bitmap.GetPtr());
    }
}

template <bool progressive>
void DecodeStb(benchmark::State & state)
{
    const std::vector<unsigned char> & jpeg = Jpeg(progressive);
    for (auto _ : state)
    {
        int width = 0;
        int height = 0;
        int channels = 0;
        stbi_uc * pixels =
            stbi_load_from_memory(jpeg.data(), int(jpeg.size()), &width, &height, &channels, 4);
        if (pixels == nullptr)
            state.SkipWithError("stb_image refused the picture");
        benchmark::DoNotOptimize(pixels);
        stbi_image_free(pixels);
    }
}

template <bool progressive>
void DecodeTurbo(benchmark::State & state)
{
    const std::vector<unsigned char> & jpeg = Jpeg(progressive);
    tjhandle decoder = tjInitDecompress();
    for (auto _ : state)
    {
        int width = 0;
        int height = 0;
        int subsampling = 0;
        int colourspace = 0;
        tjDecompressHeader3(decoder, jpeg.data(), jpeg.size(), &width, &height, &subsampling, &colourspace);
        auto * pixels = static_cast<unsigned char *>(malloc(size_t(width) * height * 4));
        if (tjDecompress2(decoder, jpeg.data(), jpeg.size(), pixels, width, width * 4, height, TJPF_BGRX,
                          0) != 0)
            state.SkipWithError("TurboJPEG refused the picture");
        benchmark::DoNotOptimize(pixels);
        free(pixels);
    }
    tjDestroy(decoder);
}
} // namespace

BENCHMARK(DecodeKiv<false>)->Name("Jpeg/decode-2048-baseline:Kiv")->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeStb<false>)->Name("Jpeg/decode-2048-baseline:stb_image")->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeTurbo<false>)->Name("Jpeg/decode-2048-baseline:TurboJPEG")->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeKiv<true>)->Name("Jpeg/decode-2048-progressive:Kiv")->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeStb<true>)->Name("Jpeg/decode-2048-progressive:stb_image")->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeTurbo<true>)->Name("Jpeg/decode-2048-progressive:TurboJPEG")->Unit(benchmark::kMillisecond);
