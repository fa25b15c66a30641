"""Every kind of failure: the exception class, its code, module and message, and nothing on stderr."""

import errno
import os
import shutil
import warnings

import numpy as np
import pytest

import pximage
from pximage import _pximage

DATA = os.environ.get("PXIMAGE_TEST_DATA", os.path.join(os.path.dirname(__file__), "..", "..", "tests", "data"))


def bad(name):
    return os.path.join(DATA, "bad", name)


def test_missing_file_is_an_os_error_with_errno(tmp_path, capfd):
    with pytest.raises(pximage.FileError) as caught:
        pximage.imread(tmp_path / "missing.pxi")
    e = caught.value
    assert isinstance(e, OSError) and isinstance(e, pximage.Error)
    assert (e.code, e.module, e.function) == (0xC43D0031, "pxImageFile", "pxImageReadWithROIandTransform")
    assert e.message == "file input/output failure: errno 2 (No such file or directory)"
    assert e.errno == errno.ENOENT and e.strerror == "No such file or directory"
    assert e.filename == str(tmp_path / "missing.pxi")
    assert any(r[1] == 1 for r in e.records)  # the traces up the chain are kept
    assert capfd.readouterr().err == ""


def test_info_of_a_missing_file(tmp_path):
    with pytest.raises(OSError) as caught:
        pximage.info(tmp_path / "missing.pxi")
    assert caught.value.errno == errno.ENOENT and caught.value.module == "pximage"


def test_writing_into_a_missing_directory(tmp_path):
    with pytest.raises(pximage.FileError) as caught:
        pximage.imwrite(tmp_path / "no-dir" / "a.pxi", np.zeros((2, 2), np.uint8))
    assert caught.value.errno == errno.ENOENT and caught.value.code == 0xC43D0031


def test_truncated_data_is_a_file_error():
    with pytest.raises(pximage.FileError) as caught:
        pximage.imread(bad("plain_data_truncated.pim"))
    assert caught.value.message.startswith("Image data truncated")


def test_data_after_the_last_plane_is_refused():
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.imread(bad("extra_byte_after_last_plane.pim"))
    e = caught.value
    assert isinstance(e, ValueError)
    assert (e.code, e.module, e.message) == (0xC43D0003, "pxImageFile", "Image file has data after the last plane")


@pytest.mark.parametrize("name", ["cbit_runs_short_of_image.pim", "stored_type_invalid.pim", "planes_zero.pim",
                                  "header_truncated.pim", "cshort_odd_word_count.pim", "width_10000.pim"])
def test_damaged_files_raise_library_errors(name, capfd):
    with pytest.raises(pximage.Error):
        pximage.imread(bad(name))
    assert capfd.readouterr().err == ""


def test_roi_mode_above_2_fails_with_the_trace_only(tmp_path):
    pximage.imwrite(tmp_path / "a.pxi", np.zeros((2, 2), np.uint8))
    with pytest.raises(pximage.Error) as caught:
        pximage.imread(tmp_path / "a.pxi", roi=3)
    assert caught.value.code is None and caught.value.message == "pxImageReadWithROIandTransform failed"


def test_argument_errors_of_the_package():
    for call in (lambda: pximage.imwrite("x.pxi", np.zeros((2, 2), np.int64)),
                 lambda: pximage.imwrite("x.pxi", np.zeros((2, 2), np.uint8), encoding="zip"),
                 lambda: pximage.imwrite("x.pxi", np.zeros((2, 2), np.uint8), header={"colour": 1}),
                 lambda: pximage.imwrite("x.pxi", np.zeros((2, 2), np.uint8), header={"temperature": (1, 2)}),
                 lambda: pximage.imwrite("x.pxi", np.zeros(5, np.uint8)),
                 lambda: pximage.imwrite("x.pxi", np.zeros((10, 2, 2), np.uint8)),
                 lambda: pximage.imread("x.pxi", dtype=np.int8),
                 lambda: pximage.imread("x.pxi", roi="middle"),
                 lambda: pximage.box_min(np.zeros((4, 4), np.uint16), 3),
                 lambda: pximage.box_sums(np.zeros((4, 4), np.uint8), 3, out=np.zeros((4, 4), np.float32)),
                 lambda: pximage.reflect(np.zeros((4, 4), np.float32), 1, "sideways")):
        with pytest.raises(pximage.ArgumentError) as caught:
            call()
        assert isinstance(caught.value, ValueError) and caught.value.module == "pximage"
    assert not os.path.exists("x.pxi")


def test_library_refusals_carry_its_code_and_module():
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.reflect(np.zeros((4, 4), np.float32), 1, 9)
    assert (caught.value.code, caught.value.module) == (0xC41A0017, "pxImageReflect")
    assert caught.value.message == "unknown reflection mode 9"
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.negate_float(np.zeros((4, 4), np.uint16))
    assert (caught.value.code, caught.value.module) == (0xC41A0004, "pxImageOperations")
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.combine(np.zeros((4, 4), np.uint8), np.zeros((3, 3), np.uint8), 1, 1)
    assert (caught.value.code, caught.value.module) == (0xC43D0003, "pxImageCombine")
    with pytest.raises(pximage.ArgumentError) as caught:
        pximage.imwrite("x.pxi", np.zeros((4, 4), np.float32), encoding="cshort")
    assert caught.value.code == 0xC43D0003
    with pytest.raises(pximage.Error) as caught:
        pximage.dilate(np.zeros((4, 4), np.uint8), 8)
    assert caught.value.function == "pxImageDilate"


def test_error_classes_follow_the_codes():
    make = pximage._errors._from_library
    assert isinstance(make("f", 0xC43D0310, "m", "scratch", []), MemoryError)
    assert isinstance(make("f", 0xC41A0003, "PxImageContainer", "x", []), OSError)
    assert isinstance(make("f", 0xC41A0005, "pxImageCut", "x", []), ValueError)
    plain = make("f", 0x12345678, "m", "x", [])
    assert type(plain) is pximage.Error and str(plain) == "x [m 0x12345678]"


def test_allocation_failures_raise_and_free_everything(tmp_path):
    pximage.imwrite(tmp_path / "a.pxi", np.arange(64, dtype=np.uint16).reshape(8, 8))
    image = np.ones((16, 16), np.float32)
    calls = [lambda: pximage.imread(tmp_path / "a.pxi", dtype=np.float32),
             lambda: pximage.box_sums(image, 3),
             lambda: pximage.reflect(image, 2, 1),
             lambda: pximage.imwrite(tmp_path / "b.pxi", np.zeros((8, 8), np.uint16), encoding="cshort")]
    for call in calls:
        failures = 0
        for n in range(1, 12):
            live = pximage.live_allocations()
            _pximage._fail_allocation_after(n)
            try:
                call()
            except pximage.Error:
                failures += 1
            finally:
                _pximage._fail_allocation_after(0)
            assert pximage.live_allocations() == live
        assert failures > 0


def test_writer_warnings_are_python_warnings(tmp_path, capfd):
    with pytest.warns(pximage.LibraryWarning) as caught:
        pximage.imwrite(tmp_path / "w.pxi", np.zeros((4, 7), np.uint8), header={"roimaxX": 100})
    w = caught[0].message
    assert (str(w), w.module, w.level, w.code) == ("Image->roimaxX > Image->width (100 > 7)", "pxImageFileHeader", 4,
                                                   None)
    assert pximage.info(tmp_path / "w.pxi")["roimaxX"] == 7
    with warnings.catch_warnings():
        warnings.simplefilter("error", pximage.LibraryWarning)
        with pytest.raises(pximage.LibraryWarning):
            pximage.imwrite(tmp_path / "w.pxi", np.zeros((4, 7), np.uint8), header={"origX": -1})
    assert capfd.readouterr().err == ""


def test_container_errors(tmp_path):
    with pytest.raises(pximage.FileError) as caught:
        pximage.Container(1, 0, (1, 0, 0), tmp_path / "none").read()
    assert (caught.value.code, caught.value.module) == (0xC41A001C, "PxImageContainer")
    with pytest.raises(pximage.FileError) as caught:
        pximage.Container(1, 0, (1, 0, 0), tmp_path).read()
    assert caught.value.code == 0xC41A0003 and caught.value.errno == errno.ENOENT
    with pytest.raises(IndexError):
        pximage.Container(1)[3]


def test_nothing_reaches_stderr_from_a_subprocess(tmp_path):
    import subprocess
    import sys
    script = "import pximage\ntry:\n    pximage.imread('/nonexistent/x.pxi')\nexcept OSError:\n    pass\n"
    done = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True,
                          env={**os.environ, "PXENV_LOG_LEVEL": "1"})
    assert done.returncode == 0 and done.stderr == ""
    shutil.rmtree(tmp_path, ignore_errors=True)


def test_a_directory_in_the_way_of_imwrite(tmp_path):
    (tmp_path / "d.pxi").mkdir()
    with pytest.raises(pximage.FileError) as caught:
        pximage.imwrite(tmp_path / "d.pxi", np.zeros((2, 2), np.uint8))
    assert caught.value.errno == errno.EISDIR and caught.value.filename == str(tmp_path / "d.pxi")
    assert sorted(os.listdir(tmp_path)) == ["d.pxi"]


def test_each_thread_gets_its_own_errors(tmp_path):
    from concurrent.futures import ThreadPoolExecutor

    good = tmp_path / "good.pxi"
    pximage.imwrite(good, np.arange(10000, dtype=np.uint16).reshape(100, 100))

    def work(i):
        if i % 2:
            return pximage.imread(good).sum()
        try:
            pximage.imread(tmp_path / f"missing{i}.pxi")
        except pximage.FileError as e:
            return (e.code, e.errno, e.filename)

    with ThreadPoolExecutor(4) as pool:
        results = list(pool.map(work, range(200)))
    for i, result in enumerate(results):
        expected = np.arange(10000).sum() if i % 2 else (0xC43D0031, errno.ENOENT, str(tmp_path / f"missing{i}.pxi"))
        assert result == expected
