"""Neighbourhood filters, thresholds, morphology, negation, combination, reflection and conversion.

Every function takes 2-D NumPy arrays (plane 0 of an image) and returns a new array, or writes into
``out`` when given (a writable C-contiguous array of the result's dtype and shape; for the functions that
change pixels in place, ``out`` may be the input itself). C-contiguous inputs are used without copying.
Filters work on the whole array as the region of interest. Results are the library's, bit for bit,
including its deliberate wrap-arounds (uint8 sums modulo 256, uint16 sums modulo 65536).
"""

import numpy as np

from . import _pximage
from ._errors import ArgumentError
from ._types import pixel_type

__all__ = [
    "block_sum_x", "block_sum_y", "box_sums", "box_normalize", "box_average", "box_min", "box_max",
    "box_min_and_range", "thresh_to_binary", "thresh_upper", "dilate", "erode", "negate", "negate_float",
    "combine", "reflect", "REFLECT_MODES", "convert",
]

_SUMMABLE = ("uint8", "uint16", "float32", "float64")
REFLECT_MODES = {"mirror": 1, "wrap_shared": 2, "replicate": 3, "point_mirror": 4, "zero": 5, "wrap": 6}


def _require(image, dtypes, function):
    """Refuses, with ArgumentError, a dtype the library function does not take (it would fail without a
    reason, or, for the sums, return without writing)."""
    dtype = np.asarray(image).dtype
    if dtype.newbyteorder("=").name not in dtypes:
        raise ArgumentError(f"{function} takes {' or '.join(dtypes)} images, not {dtype}", module="pximage")
    return image


def _in_place(image, out):
    """The array an in-place library operation works on: a C-contiguous copy of image, or out."""
    if out is None:
        source = np.asarray(image)
        pixel_type(source.dtype)
        return np.array(source, dtype=source.dtype.newbyteorder("="), order="C")
    if not isinstance(out, np.ndarray):
        raise ArgumentError("out must be a NumPy array", module="pximage")
    if out is not image:
        np.copyto(out, image, casting="no")
    return out


def block_sum_x(image, n, out=None):
    """Horizontal windowed sums: each pixel gets the sum of its row's pixels in a window of n (odd) centred
    on it, clipped to the image. uint8, uint16, float32, float64 (sums kept in the pixel type). O(1) per
    pixel. Fails for an image narrower than n."""
    _require(image, _SUMMABLE, "block_sum_x")
    return _pximage._block_sum_x(image, n, out)


def block_sum_y(image, n, out=None):
    """Vertical windowed sums, as :func:`block_sum_x` along the columns. Fails for an image lower than n."""
    _require(image, _SUMMABLE, "block_sum_y")
    return _pximage._block_sum_y(image, n, out)


def box_sums(image, n, out=None):
    """Two-dimensional box sums over an n x n window (odd n) clipped to the image: :func:`block_sum_x`,
    then :func:`block_sum_y`. uint8, uint16, float32, float64. O(1) per pixel."""
    _require(image, _SUMMABLE, "box_sums")
    return _pximage._box_sums(image, n, out)


def box_normalize(sums, n, out=None):
    """Divides float32 box sums by the number of pixels each clipped n x n window covered (multiplication
    by the single-precision reciprocal). Returns a new array, or out (which may be ``sums`` itself)."""
    _require(sums, ("float32",), "box_normalize")
    target = _in_place(sums, out)
    _pximage._box_normalize(target, n)
    return target


def box_average(image, n, out=None):
    """Box average: :func:`box_sums`, then :func:`box_normalize` for float32 (other types keep the raw
    sums, as the library does). Inside the image (n // 2 from every edge) it equals
    scipy.ndimage.uniform_filter(image, n) up to float rounding. O(1) per pixel."""
    _require(image, _SUMMABLE, "box_average")
    return _pximage._box_average(image, n, out)


def box_min(image, n, out=None):
    """Windowed minimum of a float32 image over an n x n window clipped to the image (equal to
    scipy.ndimage.minimum_filter(image, n, mode="nearest") for odd n and finite pixels; NaN is never taken).
    O(n) per pixel."""
    _require(image, ("float32",), "box_min")
    return _pximage._box_min(image, n, out)


def box_max(image, n, out=None):
    """Windowed maximum of a float32 image, as :func:`box_min`."""
    _require(image, ("float32",), "box_max")
    return _pximage._box_max(image, n, out)


def box_min_and_range(image, n, out_min=None, out_range=None):
    """Windowed minimum and (maximum - minimum) of a uint16 or float32 image: returns (minimum, range)."""
    _require(image, ("uint16", "float32"), "box_min_and_range")
    return _pximage._box_min_and_range(image, n, out_min, out_range)


def thresh_to_binary(image, threshold, out=None):
    """1 where a pixel is at or above the threshold, 0 elsewhere, in the image's dtype (uint8, uint16,
    float32, float64). The threshold is converted to the pixel type as the library does (uint8 keeps its
    low 8 bits; uint16 compares as signed 16-bit, so 32768 and above count as negative)."""
    _require(image, _SUMMABLE, "thresh_to_binary")
    target = _in_place(image, out)
    _pximage._thresh_to_binary(target, float(threshold))
    return target


def thresh_upper(image, threshold, out=None):
    """Pixels below the threshold set to 0, the others kept; converted and compared as
    :func:`thresh_to_binary`."""
    _require(image, _SUMMABLE, "thresh_upper")
    target = _in_place(image, out)
    _pximage._thresh_upper(target, float(threshold))
    return target


def dilate(image, radius, out=None):
    """Binary dilation of a 0/1 uint8 image with a (2 radius + 1) square clipped to the image. Radius below
    1 copies; above 7 fails. O(1) per pixel."""
    _require(image, ("uint8",), "dilate")
    return _pximage._dilate(image, radius, out)


def erode(image, radius, out=None):
    """Binary erosion of a 0/1 uint8 image, as :func:`dilate`: a band of ``radius`` pixels along the edges
    is cleared."""
    _require(image, ("uint8",), "erode")
    return _pximage._erode(image, radius, out)


def negate(image, out=None):
    """Every byte replaced by 255 - byte (255 - value for uint8; the byte complement for other dtypes)."""
    target = _in_place(image, out)
    _pximage._negate(target, False)
    return target


def negate_float(image, out=None):
    """Every float32 pixel replaced by 255.0 - value (the library treats any 4- or 8-byte type's rows as
    float32; 1- and 2-byte types raise ArgumentError)."""
    target = _in_place(image, out)
    _pximage._negate(target, True)
    return target


def combine(first, second, first_weight, second_weight, width=None, height=None, out=None):
    """Weighted sum of two uint8 images: the low 8 bits of first_weight * a + second_weight * b truncated
    toward zero (results wrap: 300 gives 44, -1 gives 255), over the first width x height pixels (default:
    the first image's size). Pixels outside that rectangle keep out's values (zero in a new array)."""
    _require(first, ("uint8",), "combine")
    _require(second, ("uint8",), "combine")
    shape = np.shape(first)
    h, w = shape[-2:] if len(shape) >= 2 else (0, 0)
    return _pximage._combine(first, second, float(first_weight), float(second_weight),
                             w if width is None else width, h if height is None else height, out)


def reflect(image, n, mode):
    """A float32 image with an n-pixel border on every side filled from its own pixels: returns a
    (height + 2n, width + 2n) array. Modes (name or number): "mirror" 1 (without repeating the edge),
    "wrap_shared" 2 (wrap with a shared edge), "replicate" 3, "point_mirror" 4 (2 * edge - mirrored),
    "zero" 5, "wrap" 6."""
    if isinstance(mode, str):
        mode = mode.replace("-", "_")
        if mode not in REFLECT_MODES:
            raise ArgumentError(f"unknown reflection mode {mode!r} ({', '.join(REFLECT_MODES)})", module="pximage")
        mode = REFLECT_MODES[mode]
    _require(image, ("float32",), "reflect")
    return _pximage._reflect(image, n, mode)


def convert(image, dtype, transform=False):
    """A copy of the image in another pixel type, converted as the library does (rounding and clamping of
    its conversion engine). With transform, uint16 -> float32 rescales 0..65535 to about 0..255 and
    float32 -> uint16 back. 2-D or 3-D (planes first)."""
    return _pximage._convert(image, pixel_type(dtype), bool(transform))
