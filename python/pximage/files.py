"""Reading and writing the library's image files."""

import os

from . import _pximage
from ._errors import ArgumentError, FileError
from ._types import pixel_type

__all__ = ["imread", "read", "info", "imwrite", "Image", "ENCODINGS"]

# File encodings and the stored type each writes: plain keeps the array's type.
ENCODINGS = {"plain": 0, "cbit": 1, "cshort": 4, "short12": 8}
_ROI_MODES = {None: 0, "all": 0, "mask": 1, "crop": 2}


def _roi_mode(roi):
    if isinstance(roi, int) and not isinstance(roi, bool):
        return roi
    try:
        return _ROI_MODES[roi]
    except (KeyError, TypeError):
        raise ArgumentError(f"roi must be None, 'mask', 'crop' or 0..2, not {roi!r}", module="pximage") from None


# In-memory type of the encoded stored types: CBIT 1 -> UBYTE 2, CSHORT 4 and SHORT12 8 -> SHORT 3.
_DECODED = {1: 2, 4: 3, 8: 3}


def _reading(path, dtype, transform):
    """(type to read, type to convert to afterwards or 0). The library reads encoded files only in their
    decoded type (and the 16-bit ones as float32 with transform): other types are converted after reading
    by the library's conversion engine."""
    wanted = pixel_type(dtype)
    if wanted == 0:
        return 0, 0
    decoded = _DECODED.get(_pximage._info(path)["type"])
    if decoded is None or decoded == wanted or (transform and decoded == 3 and wanted == 6):
        return wanted, 0
    return 0, wanted


def _naming(path, call):
    """Runs call(); a FileError gets the path as its filename."""
    try:
        return call()
    except FileError as error:
        if getattr(error, "filename", None) is None:
            error.filename = os.fspath(path)
        raise


class Image:
    """An image read from a file: ``pixels`` (a NumPy array) and ``header`` (a dict of every header field).

    The header holds the file's ``version`` tag, the stored ``type`` code with its ``typeName`` and
    ``encoding``, then the record's fields: ``width``, ``height``, ``planes``, the region of interest
    ``roiminX``/``roimaxX``/``roiminY``/``roimaxY``, the origin in the full frame ``origX``/``origY``/
    ``origWidth``/``origHeight``, ``origType``, ``auxInt``, ``temperature`` (3 values, -273 = not measured),
    ``opticsParam`` (5), the lens coefficients ``aberK1``..``aberK3``, ``aberP1``, ``aberP2``, ``aberCx``,
    ``aberCy``, and the auxiliary fields ``auxShort`` (4), ``auxLong`` (8), ``auxWide`` and ``auxInt2`` (3).
    Pass it as ``header=`` to :func:`imwrite` to write the same metadata.
    """

    def __init__(self, pixels, header):
        self.pixels = pixels
        self.header = header

    def __repr__(self):
        h = self.header
        return (f"<pximage.Image {h['width']}x{h['height']}x{h['planes']} {self.pixels.dtype} "
                f"from {h['typeName']} ({h['encoding']}, {h['version']})>")


def imread(path, dtype=None, roi=None, transform=False):
    """Reads an image file into a NumPy array.

    Every encoding is read: plain files in their stored type, CBIT files as uint8, CSHORT and SHORT12
    files as uint16 (then converted when another dtype is asked for).

    Args:
        path: file name (str or os.PathLike).
        dtype: pixel type wanted (uint8, uint16, int32, float32, float64), converted while reading; None
            keeps the stored type.
        roi: None reads the whole image; "crop" reads only the region of interest stored in the file (the
            array has the region's size); "mask" reads the whole size but only the region's pixels (the
            rest is zero). The library's mode numbers 0, 1, 2 are accepted too.
        transform: with dtype float32 and a 16-bit file, rescale 0..65535 to about 0..255.

    Returns:
        A (height, width) array for one plane, (planes, height, width) for more. For one plane the array
        views the library's image record without a copy (the record lives as long as the array).

    Raises:
        FileError (also OSError) when the file cannot be opened or read, ArgumentError (also ValueError)
        for a file the library refuses or a bad argument, Error otherwise.
    """
    mode = _roi_mode(roi)

    def load():
        wanted, later = _reading(path, dtype, transform)
        pixels = _pximage._imread(path, wanted, mode, bool(transform))
        return _pximage._convert(pixels, later, bool(transform)) if later else pixels

    return _naming(path, load)


def read(path, dtype=None, roi=None, transform=False):
    """Reads an image file with its header: an :class:`Image` with ``pixels`` and ``header``.

    Arguments and errors as :func:`imread`. The header describes the image as read (with roi="crop" its
    size, origin and region are those of the cut-out) and names the file's version, stored type and
    encoding.
    """
    mode = _roi_mode(roi)

    def load():
        wanted, later = _reading(path, dtype, transform)
        pixels, header = _pximage._read(path, wanted, mode, bool(transform))
        return Image(_pximage._convert(pixels, later, bool(transform)) if later else pixels, header)

    return _naming(path, load)


def info(path):
    """The header of an image file as a dict (the keys of :class:`Image`), reading only its header block.

    Raises FileError (also OSError) when the file cannot be read, ArgumentError for a header the library
    refuses.
    """
    return _naming(path, lambda: _pximage._info(path))


def imwrite(path, array, encoding="plain", header=None, transform=False):
    """Writes a NumPy array to an image file.

    Args:
        path: file name (str or os.PathLike). The file is written under a temporary name in the same
            directory and renamed when complete, so a failure never leaves a partial file.
        array: uint8, uint16, int32, float32 or float64; 2-D, or 3-D with up to 9 planes first. Any
            layout (non-contiguous arrays are copied first). The array itself is never changed.
        encoding: "plain" (the array's type), "cbit" (bi-level run lengths, uint8 only), "cshort" (lossy
            run-length compression of uint16) or "short12" (the 12 high bits of uint16).
        header: a dict of header fields (as :func:`info` returns) to store; size, type and version keys
            are ignored, unknown keys raise ArgumentError.
        transform: for a float32 array: rescale about 0..255 to 0..65535 and write 16-bit data (plain
            SHORT, or the cshort/short12 encodings).

    The library's warnings (for example region or origin values corrected in the file) are issued as
    :class:`LibraryWarning`. Raises FileError (also OSError) when the file cannot be written,
    ArgumentError for an array, encoding or header the library refuses.
    """
    if encoding not in ENCODINGS:
        raise ArgumentError(f"encoding must be one of {', '.join(ENCODINGS)}, not {encoding!r}", module="pximage")
    file_type = ENCODINGS[encoding]
    if transform:
        if getattr(array, "dtype", None) != "float32":
            raise ArgumentError("transform writes float32 arrays as 16-bit data", module="pximage")
        if file_type == 0:
            file_type = 3
        else:
            from .filters import convert

            array, transform = convert(array, "uint16", transform=True), False
    target = os.fspath(path)
    if isinstance(target, bytes):
        target = os.fsdecode(target)
    temporary = os.path.join(os.path.dirname(target), f".{os.path.basename(target)}.{os.getpid()}.tmp")
    try:
        _naming(path, lambda: _pximage._imwrite(temporary, array, file_type, header, bool(transform)))
        try:
            os.replace(temporary, target)
        except OSError as error:
            failure = FileError(f"cannot rename the written file: {error.strerror}", module="pximage")
            failure.errno, failure.strerror, failure.filename = error.errno, error.strerror, target
            raise failure from error
    except BaseException:
        if os.path.exists(temporary):
            os.remove(temporary)
        raise
