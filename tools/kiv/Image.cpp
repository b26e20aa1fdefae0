#include "Bitmap.h"
#include "PString.h"
#include "Tool.h"

#include <cstdio>

namespace Tool
{
namespace
{
using Kiv::Bitmap;

const char * FormatName(Bitmap::Format format)
{
    static const char * const names[] = {"Indexed8", "RGB24", "ARGB32", "XRGB32", "RGB565", "Raw"};
    return format <= Bitmap::Raw ? names[format] : "unknown";
}

int Info(const std::vector<std::string> & names)
{
    // One unreadable file does not stop the others.
    int result = 0;
    for (const std::string & name : names)
    {
        Bitmap::Format format = Bitmap::Raw;
        unsigned long width = 0, height = 0;
        if (Bitmap::GetInfo(name.c_str(), format, width, height))
            printf("%lux%lu %-8s  %s\n", width, height, FormatName(format), name.c_str());
        else
        {
            Report(imgCommand, Failure{name, "not a TGA, BMP, PCX or JPEG file that can be read"});
            result = 1;
        }
    }
    return result;
}

int Convert(const std::string & in, const std::string & out)
{
    const Kiv::File::Path outPath(out.c_str());
    const bool tga = outPath.IsExt("tga");
    if (!tga && !outPath.IsExt("bmp"))
        Fail(out, "the output must be named .tga or .bmp");
    Bitmap image;
    if (!image.Load(Kiv::PString(in.c_str()), Kiv::PString()))
        Fail(in, "cannot be read as an image");
    // TGA files hold ARGB32 only; an opaque image already has its alpha at 255 and is written
    // through an alias that says so.
    Bitmap alias;
    const bool opaque = tga && image.GetFormat() == Bitmap::XRGB32;
    if (opaque)
        alias.Init(image.GetSize(), static_cast<int>(image.GetPitch()), Bitmap::ARGB32, image.GetPtr());
    if (!(opaque ? alias : image).Save(out.c_str()))
        Fail(out, "cannot be written");
    return 0;
}

int Run(const Arguments & arguments)
{
    const std::vector<std::string> & words = arguments.operands;
    if (words[0] == "info")
        return Info(std::vector<std::string>(words.begin() + 1, words.end()));
    if (words[0] == "convert" && words.size() == 3)
        return Convert(words[1], words[2]);
    fprintf(stderr, "kiv img: expected 'info FILE...' or 'convert IN OUT'\nusage: kiv img %s\n",
            imgCommand.usage);
    return 2;
}
} // namespace

extern const Command imgCommand = {
    "img",
    "info FILE... | convert IN OUT",
    "show or convert image files",
    "info prints, for each FILE, its width x height, the pixel format it loads as and\n"
    "its name. The kind of file is chosen by the name's extension: .tga, .bmp, .pcx,\n"
    ".jpg or .jpeg.\n"
    "convert reads IN (any of those kinds, 8-bit images expanded to 32 bits) and\n"
    "writes it to OUT as a TGA (32 bits) or a BMP (24 bits, or 32 with alpha), as\n"
    "OUT's extension says.",
    2,
    Unlimited,
    "",
    Run,
};
} // namespace Tool
