// Image files against files made by Pillow: every accepted variant and the rejected ones of
// tests/data/images, loaded as their NAME.expect says (see tests/images/make.py); damaged and
// lying files; saving, read back by the loaders and, on Linux, by Pillow.
#include "Bitmap.h"
#include "File.h"
#include "MemoryFile.h"
#include "PString.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
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

// The bitmap's pixels as an expectation lays them out: rows top first without padding, or, for
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

void Put(Bytes & out, long value)
{
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

// One load as NAME.expect records it (see tests/images/make.py). A failed load leaves the bitmap
// empty.
void Record(Bytes & out, bool loaded, const Bitmap & bitmap, bool pcx)
{
    if (!loaded)
    {
        EXPECT_FALSE(bitmap.IsValid());
        EXPECT_EQ(Bitmap::Raw, bitmap.GetFormat());
        EXPECT_EQ(nullptr, bitmap.GetPalette());
        return Put(out, -1);
    }
    for (const long value : {long(bitmap.GetFormat()), long(bitmap.GetWidth()), long(bitmap.GetHeight())})
        Put(out, value);
    const bool indexed = bitmap.GetFormat() == Bitmap::Indexed8;
    if (indexed)
    {
        const auto * palette = reinterpret_cast<const unsigned char *>(bitmap.GetPalette());
        out.insert(out.end(), palette, palette + 1024);
    }
    const Bytes pixels = Pixels(bitmap, pcx && indexed);
    out.insert(out.end(), pixels.begin(), pixels.end());
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
        const std::string path = ImageFolder() + "/" + fixture;
        Bytes actual;
        Bitmap::Format format = Bitmap::Raw;
        unsigned long width = 0, height = 0;
        const bool known = Bitmap::GetInfo(path.c_str(), format, width, height);
        for (const long value : {long(known), known ? long(format) : 0, long(width), long(height)})
            Put(actual, value);
        // A bitmap still holding an image is emptied by a load that fails.
        Bitmap bitmap(Kiv::Size{3, 3}, Bitmap::ARGB32);
        const bool pcx = fixture.find(".pcx") != std::string::npos;
        Record(actual, bitmap.Load(Kiv::PString(path.c_str()), Kiv::PString(), true), bitmap, pcx);
        Record(actual, LoadBytes(bitmap, ReadBytes(path), fixture.c_str(), false), bitmap, pcx);

        const Bytes expected = ReadBytes(path.substr(0, path.rfind('.')) + ".expect");
        const auto differ = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
        EXPECT_TRUE(actual == expected)
            << "the first difference is at byte " << differ.first - actual.begin();
    }
}

TEST(ImageFile, CutFilesLoadWhatTheyHold)
{
    for (const std::string & fixture : Fixtures())
    {
        SCOPED_TRACE(fixture);
        const Bytes whole = ReadBytes(ImageFolder() + "/" + fixture);
        for (const bool keep : {true, false})
        {
            Bitmap full, bitmap;
            // A cut can turn a refused PCX into one with a palette mark: only what loads whole
            // is cut.
            if (!LoadBytes(full, whole, fixture.c_str(), keep))
                continue;
            for (size_t size = 0; size < whole.size(); ++size)
                if (LoadBytes(bitmap, Bytes(whole.begin(), whole.begin() + long(size)), fixture.c_str(),
                              keep))
                {
                    EXPECT_EQ(full.GetFormat(), bitmap.GetFormat());
                    EXPECT_EQ(full.GetWidth(), bitmap.GetWidth());
                    EXPECT_EQ(full.GetHeight(), bitmap.GetHeight());
                }
        }
    }

    // A bottom-up 32-bit image cut inside its third row keeps its two bottom rows; the rest is 0.
    const Bytes tga = ReadBytes(ImageFolder() + "/tga-rgba32.tga");
    Bitmap full, bitmap;
    ASSERT_TRUE(LoadBytes(full, tga, "a.tga", false));
    const size_t row = size_t(full.GetWidth()) * 4;
    ASSERT_TRUE(LoadBytes(bitmap, Bytes(tga.begin(), tga.begin() + long(18 + 2 * row + 5)), "a.tga", false));
    const Bytes rows = Pixels(bitmap, false), fullRows = Pixels(full, false);
    EXPECT_TRUE(std::equal(rows.end() - long(2 * row), rows.end(), fullRows.end() - long(2 * row)));
    EXPECT_EQ(Bytes(rows.size() - 2 * row, 0), Bytes(rows.begin(), rows.end() - long(2 * row)));
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

    // A TGA colour map always has 256 entries: the header's length and first entry are not read.
    Bytes mapped = ReadBytes(ImageFolder() + "/tga-p8.tga");
    Bitmap plain;
    ASSERT_TRUE(LoadBytes(plain, mapped, "a.tga", true));
    mapped[3] = 5, mapped[5] = 16, mapped[6] = 0;
    ASSERT_TRUE(LoadBytes(bitmap, mapped, "a.tga", true));
    EXPECT_EQ(Pixels(plain, false), Pixels(bitmap, false));
    EXPECT_EQ(0, memcmp(plain.GetPalette(), bitmap.GetPalette(), 1024));
}

TEST(ImageFile, TheExtensionAloneChoosesTheReader)
{
    TempDir dir;
    const Bytes tga = ReadBytes(ImageFolder() + "/tga-rgba32.tga");
    Bitmap bitmap;
    for (const char * name : {"upper.TGA", "long.tgax"})
    {
        WriteBytes(dir / name, tga);
        EXPECT_TRUE(bitmap.Load(Kiv::PString((dir / name).c_str()), Kiv::PString())) << name;
    }
    for (const char * name : {"none", "wrong.bmp", "wrong.jpg", "dir.tga/x"})
    {
        std::filesystem::create_directories(dir / "dir.tga");
        WriteBytes(dir / name, tga);
        EXPECT_FALSE(bitmap.Load(Kiv::PString((dir / name).c_str()), Kiv::PString())) << name;
        EXPECT_FALSE(bitmap.IsValid()) << name;
    }

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
