"""Writes the small PNG files of the everyday pximg tests with the standard library only, so that every
colour layout a camera or an image editor produces is covered: grey, grey + alpha, grey and colour palettes,
grey stored as RGB, real colour, 16-bit grey, a constant image and one wider than images can be.
Arguments: the folder of the pictures, then folders to create for the tests' outputs."""
import struct
import sys
import zlib
from pathlib import Path


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)


def png(path, width, height, colour_type, rows, bit_depth=8, palette=None):
    """rows: one bytes object per row (samples already packed)."""
    header = struct.pack(">IIBBBBB", width, height, bit_depth, colour_type, 0, 0, 0)
    body = chunk(b"IHDR", header)
    if palette is not None:
        body += chunk(b"PLTE", bytes(v for rgb in palette for v in rgb))
    raw = b"".join(b"\0" + row for row in rows)
    body += chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b"")
    Path(path).write_bytes(b"\x89PNG\r\n\x1a\n" + body)


def grey(x, y):
    """A scene of 64 x 48: a gradient with a bright square, every value 0..255 used somewhere."""
    if 20 <= x < 36 and 12 <= y < 28:
        return 255
    return (x * 4 + y) % 256


def main(out):
    out = Path(out)
    out.mkdir(parents=True, exist_ok=True)
    w, h = 64, 48
    values = [[grey(x, y) for x in range(w)] for y in range(h)]
    png(out / "camera.png", w, h, 0, [bytes(r) for r in values])
    png(out / "grey-alpha.png", w, h, 4, [bytes(v for g in r for v in (g, 255)) for r in values])
    png(out / "grey-rgb.png", w, h, 2, [bytes(v for g in r for v in (g, g, g)) for r in values])
    png(out / "grey-palette.png", w, h, 3, [bytes(r) for r in values], palette=[(i, i, i) for i in range(256)])
    colour = [[(g, 255 - g, (g * 7) % 256) for g in r] for r in values]
    png(out / "colour.png", w, h, 2, [bytes(v for c in r for v in c) for r in colour])
    png(out / "colour-palette.png", w, h, 3, [bytes(r) for r in values],
        palette=[(i, 255 - i, i // 2) for i in range(256)])
    png(out / "camera16.png", w, h, 0, [b"".join(struct.pack(">H", g * 257) for g in r) for r in values], 16)
    png(out / "constant.png", 16, 16, 0, [bytes([7] * 16) for _ in range(16)])
    png(out / "too-wide.png", 10001, 2, 0, [bytes(10001) for _ in range(2)])
    png(out / "wide.png", 9000, 2, 0, [bytes(9000) for _ in range(2)])


if __name__ == "__main__":
    main(sys.argv[1])
    for folder in sys.argv[2:]:  # further folders the tests write into
        Path(folder).mkdir(parents=True, exist_ok=True)
