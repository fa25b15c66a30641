"""Warps: integer shifts as shifted slices, sub-pixel and affine resampling and the dense warps against a
single-precision NumPy model of the bilinear rule and against the pximg results."""

import numpy as np
import pytest

import pximage

rng = np.random.default_rng(9)
FLOAT = (rng.random((23, 31)) * 255).astype(np.float32)
INVALID = np.float32(pximage.INVALID_PIXEL)


def shifted(image, dx, dy, fill=0):
    """result[y, x] = image[y + dy, x + dx] inside the image, fill outside."""
    h, w = image.shape
    result = np.full_like(image, fill)
    ys, xs = slice(max(0, -dy), min(h, h - dy)), slice(max(0, -dx), min(w, w - dx))
    result[ys, xs] = image[max(0, dy):min(h, h + dy), max(0, dx):min(w, w + dx)]
    return result


def bilinear(image, sx, sy, outside):
    """Single-precision bilinear samples at (sx, sy), neighbours clamped to the last row and column."""
    h, w = image.shape
    sx, sy = sx.astype(np.float32), sy.astype(np.float32)
    inside = (sx >= 0) & (sx <= w - 1) & (sy >= 0) & (sy <= h - 1)
    j = np.floor(np.where(inside, sx, 0)).astype(int)
    i = np.floor(np.where(inside, sy, 0)).astype(int)
    fu = np.where(inside, sx, 0).astype(np.float32) - j.astype(np.float32)
    fv = np.where(inside, sy, 0).astype(np.float32) - i.astype(np.float32)
    j2, i2 = np.minimum(j + 1, w - 1), np.minimum(i + 1, h - 1)
    top = image[i, j] + (image[i, j2] - image[i, j]) * fu
    bottom = image[i2, j] + (image[i2, j2] - image[i2, j]) * fu
    return np.where(inside, top + (bottom - top) * fv, np.float32(outside)).astype(np.float32)


def bilinear_clamped(image, u, v):
    """The shifts' and affine warp's rule: i = min(floor(v), h - 2), j = min(floor(u), w - 2), weights
    v - i and u - j (1 on the last row and column), INVALID_PIXEL outside [0, w - 1] x [0, h - 1]."""
    h, w = image.shape
    u, v = u.astype(np.float32), v.astype(np.float32)
    inside = (u >= 0) & (u <= w - 1) & (v >= 0) & (v <= h - 1)
    uu, vv = np.where(inside, u, 0).astype(np.float32), np.where(inside, v, 0).astype(np.float32)
    j = np.minimum(np.floor(uu).astype(int), w - 2)
    i = np.minimum(np.floor(vv).astype(int), h - 2)
    fu, fv = uu - j.astype(np.float32), vv - i.astype(np.float32)
    top = image[i, j] + (image[i, j + 1] - image[i, j]) * fu
    bottom = image[i + 1, j] + (image[i + 1, j + 1] - image[i + 1, j]) * fu
    return np.where(inside, top + (bottom - top) * fv, INVALID).astype(np.float32)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int32, np.float32, np.float64])
@pytest.mark.parametrize("dx,dy", [(0, 0), (3, -2), (-5, 4), (40, 0), (0, -30)])
def test_integer_translation_is_a_shifted_slice(dtype, dx, dy):
    image = (rng.random((12, 17)) * 200).astype(dtype)
    np.testing.assert_array_equal(pximage.translate(image, dx, dy), shifted(image, dx, dy))


def test_translations_equal_the_c_tool(pximg, tmp_path):
    pximage.imwrite(tmp_path / "in.pxi", FLOAT)
    pximg("warp", tmp_path / "in.pxi", tmp_path / "int.pxi", "--shift", 2, -3)
    np.testing.assert_array_equal(pximage.translate(FLOAT, 2, -3), pximage.imread(tmp_path / "int.pxi"))
    pximg("warp", tmp_path / "in.pxi", tmp_path / "sub.pxi", "--shift", 0.5, 0.25, "--scale", 2)
    np.testing.assert_array_equal(pximage.translate_subpixel(FLOAT, 0.5, 0.25, scale=2),
                                  pximage.imread(tmp_path / "sub.pxi"))
    pximg("warp", tmp_path / "in.pxi", tmp_path / "aff.pxi", "--affine", 0.5, 0.01, -0.02, 1.5, 0.03, 0.0)
    np.testing.assert_array_equal(pximage.affine_warp(FLOAT, (0.5, 0.01, -0.02), (1.5, 0.03, 0.0)),
                                  pximage.imread(tmp_path / "aff.pxi"))


def test_subpixel_translation_follows_the_bilinear_rule():
    y, x = np.mgrid[0:23, 0:31].astype(np.float32)
    ours = pximage.translate_subpixel(FLOAT, 1.25, -0.5)
    np.testing.assert_array_equal(ours, bilinear_clamped(FLOAT, x + np.float32(1.25), y - np.float32(0.5)))
    whole = pximage.translate_subpixel(FLOAT, 1, 0)
    np.testing.assert_array_equal(whole[:-1, :-1], FLOAT[:-1, 1:])
    np.testing.assert_allclose(whole[:, :-1], FLOAT[:, 1:], rtol=1e-6)
    assert (whole[:, -1] == INVALID).all()
    assert pximage.translate_subpixel(FLOAT, 0, 0, shape=(5, 40)).shape == (5, 40)


def test_affine_identity_and_the_callers_coefficients():
    a, b = [0.0, 0.0, 0.0], np.zeros(3, np.float32)
    identity = pximage.affine_warp(FLOAT, a, b)
    np.testing.assert_array_equal(identity[:-1, :-1], FLOAT[:-1, :-1])
    np.testing.assert_allclose(identity, FLOAT, rtol=1e-6)  # the last row and column interpolate with weight 1
    y, x = np.mgrid[0:23, 0:31].astype(np.float32)
    u = np.float32(0.5) + x + np.float32(0.01) * x + np.float32(-0.02) * y
    v = np.float32(1.5) + y + np.float32(0.03) * x + np.float32(0.0) * y
    np.testing.assert_array_equal(pximage.affine_warp(FLOAT, (0.5, 0.01, -0.02), (1.5, 0.03, 0.0)),
                                  bilinear_clamped(FLOAT, u, v))
    a, b = [0.5, 0.0, 0.0], np.array([0.25, 0.0, 0.0], np.float32)
    pximage.affine_warp(FLOAT, a, b, scale=2.0)
    assert a == [0.5, 0.0, 0.0] and list(b) == [0.25, 0.0, 0.0]
    out = np.zeros_like(FLOAT)
    assert pximage.affine_warp(FLOAT, a, b, out=out) is out


def test_too_rough_warps_and_wrong_types_are_refused():
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.translate_subpixel(FLOAT, 30, 0)
    e = caught.value
    assert (e.code, e.module, e.message) == (0xC43D0003, "pxImageWarp", "\n Warping transformation is too rought \n")
    with pytest.raises(pximage.ArgumentError):
        pximage.affine_warp(FLOAT, (0, 0, 0), (22, 0, 0))
    with pytest.raises(pximage.ArgumentError):
        pximage.affine_warp(FLOAT, (0, 0), (0, 0, 0))
    with pytest.raises(pximage.ArgumentError):
        pximage.translate_subpixel(FLOAT.astype(np.float64), 1, 1)
    with pytest.raises(pximage.ArgumentError):
        pximage.translate(np.zeros((2, 2, 2, 2), np.uint8), 1, 1)


def test_dense_warp_follows_the_bilinear_rule():
    first = (rng.random((20, 25)) * 6 - 3).astype(np.float32)
    second = (rng.random((20, 25)) * 6 - 3).astype(np.float32)
    y, x = np.mgrid[0:20, 0:25].astype(np.float32)
    ours = pximage.bilinear_warp(FLOAT, first, second)
    np.testing.assert_array_equal(ours, bilinear(FLOAT, x + first, y + second, -1.0))
    zero = np.zeros_like(FLOAT)
    np.testing.assert_array_equal(pximage.bilinear_warp(FLOAT, zero, zero), FLOAT)
    np.testing.assert_array_equal(pximage.bilinear_warp(FLOAT, zero + 2, zero), shifted(FLOAT, 2, 0, -1.0))


def test_masked_warp_keeps_the_third_image_where_the_mask_is_zero():
    first = np.full((20, 25), 1.5, np.float32)
    second = np.full((20, 25), -0.5, np.float32)
    third = np.full((22, 27), 42.0, np.float32)
    mask = (rng.random((20, 25)) > 0.5).astype(np.uint8)
    ours = pximage.bilinear_warp_masked(FLOAT, first, second, third, mask)
    y, x = np.mgrid[0:20, 0:25].astype(np.float32)
    sample = bilinear(FLOAT, x + first, y + second, np.nan)
    expected = third.copy()
    expected[:20, :25] = np.where((mask != 0) & ~np.isnan(sample), sample, 42.0)
    np.testing.assert_array_equal(ours, expected)


def test_dense_warp_errors():
    maps = np.zeros((5, 5), np.float32)
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.bilinear_warp(FLOAT, maps, np.zeros((5, 6), np.float32))
    assert caught.value.code == 0xC41A0019
    with pytest.raises(pximage.ArgumentError):
        pximage.bilinear_warp(FLOAT, maps, maps, out=maps)
    with pytest.raises(pximage.ArgumentError):
        pximage.bilinear_warp(FLOAT.astype(np.float64), maps, maps)
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.bilinear_warp_masked(FLOAT, maps, maps, np.zeros((4, 4), np.float32), np.ones((5, 5), np.uint8))
    assert caught.value.code == 0xC41A0019
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.bilinear_warp_masked(FLOAT, maps, maps, maps, np.ones((4, 4), np.uint8))
    assert caught.value.code == 0xC43D0003
    with pytest.raises(pximage.ArgumentError):
        pximage.bilinear_warp_masked(FLOAT, maps, maps, maps, np.ones((5, 5), np.float32))
