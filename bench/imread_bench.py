"""Times pximage.imread of a 2048 x 2048 16-bit file against the C pxImageRead of the same file.

Usage (after building): PYTHONPATH=build/python /usr/bin/python3 bench/imread_bench.py [build-dir]

Both read the same file from the page cache, interleaved, REPEATS times each; the C function is called
through ctypes (a call costs about a microsecond, against milliseconds for the read) and its record is
destroyed after each read, as the array's record is when the array goes. Prints the median times and
their ratio (imread / pxImageRead; the target is at most 1.2).
"""

import ctypes
import os
import statistics
import sys
import tempfile
import time

import numpy as np

import pximage

REPEATS = 40


def c_reader(build):
    library = ctypes.CDLL(os.path.join(build, "src", "libpxImage.so"))
    library.pxImageRead.argtypes = [ctypes.c_void_p, ctypes.c_int32, ctypes.c_int32, ctypes.POINTER(ctypes.c_void_p)]
    library.pxImageRead.restype = ctypes.c_uint32
    library.pxImageDestruct.argtypes = [ctypes.POINTER(ctypes.c_void_p)]

    def read(path):
        name = ctypes.create_string_buffer(path.encode("utf-16-le") + b"\0\0")
        record = ctypes.c_void_p()
        if not library.pxImageRead(name, 0, 0, ctypes.byref(record)):
            raise RuntimeError("pxImageRead failed")
        library.pxImageDestruct(ctypes.byref(record))

    return read


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..", "build")
    read_c = c_reader(build)
    frame = np.random.default_rng(1).integers(0, 65535, (2048, 2048), endpoint=True).astype(np.uint16)
    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, "frame.pxi")
        pximage.imwrite(path, frame)
        assert np.array_equal(pximage.imread(path), frame)
        python_times, c_times = [], []
        for _ in range(REPEATS):
            start = time.perf_counter()
            pixels = pximage.imread(path)
            del pixels
            python_times.append(time.perf_counter() - start)
            start = time.perf_counter()
            read_c(path)
            c_times.append(time.perf_counter() - start)
    py_ms = statistics.median(python_times) * 1e3
    c_ms = statistics.median(c_times) * 1e3
    print(f"2048 x 2048 uint16, median of {REPEATS}: pximage.imread {py_ms:.3f} ms, "
          f"pxImageRead {c_ms:.3f} ms, ratio {py_ms / c_ms:.2f}")


if __name__ == "__main__":
    main()
