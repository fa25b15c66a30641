"""Reading and writing image files: every type and encoding, headers, regions, transform, zero copy."""

import os

import numpy as np
import pytest

import pximage

DTYPES = [np.uint8, np.uint16, np.int32, np.float32, np.float64]


def sample(dtype, shape=(37, 53)):
    rng = np.random.default_rng(7)
    if np.issubdtype(dtype, np.integer):
        info = np.iinfo(dtype)
        return rng.integers(info.min, info.max, size=shape, endpoint=True, dtype=dtype)
    return (rng.standard_normal(shape) * 1e3).astype(dtype)


@pytest.mark.parametrize("dtype", DTYPES)
def test_plain_round_trip_is_exact(tmp_path, dtype):
    a = sample(dtype)
    pximage.imwrite(tmp_path / "a.pxi", a)
    b = pximage.imread(tmp_path / "a.pxi")
    assert b.dtype == a.dtype and b.shape == a.shape
    np.testing.assert_array_equal(b, a)


@pytest.mark.parametrize("dtype", DTYPES)
def test_planes_round_trip_is_exact(tmp_path, dtype):
    a = sample(dtype, (3, 11, 17))
    pximage.imwrite(tmp_path / "a.pxi", a)
    b = pximage.imread(tmp_path / "a.pxi")
    assert b.shape == (3, 11, 17)
    np.testing.assert_array_equal(b, a)
    assert pximage.info(tmp_path / "a.pxi")["planes"] == 3


def test_non_contiguous_and_byte_swapped_arrays_are_written(tmp_path):
    a = sample(np.uint16, (40, 60))
    pximage.imwrite(tmp_path / "t.pxi", a.T)
    np.testing.assert_array_equal(pximage.imread(tmp_path / "t.pxi"), a.T)
    pximage.imwrite(tmp_path / "s.pxi", a[::2, 1::3])
    np.testing.assert_array_equal(pximage.imread(tmp_path / "s.pxi"), a[::2, 1::3])
    pximage.imwrite(tmp_path / "b.pxi", a.astype(">u2"))
    np.testing.assert_array_equal(pximage.imread(tmp_path / "b.pxi"), a)


def test_cbit_reads_back_binarised(tmp_path):
    a = np.array([[0, 0], [7, 255]], dtype=np.uint8)
    pximage.imwrite(tmp_path / "c.pxi", a, encoding="cbit")
    assert pximage.info(tmp_path / "c.pxi")["encoding"] == "cbit"
    np.testing.assert_array_equal(pximage.imread(tmp_path / "c.pxi"), [[0, 0], [255, 255]])
    mask = sample(np.uint8) > 128
    pximage.imwrite(tmp_path / "m.pxi", mask.astype(np.uint8) * 255, encoding="cbit")
    np.testing.assert_array_equal(pximage.imread(tmp_path / "m.pxi"), mask * 255)


@pytest.mark.parametrize("height", [3, 5, 61])
def test_short12_keeps_the_high_bits_and_reads_12_below(tmp_path, height):
    a = sample(np.uint16, (height, 29))
    pximage.imwrite(tmp_path / "p.pxi", a, encoding="short12")
    assert pximage.info(tmp_path / "p.pxi")["type"] == 8
    np.testing.assert_array_equal(pximage.imread(tmp_path / "p.pxi"), (a & 0xFFF0) | 12)


def test_cshort_is_lossy_within_its_tolerance_and_leaves_the_array_alone(tmp_path, frame):
    before = frame.copy()
    pximage.imwrite(tmp_path / "c.pxi", frame, encoding="cshort")
    np.testing.assert_array_equal(frame, before)
    back = pximage.imread(tmp_path / "c.pxi")
    assert back.dtype == np.uint16
    assert np.abs(back.astype(int) - frame.astype(int)).max() <= 128


def test_header_fields_round_trip(tmp_path):
    header = {
        "roiminX": 3, "roimaxX": 20, "roiminY": 2, "roimaxY": 9, "origX": 100, "origY": 50,
        "origWidth": 2000, "origHeight": 1000, "auxInt": -5, "temperature": (21.5, 22.25, -273.0),
        "opticsParam": (1.0, 2.0, 3.0, 4.0, 5.5), "aberK1": 1e-7, "aberK2": -2e-9, "aberK3": 3.0,
        "aberP1": 0.25, "aberP2": -0.5, "aberCx": 12.5, "aberCy": 7.5, "auxShort": (1, -2, 300, 4),
        "auxLong": tuple(range(-3, 5)), "auxWide": 0x0123456789ABCDEF, "auxInt2": (7, 8, 9),
    }
    pximage.imwrite(tmp_path / "h.pxi", sample(np.float32, (12, 25)), header=header)
    read = pximage.info(tmp_path / "h.pxi")
    for key, value in header.items():
        assert read[key] == value, key
    assert (read["version"], read["type"], read["typeName"], read["encoding"]) == ("im13", 6, "FLOAT", "plain")
    assert (read["width"], read["height"], read["planes"]) == (25, 12, 1)
    image = pximage.read(tmp_path / "h.pxi")
    assert image.header == read
    copy = tmp_path / "copy.pxi"
    pximage.imwrite(copy, image.pixels, header=image.header)
    assert copy.read_bytes() == (tmp_path / "h.pxi").read_bytes()


def test_roi_modes(tmp_path):
    a = sample(np.uint16, (30, 40))
    pximage.imwrite(tmp_path / "r.pxi", a, header={"roiminX": 10, "roimaxX": 30, "roiminY": 5, "roimaxY": 25})
    crop = pximage.read(tmp_path / "r.pxi", roi="crop")
    np.testing.assert_array_equal(crop.pixels, a[5:25, 10:30])
    h = crop.header
    assert (h["width"], h["height"], h["origX"], h["origY"]) == (20, 20, 10, 5)
    assert (h["roiminX"], h["roimaxX"], h["roiminY"], h["roimaxY"]) == (0, 20, 0, 20)
    mask = pximage.imread(tmp_path / "r.pxi", roi="mask")
    expected = np.zeros_like(a)
    expected[5:25, 10:30] = a[5:25, 10:30]
    np.testing.assert_array_equal(mask, expected)
    np.testing.assert_array_equal(pximage.imread(tmp_path / "r.pxi", roi=2), crop.pixels)


def test_read_converts_and_transforms(tmp_path):
    a = np.array([[0, 1000, 65535]], dtype=np.uint16)
    pximage.imwrite(tmp_path / "s.pxi", a)
    plain = pximage.imread(tmp_path / "s.pxi", dtype=np.float32)
    np.testing.assert_array_equal(plain, a.astype(np.float32))
    scaled = pximage.imread(tmp_path / "s.pxi", dtype="float32", transform=True)
    np.testing.assert_array_equal(scaled, pximage.convert(a, np.float32, transform=True))
    assert scaled[0, 2] < 256 and scaled[0, 1] < plain[0, 1]


def test_write_transform_scales_float_to_16_bit(tmp_path):
    f = np.array([[0.0, 100.0, 255.0]], dtype=np.float32)
    pximage.imwrite(tmp_path / "t.pxi", f, transform=True)
    assert pximage.info(tmp_path / "t.pxi")["type"] == 3
    written = pximage.imread(tmp_path / "t.pxi")
    np.testing.assert_array_equal(written, pximage.convert(f, np.uint16, transform=True))
    pximage.imwrite(tmp_path / "t12.pxi", f, encoding="short12", transform=True)
    np.testing.assert_array_equal(pximage.imread(tmp_path / "t12.pxi"), (written & 0xFFF0) | 12)


def test_imread_views_the_record_without_copy(tmp_path):
    a = sample(np.uint16, (64, 64))
    pximage.imwrite(tmp_path / "z.pxi", a)
    b = pximage.imread(tmp_path / "z.pxi")
    assert not b.flags.owndata and type(b.base).__name__ == "PyCapsule"
    assert b.flags.c_contiguous and b.flags.writeable
    view = b[10:20]
    del b
    np.testing.assert_array_equal(view, a[10:20])


def test_paths_as_str_bytes_and_pathlike(tmp_path):
    a = sample(np.uint8, (4, 5))
    pximage.imwrite(str(tmp_path / "ü name.pxi"), a)
    np.testing.assert_array_equal(pximage.imread(os.fsencode(tmp_path / "ü name.pxi")), a)
    assert sorted(os.listdir(tmp_path)) == ["ü name.pxi"]


def test_imwrite_replaces_a_file_only_when_complete(tmp_path):
    target = tmp_path / "keep.pxi"
    pximage.imwrite(target, sample(np.uint16, (8, 8)))
    before = target.read_bytes()
    with pytest.raises(pximage.ArgumentError):
        pximage.imwrite(target, sample(np.float32, (8, 8)), encoding="cshort")
    assert target.read_bytes() == before
    assert sorted(os.listdir(tmp_path)) == ["keep.pxi"]


def test_files_of_pximg_read_in_python(demo, pximg):
    short = pximage.read(demo / "frame-short.pxi")
    c_info = pximg.info(demo / "frame-short.pxi")
    for key in ("version", "type", "typeName", "encoding", "width", "height", "planes", "auxInt", "auxInt2"):
        assert short.header[key] == (tuple(c_info[key]) if isinstance(c_info[key], list) else c_info[key]), key
    assert list(short.header["opticsParam"]) == c_info["opticsParam"]
    np.testing.assert_array_equal(pximage.imread(demo / "frame-float.pxi"), short.pixels.astype(np.float32))
    assert pximage.imread(demo / "frame-short12.pxi").shape == short.pixels.shape
    np.testing.assert_array_equal(pximage.imread(demo / "frame-short12.pxi"), (short.pixels & 0xFFF0) | 12)


def test_python_encoders_write_the_same_bytes_as_pximg(demo, tmp_path):
    short = pximage.read(demo / "frame-short.pxi")
    for encoding in ("cshort", "short12"):
        pximage.imwrite(tmp_path / f"{encoding}.pxi", short.pixels, encoding=encoding, header=short.header)
        assert (tmp_path / f"{encoding}.pxi").read_bytes() == (demo / f"frame-{encoding}.pxi").read_bytes()


def test_files_of_python_read_by_pximg(tmp_path, pximg, frame):
    header = {"origX": 4, "origY": 6, "origWidth": 200, "origHeight": 100, "temperature": (30.0, 31.0, 32.0)}
    pximage.imwrite(tmp_path / "p.pxi", frame, header=header)
    c_info = pximg.info(tmp_path / "p.pxi")
    assert c_info["origin"] == {"x": 4, "y": 6, "width": 200, "height": 100}
    assert c_info["temperature"] == [30, 31, 32] and c_info["typeName"] == "SHORT"
    pximg("convert", tmp_path / "p.pxi", tmp_path / "f.pxi", "--type", "float")
    np.testing.assert_array_equal(pximage.imread(tmp_path / "f.pxi"), frame.astype(np.float32))
    pximg("convert", tmp_path / "p.pxi", tmp_path / "c.pxi", "--encoding", "cshort")
    pximage.imwrite(tmp_path / "py-c.pxi", frame, encoding="cshort", header=header)
    np.testing.assert_array_equal(pximage.imread(tmp_path / "c.pxi"), pximage.imread(tmp_path / "py-c.pxi"))


def test_encoded_files_read_in_any_dtype(tmp_path, frame):
    pximage.imwrite(tmp_path / "p.pxi", frame, encoding="short12")
    decoded = pximage.imread(tmp_path / "p.pxi")
    np.testing.assert_array_equal(pximage.imread(tmp_path / "p.pxi", dtype=np.float64), decoded.astype(np.float64))
    np.testing.assert_array_equal(pximage.read(tmp_path / "p.pxi", dtype="int32").pixels, decoded.astype(np.int32))
    np.testing.assert_array_equal(pximage.imread(tmp_path / "p.pxi", dtype=np.float32, transform=True),
                                  pximage.convert(decoded, np.float32, transform=True))
    pximage.imwrite(tmp_path / "c.pxi", (frame > 5000).astype(np.uint8), encoding="cbit")
    np.testing.assert_array_equal(pximage.imread(tmp_path / "c.pxi", dtype=np.float32),
                                  (frame > 5000).astype(np.float32) * 255)
