// JPEG files: a walk over the stream's markers, the same on every target, decides what reaches the
// target's decoder, so that every target accepts and refuses the same files and no decoder sees
// a stream cut short or a frame beyond the bitmap's limits.
#include "ImageJPG.h"

#include "Bitmap.h"
#include "ImageFile.h"

#include <cstring>

namespace Kiv
{
namespace Jpeg
{
namespace
{
enum : uint8_t
{
    MARKER_TEM = 0x01,
    MARKER_SOF0 = 0xC0,
    MARKER_DHT = 0xC4,
    MARKER_JPG = 0xC8,
    MARKER_DAC = 0xCC,
    MARKER_SOF15 = 0xCF,
    MARKER_RST0 = 0xD0,
    MARKER_RST7 = 0xD7,
    MARKER_SOI = 0xD8,
    MARKER_EOI = 0xD9,
    MARKER_SOS = 0xDA
};

// A progressive stream may hold any number of scans, each a pass over the whole image; real
// encoders write at most a few dozen, so a stream of thousands is an attack on decoding time.
constexpr unsigned MOST_SCANS = 256;

constexpr unsigned PROCESS_PROGRESSIVE = 2;

bool IsFrameMarker(int code)
{
    return code >= MARKER_SOF0 && code <= MARKER_SOF15 && code != MARKER_DHT && code != MARKER_JPG &&
           code != MARKER_DAC;
}

unsigned BigEndian16(const uint8_t * p)
{
    return unsigned(p[0]) << 8 | p[1];
}

class Walk
{
public:
    Walk(const uint8_t * data, size_t size) : data(data), size(size), at(2) {}

    // The next marker's code, or -1 at the end of the data. What a decoder steps over on its way
    // is stepped over here too: bytes before a 0xFF, fill bytes, the zero after a 0xFF inside
    // coded data, and the restart markers between its intervals.
    int NextMarker()
    {
        while (at < size)
        {
            const void * found = memchr(data + at, 0xFF, size - at);
            if (found == nullptr)
                break;
            at = static_cast<size_t>(static_cast<const uint8_t *>(found) - data) + 1;
            while (at < size && data[at] == 0xFF)
                ++at;
            if (at == size)
                break;
            const uint8_t code = data[at++];
            if (code != 0 && code != MARKER_TEM && (code < MARKER_RST0 || code > MARKER_RST7))
                return code;
        }
        at = size;
        return -1;
    }

    // Steps over the segment that follows a marker; its body (after the length word) is given
    // back. False when the segment does not fit in the data.
    bool Segment(const uint8_t *& body, size_t & length)
    {
        if (size - at < 2)
            return false;
        const size_t declared = BigEndian16(data + at);
        if (declared < 2 || declared > size - at)
            return false;
        body = data + at + 2;
        length = declared - 2;
        at += declared;
        return true;
    }

private:
    const uint8_t * data;
    size_t size;
    size_t at;
};

bool ParseFrame(int code, const uint8_t * body, size_t length, Frame & frame)
{
    if (length < 6)
        return false;
    frame.precision = body[0];
    frame.height = BigEndian16(body + 1);
    frame.width = BigEndian16(body + 3);
    frame.components = body[5];
    frame.process = unsigned(code) & 15u;
    // A height of 0 defers the height to a marker after the first scan, which no target decodes.
    return frame.width > 0 && frame.height > 0 && frame.components > 0 && length >= 6 + 3 * frame.components;
}
} // namespace

bool ReadFrame(const uint8_t * data, size_t size, Frame & frame, bool wholeStream)
{
    frame = Frame{};
    if (size < 2 || data[0] != 0xFF || data[1] != MARKER_SOI)
        return false;
    Walk walk(data, size);
    bool framed = false;
    for (;;)
    {
        const int code = walk.NextMarker();
        // The data ending, or a second start-of-image marker, ends the walk incomplete.
        if (code < 0 || code == MARKER_SOI)
            return framed;
        if (code == MARKER_EOI)
        {
            frame.complete = frame.scans > 0;
            return framed;
        }
        const uint8_t * body = nullptr;
        size_t length = 0;
        if (!walk.Segment(body, length))
            return framed;
        if (IsFrameMarker(code))
        {
            // A second frame header is refused by every decoder: the walk ends incomplete.
            if (framed)
                return true;
            if (!ParseFrame(code, body, length, frame))
                return false;
            framed = true;
            if (!wholeStream)
                return true;
        }
        else if (code == MARKER_SOS)
        {
            if (!framed)
                return false;
            ++frame.scans;
        }
    }
}

bool IsDecodable(const Frame & frame)
{
    return frame.complete && frame.scans <= MOST_SCANS && frame.precision == 8 &&
           frame.process <= PROCESS_PROGRESSIVE && (frame.components == 1 || frame.components == 3);
}
} // namespace Jpeg

namespace ImageFile
{
bool LoadJpeg(Bitmap & bitmap, const uint8_t * data, size_t size)
{
    bitmap.Done();
    Jpeg::Frame frame;
    if (!Jpeg::ReadFrame(data, size, frame, true) || !Jpeg::IsDecodable(frame))
        return false;
    // Init refuses a size beyond the bitmap's limits before anything is allocated.
    const Size extent{int32_t(frame.width), int32_t(frame.height)};
    if (bitmap.Init(extent, 0, Bitmap::XRGB32) &&
        Jpeg::Decode(data, size, frame, bitmap.GetPtr(), bitmap.GetPitch()))
        return true;
    bitmap.Done();
    return false;
}

bool GetJpegInfo(const uint8_t * data, size_t size, unsigned long & width, unsigned long & height)
{
    Jpeg::Frame frame;
    if (!Jpeg::ReadFrame(data, size, frame, false))
        return false;
    width = frame.width;
    height = frame.height;
    return true;
}
} // namespace ImageFile
} // namespace Kiv
