#!/usr/bin/env bash
# Assembles the compression corpus from files every Debian machine has: licence texts, C headers,
# the shell's executable, and two uncompressed TGA images made here (a smooth photo-like picture
# with noise, and a sprite sheet with flat colours and an alpha channel).
# Usage: bench/corpus.sh FOLDER
set -euo pipefail
out=$1
mkdir -p "$out"
# head closes the pipes early, which pipefail would count as a failure.
cat /usr/share/common-licenses/* | head -c 1048576 >"$out/text.txt" || true
cat /usr/include/*.h | head -c 1048576 >"$out/source.h" || true
head -c 1048576 /bin/bash >"$out/program.bin"
python3 - "$out" <<'PY'
import random, struct, sys
folder = sys.argv[1]

def tga(name, width, height, bits, pixel):
    header = struct.pack("<BBBHHBHHHHBB", 0, 0, 2, 0, 0, 0, 0, 0, width, height, bits, 8 if bits == 32 else 0)
    rows = bytearray()
    for y in range(height):
        for x in range(width):
            rows += pixel(x, y)
    with open(f"{folder}/{name}", "wb") as f:
        f.write(header + rows)

noise = random.Random(1)
def photo(x, y):
    r = (x * 255 // 511 + noise.randrange(-6, 7)) & 255
    g = (y * 255 // 511 + noise.randrange(-6, 7)) & 255
    b = ((x + y) * 255 // 1022 + noise.randrange(-6, 7)) & 255
    return bytes((b, g, r))
tga("photo.tga", 512, 512, 24, photo)

def sprite(x, y):
    cell = (x // 32 + y // 32) % 5
    inside = (x % 32 - 16) ** 2 + (y % 32 - 16) ** 2 < 140
    colours = [(200, 40, 40), (40, 200, 40), (40, 40, 200), (220, 220, 60), (90, 90, 90)]
    b, g, r = colours[cell]
    return bytes((b, g, r, 255)) if inside else bytes((0, 0, 0, 0))
tga("sprites.tga", 512, 512, 32, sprite)
PY
