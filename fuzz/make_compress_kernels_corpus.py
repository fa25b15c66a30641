#!/usr/bin/env python3
"""Writes the seed corpus of the compressor kernel fuzzer (fuzz/corpus/compress_kernels), laid out as
fuzz/CompressKernelsFuzzer.cpp reads its input: nine setting choices (0 = the default, 1.. odd values from
the menu), width - 1 and height - 1 (16 bits each), sixteen 16-bit palette values, the word-limit choice
(below 128: the full limit), then one byte per stretch of pixels (palette entry in the low four bits, repeats
- 1 in the high four).
Run from the repository root: python3 fuzz/make_compress_kernels_corpus.py"""
import os
import random
import struct

OUT = "fuzz/corpus/compress_kernels"
random.seed(11)

# Dark background, values at the default brightness mark, bright values and near doubles of them.
CAMERA = [96, 100, 112, 97, 5400, 5401, 5402, 5403, 9000, 2704, 2706, 5408, 5409, 10816, 10818, 10820]


def seed(name, settings, width, height, pixels, palette=CAMERA, limit=0):
    data = bytes(settings) + struct.pack("<HH", width - 1, height - 1)
    data += struct.pack("<16H", *palette) + bytes([limit]) + bytes(pixels)
    with open(os.path.join(OUT, name), "wb") as f:
        f.write(data)


def stretches(count, entries, longest=16):
    return [random.choice(entries) | (random.randrange(longest) << 4) for _ in range(count)]


def main():
    os.makedirs(OUT, exist_ok=True)
    defaults = [0] * 9
    dark, bright = [0, 1, 2, 3], [4, 5, 6, 7, 8]
    seed("defaults_camera", defaults, 64, 40, stretches(400, dark * 6 + bright))
    seed("defaults_bright", defaults, 100, 30, stretches(300, dark + bright * 3))
    seed("doubles", defaults, 151, 20, stretches(300, [1, 12, 12, 12, 14, 13, 11]))
    for method in range(1, 6):
        seed("method%d" % method, [method] + [0] * 8, 37, 29, stretches(200, dark + bright))
    for setting in range(1, 9):
        for choice in (1, 3, 5):
            s = [0] * 9
            s[setting] = choice
            seed("setting%d_%d" % (setting, choice), s, 41, 23, stretches(150, dark + bright + [9, 10, 15]))
    seed("wide_protection", [0, 0, 0, 0, 0, 4, 0, 4, 0], 151, 16, stretches(300, [9, 10, 12, 13, 14, 15]))
    seed("limit", defaults, 50, 20, stretches(200, dark + bright), limit=200)
    seed("tiny", defaults, 1, 1, [0])
    seed("long_runs", defaults, 300, 120, [0xF1] * 2300)


if __name__ == "__main__":
    main()
