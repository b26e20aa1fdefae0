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
using Bytes = std::vector<unsigned char>;

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
    GTEST_SKIP() << "this target is built without a JPEG decoder (no libjpeg for it)"
#endif

const char * const decodable[] = {"jpeg-420",         "jpeg-422",  "jpeg-444",
                                  "jpeg-progressive", "jpeg-grey", "jpeg-restart"};

Bytes Fixture(const std::string & name)
{
    return TestSupport::ReadBytes(TestSupport::DataFile("images/" + name));
}

// JPEG bytes written to one scratch file, then loaded or asked about. Each load starts from a
// bitmap that holds an image, so a refusal shows that it empties the bitmap.
class Scratch
{
public:
    bool Load(const Bytes & bytes)
    {
        TestSupport::WriteBytes(name, bytes);
        EXPECT_TRUE(bitmap.Init(Kiv::Size{3, 3}, 0, Bitmap::ARGB32));
        return bitmap.Load(Kiv::PString(name.c_str()), Kiv::PString());
    }
    // The width GetInfo reports with XRGB32, or 0 when it answers false.
    unsigned long InfoWidth(const Bytes & bytes)
    {
        TestSupport::WriteBytes(name, bytes);
        Bitmap::Format format = Bitmap::Raw;
        unsigned long width = 0;
        unsigned long height = 0;
        return Bitmap::GetInfo(name.c_str(), format, width, height) && format == Bitmap::XRGB32 ? width : 0;
    }
    bool IsEmpty() const
    {
        return !bitmap.IsValid() && bitmap.GetWidth() == 0 && bitmap.GetFormat() == Bitmap::Raw;
    }

    Bitmap bitmap;

private:
    TestSupport::TempDir dir;
    std::string name = dir / "x.jpg";
};

// Where the marker with this code is, or the size when it is missing.
size_t MarkerAt(const Bytes & jpeg, unsigned char code)
{
    size_t at = 2;
    while (at + 1 < jpeg.size() && !(jpeg[at] == 0xFF && jpeg[at + 1] == code))
        ++at;
    return at + 1 < jpeg.size() ? at : jpeg.size();
}

// The offset of the frame header's precision byte, after the marker and the length word; the
// height, the width and the components follow it.
size_t FrameOffset(const Bytes & jpeg)
{
    return std::min(MarkerAt(jpeg, 0xC0), MarkerAt(jpeg, 0xC2)) + 4;
}
} // namespace

TEST(Jpeg, DecodesAsPillowDoesOnEveryTarget)
{
    Scratch scratch;
    if (!CORESTONE_JPEG_DECODES)
    {
        // Without a decoder a JPEG file fails to load like any file the loaders refuse.
        EXPECT_FALSE(scratch.Load(Fixture("jpeg-420.jpg")));
        EXPECT_TRUE(scratch.IsEmpty());
    }
    SKIP_WITHOUT_DECODER();
    int worst = 0;
    for (const char * name : decodable)
    {
        SCOPED_TRACE(name);
        const Bytes jpeg = Fixture(std::string(name) + ".jpg");
        const Bytes expected = Fixture(std::string(name) + ".bgra");
        ASSERT_TRUE(scratch.Load(jpeg));
        const Bitmap & bitmap = scratch.bitmap;
        ASSERT_EQ(bitmap.GetFormat(), Bitmap::XRGB32);
        ASSERT_EQ(scratch.InfoWidth(jpeg), unsigned(bitmap.GetWidth()));
        const unsigned rowBytes = bitmap.GetWidth() * 4;
        ASSERT_EQ(rowBytes * bitmap.GetHeight(), expected.size());
        // The grey pictures are the one-component streams: grey expands to equal channels.
        const bool grey = jpeg[FrameOffset(jpeg) + 5] == 1;
        for (int y = 0; y < bitmap.GetHeight(); ++y)
        {
            const unsigned char * row = bitmap.GetPtr() + y * bitmap.GetPitch();
            for (unsigned i = 0; i < rowBytes; ++i)
                worst = std::max(worst, std::abs(row[i] - expected[y * rowBytes + i]));
            for (unsigned i = 0; i < rowBytes; i += 4)
            {
                ASSERT_EQ(row[i + 3], 255);
                ASSERT_TRUE(!grey || (row[i] == row[i + 1] && row[i] == row[i + 2]));
            }
        }
    }
    std::printf("largest difference from Pillow's pixels: %d\n", worst);
    EXPECT_LE(worst, TOLERANCE);
}

TEST(Jpeg, RefusesWhatNotEveryTargetDecodesAndSizesPastTheBitmap)
{
    Scratch scratch;
    // CMYK: the header is read, the pixels are not.
    EXPECT_EQ(scratch.InfoWidth(Fixture("jpeg-cmyk.jpg")), 16u);
    EXPECT_FALSE(scratch.Load(Fixture("jpeg-cmyk.jpg")));
    EXPECT_TRUE(scratch.IsEmpty());

    // Each scan is a pass over the whole image: a stream of hundreds is an attack on decoding time.
    const Bytes stepped = Fixture("jpeg-progressive.jpg");
    size_t lastScan = stepped.size() - 2;
    while (!(stepped[lastScan] == 0xFF && stepped[lastScan + 1] == 0xDA))
        --lastScan;
    Bytes scans(stepped.begin(), stepped.end() - 2);
    for (int i = 0; i < 300; ++i)
        scans.insert(scans.end(), stepped.begin() + long(lastScan), stepped.end() - 2);
    scans.insert(scans.end(), {0xFF, 0xD9});
    EXPECT_FALSE(scratch.Load(scans));

    const Bytes good = Fixture("jpeg-444.jpg"); // 33 x 17
    const size_t frame = FrameOffset(good);
    struct Patch
    {
        const char * what;
        int offset; // from the frame header's precision byte
        Bytes bytes;
        unsigned long infoWidth; // 0: GetInfo answers false
    };
    const Patch patches[] = {
        {"arithmetic coding", -3, {0xC9}, 33}, {"lossless process", -3, {0xC3}, 33},
        {"12-bit samples", 0, {12}, 33},       {"height deferred to a later marker", 2, {0}, 0},
        {"zero sampling factor", 7, {0}, 33},  {"4097 wide", 3, {0x10, 0x01}, 4097},
        {"4097 high", 1, {0x10, 0x01}, 33},    {"65535 square", 1, {0xFF, 0xFF, 0xFF, 0xFF}, 65535},
    };
    for (const Patch & patch : patches)
    {
        SCOPED_TRACE(patch.what);
        Bytes bad = good;
        std::copy(patch.bytes.begin(), patch.bytes.end(), bad.begin() + long(frame) + patch.offset);
        EXPECT_EQ(scratch.InfoWidth(bad), patch.infoWidth);
        EXPECT_FALSE(scratch.Load(bad));
        EXPECT_TRUE(scratch.IsEmpty());
    }
}

TEST(Jpeg, RefusesStreamsCutShortAtAnyByte)
{
    SKIP_WITHOUT_DECODER();
    Scratch scratch;
    for (const char * name : {"jpeg-420", "jpeg-progressive"})
    {
        SCOPED_TRACE(name);
        const Bytes whole = Fixture(std::string(name) + ".jpg");
        const size_t frame = FrameOffset(whole);
        const size_t frameEnd = frame + 6 + 3 * whole[frame + 5];
        // Every cut near the start and around the frame header, every seventh elsewhere.
        for (size_t length = 0; length < whole.size();
             length += length < 48 || (length + 8 > frame && length < frameEnd + 8) ? 1 : 7)
        {
            const Bytes cut(whole.begin(), whole.begin() + long(length));
            ASSERT_FALSE(scratch.Load(cut)) << length;
            ASSERT_TRUE(scratch.IsEmpty());
            // The size is known as soon as the whole frame header is there.
            ASSERT_EQ(scratch.InfoWidth(cut) != 0, length >= frameEnd) << length;
        }
        // Bytes after the end-of-image marker are not part of the image.
        Bytes trailed = whole;
        trailed.insert(trailed.end(), {0xFF, 0xD8, 0x12, 0xFF});
        EXPECT_TRUE(scratch.Load(trailed));
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
        const Bytes whole = Fixture(std::string(name) + ".jpg");
        for (size_t at = FrameOffset(whole) + 8; at + 2 < whole.size(); at += 37)
        {
            Bytes bad = whole;
            bad[at] ^= 0x5A;
            if (!scratch.Load(bad))
            {
                ASSERT_TRUE(scratch.IsEmpty()) << name << " " << at;
                continue;
            }
            const Bitmap & bitmap = scratch.bitmap;
            ASSERT_EQ(bitmap.GetFormat(), Bitmap::XRGB32);
            for (int y = 0; y < bitmap.GetHeight(); ++y)
                for (int x = 0; x < bitmap.GetWidth(); ++x)
                    ASSERT_EQ(bitmap.Pixel(Kiv::Point{x, y}) >> 24, 255u) << name << " " << at;
        }
    }
}
