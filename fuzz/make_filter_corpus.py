#!/usr/bin/env python3
"""Writes the seed corpus of the filter fuzzer (fuzz/corpus/filter): one input per family of operations,
and the inputs that once wrote statistics histogram counters out of bounds, one per case. The layout is
described at the top of fuzz/FilterFuzzer.cpp. Run from the repository root: python3 fuzz/make_filter_corpus.py"""
import os
import struct

OPS = {"block_sum_x": 0, "box_sums": 2, "box_average": 4, "box_min": 5, "box_min_and_range": 7,
       "thresh": 8, "thresh_upper": 9, "dilate": 10, "erode": 11, "negate": 12, "combine": 14,
       "pix_value": 15, "flow_norm": 16, "reflect": 17}
UBYTE, SHORT, INT, FLOAT, DOUBLE = 2, 3, 5, 6, 7
PACK = {UBYTE: "B", SHORT: "H", INT: "i", FLOAT: "f", DOUBLE: "d"}


def value(v):
    q = v * 4
    if q == int(q) and -128 <= q <= 126:
        return struct.pack("<b", int(q))
    return b"\xff" + struct.pack("<d", v)


def shape(ptype, w, h, border=1, planes=1):
    return bytes([ptype, w - 1, h - 1, border, planes - 1])


def case(op, a, b=None, same=True, i1=3, i2=1, v1=0.0, v2=0.0, corners=(0, 0, 0, 0), bins=0, rng=None,
         pixels_a=b"", pixels_b=b"", roi_a=None):
    out = bytes([OPS[op]]) + a
    out += bytes([1 if same else 0]) + (b if b is not None else a)
    out += (b"\x01" + struct.pack("<4b", *roi_a)) if roi_a else b"\x00"
    out += b"\x00"
    out += struct.pack("<bb", i1, i2) + value(v1) + value(v2)
    out += b"".join(value(c) for c in corners)
    out += struct.pack("<b", bins)
    out += (b"\x01" + value(rng[0]) + value(rng[1])) if rng else b"\x00"
    return out + pixels_a + pixels_b


def pixels(ptype, values):
    return struct.pack("<%d%s" % (len(values), PACK[ptype]), *values)


def ramp(ptype, n, scale=1):
    return pixels(ptype, [(i * 37 * scale) % 200 for i in range(n)])


NAN = float("nan")
SEEDS = {
    "block_sum_x_short": case("block_sum_x", shape(SHORT, 9, 4), i1=5, pixels_a=ramp(SHORT, 36)),
    "box_sums_float_roi": case("box_sums", shape(FLOAT, 8, 6, 2), i1=3, roi_a=(1, 1, 5, 4),
                               pixels_a=ramp(FLOAT, 48)),
    "box_average_float": case("box_average", shape(FLOAT, 7, 7), i1=3, pixels_a=ramp(FLOAT, 49)),
    "box_min_float": case("box_min", shape(FLOAT, 6, 5), i1=3, pixels_a=ramp(FLOAT, 30)),
    "box_min_and_range_short": case("box_min_and_range", shape(SHORT, 6, 5), i1=5, pixels_a=ramp(SHORT, 30)),
    "thresh_ubyte": case("thresh", shape(UBYTE, 5, 3), v1=100.0, pixels_a=ramp(UBYTE, 15)),
    "thresh_upper_double": case("thresh_upper", shape(DOUBLE, 3, 3), v1=50.0, pixels_a=ramp(DOUBLE, 9)),
    "dilate_ubyte": case("dilate", shape(UBYTE, 8, 8), i1=1, pixels_a=bytes((i * 7) % 3 == 0 for i in range(64))),
    "erode_ubyte": case("erode", shape(UBYTE, 8, 8), i1=2, pixels_a=bytes(i % 11 != 0 for i in range(64))),
    "negate_short": case("negate", shape(SHORT, 4, 4), pixels_a=ramp(SHORT, 16)),
    "combine_ubyte": case("combine", shape(UBYTE, 6, 4), i1=6, i2=4, v1=1.5, v2=-0.5,
                          pixels_a=ramp(UBYTE, 24), pixels_b=ramp(UBYTE, 24, 3)),
    "pix_value_int": case("pix_value", shape(INT, 6, 4), corners=(1, 1, 5.5, 4), bins=4,
                          pixels_a=ramp(INT, 24)),
    "flow_norm_float": case("flow_norm", shape(FLOAT, 5, 5), corners=(0, 0, 5, 5), bins=3,
                            pixels_a=ramp(FLOAT, 25), pixels_b=ramp(FLOAT, 25, 5)),
    "flow_norm_mixed_types": case("flow_norm", shape(FLOAT, 4, 2), shape(SHORT, 4, 2), same=False,
                                  corners=(0, 0, 2, 2), bins=2, pixels_a=ramp(FLOAT, 8), pixels_b=ramp(SHORT, 8)),
    "reflect_float": case("reflect", shape(FLOAT, 5, 4, 3), i1=2, i2=2, pixels_a=ramp(FLOAT, 20)),
    # Histogram counters written out of bounds before the statistics limited the index to 0..bins.
    "histogram_pix_value_nan_breaks_range": case(
        "pix_value", shape(FLOAT, 4, 1), corners=(0, 0, 4, 1), bins=4, pixels_a=pixels(FLOAT, [100, NAN, 5, 6])),
    "histogram_pix_value_caller_range_below_data": case(
        "pix_value", shape(DOUBLE, 4, 1), corners=(0, 0, 4, 1), bins=4, rng=(5.0, 6.0),
        pixels_a=pixels(DOUBLE, [5, 6, 100, -3])),
    "histogram_flow_norm_float_nan": case(
        "flow_norm", shape(FLOAT, 4, 1), corners=(0, 0, 4, 1), bins=4,
        pixels_a=pixels(FLOAT, [100, NAN, 5, 6]), pixels_b=pixels(FLOAT, [0, 0, 0, 0])),
    "histogram_flow_norm_int_square_wraps": case(
        "flow_norm", shape(INT, 4, 1), corners=(0, 0, 4, 1), bins=4,
        pixels_a=pixels(INT, [100, 50000, 5, 6]), pixels_b=pixels(INT, [0, 0, 0, 0])),
    "histogram_flow_norm_short_squares_wrap": case(
        "flow_norm", shape(SHORT, 4, 1), corners=(0, 0, 4, 1), bins=4,
        pixels_a=pixels(SHORT, [100, 0x8000, 5, 6]), pixels_b=pixels(SHORT, [0, 0x8000, 0, 0])),
    # Byte negation of a type-0 record (pixels of no bytes) once complemented bytes past its plane.
    "negate_pixels_of_no_bytes": case("negate", shape(0, 6, 4, 3)),
}

if __name__ == "__main__":
    directory = os.path.join("fuzz", "corpus", "filter")
    os.makedirs(directory, exist_ok=True)
    for name, data in SEEDS.items():
        with open(os.path.join(directory, name + ".bin"), "wb") as f:
            f.write(data)
