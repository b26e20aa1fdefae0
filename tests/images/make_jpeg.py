#!/usr/bin/env python3
"""Makes the JPEG fixtures of tests/data/images with Pillow, and beside each decodable one
NAME.bgra: the pixels as Pillow's own decoder (libjpeg-turbo) gives them back, width x height
pixels of bytes B, G, R, 255, top row first. The size is the JPEG's own.

The pictures mix smooth ramps with hard edges and fine stripes, so the chroma upsampling and the
inverse transform both show in the pixels; the sizes are not multiples of the coding units. How a
decoder upsamples subsampled colour is its own choice (libjpeg-turbo filters, libjpeg 9 and so
Wine scale in the transform), and at a hard colour edge the two land far apart, so the subsampled
pictures keep their hard edges in brightness alone; the full-resolution ones have colour edges.

Usage: make_jpeg.py DIR           writes the fixtures into DIR
       make_jpeg.py --check DIR   makes them afresh and compares them with DIR byte for byte
"""
import io
import os
import struct
import sys

from PIL import Image


def picture(mode, width, height, colour_edges=False):
    """Smooth colour under hard edges of brightness: stripes and a block that shift R, G and B
    alike, so the colour difference stays smooth. With colour_edges the stripes swap colours
    and the block is saturated red, hard edges of colour itself."""
    image = Image.new("RGB", (width, height))
    pixels = []
    for y in range(height):
        for x in range(width):
            r = 40 + x * 150 // (width - 1)
            g = 40 + y * 150 // (height - 1)
            b = 40 + (x + y) * 100 // (width + height - 2)
            block = width // 3 <= x < 2 * width // 3 and height // 3 <= y < 2 * height // 3
            stripe = x % 4 == 0
            if colour_edges and block:
                r, g, b = 230, 20, 40
            elif colour_edges and stripe:
                r, g, b = 255 - r, 255 - g, b
            else:
                shift = -35 if block else 50 if stripe else 0
                r, g, b = r + shift, g + shift, b + shift
            pixels.append((r, g, b))
    image.putdata(pixels)
    return image.convert(mode)


def saved(image, **options):
    out = io.BytesIO()
    image.save(out, "JPEG", **options)
    return out.getvalue()


def segment(marker, body):
    return bytes((0xFF, marker)) + struct.pack(">H", len(body) + 2) + body


def restart_intervals():
    """A grey 32 x 8 picture of four blocks, one restart interval each, put together here since
    no encoder at hand writes restart markers. Its Huffman tables hold one code each, a single
    bit: DC category 5 and the end of block. Every block steps its DC by +31 or -31 from 0, the
    value a decoder starts again from after each restart marker, so the blocks alternate."""
    tables = bytes([0x00, 1] + [0] * 15 + [5]) + bytes([0x10, 1] + [0] * 15 + [0])
    head = (segment(0xDB, bytes([0] + [4] * 64)) +
            segment(0xC0, bytes([8]) + struct.pack(">HH", 8, 32) + bytes([1, 1, 0x11, 0])) +
            segment(0xC4, tables) + segment(0xDD, struct.pack(">H", 1)) +
            segment(0xDA, bytes([1, 1, 0x00, 0, 63, 0])))
    # DC code 0, the five bits of +31 (11111) or -31 (00000), end of block 0, a padding 1 bit.
    blocks = [0x7D, 0x01, 0x7D, 0x01]
    coded = bytes([blocks[0]])
    for i, block in enumerate(blocks[1:]):
        coded += bytes((0xFF, 0xD0 + i, block))
    return b"\xFF\xD8" + head + coded + b"\xFF\xD9"


def decoded(data):
    image = Image.open(io.BytesIO(data))
    image.load()
    return b"".join(bytes((b, g, r, 255)) for r, g, b in image.convert("RGB").getdata())


def fixtures():
    """(name, JPEG bytes, whether every target decodes it)."""
    exif = Image.Exif()
    exif[0x010E] = "a segment before the frame header"
    yield "jpeg-420", saved(picture("RGB", 45, 29), quality=85, subsampling=2, comment=b"note",
                            exif=exif.tobytes()), True
    yield "jpeg-422", saved(picture("RGB", 40, 21), quality=90, subsampling=1), True
    yield "jpeg-444", saved(picture("RGB", 33, 17, True), quality=95, subsampling=0), True
    yield "jpeg-progressive", saved(picture("RGB", 48, 40), quality=80, progressive=True,
                                    optimize=True), True
    yield "jpeg-grey", saved(picture("L", 31, 19, True), quality=90), True
    yield "jpeg-restart", restart_intervals(), True
    yield "jpeg-cmyk", saved(picture("CMYK", 16, 8), quality=90), False


def files():
    for name, data, decodable in fixtures():
        yield name + ".jpg", data
        if decodable:
            yield name + ".bgra", decoded(data)


def main(args):
    check = args[:1] == ["--check"]
    folder = args[-1] if args and not args[-1].startswith("--") else None
    if folder is None:
        sys.exit(__doc__)
    differ = []
    for name, data in files():
        path = os.path.join(folder, name)
        if check:
            with open(path, "rb") as f:
                if f.read() != data:
                    differ.append(name)
        else:
            with open(path, "wb") as f:
                f.write(data)
    if differ:
        sys.exit("differ: " + " ".join(differ))


if __name__ == "__main__":
    main(sys.argv[1:])
