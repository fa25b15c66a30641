"""The library's live allocations do not grow over many reads and filter calls."""

import gc

import numpy as np

import pximage


def test_no_growth_after_1000_reads(tmp_path):
    pximage.imwrite(tmp_path / "a.pxi", np.arange(48 * 64, dtype=np.uint16).reshape(48, 64))
    pximage.imwrite(tmp_path / "p.pxi", np.zeros((2, 8, 8), np.float32))
    for _ in range(10):
        pximage.imread(tmp_path / "a.pxi")
    gc.collect()
    before = pximage.live_allocations()
    for i in range(1000):
        pixels = pximage.imread(tmp_path / "a.pxi", roi=("crop" if i % 3 == 0 else None))
        image = pximage.read(tmp_path / "p.pxi")
        pximage.info(tmp_path / "a.pxi")
        view = pixels[1:3]
        del pixels, image, view
    try:
        pximage.imread(tmp_path / "missing.pxi")
    except OSError:
        pass
    gc.collect()
    assert pximage.live_allocations() == before


def test_no_growth_after_filters_and_containers(tmp_path):
    image = np.ones((20, 20), np.float32)
    gc.collect()
    before = pximage.live_allocations()
    for _ in range(200):
        pximage.box_average(image, 3)
        pximage.reflect(image, 2, 1)
        pximage.convert(image, np.uint16)
        c = pximage.Container(1)
        c[0] = image
        del c
    gc.collect()
    assert pximage.live_allocations() == before
