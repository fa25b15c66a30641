"""Marks: crosses, magnified cut-outs and ellipses checked pixel by pixel on small images."""

import numpy as np
import pytest

import pximage

rng = np.random.default_rng(4)


def plus(shape, x, y, arm):
    """Mask of a "+" with arms of `arm` pixels at column x, row y, clipped to the shape."""
    mask = np.zeros(shape, bool)
    h, w = shape
    if 0 <= x < w:
        mask[max(0, y - arm):min(h, y + arm + 1), x] = True
    if 0 <= y < h:
        mask[y, max(0, x - arm):min(w, x + arm + 1)] = True
    return mask


def test_crosses_at_rounded_points():
    image = np.zeros((9, 9), np.uint8)
    result = pximage.mark_points(image, [(4, 4)], size=4, colour=7)
    np.testing.assert_array_equal(result, np.where(plus((9, 9), 4, 4, 2), 7, 0))
    assert image.max() == 0  # the input is not changed
    result = pximage.mark_points(image, np.array([[1.5, 0.49], [-0.7, 6.6]]), size=1, colour=9)
    expected = np.zeros_like(image)
    expected[0, 2] = expected[7, 0] = 9  # (int(x + 0.5), int(y + 0.5)); -0.2 rounds toward zero
    np.testing.assert_array_equal(result, expected)
    np.testing.assert_array_equal(pximage.mark_points(image, []), image)


def test_crosses_are_clipped_at_the_edges():
    image = np.zeros((6, 7), np.uint8)
    result = pximage.mark_points(image, [(0, 0), (6, 5)], size=4, colour=1)
    np.testing.assert_array_equal(result, (plus((6, 7), 0, 0, 2) | plus((6, 7), 6, 5, 2)).astype(np.uint8))


@pytest.mark.parametrize("dtype,colour,value", [(np.uint8, 0x1FF, 0xFF), (np.uint16, 0x12345, 0x2345),
                                                (np.int32, -5, -5), (np.float32, 300, 300.0),
                                                (np.float64, -2, -2.0)])
def test_the_colour_in_each_pixel_type(dtype, colour, value):
    result = pximage.mark_points(np.zeros((3, 3), dtype), [(1, 1)], size=0, colour=colour)
    assert result.dtype == dtype and result[1, 1] == value and np.count_nonzero(result) == 1


def test_a_cross_outside_the_image_is_refused():
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.mark_points(np.zeros((5, 5), np.uint8), [(2, 2), (40, 2)], size=2)
    assert (caught.value.code, caught.value.module) == (0xC43D0003, "pxImageMarkPts")
    with pytest.raises(pximage.ArgumentError):
        pximage.mark_points(np.zeros((5, 5), np.uint8), [1, 2, 3])


def test_magnified_points():
    image = (rng.random((6, 8)) * 100).astype(np.float32)
    result = pximage.magnify_points(image, [(2, 2), (3, 3)], 3, size=1, colour=255)
    # the points' bounding box (columns and rows 2..3) widened by one pixel, each pixel a 3 x 3 block
    expected = np.repeat(np.repeat(image[1:5, 1:5], 3, 0), 3, 1)
    expected[5, 5] = expected[8, 8] = 255.0  # ((p - 1) + 0.5) * 3 rounded
    np.testing.assert_array_equal(result, expected)
    with pytest.raises(pximage.ArgumentError, match="Magnification 0 is below 1"):
        pximage.magnify_points(image, [(2, 2)], 0)


def contour(ellipse, n):
    cx, cy, a, b, angle = ellipse
    t = 2 * np.pi * np.arange(n) / n
    x = cx + a * np.cos(t) * np.cos(angle) - b * np.sin(t) * np.sin(angle)
    y = cy + a * np.cos(t) * np.sin(angle) + b * np.sin(t) * np.cos(angle)
    return x, y


ELLIPSE = (15.2, 14.7, 4.3, 2.9, 0.3)


def test_magnified_ellipse():
    image = rng.integers(0, 200, (30, 30)).astype(np.uint8)
    result = pximage.mark_ellipse(image, ELLIPSE, magnification=2, colour=250)
    x0, y0 = 15 - 8, 15 - 8  # r = 4: the 16 x 16 square around the rounded centre
    expected = np.repeat(np.repeat(image[y0:y0 + 16, x0:x0 + 16], 2, 0), 2, 1)
    x, y = contour(ELLIPSE, 23 * 2 * 3)
    u = (((x - x0) + 0.5) * 2 + 0.5).astype(int)
    v = (((y - y0) + 0.5) * 2 + 0.5).astype(int)
    expected[v, u] = 250
    centre = plus(expected.shape, int((15.2 - x0 + 0.5) * 2), int((14.7 - y0 + 0.5) * 2), 1)
    expected[centre] = 255 - expected[centre]
    np.testing.assert_array_equal(result, expected)


def test_ellipse_and_points_drawn_into_the_image():
    image = rng.integers(0, 200, (30, 30)).astype(np.uint8)
    result = pximage.mark_ellipse_and_points(image, ELLIPSE, [(3, 3), (27.6, 1.2)], colour=120)
    expected = image.copy()
    x, y = contour(ELLIPSE, 23 * 3)
    expected[(y + 0.5).astype(int), (x + 0.5).astype(int)] = 120
    centre = plus(image.shape, int(15.2 + 0.5), int(14.7 + 0.5), 1)
    expected[centre] = 255 - expected[centre]
    expected[3, 3] = expected[1, 28] = 255
    np.testing.assert_array_equal(result, expected)


def test_ellipse_refusals():
    image = np.zeros((30, 30), np.uint8)
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.mark_ellipse(image, (15, 15, -1, 2, 0))
    assert (caught.value.code, caught.value.module) == (0xC43D0003, "pxImageMarkPts")
    with pytest.raises(pximage.ArgumentError, match="not finite"):
        pximage.mark_ellipse(image, (15, 15, float("nan"), 2, 0))
    with pytest.raises(pximage.ArgumentError):
        pximage.mark_ellipse(image, (15, 15, 4))
    with pytest.raises(pximage.ArgumentError, match="byte source image"):
        pximage.mark_ellipse(image.astype(np.float32), ELLIPSE)
    with pytest.raises(pximage.ArgumentError, match="byte image"):
        pximage.mark_ellipse_and_points(image.astype(np.uint16), ELLIPSE)
