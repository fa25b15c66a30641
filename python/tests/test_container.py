"""The grab container: set-up, file names and kinds, round trip through files, XML form, item access."""

import numpy as np
import pytest

import pximage


@pytest.fixture
def plain_settings():
    """Container writes without compression (so that round trips are exact), restored afterwards."""
    pximage.set_parameter("pxImageContainerCompressFLS", "false")
    pximage.set_parameter("pxImageContainerCompressCLRandTXT", "false")
    pximage.Container.reload_settings()
    yield
    pximage.set_parameter("pxImageContainerCompressFLS", "true")
    pximage.set_parameter("pxImageContainerCompressCLRandTXT", "true")
    pximage.Container.reload_settings()


def images(count):
    rng = np.random.default_rng(3)
    return [rng.integers(0, 65535, (24, 32), endpoint=True).astype(np.uint16) for _ in range(count)]


def test_set_up_kinds_and_file_names(tmp_path):
    c = pximage.Container(55, 3, (1, 2, 3), tmp_path)
    assert (c.grab_type, c.tile, c.sets, c.directory, len(c)) == (55, 3, (1, 2, 3), str(tmp_path), 9)
    assert c.kinds == ["FLS"] * 3 + ["PRJ"] * 3 + ["LGT"] * 3
    assert c.file_names[0] == f"{tmp_path}/T00003_FLS_00001_0.pxi"
    assert c.file_names[8] == f"{tmp_path}/T00003_LGT_00003_2.pxi"
    assert all(c[i] is None for i in range(len(c)))
    triple = pximage.Container(23, 0, (5, 6, 0))
    assert triple.is_triple_exposure and triple.sets == (5, 6, 6)
    assert pximage.Container(5).is_double_exposure


def test_round_trip_through_files_is_exact_without_compression(tmp_path, plain_settings):
    pictures = images(9)
    c = pximage.Container(55, 3, (1, 2, 3), tmp_path)
    for i, picture in enumerate(pictures):
        c[i] = picture
    c.set(4, pictures[4], header={"origX": 9, "origWidth": 100, "temperature": (20.0, 21.0, 22.0)})
    c.write()
    for i, name in enumerate(c.file_names):
        np.testing.assert_array_equal(pximage.imread(name), pictures[i])
    back = pximage.Container(55, 3, (1, 2, 3), tmp_path).read()
    assert len(back) == 9
    for i in range(9):
        np.testing.assert_array_equal(back[i], pictures[i])
    assert back.header(4)["origX"] == 9 and back.header(4)["temperature"] == (20.0, 21.0, 22.0)
    assert back[-1] is not None and back.header(0)["width"] == 32


def test_compressed_round_trip_reads_what_the_files_hold(tmp_path, frame):
    c = pximage.Container(1, 7, (4, 0, 0), tmp_path)
    for i in range(len(c)):
        c[i] = frame
    c.write()
    assert [pximage.info(name)["encoding"] for name in c.file_names] == ["cshort"] * 3
    back = pximage.Container(1, 7, (4, 0, 0)).read(tmp_path)
    for i, name in enumerate(c.file_names):
        np.testing.assert_array_equal(back[i], pximage.imread(name))
        assert np.abs(back[i].astype(int) - frame).max() <= 128


def test_items_are_copies(tmp_path):
    c = pximage.Container(1)
    picture = images(1)[0]
    c[0] = picture
    picture[:] = 0
    first = c[0]
    assert first.any()
    first[:] = 0
    assert c[0].any()
    c[0] = None
    assert c[0] is None


def test_xml_form():
    c = pximage.Container(55, 3, (1, 2, 3), "grabs/a")
    xml = c.to_xml()
    assert xml == '<PxImageContainer Tile="3" ImgGrabType="55" SetNum0="1" SetNum1="2" SetNum2="3" Path="grabs/a"/>'
    d = pximage.Container(1).from_xml(xml)
    assert (d.grab_type, d.tile, d.sets, d.directory) == (55, 3, (1, 2, 3), "grabs/a")
    assert d.init_for_grab() is d and len(d) == 9
    d.from_xml("<not xml")
    assert d.to_xml() == xml


def test_files_written_by_pximg_read_by_the_container(pximg, tmp_path):
    pximg("container", "write", tmp_path, "--grab-type", "55", "--tile", "2", "--set", "7", "8", "9")
    c = pximage.Container(55, 2, (7, 8, 9), tmp_path).read()
    assert len(c) == 9 and all(c[i] is not None for i in range(9))
    np.testing.assert_array_equal(c[5], pximage.imread(c.file_names[5]))
