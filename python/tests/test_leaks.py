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


FAMILY_CALLS = {
    "cut": lambda f, b: pximage.cut(f, 1, 1, 8, 8, dtype=np.uint16),
    "reduce": lambda f, b: pximage.reduce(f),
    "pyramid": lambda f, b: pximage.pyramid(f),
    "roi": lambda f, b: pximage.roi(f),
    "deinterlace": lambda f, b: pximage.deinterlace(f),
    "aber": lambda f, b: pximage.aber(f, k1=1e-3, n=2),
    "fix_aber": lambda f, b: pximage.fix_aber(f, 1e-3),
    "translate": lambda f, b: pximage.translate(f, 1, 2),
    "affine": lambda f, b: pximage.affine_warp(f, (0.5, 0, 0), (0, 0, 0)),
    "masked": lambda f, b: pximage.bilinear_warp_masked(f, f * 0, f * 0, f, b),
    "adaptive_log": lambda f, b: pximage.preproc_adaptive_log(f + 1, 3),
    "bounded": lambda f, b: pximage.preproc_bounded(f, 3),
    "preproc_log": lambda f, b: pximage.preproc_log(f),
    "standard": lambda f, b: pximage.preproc_standard(f, 3, ignore_saturation=True),
    "marks": lambda f, b: pximage.mark_points(f, [(2, 2)], size=3),
    "magnify": lambda f, b: pximage.magnify_points(f, [(2, 2), (5, 6)], 2),
    "ellipse": lambda f, b: pximage.mark_ellipse(b, (8, 8, 3, 2, 0), 2),
    "ellipse_and_points": lambda f, b: pximage.mark_ellipse_and_points(b, (8, 8, 3, 2, 0), [(1, 1)]),
}


def test_no_growth_after_the_geometry_preprocessing_and_mark_families():
    image = (np.arange(16 * 16, dtype=np.float32).reshape(16, 16) % 37) * 5
    mask = np.ones((16, 16), np.uint8)
    gc.collect()
    before = pximage.live_allocations()
    for _ in range(20):
        for call in FAMILY_CALLS.values():
            call(image, mask)
        pximage.preproc(image, 3)
    gc.collect()
    assert pximage.live_allocations() == before


def test_allocation_failures_of_the_new_families_raise_and_free_everything():
    from pximage import _pximage

    image = (np.arange(16 * 16, dtype=np.float32).reshape(16, 16) % 37) * 5
    mask = np.ones((16, 16), np.uint8)
    for name, call in FAMILY_CALLS.items():
        failures = 0
        for n in range(1, 8):
            gc.collect()
            live = pximage.live_allocations()
            _pximage._fail_allocation_after(n)
            try:
                call(image, mask)
            except pximage.Error:
                failures += 1
            finally:
                _pximage._fail_allocation_after(0)
            gc.collect()
            assert pximage.live_allocations() == live, (name, n)
        assert failures > 0, name
