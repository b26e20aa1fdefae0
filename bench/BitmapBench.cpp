// Blending a 512 x 512 32-bit image with per-pixel alpha onto 32-bit, 24-bit and 565 bitmaps,
// against what a caller would write instead: a plain per-pixel loop with the same arithmetic,
// and pixman's OVER operator (premultiplied alpha, so the same work but not the same pixels).
#include "Bitmap.h"

#include <benchmark/benchmark.h>
#include <pixman.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace
{
using Kiv::Bitmap;

constexpr int side = 512;

enum Coverage
{
    Sprite,
    Mixed
};

// Sprite: opaque discs with a soft edge of eight pixels on a transparent field, as an artist's
// sprite sheet has them. Mixed: every alpha value alike, scattered.
std::uint32_t SpriteAlpha(int x, int y)
{
    const int dx = x % 64 - 32, dy = y % 64 - 32;
    const int distance = dx * dx + dy * dy;
    if (distance <= 20 * 20)
        return 255;
    return distance >= 28 * 28 ? 0 : std::uint32_t(255 * (28 * 28 - distance) / (28 * 28 - 20 * 20));
}

void FillSource(Bitmap & source, Coverage coverage)
{
    std::uint32_t seed = 12345;
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x)
        {
            seed = seed * 1664525u + 1013904223u;
            const std::uint32_t alpha = coverage == Sprite ? SpriteAlpha(x, y) : seed >> 24;
            const std::uint32_t pixel = alpha << 24 | (seed & 0xFFFFFFu);
            std::memcpy(source.GetPtr(Kiv::Point{x, y}), &pixel, 4);
        }
}

void FillTarget(Bitmap & target)
{
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x)
            target.Pixel(Kiv::Point{x, y}, 0xFF000000u | std::uint32_t(x * 977 + y * 131) * 2654435761u >> 8);
}

// The loops a caller writes from the description of the arithmetic.
unsigned Mix(unsigned d, unsigned s, unsigned w)
{
    return ((d * (256 - w)) >> 8) + ((s * w) >> 8);
}

// Calls blend(d, s) on every pixel pair, rows by their pointers; the call is inlined.
template <int size, typename Blend>
void EachPixel(Bitmap & target, const Bitmap & source, Blend blend)
{
    for (int y = 0; y < side; ++y)
    {
        unsigned char * d = target.GetPtr(Kiv::Point{0, y});
        const unsigned char * s = source.GetPtr(Kiv::Point{0, y});
        for (int x = 0; x < side; ++x, d += size, s += 4)
            blend(d, s);
    }
}

void PlainOver32(Bitmap & target, const Bitmap & source)
{
    EachPixel<4>(target, source,
                 [](unsigned char * d, const unsigned char * s)
                 {
                     const unsigned a = s[3];
                     if (a == 0)
                         return;
                     if (a == 255 || d[3] == 0)
                     {
                         std::memcpy(d, s, 4);
                         return;
                     }
                     unsigned w = a + 1;
                     if (d[3] < 255)
                     {
                         const unsigned da = d[3];
                         d[3] = static_cast<unsigned char>(0u - (((256 - w) * (255 - da) + 255) >> 8));
                         w = (w + 255 - da) >> 1;
                     }
                     for (int c = 0; c < 3; ++c)
                         d[c] = static_cast<unsigned char>(Mix(d[c], s[c], w));
                 });
}

void Plain32To24(Bitmap & target, const Bitmap & source)
{
    EachPixel<3>(target, source,
                 [](unsigned char * d, const unsigned char * s)
                 {
                     const unsigned a = s[3];
                     for (int c = 0; a != 0 && c < 3; ++c)
                         d[c] = static_cast<unsigned char>(a == 255 ? s[c] : Mix(d[c], s[c], a + 1));
                 });
}

void Plain32To565(Bitmap & target, const Bitmap & source)
{
    EachPixel<2>(target, source,
                 [](unsigned char * d, const unsigned char * s)
                 {
                     const unsigned a = s[3];
                     if (a == 0)
                         return;
                     unsigned r = s[2] >> 3, g = s[1] >> 2, b = s[0] >> 3;
                     if (a != 255)
                     {
                         const unsigned p = d[0] | d[1] << 8;
                         r = Mix(p >> 11, r, a + 1);
                         g = Mix((p >> 5) & 63, g, a + 1);
                         b = Mix(p & 31, b, a + 1);
                     }
                     const unsigned p = r << 11 | g << 5 | b;
                     d[0] = static_cast<unsigned char>(p);
                     d[1] = static_cast<unsigned char>(p >> 8);
                 });
}

struct Scene
{
    Bitmap source{Kiv::Size{side, side}, Bitmap::ARGB32};
    Bitmap target;
    Scene(Bitmap::Format format, Coverage coverage) : target(Kiv::Size{side, side}, format)
    {
        FillSource(source, coverage);
        FillTarget(target);
    }
    bool Same(const Scene & other) const
    {
        for (int y = 0; y < side; ++y)
            if (std::memcmp(target.GetPtr(Kiv::Point{0, y}), other.target.GetPtr(Kiv::Point{0, y}),
                            std::size_t(side) * target.GetBytesPerPixel()) != 0)
                return false;
        return true;
    }
};

using Plain = void (*)(Bitmap &, const Bitmap &);

void Run(benchmark::State & state, Scene & scene, Plain blend)
{
    // Both ways must give the same pixels, or the comparison means nothing.
    Scene check(scene.target.GetFormat(), Coverage(state.range(0)));
    blend(scene.target, scene.source);
    check.target.Image(check.source);
    if (!scene.Same(check))
        state.SkipWithError("the plain loop and Image disagree");
    for (auto _ : state)
    {
        blend(scene.target, scene.source);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * side * side);
}

template <Bitmap::Format format>
void Kiv(benchmark::State & state)
{
    Scene scene(format, Coverage(state.range(0)));
    Run(state, scene, [](Bitmap & target, const Bitmap & source) { target.Image(source); });
}

template <Bitmap::Format format, Plain blend>
void Loop(benchmark::State & state)
{
    Scene scene(format, Coverage(state.range(0)));
    Run(state, scene, blend);
}

template <pixman_format_code_t targetFormat, Bitmap::Format format>
void Pixman(benchmark::State & state)
{
    Scene scene(format, Coverage(state.range(0)));
    pixman_image_t * src = pixman_image_create_bits(PIXMAN_a8r8g8b8, side, side,
                                                    reinterpret_cast<std::uint32_t *>(scene.source.GetPtr()),
                                                    static_cast<int>(scene.source.GetPitch()));
    pixman_image_t * dst = pixman_image_create_bits(targetFormat, side, side,
                                                    reinterpret_cast<std::uint32_t *>(scene.target.GetPtr()),
                                                    static_cast<int>(scene.target.GetPitch()));
    for (auto _ : state)
    {
        pixman_image_composite32(PIXMAN_OP_OVER, src, nullptr, dst, 0, 0, 0, 0, 0, 0, side, side);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * side * side);
    pixman_image_unref(dst);
    pixman_image_unref(src);
}
} // namespace

namespace
{
void Register(const char * name, benchmark::internal::Function * kiv, benchmark::internal::Function * loop,
              benchmark::internal::Function * pixman)
{
    for (const Coverage coverage : {Sprite, Mixed})
    {
        const std::string label =
            std::string("BitmapBlend/") + name + (coverage == Sprite ? "-sprite" : "-mixed");
        benchmark::RegisterBenchmark((label + ":Kiv").c_str(), kiv)->Arg(coverage);
        benchmark::RegisterBenchmark((label + ":loop").c_str(), loop)->Arg(coverage);
        benchmark::RegisterBenchmark((label + ":pixman").c_str(), pixman)->Arg(coverage);
    }
}

const int registered = (Register("32-over-32", Kiv<Bitmap::XRGB32>, Loop<Bitmap::XRGB32, PlainOver32>,
                                 Pixman<PIXMAN_a8r8g8b8, Bitmap::XRGB32>),
                        Register("32-over-24", Kiv<Bitmap::RGB24>, Loop<Bitmap::RGB24, Plain32To24>,
                                 Pixman<PIXMAN_r8g8b8, Bitmap::RGB24>),
                        Register("32-over-565", Kiv<Bitmap::RGB565>, Loop<Bitmap::RGB565, Plain32To565>,
                                 Pixman<PIXMAN_r5g6b5, Bitmap::RGB565>),
                        0);
} // namespace
