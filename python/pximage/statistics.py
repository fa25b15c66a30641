"""Region statistics: count, mean, standard deviation, value range and histogram."""

from collections import namedtuple

import numpy as np

from . import _pximage

__all__ = ["Statistics", "pixel_statistics", "flow_statistics"]

Statistics = namedtuple("Statistics", "count mean std minimum maximum histogram")
Statistics.__doc__ = """Result of a statistics call.

count: pixels in the region; mean, std: over the full region count (NaN for an empty region); minimum,
maximum: the value range used (found by the library when bins > 0 and no range was given); histogram: a
uint32 array of bins + 1 counters (the maximum lands in the last), or None when bins is 0."""


def _region(image, region):
    if region is None:
        h, w = np.shape(image)[-2:]
        return (0.0, 0.0, float(w), float(h))
    return region


def pixel_statistics(image, region=None, bins=0, range=None):
    """Statistics of the rectangle region = (x0, y0, x1, y1) of a 2-D image (columns x0..x1-1, rows
    y0..y1-1; default the whole image), as the library computes them: uint8 and uint16 pixels count as
    signed 8- and 16-bit numbers, integer sums wrap at 32 bits. With bins > 0 a histogram of the region
    over range = (minimum, maximum) (found first when None); with bins or a range only pixels inside the
    range enter the sums. Returns a :class:`Statistics`."""
    return Statistics(*_pximage._pixel_statistics(image, _region(image, region), bins, range))


def flow_statistics(flow_x, flow_y, region=None, bins=0, range=None):
    """Statistics of the vector length sqrt(fx^2 + fy^2) of a two-image vector field, as
    :func:`pixel_statistics`."""
    return Statistics(*_pximage._flow_statistics(flow_x, flow_y, _region(flow_x, region), bins, range))
