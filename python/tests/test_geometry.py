"""Geometry: cut, extend, the textured region, reduction, pyramids, de-interlacing and the lens corrections,
against NumPy models and against the results of the C library as the pximg tool writes them."""

import re

import numpy as np
import pytest

import pximage

rng = np.random.default_rng(5)
FLOAT = (rng.random((37, 53)) * 255).astype(np.float32)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int32, np.float32, np.float64])
def test_cut_is_slicing(dtype):
    image = (rng.random((20, 30)) * 200).astype(dtype)
    np.testing.assert_array_equal(pximage.cut(image, 4, 7, 11, 5), image[7:12, 4:15])
    np.testing.assert_array_equal(pximage.cut(image, 0, 0, 30, 20), image)
    strided = image[::2, ::3]
    np.testing.assert_array_equal(pximage.cut(strided, 1, 2, 3, 4), strided[2:6, 1:4])


def test_cut_converts_and_fills_out():
    image = np.arange(24, dtype=np.uint16).reshape(4, 6)
    np.testing.assert_array_equal(pximage.cut(image, 1, 1, 3, 2, dtype=np.float64), image[1:3, 1:4])
    back = pximage.cut(pximage.cut(image, 0, 0, 6, 4, dtype="float32", transform=True), 0, 0, 6, 4,
                       dtype="uint16", transform=True)
    np.testing.assert_array_equal(back, image)
    out = np.full((2, 2), 9, np.uint16)
    assert pximage.cut(image, 2, 2, 2, 2, out=out) is out
    np.testing.assert_array_equal(out, image[2:4, 2:4])


def test_cut_outside_the_image_is_refused():
    image = np.zeros((4, 6), np.uint8)
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.cut(image, 3, 0, 4, 2)
    assert caught.value.code == 0xC41A0005 and caught.value.module == "pxImageCut"
    with pytest.raises(pximage.ArgumentError):
        pximage.cut(image, -1, 0, 2, 2)
    with pytest.raises(pximage.ArgumentError):
        pximage.cut(image, 0, 0, 2, 2, out=np.zeros((3, 3), np.uint8))


def test_cut_equals_the_c_result(pximg, tmp_path):
    image = (rng.random((30, 40)) * 60000).astype(np.uint16)
    pximage.imwrite(tmp_path / "in.pxi", image)
    pximg("cut", tmp_path / "in.pxi", tmp_path / "c.pxi", 5, 6, 20, 10, "--type", "float", "--transform")
    ours = pximage.cut(image, 5, 6, 20, 10, dtype=np.float32, transform=True)
    np.testing.assert_array_equal(ours, pximage.imread(tmp_path / "c.pxi"))


def test_extend_replicates_pixels():
    image = np.arange(12, dtype=np.uint8).reshape(3, 4)
    np.testing.assert_array_equal(pximage.extend(image, 3), np.repeat(np.repeat(image, 3, 0), 3, 1))
    twice = np.repeat(np.repeat(image, 2, 0), 2, 1)
    np.testing.assert_array_equal(pximage.extend(image, 2, width=5, height=3), twice[:3, :5])
    with pytest.raises(pximage.ArgumentError):
        pximage.extend(image, 0)
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.extend(image, 2, width=20, height=20)
    assert caught.value.module == "pxImageExtend"
    with pytest.raises(pximage.ArgumentError):
        pximage.extend(image.astype(np.float32), 2)


def test_roi_finds_the_textured_part_as_the_c_tool(pximg, tmp_path):
    image = np.zeros((120, 160), np.float32)
    image[:, :100] = rng.random((120, 100)) * 200 + 20
    assert pximage.roi(image) == (0, 0, 100, 120)
    pximage.imwrite(tmp_path / "in.pxi", image)
    printed = pximg("roi", tmp_path / "in.pxi")
    x0, x1, y0, y1 = map(int, re.search(r"columns (\d+)\.\.(\d+), rows (\d+)\.\.(\d+)", printed).groups())
    assert pximage.roi(image) == (x0, y0, x1 + 1, y1 + 1)
    left, _, right, _ = pximage.roi(np.zeros((60, 60), np.float32))
    assert right <= left


def test_roi_refuses_narrow_pixels():
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.roi(np.zeros((120, 160), np.uint8))
    assert (caught.value.code, caught.value.module) == (0xC43D0003, "pxImageRoi")


def reduce_model(image):
    """1-4-6-4-1 filtering at every second column then every second row, in float64 (interior only)."""
    k = np.array([1, 4, 6, 4, 1], np.float64) / 16
    wide = image.astype(np.float64)
    rows = sum(k[i] * wide[:, i:wide.shape[1] - 4 + i] for i in range(5))[:, ::2]
    return sum(k[i] * rows[i:rows.shape[0] - 4 + i] for i in range(5))[::2]


@pytest.mark.parametrize("shape", [(37, 53), (40, 64), (9, 12)])
def test_reduce_matches_the_binomial_model_inside(shape):
    image = FLOAT[:shape[0], :shape[1]] if shape[0] <= 37 else (rng.random(shape) * 255).astype(np.float32)
    ours = pximage.reduce(image)
    assert ours.shape == ((shape[0] + 1) // 2, (shape[1] + 1) // 2) and ours.dtype == np.float32
    model = reduce_model(image)
    np.testing.assert_allclose(ours[1:1 + model.shape[0], 1:1 + model.shape[1]], model, rtol=1e-5, atol=1e-4)
    flat = np.full(shape, 7.0, np.float32)
    np.testing.assert_allclose(pximage.reduce(flat), 7.0, rtol=1e-6)


def test_reduce_errors():
    with pytest.raises(pximage.ArgumentError):
        pximage.reduce(np.zeros((2, 10), np.float32))
    with pytest.raises(pximage.ArgumentError):
        pximage.reduce(np.zeros((10, 10), np.uint8))
    with pytest.raises(pximage.ArgumentError):
        pximage.reduce(FLOAT, kernel=(1, 2))
    out = np.zeros((19, 27), np.float32)
    assert pximage.reduce(FLOAT, out=out) is out


def test_pyramid_equals_repeated_reduce_and_the_c_tool(pximg, tmp_path):
    levels = pximage.pyramid(FLOAT)
    assert [level.shape for level in levels] == [(37, 53), (19, 27), (10, 14), (5, 7), (3, 4), (2, 2)]
    np.testing.assert_array_equal(levels[0], FLOAT)
    for before, after in zip(levels, levels[1:]):
        np.testing.assert_array_equal(after, pximage.reduce(before))
    assert len(pximage.pyramid(FLOAT, levels=3)) == 3
    pximage.imwrite(tmp_path / "in.pxi", FLOAT)
    pximg("pyramid", tmp_path / "in.pxi", tmp_path / "out")
    for n, level in enumerate(levels):
        np.testing.assert_array_equal(level, pximage.imread(tmp_path / "out" / f"level-{n}.pxi"))
    with pytest.raises(pximage.ArgumentError):
        pximage.pyramid(FLOAT.astype(np.float64))


@pytest.mark.parametrize("rows", [2, 7, 8])
@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float64])
def test_deinterlace_splits_even_and_odd_rows(rows, dtype):
    frame = (rng.random((rows, 9)) * 200).astype(dtype)
    even, odd = pximage.deinterlace(frame)
    np.testing.assert_array_equal(even, frame[0::2])
    np.testing.assert_array_equal(odd, frame[1::2])
    with pytest.raises(pximage.ArgumentError):
        pximage.deinterlace(frame[:1])


def test_deinterlace_equals_the_c_tool(pximg, tmp_path):
    frame = (rng.random((11, 9)) * 60000).astype(np.uint16)
    pximage.imwrite(tmp_path / "in.pxi", frame)
    pximg("deinterlace", tmp_path / "in.pxi", tmp_path / "even.pxi", tmp_path / "odd.pxi")
    even, odd = pximage.deinterlace(frame)
    np.testing.assert_array_equal(even, pximage.imread(tmp_path / "even.pxi"))
    np.testing.assert_array_equal(odd, pximage.imread(tmp_path / "odd.pxi"))


def test_aber_without_distortion_keeps_all_but_the_last_row_and_column():
    result = pximage.aber(FLOAT)
    expected = FLOAT.copy()
    expected[-1, :] = 0
    expected[:, -1] = 0
    np.testing.assert_array_equal(result, expected)


def test_aber_equals_the_c_tool(pximg, tmp_path):
    pximage.imwrite(tmp_path / "in.pxi", FLOAT)
    pximg("distort", tmp_path / "in.pxi", tmp_path / "c.pxi", "--k1", "1e-4", "--p2", "1e-4", "--supersample", 3)
    ours = pximage.aber(FLOAT, k1=1e-4, p2=1e-4, n=3)
    np.testing.assert_array_equal(ours, pximage.imread(tmp_path / "c.pxi", dtype="float32"))


def test_aber_errors():
    with pytest.raises(pximage.ArgumentError):
        pximage.aber(FLOAT, n=0)
    with pytest.raises(pximage.ArgumentError):
        pximage.aber(FLOAT, k1=float("nan"))
    with pytest.raises(pximage.ArgumentError):
        pximage.aber(FLOAT.astype(np.uint8))


@pytest.mark.parametrize("dtype", [np.uint8, np.float32])
def test_fix_aber_equals_the_c_tool(pximg, tmp_path, dtype):
    image = FLOAT.astype(dtype)
    pximage.imwrite(tmp_path / "in.pxi", image)
    pximg("undistort", tmp_path / "in.pxi", tmp_path / "c.pxi", "--k", "2e-5", "--center", 20, 15)
    ours = pximage.fix_aber(image, 2e-5, 20, 15)
    assert ours.dtype == dtype
    np.testing.assert_array_equal(ours, pximage.imread(tmp_path / "c.pxi"))
    np.testing.assert_array_equal(pximage.fix_aber(image, 0.0), image)


def test_fix_aber_goes_on_for_strong_negative_k_and_refuses_bad_arguments():
    # the library's note for k < -1e-7 is informational (level 3), not a warning
    assert pximage.fix_aber(FLOAT, -1e-6).shape == FLOAT.shape
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.fix_aber(FLOAT, float("inf"))
    assert caught.value.code == 0xC43D0003
    with pytest.raises(pximage.ArgumentError):
        pximage.fix_aber(FLOAT.astype(np.int32), 1e-5)
