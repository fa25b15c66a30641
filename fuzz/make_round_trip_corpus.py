#!/usr/bin/env python3
"""Writes the seed corpus of the round-trip fuzzer (fuzz/corpus/round_trip): one input per encoding, pixel
type and refusal, laid out as fuzz/RoundTripFuzzer.cpp reads its input: encoding, shape, width, height
(16 bits each), the plain pixel type or the CSHORT setting flag, the settings, the header fields, the pixel
mode, the fill mode, a noise seed, then bytes for the pixels.
Run from the repository root: python3 fuzz/make_round_trip_corpus.py"""
import os
import random
import struct

PLAIN, CBIT, CSHORT, SHORT12, TRANSFORM = range(5)
OUT = "fuzz/corpus/round_trip"
random.seed(8)


def noise(n):
    return bytes(random.randrange(256) for _ in range(n))


def seed(name, encoding, shape, width, height, choice=b"", settings=b"\x00", header=b"\x00" + bytes(4),
         pixel_mode=0, fill=1, pixels=b"", tail=b"\x01"):
    """shape: planes in bits 0-1, border in bits 2-3, 0x30 keeps planes/border for an encoding, 0x40 with
    0x30 a wrong source type, 0x80 a large CSHORT image. fill: 0 input bytes, 1 flat blocks, 2 noise."""
    data = bytes([encoding, shape]) + struct.pack("<HH", width - 1, height - 1) + choice + settings + header
    data += bytes([pixel_mode, fill]) + struct.pack("<I", 12345) + pixels + tail
    with open(os.path.join(OUT, name), "wb") as f:
        f.write(data)


def main():
    os.makedirs(OUT, exist_ok=True)
    for index, name in enumerate(["ubyte", "short", "int", "float", "double"]):
        seed("plain_" + name, PLAIN, 0x01 | 0x04, 13, 9, bytes([index]), fill=2)
    seed("plain_short_region", PLAIN, 0, 12, 8, b"\x01", header=bytes([0, 2, 3, 5, 2]), fill=2)
    # Every header field from the input, the region and origin outside the image (corrected when written).
    metadata = b"\x03" + struct.pack("<4h", -3, 40, 2, 900) + struct.pack("<4h", -5, 7, 30000, -2) + noise(180)
    seed("plain_double_metadata", PLAIN, 0x02, 5, 4, b"\x04", header=metadata, fill=2)
    seed("cbit", CBIT, 0, 17, 6, fill=2)
    seed("cbit_blocks", CBIT, 0, 40, 3)
    seed("cbit_two_planes", CBIT, 0x31, 4, 4)
    seed("cshort_defaults", CSHORT, 0, 31, 21, b"\x00")
    settings = b"\x01" + struct.pack("<3h", 60, 9, 200) + b"\x02" + struct.pack("<h", 40) + bytes([1, 67, 32, 64])
    seed("cshort_settings", CSHORT, 0, 31, 21, b"\x00", settings=settings)
    seed("cshort_method_2", CSHORT, 0, 31, 21, b"\x00", settings=settings[:10] + bytes([2, 67, 32, 64]))
    extreme = b"\x03" + noise(16) + struct.pack("<3i2f", 2**31 - 1, -2**31, 2**31 - 1, 1e30, float("inf"))
    seed("cshort_extreme_settings", CSHORT, 0, 12, 12, b"\x00", settings=extreme)
    seed("cshort_bad_setting", CSHORT, 0, 8, 8, b"\x0f")
    seed("cshort_noise_refused", CSHORT, 0, 20, 20, b"\x00", fill=2)
    # 300 x 240 pixels of one value: more than 65534 equal pixels, so the run is split.
    seed("cshort_long_run", CSHORT, 0x80, 300, 240, b"\x00", fill=0, pixels=b"\x10\x27", tail=b"")
    seed("cshort_border", CSHORT, 0x34, 6, 6, b"\x00")
    seed("short12", SHORT12, 0, 11, 9, fill=2)
    seed("short12_height_3", SHORT12, 0, 5, 3, fill=2)
    seed("short12_wrong_source", SHORT12, 0x70, 6, 5)
    seed("transform", TRANSFORM, 0x05, 9, 7, fill=2)
    seed("transform_raw_floats", TRANSFORM, 0, 9, 7, pixel_mode=7, fill=0, pixels=noise(64))


if __name__ == "__main__":
    main()
