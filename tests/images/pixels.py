#!/usr/bin/env python3
"""Writes what Pillow reads from an image file to OUT: width and height as little-endian 32-bit
words, then the pixels as bytes B, G, R, A, top row first.
Usage: pixels.py IMAGE OUT"""
import struct
import sys

from PIL import Image

if len(sys.argv) != 3:
    sys.exit(__doc__)
image = Image.open(sys.argv[1]).convert("RGBA")
red, green, blue, alpha = image.split()
with open(sys.argv[2], "wb") as out:
    out.write(struct.pack("<ii", *image.size) + Image.merge("RGBA", (blue, green, red, alpha)).tobytes())
