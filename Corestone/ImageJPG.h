// JPEG streams: the walk over their markers that every target shares, and the decoder that each
// target supplies (libjpeg-turbo, the Windows Imaging Component, or none where the target has
// neither).
#pragma once

#include <cstddef>
#include <cstdint>

namespace Kiv::Jpeg
{
struct Frame
{
    uint32_t width = 0;
    uint32_t height = 0;
    unsigned components = 0;
    unsigned precision = 0;
    // The frame marker's low four bits: 0 baseline, 1 extended sequential, 2 progressive; the
    // others are lossless, hierarchical or arithmetic-coded processes.
    unsigned process = 0;
    // Filled only by a walk of the whole stream.
    unsigned scans = 0;
    bool complete = false; // the end-of-image marker follows the last scan
};

// Walks the markers from the start-of-image marker to the frame header, or with wholeStream on
// through every scan to the end-of-image marker. False unless a well-formed frame header comes
// before the first scan.
bool ReadFrame(const uint8_t * data, size_t size, Frame & frame, bool wholeStream);

// Whether a frame walked whole is one that every target decodes alike: 8-bit baseline, extended
// or progressive Huffman coding of grey or three-component colour, complete, within the scan limit.
bool IsDecodable(const Frame & frame);

// Decodes a decodable stream into frame.height rows of frame.width pixels, each B, G, R, 255, row
// starts pitch bytes apart. False when the decoder refuses the stream; the rows may then be
// partly written.
bool Decode(const uint8_t * data, size_t size, const Frame & frame, uint8_t * pixels, size_t pitch);
} // namespace Kiv::Jpeg
