// JPEG files through Bitmap::Load and Bitmap::GetInfo: the fixtures of tests/data/images were made
// by Pillow (tests/images/make_jpeg.py), which also wrote the pixels its own decoder gives for
// them. Every target must give those pixels within the spread of the decoders' inverse transforms
// and upsampling, and must refuse alike what it refuses.
#include "Bitmap.h"
#include "PString.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

using Kiv::Bitmap;
using TestSupport::TempDir;

namespace
{
// Decoders may differ: the standard bounds the inverse transform's error (a step of 1 in a sample
// moves R or B by up to 2 after colour conversion) and leaves chroma upsampling to each. On Linux
// the pixels match Pillow's exactly (one libjpeg-turbo); Wine's imaging component (libjpeg 9,
// which upsamples in the transform) was seen 4 levels away on the subsampled pictures, whose
// colour is smooth, and 0 on the full-resolution and grey ones. The bound leaves a little room.
constexpr int TOLERANCE = 6;

#if CORESTONE_JPEG_DECODES
#define SKIP_WITHOUT_DECODER()
#else
#define SKIP_WITHOUT_DECODER()                                                                               \
    GTEST_SKIP() << "this target is built without a JPEG decoder: no libjpeg for it"
#endif

const char * const decodable[] = {"jpeg-420", "jpeg-422", "jpeg-444", "jpeg-progressive", "jpeg-grey"};

std::vector<unsigned char> Fixture(const std::string & name)
{
    return TestSupport::ReadBytes(TestSupport::DataFile("images/" + name));
}

bool Load(Bitmap & bitmap, const std::string & path)
{
    return bitmap.Load(Kiv::PString(path.c_str()), Kiv::PString());
}

// JPEG bytes written to one file of a scratch folder, then loaded or asked about.
class Scratch
{
public:
    bool Load(Bitmap & bitmap, const std::vector<unsigned char> & bytes)
    {
        TestSupport::WriteBytes(name, bytes);
        return ::Load(bitmap, name);
    }
    bool Info(const std::vector<unsigned char> & bytes, unsigned long & width, unsigned long & height)
    {
        TestSupport::WriteBytes(name, bytes);
        Bitmap::Format format = Bitmap::Raw;
        return Bitmap::GetInfo(name.c_str(), format, width, height) && format == Bitmap::XRGB32;
    }

private:
    TempDir dir;
    std::string name = dir / "x.jpg";
};

bool IsEmpty(const Bitmap & bitmap)
{
    return !bitmap.IsValid() && bitmap.GetWidth() == 0 && bitmap.GetHeight() == 0 &&
           bitmap.GetFormat() == Bitmap::Raw;
}

// Where the marker with this code is, or the size when it is missing.
size_t MarkerAt(const std::vector<unsigned char> & jpeg, unsigned char code)
{
    size_t at = 2;
    while (at + 1 < jpeg.size() && !(jpeg[at] == 0xFF && jpeg[at + 1] == code))
        ++at;
    return at + 1 < jpeg.size() ? at : jpeg.size();
}

// The offset of the frame header's precision byte (after the marker and the length word).
size_t FrameOffset(const std::vector<unsigned char> & jpeg)
{
    return std::min(MarkerAt(jpeg, 0xC0), MarkerAt(jpeg, 0xC2)) + 4;
}

// A bitmap that holds an image, so that a failed load shows it empties the bitmap.
void Occupy(Bitmap & bitmap)
{
    ASSERT_TRUE(bitmap.Init(Kiv::Size{3, 3}, 0, Bitmap::ARGB32));
}
} // namespace

TEST(Jpeg, DecodesAsPillowDoesOnEveryTarget)
{
    if (!CORESTONE_JPEG_DECODES)
    {
        // Without a decoder a JPEG file fails to load like any file the loaders refuse.
        Bitmap bitmap;
        Occupy(bitmap);
        EXPECT_FALSE(Load(bitmap, TestSupport::DataFile("images/jpeg-420.jpg")));
        EXPECT_TRUE(IsEmpty(bitmap));
    }
    SKIP_WITHOUT_DECODER();
    int worst = 0;
    for (const char * name : decodable)
    {
        SCOPED_TRACE(name);
        const std::string jpeg = TestSupport::DataFile(std::string("images/") + name + ".jpg");
        const std::vector<unsigned char> expected = Fixture(std::string(name) + ".bgra");
        unsigned long width = 0;
        unsigned long height = 0;
        Bitmap::Format format = Bitmap::Raw;
        ASSERT_TRUE(Bitmap::GetInfo(jpeg.c_str(), format, width, height));
        EXPECT_EQ(format, Bitmap::XRGB32);
        ASSERT_EQ(width * height * 4, expected.size());

        Bitmap bitmap;
        ASSERT_TRUE(Load(bitmap, jpeg));
        ASSERT_EQ(bitmap.GetFormat(), Bitmap::XRGB32);
        ASSERT_EQ(unsigned(bitmap.GetWidth()), width);
        ASSERT_EQ(unsigned(bitmap.GetHeight()), height);
        const bool grey = std::string(name) == "jpeg-grey";
        for (unsigned y = 0; y < height; ++y)
        {
            const unsigned char * row = bitmap.GetPtr() + y * bitmap.GetPitch();
            const unsigned char * want = expected.data() + y * width * 4;
            for (unsigned i = 0; i < width * 4; ++i)
                worst = std::max(worst, std::abs(row[i] - want[i]));
            for (unsigned x = 0; x < width; ++x)
            {
                const unsigned char * p = row + x * 4;
                ASSERT_EQ(p[3], 255) << "at " << x << "," << y;
                if (grey)
                {
                    ASSERT_TRUE(p[0] == p[1] && p[1] == p[2]) << "at " << x << "," << y;
                }
            }
        }
    }
    RecordProperty("MaxDifference", worst);
    std::printf("largest difference from Pillow's pixels: %d\n", worst);
    EXPECT_LE(worst, TOLERANCE);
}

TEST(Jpeg, RefusesWhatNotEveryTargetDecodes)
{
    Scratch scratch;
    Bitmap bitmap;
    // CMYK: the header is read, the pixels are not.
    const std::vector<unsigned char> cmyk = Fixture("jpeg-cmyk.jpg");
    unsigned long width = 0;
    unsigned long height = 0;
    EXPECT_TRUE(scratch.Info(cmyk, width, height));
    EXPECT_EQ(width, 16u);
    EXPECT_EQ(height, 8u);
    Occupy(bitmap);
    EXPECT_FALSE(scratch.Load(bitmap, cmyk));
    EXPECT_TRUE(IsEmpty(bitmap));

    const std::vector<unsigned char> good = Fixture("jpeg-444.jpg");
    const size_t frame = FrameOffset(good);
    struct Patch
    {
        const char * what;
        size_t offset; // from the frame header's precision byte
        unsigned char value;
    };
    const Patch patches[] = {
        {"arithmetic coding", size_t(-3), 0xC9},
        {"lossless process", size_t(-3), 0xC3},
        {"12-bit samples", 0, 12},
        {"deferred height", 2, 0},
        {"zero sampling factor", 7, 0x00},
    };
    for (const Patch & patch : patches)
    {
        SCOPED_TRACE(patch.what);
        std::vector<unsigned char> bad = good;
        bad[frame + patch.offset] = patch.value;
        Occupy(bitmap);
        EXPECT_FALSE(scratch.Load(bitmap, bad));
        EXPECT_TRUE(IsEmpty(bitmap));
    }
    EXPECT_FALSE(scratch.Info({0xFF, 0xD8, 0xFF, 0xC0, 0, 11, 8, 0, 0, 0, 16, 1, 1, 0x11, 0}, width, height));
}

TEST(Jpeg, RefusesSizesBeyondTheBitmapBeforeDecoding)
{
    Scratch scratch;
    const std::vector<unsigned char> good = Fixture("jpeg-420.jpg");
    const size_t frame = FrameOffset(good);
    struct Extent
    {
        unsigned width;
        unsigned height;
    };
    for (const Extent & extent : {Extent{4097, 16}, Extent{16, 4097}, Extent{65535, 65535}})
    {
        std::vector<unsigned char> big = good;
        big[frame + 1] = static_cast<unsigned char>(extent.height >> 8);
        big[frame + 2] = static_cast<unsigned char>(extent.height);
        big[frame + 3] = static_cast<unsigned char>(extent.width >> 8);
        big[frame + 4] = static_cast<unsigned char>(extent.width);
        unsigned long width = 0;
        unsigned long height = 0;
        EXPECT_TRUE(scratch.Info(big, width, height));
        EXPECT_EQ(width, extent.width);
        EXPECT_EQ(height, extent.height);
        Bitmap bitmap;
        Occupy(bitmap);
        EXPECT_FALSE(scratch.Load(bitmap, big)) << extent.width << " x " << extent.height;
        EXPECT_TRUE(IsEmpty(bitmap));
    }
}

TEST(Jpeg, RefusesStreamsCutShortAtAnyByte)
{
    SKIP_WITHOUT_DECODER();
    Scratch scratch;
    for (const char * name : {"jpeg-420", "jpeg-progressive"})
    {
        SCOPED_TRACE(name);
        const std::vector<unsigned char> whole = Fixture(std::string(name) + ".jpg");
        const size_t frame = FrameOffset(whole);
        Bitmap bitmap;
        // Every cut near the start and around the frame header, every seventh elsewhere.
        for (size_t length = 0; length < whole.size();
             length += length < 48 || (length + 8 > frame && length < frame + 24) ? 1 : 7)
        {
            const std::vector<unsigned char> cut(whole.begin(), whole.begin() + length);
            Occupy(bitmap);
            ASSERT_FALSE(scratch.Load(bitmap, cut)) << "cut at " << length;
            ASSERT_TRUE(IsEmpty(bitmap));
            unsigned long width = 0;
            unsigned long height = 0;
            // The size is known as soon as the whole frame header is there.
            ASSERT_EQ(scratch.Info(cut, width, height), length >= frame + 6 + 3 * whole[frame + 5]) << length;
        }
        // Bytes after the end-of-image marker are not part of the image.
        std::vector<unsigned char> trailed = whole;
        trailed.insert(trailed.end(), {0xFF, 0xD8, 0x12, 0xFF});
        EXPECT_TRUE(scratch.Load(bitmap, trailed));
    }
}

TEST(Jpeg, DamagedCodedDataNeverEscapesTheBitmap)
{
    SKIP_WITHOUT_DECODER();
    // Whatever a decoder makes of damaged coded data, it answers a whole opaque image of the
    // frame's size or an empty bitmap; the sanitizer builds watch the memory on the way.
    Scratch scratch;
    for (const char * name : decodable)
    {
        SCOPED_TRACE(name);
        const std::vector<unsigned char> whole = Fixture(std::string(name) + ".jpg");
        for (size_t at = FrameOffset(whole) + 8; at + 2 < whole.size(); at += 37)
        {
            std::vector<unsigned char> bad = whole;
            bad[at] ^= 0x5A;
            Bitmap bitmap;
            if (!scratch.Load(bitmap, bad))
            {
                ASSERT_TRUE(IsEmpty(bitmap)) << at;
                continue;
            }
            ASSERT_EQ(bitmap.GetFormat(), Bitmap::XRGB32);
            for (int y = 0; y < bitmap.GetHeight(); ++y)
                for (int x = 0; x < bitmap.GetWidth(); ++x)
                    ASSERT_EQ(bitmap.Pixel(Kiv::Point{x, y}) >> 24, 255u) << at;
        }
    }
}
