"""pximage: the pxImage library from Python and NumPy.

Read and write the library's image files (every encoding), the images of a grab, and run the library's
neighbourhood filters and statistics on NumPy arrays::

    import pximage
    frame = pximage.imread("frame.pxi")            # NumPy array, (height, width)
    header = pximage.info("frame.pxi")              # dict of every header field
    pximage.imwrite("copy.pxi", frame, encoding="short12")
    smooth = pximage.box_average(frame.astype("float32"), 5)

Families: files (imread, read, info, imwrite, Image), the grab container (Container), filters
(block_sum_x ... reflect, convert), statistics (pixel_statistics, flow_statistics), geometry (cut, extend,
roi, reduce, pyramid, deinterlace, aber, fix_aber), warps (translate ... bilinear_warp_masked),
preprocessing (local_mean, gaussian_blur, preproc ... preproc_standard) and marks (mark_points ...
mark_ellipse_and_points).

Failures raise :class:`Error` with the library's code, module and message; file failures are also
OSError (:class:`FileError`), refused arguments also ValueError (:class:`ArgumentError`). Warnings that
the library logs during a successful call are issued as :class:`LibraryWarning`. Nothing is printed.
"""

from ._errors import AllocationError, ArgumentError, Error, FileError, LibraryWarning
from . import _pximage
from .container import Container
from .files import ENCODINGS, Image, imread, imwrite, info, read
from .filters import (REFLECT_MODES, block_sum_x, block_sum_y, box_average, box_max, box_min,
                      box_min_and_range, box_normalize, box_sums, combine, convert, dilate, erode, negate,
                      negate_float, reflect, thresh_to_binary, thresh_upper)
from .statistics import Statistics, flow_statistics, pixel_statistics
from .geometry import REDUCE_KERNEL, aber, cut, deinterlace, extend, fix_aber, pyramid, reduce, roi
from .warps import INVALID_PIXEL, affine_warp, bilinear_warp, bilinear_warp_masked, translate, translate_subpixel
from .preproc import (gaussian_blur, local_mean, preproc, preproc_adaptive_log, preproc_bounded, preproc_log,
                      preproc_standard, widen_saturation)
from .marks import magnify_points, mark_ellipse, mark_ellipse_and_points, mark_points

__all__ = [
    "Error", "FileError", "ArgumentError", "AllocationError", "LibraryWarning",
    "imread", "read", "info", "imwrite", "Image", "ENCODINGS",
    "Container",
    "block_sum_x", "block_sum_y", "box_sums", "box_normalize", "box_average", "box_min", "box_max",
    "box_min_and_range", "thresh_to_binary", "thresh_upper", "dilate", "erode", "negate", "negate_float",
    "combine", "reflect", "REFLECT_MODES", "convert",
    "Statistics", "pixel_statistics", "flow_statistics",
    "cut", "extend", "roi", "reduce", "pyramid", "REDUCE_KERNEL", "deinterlace", "aber", "fix_aber",
    "translate", "translate_subpixel", "affine_warp", "bilinear_warp", "bilinear_warp_masked", "INVALID_PIXEL",
    "local_mean", "gaussian_blur", "preproc", "preproc_adaptive_log", "preproc_bounded", "widen_saturation",
    "preproc_log", "preproc_standard",
    "mark_points", "magnify_points", "mark_ellipse", "mark_ellipse_and_points",
    "live_allocations", "set_parameter",
]

# The exceptions and warnings show as pximage.Error etc.
for _cls in (Error, FileError, ArgumentError, AllocationError, LibraryWarning, Container, Image, Statistics):
    _cls.__module__ = __name__
del _cls


def live_allocations():
    """Blocks the library has allocated and not yet freed (for leak checks)."""
    return _pximage._live_allocations()


def set_parameter(key, value):
    """Sets one of the library's named settings (the environment's parameter store), e.g.
    set_parameter("pxImageContainerCompressFLS", "false"). Settings are read once, on first use; see
    Container.reload_settings for the container's two."""
    _pximage._set_parameter(str(key), str(value))
