#!/usr/bin/env python3
"""Writes the seed corpus of the image file fuzzer and the test data files, assembled byte by byte:
tiny valid files of every header version and pixel data encoding (fuzz/corpus/read_image and
tests/data/good), and files that must fail to read, one per bug they once exposed (tests/data/bad).
Run from the repository root: python3 fuzz/make_corpus.py"""
import os
import struct

TAGS = ["img1", "img2", "img3", "img4", "img5", "img6", "img7", "img8", "img9", "im10", "im11", "im12", "im13"]
# Bytes of fields after the tag for each version.
FIELD_BYTES = [16, 26, 30, 38, 70, 126, 138, 142, 150, 154, 156, 184, 188]
SIZES = {1: 1, 2: 1, 3: 2, 4: 2, 5: 4, 6: 4, 7: 8, 8: 2}
PACK = {2: "B", 3: "H", 5: "i", 6: "f", 7: "d"}


def block(w, h, ptype, planes=1, tag="im13", roi=None):
    """A 512-byte header block; the fields after the tag are the ROI/orig shorts then filler values."""
    roi = roi or (0, w, 0, h)
    out = struct.pack("<4H", w, h, ptype, planes) + tag.encode()
    fields = struct.pack("<8H", roi[0], roi[1], roi[2], roi[3], 0, 0, w, h)
    fields += bytes((i * 7 + 3) & 0xFF for i in range(200))
    count = FIELD_BYTES[TAGS.index(tag)] if tag in TAGS else 188
    return out + fields[:count] + bytes(500 - count)


def plain(w, h, ptype, planes=1):
    n = w * h * planes
    return struct.pack("<%d%s" % (n, PACK[ptype]), *[(i * 37) % 200 for i in range(n)])


def cbit(runs):
    return struct.pack("<%di" % len(runs), *runs)


def shorts(values):
    return struct.pack("<%dH" % len(values), *values)


def good_files():
    files = {}
    for tag in TAGS + ["zzzz"]:
        files["version_%s_ubyte.pim" % tag] = block(5, 3, 2, tag=tag) + plain(5, 3, 2)
    for ptype in PACK:
        files["plain_type%d.pim" % ptype] = block(4, 3, ptype) + plain(4, 3, ptype)
        files["plain_type%d_planes2.pim" % ptype] = block(3, 2, ptype, planes=2) + plain(3, 2, ptype, 2)
    files["plain_roi.pim"] = block(6, 5, 3, roi=(1, 4, 2, 5)) + plain(6, 5, 3)
    files["cbit.pim"] = block(4, 3, 1) + cbit([-3, 2, 0, -1, 6])
    files["cshort.pim"] = block(4, 3, 4) + shorts([5, 100, 7, 4000])
    files["short12_h5.pim"] = block(3, 5, 8) + shorts(list(range(1000, 13000, 1000)))
    files["short12_h3.pim"] = block(3, 3, 8) + shorts(list(range(9)))
    return files


def bad_files():
    ok = block(4, 3, 2) + plain(4, 3, 2)
    return {
        "extra_byte_after_last_plane.pim": ok + b"\0",
        "plain_data_truncated.pim": ok[:-1],
        "header_truncated.pim": ok[:300],
        "cbit_run_overflows_image.pim": block(4, 3, 1) + cbit([-3, 20]),
        "cbit_run_int_min.pim": block(4, 3, 1) + cbit([-2147483648]),
        "cbit_runs_short_of_image.pim": block(4, 3, 1) + cbit([-3, 8]),
        "cbit_no_runs.pim": block(4, 3, 1),
        "cshort_odd_word_count.pim": block(4, 3, 4) + shorts([12, 1, 0]),
        "cshort_run_overflows_image.pim": block(4, 3, 4) + shorts([13, 1]),
        "short12_data_too_short.pim": block(4, 4, 8) + shorts(list(range(11))),
        "stored_type_invalid.pim": block(4, 3, 9) + plain(4, 3, 2),
        "width_10000.pim": block(10000, 1, 2) + bytes(4),
        "planes_zero.pim": block(4, 3, 2, planes=0),
        "huge_plain_claim.pim": block(9999, 9999, 7, planes=9) + plain(4, 3, 2),
        "two_plane_cbit.pim": block(2, 2, 1, planes=2) + cbit([4, -4]),
    }


def write_all(folder, files):
    os.makedirs(folder, exist_ok=True)
    for name, data in files.items():
        with open(os.path.join(folder, name), "wb") as f:
            f.write(data)


if __name__ == "__main__":
    good, bad = good_files(), bad_files()
    write_all("tests/data/good", good)
    write_all("tests/data/bad", bad)
    write_all("fuzz/corpus/read_image", {**good, **bad})
