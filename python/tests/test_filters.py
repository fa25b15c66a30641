"""Filters, thresholds, morphology, negation, combination, reflection, conversion and statistics: against
scipy.ndimage where the definitions coincide, against plain NumPy references, and against the results of
the C library as the pximg tool writes them."""

import numpy as np
import pytest
from scipy import ndimage

import pximage

rng = np.random.default_rng(11)
FLOAT = (rng.standard_normal((37, 53)) * 100).astype(np.float32)


def clipped_sums(image, n):
    """Sums over an n x n window clipped to the image, exact in int64 (or float64)."""
    wide = image.astype(np.int64 if image.dtype.kind in "ui" else np.float64)
    return ndimage.correlate(wide, np.ones((n, n), wide.dtype), mode="constant", cval=0)


@pytest.mark.parametrize("n", [1, 3, 5, 9])
def test_min_and_max_equal_scipy(n):
    np.testing.assert_array_equal(pximage.box_min(FLOAT, n), ndimage.minimum_filter(FLOAT, n, mode="nearest"))
    np.testing.assert_array_equal(pximage.box_max(FLOAT, n), ndimage.maximum_filter(FLOAT, n, mode="nearest"))


@pytest.mark.parametrize("n", [3, 5, 7])
def test_box_average_equals_uniform_filter_inside(n):
    h = n // 2
    ours = pximage.box_average(FLOAT, n)
    theirs = ndimage.uniform_filter(FLOAT.astype(np.float64), n)
    np.testing.assert_allclose(ours[h:-h, h:-h], theirs[h:-h, h:-h], rtol=0, atol=1e-3)
    sums = clipped_sums(FLOAT, n)
    counts = clipped_sums(np.ones_like(FLOAT), n)
    np.testing.assert_allclose(ours, sums / counts, rtol=0, atol=1e-3)


@pytest.mark.parametrize("dtype,modulus", [(np.uint8, 256), (np.uint16, 65536)])
def test_integer_box_sums_wrap_in_the_pixel_type(dtype, modulus):
    image = rng.integers(0, np.iinfo(dtype).max, (29, 31), endpoint=True).astype(dtype)
    np.testing.assert_array_equal(pximage.box_sums(image, 5), clipped_sums(image, 5) % modulus)
    x = ndimage.correlate1d(image.astype(np.int64), np.ones(5, np.int64), axis=1, mode="constant")
    np.testing.assert_array_equal(pximage.block_sum_x(image, 5), x % modulus)
    y = ndimage.correlate1d(image.astype(np.int64), np.ones(5, np.int64), axis=0, mode="constant")
    np.testing.assert_array_equal(pximage.block_sum_y(image, 5), y % modulus)


def test_min_and_range_of_16_bit_images():
    image = rng.integers(0, 65535, (20, 24), endpoint=True).astype(np.uint16)
    low, span = pximage.box_min_and_range(image, 3)
    np.testing.assert_array_equal(low, ndimage.minimum_filter(image, 3, mode="nearest"))
    np.testing.assert_array_equal(span, ndimage.maximum_filter(image, 3, mode="nearest") - low)


def test_out_receives_the_result_and_non_contiguous_input_is_copied():
    out = np.full(FLOAT.shape, 7, np.float32)
    assert pximage.box_max(FLOAT, 3, out=out) is out
    np.testing.assert_array_equal(out, ndimage.maximum_filter(FLOAT, 3, mode="nearest"))
    strided = FLOAT[::2, ::3]
    np.testing.assert_array_equal(pximage.box_min(strided, 3), ndimage.minimum_filter(strided, 3, mode="nearest"))
    with pytest.raises(pximage.ArgumentError):
        pximage.box_max(FLOAT, 3, out=FLOAT)


def test_normalize_in_place_or_into_a_copy():
    sums = pximage.box_sums(FLOAT, 3)
    copy = pximage.box_normalize(sums, 3)
    assert copy is not sums
    np.testing.assert_array_equal(copy, pximage.box_average(FLOAT, 3))
    assert pximage.box_normalize(sums, 3, out=sums) is sums
    np.testing.assert_array_equal(sums, copy)


def test_thresholds_convert_the_threshold_as_the_library_does():
    short = np.array([[0, 99, 100, 32767, 32768, 65535]], np.uint16)
    np.testing.assert_array_equal(pximage.thresh_to_binary(short, 100), [[0, 0, 1, 1, 0, 0]])
    np.testing.assert_array_equal(pximage.thresh_upper(short, 100), [[0, 0, 100, 32767, 0, 0]])
    byte = np.array([[0, 1, 255]], np.uint8)
    np.testing.assert_array_equal(pximage.thresh_to_binary(byte, 256.0), [[1, 1, 1]])
    f = np.array([[np.nan, 0.5, 2.0]], np.float32)
    np.testing.assert_array_equal(pximage.thresh_to_binary(f, 1.0), [[0, 0, 1]])
    np.testing.assert_array_equal(pximage.thresh_upper(f, 1.0), [[np.nan, 0, 2.0]])
    assert pximage.thresh_upper(short, 1, out=short) is short


def test_dilate_and_erode_equal_scipy_inside_the_region():
    mask = (rng.random((30, 30)) > 0.7).astype(np.uint8)
    for r in (1, 2):
        square = np.ones((2 * r + 1, 2 * r + 1), bool)
        np.testing.assert_array_equal(pximage.dilate(mask, r), ndimage.binary_dilation(mask, square))
        eroded = ndimage.binary_erosion(np.ones((30, 30), np.uint8), square) & ndimage.binary_erosion(mask, square)
        np.testing.assert_array_equal(pximage.erode(mask, r), eroded)
    np.testing.assert_array_equal(pximage.dilate(mask, 0), mask)


def test_negation_and_combination():
    byte = np.array([[0, 1, 200]], np.uint8)
    np.testing.assert_array_equal(pximage.negate(byte), [[255, 254, 55]])
    np.testing.assert_array_equal(pximage.negate_float(FLOAT), np.float32(255) - FLOAT)
    a = np.array([[100, 200]], np.uint8)
    b = np.array([[50, 0]], np.uint8)
    np.testing.assert_array_equal(pximage.combine(a, b, 2.0, 2.0), [[44, 144]])
    np.testing.assert_array_equal(pximage.combine(a, b, -0.01, 0.0), [[255, 254]])
    np.testing.assert_array_equal(pximage.combine(a, b, 1.0, 1.0, width=1), [[150, 0]])


@pytest.mark.parametrize("mode,numpy_mode", [("mirror", "reflect"), ("replicate", "edge"), ("wrap", "wrap"),
                                             ("zero", "constant")])
def test_reflect_equals_numpy_padding(mode, numpy_mode):
    image = FLOAT[:9, :11]
    np.testing.assert_array_equal(pximage.reflect(image, 3, mode), np.pad(image, 3, mode=numpy_mode))


def test_convert_follows_the_library():
    short = np.array([[0, 1, 65535]], np.uint16)
    np.testing.assert_array_equal(pximage.convert(short, np.float64), short.astype(np.float64))
    back = pximage.convert(pximage.convert(short, np.float32, transform=True), np.uint16, transform=True)
    np.testing.assert_array_equal(back, short)
    planes = rng.integers(0, 255, (2, 3, 4)).astype(np.uint8)
    np.testing.assert_array_equal(pximage.convert(planes, "int32"), planes.astype(np.int32))


def test_statistics():
    image = np.arange(1, 13, dtype=np.float64).reshape(3, 4)
    s = pximage.pixel_statistics(image)
    assert (s.count, s.mean, s.histogram) == (12, 6.5, None)
    assert s.std == pytest.approx(np.std(image))
    s = pximage.pixel_statistics(image, region=(1, 1, 3, 3), bins=2)
    assert s.count == 4 and s.mean == np.mean(image[1:3, 1:3])
    # the range search starts from pixel (0, 0), as the library's does
    assert (s.minimum, s.maximum) == (1.0, 11.0) and list(s.histogram) == [0, 3, 1]
    empty = pximage.pixel_statistics(image, region=(2, 2, 2, 3))
    assert empty.count == 0 and np.isnan(empty.mean)
    with pytest.raises(pximage.Error):
        pximage.pixel_statistics(image, region=(0, 0, 5, 3))
    fx = np.full((4, 4), 3.0, np.float32)
    fy = np.full((4, 4), 4.0, np.float32)
    assert pximage.flow_statistics(fx, fy).mean == 5.0


@pytest.fixture(scope="module")
def c_frame(demo):
    return pximage.imread(demo / "frame-short.pxi")


@pytest.mark.parametrize("op,args,python", [
    ("box", ["--window", "5"], lambda f: pximage.box_average(f.astype(np.float32), 5)),
    ("min", ["--window", "7"], lambda f: pximage.box_min(f.astype(np.float32), 7)),
    ("max", ["--window", "3"], lambda f: pximage.box_max(f.astype(np.float32), 3)),
    ("threshold", ["--level", "2000"], lambda f: pximage.thresh_to_binary(f, 2000).astype(np.float32)),
    ("reflect", ["--fill", "4", "--mode", "point-mirror"],
     lambda f: pximage.reflect(f.astype(np.float32), 4, "point-mirror")),
])
def test_operations_equal_the_c_results(demo, pximg, tmp_path, c_frame, op, args, python):
    pximg("filter", op, *args, demo / "frame-short.pxi", tmp_path / "c.pxi", "--type", "float")
    np.testing.assert_array_equal(python(c_frame), pximage.imread(tmp_path / "c.pxi"))
