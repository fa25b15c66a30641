"""Warps: integer and sub-pixel shifts, affine resampling and the dense warps by two displacement maps."""

import numpy as np

from . import _pximage

__all__ = ["INVALID_PIXEL", "translate", "translate_subpixel", "affine_warp", "bilinear_warp",
           "bilinear_warp_masked"]

# Value of a float32 warp result whose source position falls outside the source: the largest finite float.
INVALID_PIXEL = float(np.finfo(np.float32).max)


def _shape(image, shape):
    rows, columns = np.shape(image)[-2:] if shape is None else shape
    return int(rows), int(columns)


def translate(image, dx, dy):
    """Integer shift of a 2-D image of any supported dtype: result[y, x] = image[y + dy, x + dx] where that
    lies inside the image, else 0. Returns a new array. O(pixels)."""
    return _pximage._translate(image, int(dx), int(dy))


def translate_subpixel(image, dx, dy, scale=1.0, shape=None, out=None):
    """Sub-pixel shift of a float32 image: result[y, x] is the bilinear sample at (x + dx * scale,
    y + dy * scale), :data:`INVALID_PIXEL` outside the image. The result has ``shape`` (default the image's)
    or is out. Shifts of the image's size less one or more are refused (ArgumentError). O(pixels)."""
    rows, columns = _shape(image, shape)
    return _pximage._translate_subpixel(image, float(dx), float(dy), float(scale), rows, columns, out)


def affine_warp(image, a, b, scale=1.0, shape=None, out=None):
    """Affine resampling of a float32 image: result[y, x] is the bilinear sample at u = a0 + x + a1 x + a2 y,
    v = b0 + y + b1 x + b2 y with a and b multiplied by scale first (a and b are offsets from the identity;
    the caller's sequences are not changed), :data:`INVALID_PIXEL` outside. Shape and out as
    :func:`translate_subpixel`; |a0| or |b0| of the image's size less one or more is refused. O(pixels)."""
    rows, columns = _shape(image, shape)
    return _pximage._affine_warp(image, a, b, float(scale), rows, columns, out)


def bilinear_warp(image, first, second, out=None):
    """Dense warp of a float32 image by two float32 displacement maps of one shape: result[y, x] is the
    bilinear sample at (x + first[y, x], y + second[y, x]), -1.0 outside the image. The result has the
    maps' shape, or is out. O(map pixels)."""
    return _pximage._bilinear_warp(image, first, second, out)


def bilinear_warp_masked(image, first, second, third, mask):
    """Masked dense warp: where the uint8 mask is non-zero, the sample of :func:`bilinear_warp`; where it
    is 0 or the sample falls outside the image, third[y, x]. third (float32) and mask must be at least as
    large as the maps; the result has third's shape (pixels beyond the maps are third's). Returns a new
    array. O(map pixels)."""
    return _pximage._bilinear_warp_masked(image, first, second, third, mask)
