"""Geometry: cuts, pixel replication, the textured region, reduction by two, pyramids, de-interlacing and
lens-distortion resampling."""

import numpy as np

from . import _pximage
from ._errors import ArgumentError
from ._types import pixel_type

__all__ = ["REDUCE_KERNEL", "cut", "extend", "roi", "reduce", "pyramid", "deinterlace", "aber", "fix_aber"]

# The usual 5-tap binomial kernel 1-4-6-4-1 / 16 as (centre, first neighbour, second neighbour).
REDUCE_KERNEL = (0.375, 0.25, 0.0625)


def _require(image, dtypes, name):
    dtype = np.asarray(image).dtype
    if dtype.newbyteorder("=").name not in dtypes:
        raise ArgumentError(f"{name} takes {', '.join(dtypes)} images, not {dtype}", module="pximage")


def cut(image, x, y, width, height, dtype=None, transform=False, out=None):
    """The width x height rectangle of a 2-D image whose top-left pixel is column x, row y: equal to
    ``image[y:y + height, x:x + width]`` when it lies inside the image, converted to ``dtype`` as the library
    converts (with transform, uint16 <-> float32 rescaled). A rectangle reaching out of the image raises
    ArgumentError. Returns a new array, or out. O(cut pixels)."""
    if x < 0 or y < 0:
        raise ArgumentError(f"a cut starts inside the image, not at ({x}, {y})", module="pximage")
    return _pximage._cut(image, int(x), int(y), int(width), int(height), pixel_type(dtype), bool(transform), out)


def extend(image, factor, width=None, height=None, out=None):
    """Enlargement of a uint8 image by pixel replication: result[r, c] = image[r // factor, c // factor], for
    a result of height x width pixels (default factor times the image). A result larger than that is refused
    (ArgumentError). Returns a new array, or out. O(result pixels)."""
    _require(image, ("uint8",), "extend")
    h, w = np.shape(image)[-2:]
    width = w * factor if width is None else width
    height = h * factor if height is None else height
    return _pximage._extend(image, int(factor), int(width), int(height), out)


def roi(image):
    """The rectangle (left, top, right, bottom) of the textured content of a float32 (or int32, float64)
    image of about 0..255, right and bottom one past it (right <= left when nothing is textured). Kept
    are the 6 x 6 blocks of sufficient variance and medium brightness; edges with mostly untextured 20-pixel
    strips are peeled off. uint8 and uint16 images are refused (ArgumentError). O(pixels)."""
    return _pximage._roi(image)


def reduce(image, kernel=REDUCE_KERNEL, out=None):
    """One level of reduction of a float32 image by two: rows then columns filtered at every second position
    with the 5-tap kernel (centre, first, second neighbour; normalised in the interior, renormalised at the
    ends of a line). Result ((height + 1) // 2, (width + 1) // 2) float32, or out. Images lower than 3 rows
    or narrower than 3 columns are refused (ArgumentError). O(pixels)."""
    _require(image, ("float32",), "reduce")
    return _pximage._reduce(image, kernel, out)


def pyramid(image, levels=None, kernel=REDUCE_KERNEL):
    """The list of a float32 image and its successive reductions (:func:`reduce`), level 0 a copy of the
    image, each level ((h + 1) // 2, (w + 1) // 2) of the one before, while the smaller side of the level
    before is at least 3 (at most 15 levels), or the first ``levels`` of them. O(pixels)."""
    return _pximage._pyramid(image, 0 if levels is None else int(levels), kernel)


def deinterlace(image):
    """The two fields of an interlaced frame of any supported dtype: (even, odd) = (image[0::2],
    image[1::2]) as new arrays. The frame needs at least 2 rows. O(pixels)."""
    return _pximage._deinterlace(image)


def aber(image, k1=0.0, k2=0.0, k3=0.0, p1=0.0, p2=0.0, cx=-1.0, cy=-1.0, n=1):
    """Lens-distortion resampling of a float32 image through the full radial (k1, k2, k3) and tangential
    (p1, p2) model about (cx, cy) (negative: the image centre): each pixel averages n x n nearest-pixel
    samples; pixels with a sample outside the image become 0 (so the last row and column are 0). Returns a
    new array. O(pixels * n^2)."""
    _require(image, ("float32",), "aber")
    return _pximage._aber(image, k1, k2, k3, p1, p2, cx, cy, int(n))


def fix_aber(image, k, cx=-1.0, cy=-1.0):
    """Undoes the one-coefficient radial distortion r = u (1 + k u^2) about (cx, cy) (negative: the image
    centre), reading each pixel bilinearly on its ray; pixels whose source lies outside the image become 0.
    uint8 and uint16 results are truncated; int32 and float64 images are refused (ArgumentError) because
    the library processes their rows as float32. k = 0 returns a copy. Returns a new array. O(pixels)."""
    _require(image, ("uint8", "uint16", "float32"), "fix_aber")
    return _pximage._fix_aber(image, float(k), float(cx), float(cy))
