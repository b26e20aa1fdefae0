#!/usr/bin/env python3
"""Makes the image fixtures of tests/data/images with Pillow, and beside each one NAME.expect: what
Kiv::Bitmap's loaders must give for it, taken from what Pillow reads back from the same file.

The loaders keep a few deliberate habits that Pillow does not share; the expectations apply them to
Pillow's pixels: an 8-bit TGA's colour map is read as R, G, B although the file holds B, G, R (red
and blue trade places); a BMP is always read bottom-up; PCX indices are laid one after another
without regard to row padding, and the expanding PCX path takes a run's whole first byte as its
length and swaps red and blue. Where a habit moves pixels (the PCX runs and pad bytes) the stream is
decoded here, and checked against Pillow where Pillow and the loader agree.

NAME.expect, little-endian 32-bit words:
  GetInfo: answer (0 or 1), format, width, height
  then twice, for keepPalette true and false:
    format, or -1 when Load fails (and nothing follows)
    width, height
    Indexed8 only: the palette, 256 entries of bytes B, G, R, A
    width x height pixels, top row first (Indexed8 PCX: the first bytes of the pixel block)

Usage: make.py DIR           writes the fixtures into DIR
       make.py --check DIR   makes them afresh and compares them with DIR byte for byte
"""
import io
import os
import struct
import sys
import tempfile

from PIL import Image

INDEXED8, ARGB32, XRGB32, RAW = 0, 2, 3, 5


class Numbers:
    """A fixed pseudo-random sequence, the same on every Python."""

    def __init__(self, seed):
        self.state = seed

    def next(self, limit):
        self.state = (self.state * 1103515245 + 12345) & 0x7FFFFFFF
        return (self.state >> 8) % limit


def paletted(width, height, colours, seed, literal=False):
    numbers = Numbers(seed)
    image = Image.new("P", (width, height))
    image.putpalette([numbers.next(256) for _ in range(colours * 3)])
    indices = []
    for i in range(width * height):
        if not literal:
            # Short stretches of one index give the run-length coders runs to find.
            indices.append(indices[-1] if indices and numbers.next(3) == 0 else numbers.next(colours))
            continue
        # Below 192 and unlike its left neighbour, every index is one literal byte of a PCX.
        index = numbers.next(min(colours, 192))
        while i % width and index == indices[-1]:
            index = numbers.next(min(colours, 192))
        indices.append(index)
    image.putdata(indices)
    return image


def true_colour(mode, width, height, seed):
    numbers = Numbers(seed)
    alphas = (0, 255, 128, 1, 254)
    pixels = []
    for i in range(width * height):
        pixel = tuple(numbers.next(256) for _ in range(3))
        if mode == "RGBA":
            pixel += (alphas[i % 5] if i % 3 else numbers.next(256),)
        pixels.append(pixel)
    image = Image.new(mode, (width, height))
    image.putdata(pixels)
    return image


def saved(image, kind, **options):
    out = io.BytesIO()
    image.save(out, kind, **options)
    return out.getvalue()


def read(data):
    image = Image.open(io.BytesIO(data))
    image.load()
    return image


def bgra(r, g, b, a):
    return bytes((b, g, r, a))


def rgba_pixels(image, swap=False):
    pixels = image.convert("RGBA").getdata()
    return b"".join(bgra(b, g, r, a) if swap else bgra(r, g, b, a) for r, g, b, a in pixels)


def opaque(image, swap=False):
    return rgba_pixels(image.convert("RGB"), swap)


def palette_entries(image):
    values = image.getpalette() or []
    values += [0] * (768 - len(values))
    return [tuple(values[i : i + 3]) for i in range(0, 768, 3)]


def flipped(image):
    return image.transpose(Image.Transpose.FLIP_TOP_BOTTOM)


def result(fmt, image, pixels, palette=b""):
    return (fmt, image.size[0], image.size[1], palette, pixels)


def expect(info, keep, full):
    out = struct.pack("<iiii", *info)
    for load in (keep, full):
        if load is None:
            out += struct.pack("<i", -1)
            continue
        fmt, width, height, palette, pixels = load
        size = (1 if fmt == INDEXED8 else 4) * width * height
        assert len(pixels) == size and len(palette) == (1024 if fmt == INDEXED8 else 0)
        out += struct.pack("<iii", fmt, width, height) + palette + pixels
    return out


def true_colour_loads(data, fmt, flip=False):
    image = read(data)
    if flip:
        image = flipped(image)
    pixels = rgba_pixels(image) if fmt == ARGB32 else opaque(image)
    return result(fmt, image, pixels), result(fmt, image, pixels)


def patched(data, offset, layout, value):
    return data[:offset] + struct.pack(layout, value) + data[offset + struct.calcsize(layout) :]


# TGA -----------------------------------------------------------------------------------------


def tga8(image, **options):
    data = saved(image, "TGA", **options)
    back = read(data)
    entries = palette_entries(back)
    # Colour-map bytes taken as R, G, B: red and blue trade places on both paths.
    keep_palette = b"".join(bgra(b, g, r, 0) for r, g, b in entries)
    full = b"".join(bgra(entries[i][2], entries[i][1], entries[i][0], 255) for i in back.tobytes())
    info = (1, INDEXED8) + back.size
    return data, info, result(INDEXED8, back, back.tobytes(), keep_palette), result(XRGB32, back, full)


def tga16(width, height, seed, top):
    numbers = Numbers(seed)
    words = [numbers.next(0x10000) for _ in range(width * height)]
    header = struct.pack("<BBBHHBHHHHBB", 0, 0, 2, 0, 0, 0, 0, 0, width, height, 16, 0x20 if top else 0)
    data = header + b"".join(struct.pack("<H", word) for word in words)
    # Pillow widens 5 bits v to v * 255 // 31; the loader to v << 3.
    narrow = {v * 255 // 31: v for v in range(32)}
    image = read(data)
    pixels = b"".join(bgra(narrow[r] << 3, narrow[g] << 3, narrow[b] << 3, 255) for r, g, b in image.getdata())
    return data, (1, XRGB32, width, height), result(XRGB32, image, pixels), result(XRGB32, image, pixels)


def tga_true(image, **options):
    data = saved(image, "TGA", **options)
    fmt = ARGB32 if image.mode == "RGBA" else XRGB32
    return (data, (1, fmt) + image.size) + true_colour_loads(data, fmt)


def tga_rejected(data, info_format):
    width, height = struct.unpack_from("<HH", data, 12)
    return data, (1, info_format, width, height), None, None


def tga_fixtures():
    yield "tga-p8", tga8(paletted(12, 7, 256, 1))
    yield "tga-p8-top", tga8(paletted(9, 5, 256, 2), orientation=1, id_section=b"Corestone fixture")
    yield "tga-rgb16", tga16(10, 6, 3, False)
    yield "tga-rgb16-top", tga16(5, 3, 4, True)
    yield "tga-rgb24", tga_true(true_colour("RGB", 11, 6, 5))
    yield "tga-rgb24-top", tga_true(true_colour("RGB", 7, 4, 6), orientation=1)
    yield "tga-rgba32", tga_true(true_colour("RGBA", 8, 6, 7))
    yield "tga-rgba32-top", tga_true(true_colour("RGBA", 5, 3, 8), orientation=1, id_section=b"id")
    yield "tga-rle24", tga_rejected(saved(true_colour("RGB", 6, 4, 9), "TGA", rle=True), RAW)
    mirrored = saved(true_colour("RGB", 6, 4, 10), "TGA")
    yield "tga-mirror", tga_rejected(patched(mirrored, 17, "<B", 0x10), XRGB32)
    yield "tga-grey8", tga_rejected(saved(true_colour("RGB", 6, 4, 11).convert("L"), "TGA"), RAW)
    map16 = saved(paletted(6, 4, 256, 12), "TGA")
    yield "tga-p8-map16", tga_rejected(patched(map16, 7, "<B", 16), INDEXED8)


# BMP -----------------------------------------------------------------------------------------


def bmp8(image, colours_used=None):
    data = saved(image, "BMP")
    back = read(data)
    entries = palette_entries(back)
    count = struct.unpack_from("<I", data, 46)[0]
    # The entries read are copied with their reserved byte; the rest of the palette is zero.
    keep_palette = b"".join(data[54 + 4 * i : 58 + 4 * i] for i in range(count)) + bytes(1024 - 4 * count)
    assert keep_palette[:4] == bgra(*entries[0], 0)
    full = b"".join(bgra(*entries[i], 255) for i in back.tobytes())
    if colours_used is not None:
        data = patched(data, 46, "<I", colours_used)
    info = (1, XRGB32) + back.size
    return data, info, result(INDEXED8, back, back.tobytes(), keep_palette), result(XRGB32, back, full)


def bmp_true(image, flip=False):
    data = saved(image, "BMP")
    fmt = ARGB32 if image.mode == "RGBA" else XRGB32
    if flip:
        data = patched(data, 22, "<i", -image.size[1])
    keep, full = true_colour_loads(data, fmt, flip)
    if fmt == ARGB32:
        # Pillow reads a 32-bit BMP without its alpha: the alpha is the one given to the file.
        assert keep[4][0::4] == rgba_pixels(image)[0::4]
        keep = full = result(fmt, image, rgba_pixels(image))
    return data, (1, XRGB32) + image.size, keep, full


def bmp_rejected(data):
    width, height = struct.unpack_from("<ii", data, 18)
    ok = struct.unpack_from("<I", data, 14)[0] == 40
    return data, (int(ok), XRGB32 if ok else 0, width if ok else 0, height if ok else 0), None, None


def bmp_fixtures():
    yield "bmp-p8", bmp8(paletted(12, 6, 256, 20))
    yield "bmp-p8-16", bmp8(paletted(8, 5, 16, 21))
    yield "bmp-p8-300", bmp8(paletted(4, 3, 256, 22), colours_used=300)
    yield "bmp-rgb24", bmp_true(true_colour("RGB", 12, 5, 23))
    yield "bmp-rgb24-topdown", bmp_true(true_colour("RGB", 8, 6, 24), flip=True)
    yield "bmp-rgba32", bmp_true(true_colour("RGBA", 8, 4, 25))
    yield "bmp-rgb24-w30", bmp_rejected(saved(true_colour("RGB", 30, 4, 26), "BMP"))
    yield "bmp-1bit", bmp_rejected(saved(true_colour("RGB", 16, 4, 27).convert("1"), "BMP"))
    yield "bmp-rle8", bmp_rejected(patched(saved(paletted(8, 4, 256, 28), "BMP"), 30, "<I", 1))
    yield "bmp-v4", bmp_rejected(patched(saved(true_colour("RGB", 8, 4, 29), "BMP"), 14, "<I", 108))
    yield "bmp-rgb16", bmp_rejected(patched(saved(true_colour("RGB", 8, 4, 30), "BMP"), 28, "<H", 16))


# PCX -----------------------------------------------------------------------------------------


def pcx_stream(data, count, whole_byte_runs):
    """The indices the loader lays down: runs of (byte - 192) copies, or of the whole byte."""
    out = bytearray()
    at = 128
    while len(out) < count and at < len(data):
        byte = data[at]
        at += 1
        if byte < 192:
            out.append(byte)
        elif at < len(data):
            out += bytes([data[at]]) * (byte if whole_byte_runs else byte - 192)
            at += 1
        else:
            break
    return bytes(out[:count]) + bytes(max(0, count - len(out)))


def pcx8(image):
    data = saved(image, "PCX")
    back = read(data)
    width, height = back.size
    entries = [tuple(data[-768:][3 * i : 3 * i + 3]) for i in range(256)]
    assert entries == palette_entries(back)
    stream = pcx_stream(data, width * height, False)
    padded = width + width % 2
    rows = pcx_stream(data, padded * height, False)
    assert b"".join(rows[y * padded : y * padded + width] for y in range(height)) == back.tobytes()
    keep_palette = b"".join(bgra(r, g, b, 0) for r, g, b in entries)
    # Expanding: runs as long as their whole first byte, and the red byte in the blue channel.
    full = b"".join(bgra(entries[i][2], entries[i][1], entries[i][0], 255) for i in pcx_stream(data, width * height, True))
    if all(byte < 192 for byte in data[128:-769]):
        assert full == opaque(back, swap=True)
    info = (1, XRGB32, width, height)
    return data, info, result(INDEXED8, back, stream, keep_palette), result(XRGB32, back, full)


def pcx_rejected(data, info_ok):
    x0, y0, x1, y1 = struct.unpack_from("<HHHH", data, 4)
    size = (x1 - x0 + 1, y1 - y0 + 1) if info_ok else (0, 0)
    return data, (int(info_ok), XRGB32 if info_ok else 0) + size, None, None


def pcx_fixtures():
    yield "pcx-p8", pcx8(paletted(16, 6, 256, 40))
    yield "pcx-p8-literal", pcx8(paletted(8, 5, 256, 41, literal=True))
    yield "pcx-p8-w6", pcx8(paletted(6, 4, 256, 42, literal=True))
    yield "pcx-p8-w7", pcx8(paletted(7, 4, 256, 43))
    rgb = saved(true_colour("RGB", 24, 12, 44), "PCX")
    assert rgb[-769] != 12
    yield "pcx-rgb", pcx_rejected(rgb, True)
    yield "pcx-1bit", pcx_rejected(saved(true_colour("RGB", 16, 4, 45).convert("1"), "PCX"), False)
    unmarked = saved(paletted(6, 4, 256, 46), "PCX")
    yield "pcx-nomarker", pcx_rejected(unmarked[:-769] + b"\x0b" + unmarked[-768:], True)


def make(folder):
    os.makedirs(folder, exist_ok=True)
    extension = {"tga": ".tga", "bmp": ".bmp", "pcx": ".pcx"}
    for fixtures in (tga_fixtures, bmp_fixtures, pcx_fixtures):
        for name, (data, info, keep, full) in fixtures():
            with open(os.path.join(folder, name + extension[name[:3]]), "wb") as out:
                out.write(data)
            with open(os.path.join(folder, name + ".expect"), "wb") as out:
                out.write(expect(info, keep, full))


def same(fresh, folder, name):
    committed = os.path.join(folder, name)
    if not os.path.exists(committed):
        return False
    with open(os.path.join(fresh, name), "rb") as a, open(committed, "rb") as b:
        return a.read() == b.read()


def check(folder):
    with tempfile.TemporaryDirectory() as fresh:
        make(fresh)
        differ = [name for name in sorted(os.listdir(fresh)) if not same(fresh, folder, name)]
        for name in differ:
            print("differs from what Pillow makes now:", name)
        return 1 if differ else 0


if __name__ == "__main__":
    if len(sys.argv) == 3 and sys.argv[1] == "--check":
        sys.exit(check(sys.argv[2]))
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    make(sys.argv[1])
