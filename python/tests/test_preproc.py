"""Preprocessing: every mode against the same single-precision computation in NumPy on the library's own
local means, the local means against a clipped-window model, and every refusal."""

import os
import subprocess
import sys

import numpy as np
import pytest
from scipy import ndimage

import pximage

rng = np.random.default_rng(3)
IMAGE = (rng.random((41, 57)) * 200 + 20).astype(np.float32)
f32 = np.float32


def fast_rsqrt(v):
    """The modes' reciprocal square root: bit-pattern start, four single-precision Newton steps."""
    v = v.astype(np.float32)
    y = ((np.uint32(0xBE6F0000) - v.view(np.uint32)) >> np.uint32(1)).astype(np.uint32).view(np.float32)
    for _ in range(4):
        y = y * (f32(1.5) - f32(0.5) * v * y * y)
    return y


def clipped_mean(image, window):
    """Mean over the odd window x window square shrunk to the image (float64)."""
    ones = np.ones((window, window))
    sums = ndimage.correlate(image.astype(np.float64), ones, mode="constant")
    return sums / ndimage.correlate(np.ones(image.shape), ones, mode="constant")


@pytest.mark.parametrize("window", [1, 3, 7])
def test_local_mean_is_the_clipped_window_mean(window):
    np.testing.assert_allclose(pximage.local_mean(IMAGE, window), clipped_mean(IMAGE, window), rtol=1e-6)
    image = IMAGE.copy()
    assert pximage.local_mean(image, window, out=image) is image


def test_local_mean_ignoring_saturation():
    image = np.full((9, 9), 10.0, np.float32)
    image[4, 4] = 255.0
    mean = pximage.local_mean(image, 3, saturation_level=255.0)
    np.testing.assert_array_equal(mean, np.full((9, 9), 10.0, np.float32))
    assert pximage.local_mean(np.full((3, 3), 300.0, np.float32), 3, 255.0)[1, 1] == 255.0


@pytest.mark.parametrize("window,gain,offset,min_sigma", [(5, 1.0, 0.0, 1.0), (9, 32.0, 128.0, 4.0)])
def test_preproc_is_the_numpy_computation(window, gain, offset, min_sigma):
    mean = pximage.local_mean(IMAGE, window)
    d = IMAGE - mean
    v = pximage.local_mean(d * d, window)
    scaled = d / (v * fast_rsqrt(v))
    flat = d / f32(min_sigma)
    expected = f32(gain) * np.where(v > f32(min_sigma) * f32(min_sigma), scaled, flat) + f32(offset)
    np.testing.assert_array_equal(pximage.preproc(IMAGE, window, offset, gain, min_sigma), expected)
    np.testing.assert_array_equal(pximage.preproc(np.full((5, 6), 7.0, np.float32), 3, offset=2.0), 2.0)


def test_adaptive_log_is_the_log_ratio_to_the_local_mean():
    result, mean = pximage.preproc_adaptive_log(IMAGE, 7)
    np.testing.assert_array_equal(mean, pximage.local_mean(IMAGE, 7))
    np.testing.assert_allclose(result, np.log(IMAGE / mean), rtol=2e-6, atol=1e-7)
    image = IMAGE.copy()
    image[10:12, 10:12] = 255.0
    result, mean = pximage.preproc_adaptive_log(image, 5, ignore_saturation=True, saturation_level=250.0)
    np.testing.assert_array_equal(mean, pximage.local_mean(image, 5, saturation_level=250.0))
    assert (result[10:12, 10:12] == 255.0).all()
    below = image < 250
    np.testing.assert_allclose(result[below], np.log(image / mean)[below], rtol=2e-6, atol=1e-7)


@pytest.mark.parametrize("bound,min_sigma", [(3.0, 1.0), (1.0, 30.0)])
def test_bounded_is_the_numpy_computation(bound, min_sigma):
    mean = pximage.local_mean(IMAGE, 5)
    d = IMAGE - mean
    v = pximage.local_mean(d * d, 5)
    floor = f32(min_sigma) * f32(min_sigma)
    z = np.clip(d / np.sqrt(np.where(v < floor, floor, v)), -f32(bound), f32(bound))
    result, variance = pximage.preproc_bounded(IMAGE, 5, bound, min_sigma)
    np.testing.assert_array_equal(variance, v)
    np.testing.assert_array_equal(result, z * f32(127.5 / bound))


def test_bounded_ignoring_saturation_is_the_numpy_computation():
    image = IMAGE.copy()
    image[20:23, 30:34] = 255.0
    level = f32(250.0)
    mean = pximage.local_mean(image, 5, saturation_level=level)
    saturated = image >= level
    d = np.where(saturated, level, image - mean)
    v = pximage.local_mean(np.where(saturated, level, (image - mean) * (image - mean)), 5, saturation_level=level)
    z = np.where(v <= f32(1.0), d / f32(1.0), d / (v * fast_rsqrt(v)))
    expected = np.where(image < level, np.clip(z, f32(-3.0), f32(3.0)) * f32(127.5 / 3.0), f32(255.0))
    result, _ = pximage.preproc_bounded(image, 5, 3.0, 1.0, ignore_saturation=True, saturation_level=level)
    np.testing.assert_array_equal(result, expected)


def test_widen_saturation_sets_the_four_neighbours_of_interior_saturated_pixels():
    image = np.zeros((6, 7), np.float32)
    image[2, 3] = 255.0
    image[0, 0] = 255.0  # outermost rows and columns are never tested
    expected = image.copy()
    expected[1, 3] = expected[3, 3] = expected[2, 2] = expected[2, 4] = 255.0
    np.testing.assert_array_equal(pximage.widen_saturation(image, 255.0), expected)
    reference = np.zeros_like(image)
    reference[4, 5] = 300.0
    widened = pximage.widen_saturation(image, 255.0, reference=reference)
    assert widened[3, 5] == widened[5, 5] == widened[4, 4] == widened[4, 6] == 255.0
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.widen_saturation(image, 255.0, reference=np.zeros((5, 5), np.float32))
    assert (caught.value.code, caught.value.module) == (0xC43D0003, "pxImagePreproc")


def test_tone_mapping():
    image = (rng.random((10, 12)) * 4000 + 100).astype(np.uint16)
    lo, hi = float(image.min()), float(image.max())
    expected = np.log(image - lo + 1.0) * 255 / np.log(hi - lo + 1.0)
    np.testing.assert_allclose(pximage.preproc_log(image, 1.0), expected, rtol=1e-5, atol=1e-4)
    byte = (rng.random((10, 12)) * 200 + 10).astype(np.uint8)
    lo, hi = float(byte.min()), float(byte.max())
    expected = (byte - lo) ** 0.1 * 255 / (hi - lo) ** 0.1
    result = pximage.preproc_log(byte)
    assert result.dtype == np.float32
    np.testing.assert_allclose(result, expected, rtol=1e-5, atol=1e-4)


def test_standard_with_a_window_of_one_keeps_the_mean_term():
    result = pximage.preproc_standard(IMAGE, 1, gain=5.0, mean_gain=2.0)
    np.testing.assert_allclose(result, (IMAGE - IMAGE.min()) * 2.0, rtol=1e-6)
    assert pximage.preproc_standard(IMAGE, 7).shape == IMAGE.shape
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.preproc_standard(IMAGE, 42)
    assert caught.value.code == 0xC43D0003


def test_gaussian_blur_reflects_without_repeating_the_edge():
    ours = pximage.gaussian_blur(IMAGE, 5, 1.5)
    theirs = ndimage.gaussian_filter(IMAGE.astype(np.float64), 1.5, mode="mirror", truncate=2 / 1.5)
    np.testing.assert_allclose(ours, theirs, rtol=1e-4, atol=1e-3)
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.gaussian_blur(IMAGE, 4, 1.0)
    assert "refused" in caught.value.message


def test_refusals():
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.preproc(IMAGE, 0)
    assert (caught.value.code, caught.value.module) == (0xC43D0003, "pxImagePreproc")
    with pytest.raises(pximage.ArgumentError):
        pximage.preproc_bounded(IMAGE, 5, bound=0.5)
    with pytest.raises(pximage.ArgumentError):
        pximage.preproc(IMAGE.astype(np.float64), 3)
    with pytest.raises(pximage.ArgumentError):
        pximage.local_mean(IMAGE, 0)
    with pytest.raises(pximage.ArgumentError):
        pximage.preproc_adaptive_log(IMAGE, 3, out=np.zeros((2, 2), np.float32))


GAUSSIAN_SETTING = """
import numpy as np, pximage
pximage.set_parameter("corresPrepFilterWinSize", "5")
pximage.set_parameter("corresPrepSigma", "1.5")
image = (np.random.default_rng(3).random((20, 30)) * 200 + 20).astype(np.float32)
mean = pximage.gaussian_blur(image, 5, 1.5)
d = image - mean
v = pximage.gaussian_blur(d * d, 5, 1.5)
z = np.clip(d / np.sqrt(np.maximum(v, np.float32(1))), np.float32(-3), np.float32(3)) * np.float32(127.5 / 3)
result, variance = pximage.preproc_bounded(image, 99, 3.0, 1.0)
assert (variance == v).all() and (result == z).all()
"""


def test_bounded_with_the_gaussian_setting_read_on_the_first_call():
    done = subprocess.run([sys.executable, "-c", GAUSSIAN_SETTING], capture_output=True, text=True,
                          env=dict(os.environ))
    assert done.returncode == 0, done.stderr
