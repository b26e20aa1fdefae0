#!/usr/bin/env python3
"""Writes configuration texts for the scanner and parser measurements: one large text of blocks
nested up to six deep holding named integers, floats, quoted and bare strings, escapes, special
floats, lists and hex runs, and a folder of small texts of the same kinds.
Usage: gen.py BIG_FILE MEGABYTES [SMALL_FOLDER COUNT]"""
import os
import random
import sys

rng = random.Random(7)
WORDS = ["mesh", "texture", "sound", "speed", "colour", "light", "door", "wall", "floor", "enemy", "weapon",
         "ammo", "health", "shader", "model", "anim", "bone", "path", "node", "spawn"]


def name():
    return rng.choice(WORDS) + str(rng.randrange(40))


def value():
    kind = rng.randrange(10)
    if kind == 0:
        return str(rng.randrange(-100000, 100000))
    if kind == 1:
        return "%.4f" % rng.uniform(-1000, 1000)
    if kind == 2:
        return '"%s %s/%s.tga"' % (rng.choice(WORDS), rng.choice(WORDS), name())
    if kind == 3:
        return rng.choice(WORDS) + "_" + name()
    if kind == 4:
        return ",".join("%.3f" % rng.uniform(-10, 10) for _ in range(rng.choice([2, 3, 4])))
    if kind == 5:
        return ",".join(str(rng.randrange(1000)) for _ in range(rng.randrange(2, 16)))
    if kind == 6:
        return '"line\\tone\\nline \\"two\\""'
    if kind == 7:
        return rng.choice(["1.#INF", "-1.#INF", "1.#QNAN", "-1.#IND", "0x%X" % rng.randrange(1 << 24)])
    if kind == 8:
        return ": " + "".join("%02X" % rng.randrange(256) for _ in range(rng.randrange(1, 40)))
    return "%s, %s" % (rng.choice(WORDS), '"' + name() + '"')


def block(out, depth, budget):
    pad = "  " * depth
    for _ in range(rng.randrange(3, 9)):
        out.append("%s%s = %s;\n" % (pad, name(), value()))
    if depth < 6:
        for _ in range(rng.randrange(0, 3)):
            out.append("%s%s\n%s{\n" % (pad, name(), pad))
            block(out, depth + 1, budget)
            out.append("%s}\n" % pad)


def text(size):
    out = ["version 1.00\r\n// generated\n"]
    total = 0
    while total < size:
        piece = []
        piece.append("%s\n{\n" % name())
        block(piece, 1, 0)
        piece.append("}\n")
        chunk = "".join(piece)
        total += len(chunk)
        out.append(chunk)
    return "".join(out)


def main():
    with open(sys.argv[1], "w", newline="") as f:
        f.write(text(int(float(sys.argv[2]) * 1024 * 1024)))
    if len(sys.argv) > 4:
        folder = sys.argv[3]
        os.makedirs(folder, exist_ok=True)
        for i in range(int(sys.argv[4])):
            with open(os.path.join(folder, "small%04d.cfg" % i), "w", newline="") as f:
                f.write(text(rng.randrange(200, 3000)))


main()
