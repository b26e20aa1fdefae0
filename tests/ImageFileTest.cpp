// Image files against files made by Pillow: every accepted variant and the rejected ones of
// tests/data/images, loaded as their NAME.expect says (see tests/images/make.py); damaged and
// lying files; saving, read back by the loaders and, on Linux, by Pillow.
#include "Bitmap.h"
#include "File.h"
#include "MemoryFile.h"
#include "PString.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

using Kiv::Bitmap;
using Kiv::MemoryFile;
using TestSupport::ReadBytes;
using TestSupport::TempDir;
using TestSupport::WriteBytes;

namespace
{
using Bytes = std::vector<unsigned char>;

struct Image
{
    int format = -1; // -1: the load fails
    int width = 0;
    int height = 0;
    Bytes palette;
    Bytes pixels;
};

struct Expected
{
    int info[4] = {}; // GetInfo's answer, format, width and height
    Image loads[2];   // keepPalette true, then false
};

int32_t Word(const Bytes & bytes, size_t & at)
{
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
        value |= uint32_t(bytes.at(at++)) << (8 * i);
    return static_cast<int32_t>(value);
}

Bytes Take(const Bytes & bytes, size_t & at, size_t count)
{
    at += count;
    return Bytes(bytes.begin() + static_cast<long>(at - count), bytes.begin() + static_cast<long>(at));
}

Expected ReadExpected(const std::string & name)
{
    const Bytes bytes = ReadBytes(name);
    Expected expected;
    size_t at = 0;
    for (int & field : expected.info)
        field = Word(bytes, at);
    for (Image & image : expected.loads)
    {
        image.format = Word(bytes, at);
        if (image.format < 0)
            continue;
        image.width = Word(bytes, at);
        image.height = Word(bytes, at);
        const bool indexed = image.format == Bitmap::Indexed8;
        if (indexed)
            image.palette = Take(bytes, at, 1024);
        image.pixels = Take(bytes, at, size_t(image.width) * image.height * (indexed ? 1 : 4));
    }
    return expected;
}

std::string ImageFolder()
{
    return TestSupport::DataFile("images");
}

// The accepted and rejected fixtures, by file name: each NAME.expect stands beside the file it
// describes, whose extension is the first three letters of NAME.
std::vector<std::string> Fixtures()
{
    std::vector<std::string> names;
    for (const auto & item : std::filesystem::directory_iterator(ImageFolder()))
        if (item.path().extension() == ".expect")
        {
            const std::string stem = item.path().stem().string();
            names.push_back(stem + "." + stem.substr(0, 3));
        }
    return names;
}

Expected ExpectedFor(const std::string & fixture)
{
    return ReadExpected(ImageFolder() + "/" + fixture.substr(0, fixture.rfind('.')) + ".expect");
}

// The bitmap's pixels as the expectation lays them out: rows top first without padding, or, for
// an indexed PCX, the first bytes of the block.
Bytes Pixels(const Bitmap & bitmap, bool asBlock)
{
    const size_t rowBytes = size_t(bitmap.GetWidth()) * bitmap.GetBytesPerPixel();
    if (asBlock)
        return Bytes(bitmap.GetPtr(), bitmap.GetPtr() + rowBytes * bitmap.GetHeight());
    Bytes pixels;
    for (int y = 0; y < bitmap.GetHeight(); ++y)
        pixels.insert(pixels.end(), bitmap.GetPtr(Kiv::Point{0, y}),
                      bitmap.GetPtr(Kiv::Point{0, y}) + rowBytes);
    return pixels;
}

void ExpectImage(bool loaded, const Bitmap & bitmap, const Image & image, bool pcx)
{
    if (image.format < 0)
    {
        EXPECT_FALSE(loaded);
        EXPECT_FALSE(bitmap.IsValid());
        EXPECT_EQ(Bitmap::Raw, bitmap.GetFormat());
        EXPECT_EQ(nullptr, bitmap.GetPalette());
        return;
    }
    ASSERT_TRUE(loaded);
    ASSERT_EQ(image.format, bitmap.GetFormat());
    ASSERT_EQ(image.width, bitmap.GetWidth());
    ASSERT_EQ(image.height, bitmap.GetHeight());
    if (!image.palette.empty())
    {
        ASSERT_NE(nullptr, bitmap.GetPalette());
        const auto * palette = reinterpret_cast<const unsigned char *>(bitmap.GetPalette());
        EXPECT_EQ(image.palette, Bytes(palette, palette + 1024));
    }
    EXPECT_EQ(image.pixels, Pixels(bitmap, pcx && image.format == Bitmap::Indexed8));
}

bool LoadBytes(Bitmap & bitmap, const Bytes & bytes, const char * name, bool keepPalette)
{
    MemoryFile file(bytes.data(), static_cast<unsigned int>(bytes.size()));
    file.SetName(name);
    return bitmap.Load(file, keepPalette);
}

// A 32-bit bitmap with every kind of alpha.
void Paint(Bitmap & bitmap)
{
    for (int y = 0; y < bitmap.GetHeight(); ++y)
        for (int x = 0; x < bitmap.GetWidth(); ++x)
        {
            const uint32_t alpha = (x + y) % 3 == 0 ? 0 : (x + y) % 3 == 1 ? 255 : 77u * x + y;
            const uint32_t colour =
                (alpha & 255) << 24 | uint32_t(x * 40) << 16 | uint32_t(y * 30) << 8 | 200;
            memcpy(bitmap.GetPtr(Kiv::Point{x, y}), &colour, bitmap.GetBytesPerPixel());
        }
}
} // namespace

TEST(ImageFile, FixturesLoadAsPillowReadsThem)
{
    for (const std::string & fixture : Fixtures())
    {
        SCOPED_TRACE(fixture);
        const Expected expected = ExpectedFor(fixture);
        const std::string path = ImageFolder() + "/" + fixture;
        const bool pcx = fixture.find(".pcx") != std::string::npos;

        Bitmap::Format format = Bitmap::Raw;
        unsigned long width = 0, height = 0;
        const bool known = Bitmap::GetInfo(path.c_str(), format, width, height);
        EXPECT_EQ(expected.info[0] != 0, known);
        if (known)
        {
            EXPECT_EQ((std::vector<long>{expected.info[1], expected.info[2], expected.info[3]}),
                      (std::vector<long>{format, long(width), long(height)}));
        }

        // A bitmap still holding an image is emptied by a load that fails.
        Bitmap bitmap(Kiv::Size{3, 3}, Bitmap::ARGB32);
        ExpectImage(bitmap.Load(Kiv::PString(path.c_str()), Kiv::PString(), true), bitmap, expected.loads[0],
                    pcx);
        ExpectImage(LoadBytes(bitmap, ReadBytes(path), fixture.c_str(), false), bitmap, expected.loads[1],
                    pcx);
    }
}

TEST(ImageFile, CutFilesLoadWhatTheyHold)
{
    for (const std::string & fixture : Fixtures())
    {
        SCOPED_TRACE(fixture);
        const Bytes whole = ReadBytes(ImageFolder() + "/" + fixture);
        const Expected expected = ExpectedFor(fixture);
        for (size_t size = 0; size < whole.size(); ++size)
            for (const bool keep : {true, false})
            {
                Bitmap bitmap;
                const Bytes cut(whole.begin(), whole.begin() + static_cast<long>(size));
                if (!LoadBytes(bitmap, cut, fixture.c_str(), keep))
                {
                    EXPECT_FALSE(bitmap.IsValid());
                    continue;
                }
                // A cut can turn a refused PCX into one with a palette mark.
                const Image & image = expected.loads[keep ? 0 : 1];
                if (image.format < 0)
                    continue;
                EXPECT_EQ(image.format, bitmap.GetFormat());
                EXPECT_EQ(image.width, bitmap.GetWidth());
                EXPECT_EQ(image.height, bitmap.GetHeight());
            }
    }

    // Of a bottom-up 32-bit image cut after its second row, those rows load and the rest is 0;
    // of a 24-bit one, the bytes past the end read as 0 in opaque pixels.
    const Bytes tga32 = ReadBytes(ImageFolder() + "/tga-rgba32.tga");
    const Image full32 = ExpectedFor("tga-rgba32.tga").loads[1];
    const size_t row32 = size_t(full32.width) * 4;
    Bitmap bitmap;
    ASSERT_TRUE(LoadBytes(bitmap, Bytes(tga32.begin(), tga32.begin() + 18 + 2 * row32 + 5), "a.tga", false));
    Bytes rows = Pixels(bitmap, false);
    EXPECT_TRUE(std::equal(rows.end() - 2 * row32, rows.end(), full32.pixels.end() - 2 * row32));
    EXPECT_EQ(Bytes(rows.size() - 2 * row32, 0), Bytes(rows.begin(), rows.end() - 2 * row32));

    const Bytes bmp24 = ReadBytes(ImageFolder() + "/bmp-rgb24.bmp");
    const Image full24 = ExpectedFor("bmp-rgb24.bmp").loads[1];
    ASSERT_TRUE(LoadBytes(bitmap, Bytes(bmp24.begin(), bmp24.begin() + 54 + 4), "a.bmp", false));
    rows = Pixels(bitmap, false);
    const Bytes bottom(full24.pixels.end() - full24.width * 4, full24.pixels.end());
    EXPECT_EQ((Bytes{bottom[0], bottom[1], bottom[2], 255, bottom[4], 0, 0, 255, 0, 0, 0, 255}),
              Bytes(rows.end() - full24.width * 4, rows.end() - full24.width * 4 + 12));
}

TEST(ImageFile, LyingHeadersStayInsideTheImage)
{
    // A TGA beyond 4096 pixels is refused; one that holds nothing after its header loads as 0.
    Bytes tga(18, 0);
    tga[2] = 2;
    tga[16] = 32;
    tga[13] = 0x10, tga[12] = 1, tga[14] = 2; // 4097 x 2
    Bitmap bitmap;
    EXPECT_FALSE(LoadBytes(bitmap, tga, "a.tga", false));
    tga[12] = 0; // 4096 x 2
    ASSERT_TRUE(LoadBytes(bitmap, tga, "a.tga", false));
    EXPECT_EQ(Bytes(4096 * 8, 0), Pixels(bitmap, true));

    // A BMP height of -2^31 is not a size; a colour count past 256 reads 256 entries (see the
    // fixtures); a width of 30 leaves padding and is refused.
    Bytes bmp = ReadBytes(ImageFolder() + "/bmp-rgb24.bmp");
    bmp[25] = 0x80, bmp[22] = bmp[23] = bmp[24] = 0;
    EXPECT_FALSE(LoadBytes(bitmap, bmp, "a.bmp", false));

    // PCX runs that reach past the image stop at its last pixel, on both paths; bounds that end
    // before they begin are no image.
    Bytes pcx(128, 0);
    pcx[1] = 5, pcx[2] = 1, pcx[3] = 8, pcx[8] = 2, pcx[10] = 2; // 3 x 3
    for (const unsigned char byte : {0xFF, 7, 0xC5, 9, 0xFF})
        pcx.push_back(byte);
    pcx.push_back(12);
    for (int i = 0; i < 768; ++i)
        pcx.push_back(static_cast<unsigned char>(i / 3));
    for (const bool keep : {true, false})
    {
        ASSERT_TRUE(LoadBytes(bitmap, pcx, "a.pcx", keep));
        const uint32_t first = keep ? 0x07070707u : 0xFF070707u;
        EXPECT_EQ(first, *reinterpret_cast<const uint32_t *>(bitmap.GetPtr()));
    }
    pcx[8] = 0, pcx[4] = 1;
    EXPECT_FALSE(LoadBytes(bitmap, pcx, "a.pcx", true));
}

TEST(ImageFile, TheExtensionAloneChoosesTheReader)
{
    TempDir dir;
    const Bytes tga = ReadBytes(ImageFolder() + "/tga-rgba32.tga");
    const Bytes pcx = ReadBytes(ImageFolder() + "/pcx-p8.pcx");
    Bitmap bitmap;
    for (const char * name : {"upper.TGA", "long.tgax", "dotted.name.Tga"})
    {
        WriteBytes(dir / name, tga);
        EXPECT_TRUE(bitmap.Load(Kiv::PString((dir / name).c_str()), Kiv::PString())) << name;
    }
    for (const char * name :
         {"none", "tga", "wrong.bmp", "wrong.pcx", "wrong.jpg", "wrong.jpeg", "dir.tga/x"})
    {
        std::filesystem::create_directories(dir / "dir.tga");
        WriteBytes(dir / name, tga);
        EXPECT_FALSE(bitmap.Load(Kiv::PString((dir / name).c_str()), Kiv::PString())) << name;
        EXPECT_FALSE(bitmap.IsValid()) << name;
    }
    // A PCX whose marker is not 769 bytes from the end is refused.
    WriteBytes(dir / "padded.pcx", Bytes(pcx.begin(), pcx.end() - 1));
    EXPECT_FALSE(bitmap.Load(Kiv::PString((dir / "padded.pcx").c_str()), Kiv::PString()));

    // Through a substitution, and from a file already open.
    Kiv::File::Subst(Kiv::PString("imagefiles"), (dir.Path() + "/").c_str());
    EXPECT_TRUE(bitmap.Load(Kiv::PString("upper.TGA"), Kiv::PString("imagefiles")));
    Kiv::File::Subst(Kiv::PString("imagefiles"), nullptr);
    Kiv::File file;
    ASSERT_TRUE(file.Open((dir / "upper.TGA").c_str(), Kiv::File::MODE_READ).Succeeded());
    EXPECT_TRUE(bitmap.Load(file));
    EXPECT_EQ(Bitmap::ARGB32, bitmap.GetFormat());
    EXPECT_FALSE(bitmap.Load(Kiv::PString((dir / "missing.tga").c_str()), Kiv::PString()));
}

TEST(ImageFile, TgaColourMapIsAlways256Entries)
{
    // The header's map length and first entry are not read: the same pixels load either way.
    Bytes tga = ReadBytes(ImageFolder() + "/tga-p8.tga");
    Bitmap plain, lying;
    ASSERT_TRUE(LoadBytes(plain, tga, "a.tga", true));
    tga[3] = 5, tga[5] = 16, tga[6] = 0;
    ASSERT_TRUE(LoadBytes(lying, tga, "a.tga", true));
    EXPECT_EQ(Pixels(plain, false), Pixels(lying, false));
    EXPECT_EQ(0, memcmp(plain.GetPalette(), lying.GetPalette(), 1024));
}

TEST(ImageFile, SavedFilesLoadBackAndKeepTheirLayout)
{
    TempDir dir;
    Bitmap argb(Kiv::Size{5, 3}, Bitmap::ARGB32), xrgb(Kiv::Size{8, 2}, Bitmap::XRGB32);
    Bitmap rgb(Kiv::Size{10, 2}, Bitmap::RGB24), indexed(Kiv::Size{4, 4}, Bitmap::Indexed8), empty;
    for (Bitmap * bitmap : {&argb, &xrgb, &rgb})
        Paint(*bitmap);

    // TGA: 32 bits top to bottom, alpha bits left 0; nothing but ARGB32 is written.
    ASSERT_TRUE(argb.Save((dir / "argb.tga").c_str()));
    const Bytes tga = ReadBytes(dir / "argb.tga");
    EXPECT_EQ(18u + 5 * 3 * 4, tga.size());
    EXPECT_EQ((Bytes{2, 32, 0x20}), (Bytes{tga[2], tga[16], tga[17]}));
    Bitmap back;
    ASSERT_TRUE(back.Load(Kiv::PString((dir / "argb.tga").c_str()), Kiv::PString()));
    EXPECT_EQ(Pixels(argb, false), Pixels(back, false));
    for (Bitmap * bitmap : {&xrgb, &rgb, &indexed, &empty})
        EXPECT_FALSE(bitmap->Save((dir / "no.tga").c_str()));

    // BMP: 32 bits for ARGB32, else 24, bottom row first, no row padding even at width 10.
    ASSERT_TRUE(argb.Save((dir / "argb.bmp").c_str()));
    ASSERT_TRUE(xrgb.Save((dir / "xrgb.bmp").c_str()));
    ASSERT_TRUE(rgb.Save((dir / "rgb.bmp").c_str()));
    EXPECT_EQ(54u + 5 * 3 * 4, ReadBytes(dir / "argb.bmp").size());
    const Bytes rgbFile = ReadBytes(dir / "rgb.bmp");
    EXPECT_EQ(54u + 10 * 2 * 3, rgbFile.size());
    EXPECT_EQ(0, memcmp(rgbFile.data() + 54, rgb.GetPtr(Kiv::Point{0, 1}), 30));
    ASSERT_TRUE(back.Load(Kiv::PString((dir / "xrgb.bmp").c_str()), Kiv::PString()));
    EXPECT_EQ(Bitmap::XRGB32, back.GetFormat());
    Bytes opaque = Pixels(xrgb, false);
    for (size_t i = 3; i < opaque.size(); i += 4)
        opaque[i] = 255;
    EXPECT_EQ(opaque, Pixels(back, false));
    for (Bitmap * bitmap : {&indexed, &empty})
        EXPECT_FALSE(bitmap->Save((dir / "no.bmp").c_str()));
    EXPECT_FALSE(argb.Save((dir / "no.pcx").c_str()));
    EXPECT_FALSE(argb.Save((dir / "missing/folder.tga").c_str()));
    EXPECT_FALSE(std::filesystem::exists(dir / "no.bmp"));

#if !defined(_WIN32)
    // A full disk: the save fails and leaves no half-written file behind.
    std::filesystem::create_symlink("/dev/full", dir / "full.bmp");
    EXPECT_FALSE(xrgb.Save((dir / "full.bmp").c_str()));
#endif
}

#if defined(CORESTONE_PILLOW)
TEST(ImageFile, PillowReadsWhatIsSaved)
{
    TempDir dir;
    Bitmap argb(Kiv::Size{6, 4}, Bitmap::ARGB32), xrgb(Kiv::Size{8, 3}, Bitmap::XRGB32);
    Bitmap rgb(Kiv::Size{4, 5}, Bitmap::RGB24);
    const struct
    {
        Bitmap & bitmap;
        const char * name;
        bool alpha; // Pillow reads a 32-bit BMP without its alpha
    } files[] = {{argb, "argb.tga", true},
                 {argb, "argb.bmp", false},
                 {xrgb, "xrgb.bmp", false},
                 {rgb, "rgb.bmp", false}};
    for (const auto & saved : files)
    {
        SCOPED_TRACE(saved.name);
        Paint(saved.bitmap);
        ASSERT_TRUE(saved.bitmap.Save((dir / saved.name).c_str()));
        const std::string command =
            std::string(CORESTONE_PILLOW) + " \"" + (dir / saved.name) + "\" \"" + (dir / "pixels") + "\"";
        ASSERT_EQ(0, std::system(command.c_str()));
        const Bytes read = ReadBytes(dir / "pixels");
        const int width = saved.bitmap.GetWidth(), height = saved.bitmap.GetHeight();
        ASSERT_EQ(8 + size_t(width) * height * 4, read.size());
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
            {
                const Kiv::PackedColor colour = saved.bitmap.Pixel(Kiv::Point{x, y});
                const unsigned char * pixel = read.data() + 8 + (size_t(y) * width + x) * 4;
                EXPECT_EQ(colour.B(), pixel[0]);
                EXPECT_EQ(colour.G(), pixel[1]);
                EXPECT_EQ(colour.R(), pixel[2]);
                EXPECT_EQ(saved.alpha ? colour.A() : 255, pixel[3]);
            }
    }
}
#endif
