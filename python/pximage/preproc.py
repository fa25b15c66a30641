"""Preprocessing for correspondence search: local normalisations that remove slowly varying illumination,
the local means they rest on, and a Gaussian blur. Settings the modes read (e.g. "useGaussianBlur",
"corresPrepFilterWinSize") are read on a mode's first call in the process; set them before with
:func:`pximage.set_parameter`."""

import numpy as np

from . import _pximage
from ._errors import ArgumentError

__all__ = ["local_mean", "gaussian_blur", "preproc", "preproc_adaptive_log", "preproc_bounded",
           "widen_saturation", "preproc_log", "preproc_standard"]


def _float_copy(image, out):
    """The float32 array an in-place mode works on: a C-contiguous copy of image, or out (filled with image
    unless it is image)."""
    source = np.asarray(image)
    if source.dtype.newbyteorder("=") != np.float32 or source.ndim != 2:
        raise ArgumentError(f"a float32 2-D image is needed, not {source.dtype} {source.ndim}-D",
                            module="pximage")
    if out is None:
        return np.array(source, dtype=np.float32, order="C")
    if not isinstance(out, np.ndarray) or out.dtype != np.float32 or out.shape != source.shape:
        raise ArgumentError(f"out must be a float32 array of shape {source.shape}", module="pximage")
    if out is not image:
        np.copyto(out, source, casting="no")
    return out


def local_mean(image, window, saturation_level=None, out=None):
    """The mean of every window x window square of a float32 image (an even window reaches one pixel further
    up and left), the square shrunk to the image at its edges; with saturation_level, only pixels below it
    count (a square holding none gives saturation_level). The local mean every mode uses. O(pixels)."""
    target = _float_copy(image, out)
    _pximage._local_mean(target, int(window), saturation_level)
    return target


def gaussian_blur(image, size, sigma, out=None):
    """Gaussian blur of a float32 image, size x size kernel, borders reflected without repeating the edge.
    A size below 1 with sigma > 0 takes the size from sigma; an even size is refused (ArgumentError)."""
    target = _float_copy(image, out)
    _pximage._gaussian_blur(target, int(size), float(sigma))
    return target


def preproc(image, window, offset=0.0, gain=1.0, min_sigma=1.0, out=None):
    """Local zero-mean, unit-variance normalisation of a float32 image: d = image - mean, v = mean of d^2
    (both :func:`local_mean` over ``window``), result = gain * d / sqrt(v) + offset where v > min_sigma^2,
    else gain * d / min_sigma + offset. Returns a new array, or out (which may be image)."""
    target = _float_copy(image, out)
    _pximage._preproc(target, int(window), float(offset), float(gain), float(min_sigma))
    return target


def preproc_adaptive_log(image, window, ignore_saturation=False, saturation_level=255.0, out=None):
    """Log ratio to the local mean: result = ln(image / mean). With ignore_saturation the mean leaves out
    pixels at or above saturation_level, which keep their value. Returns (result, mean)."""
    target = _float_copy(image, out)
    mean = _pximage._preproc_adaptive_log(target, int(window), bool(ignore_saturation), float(saturation_level))
    return target, mean


def preproc_bounded(image, window, bound=3.0, min_sigma=1.0, ignore_saturation=False, saturation_level=255.0,
                    out=None):
    """Normalisation clamped to [-bound, bound] and scaled to [-127.5, 127.5]: d / sqrt(max(v, min_sigma^2))
    (v the local variance); with ignore_saturation, saturated pixels are left out of the means and become
    255.0. bound below 1 is refused (ArgumentError). Returns (result, variance)."""
    if not bound >= 1.0:
        raise ArgumentError(f"bound must be 1.0 or more, not {bound}", module="pximage")
    target = _float_copy(image, out)
    variance = _pximage._preproc_bounded(target, int(window), float(bound), float(min_sigma),
                                         bool(ignore_saturation), float(saturation_level))
    return target, variance


def widen_saturation(image, saturation_level, reference=None, out=None):
    """Grows saturated areas by one pixel: for every interior pixel of reference (default: image) at or
    above saturation_level, its four edge neighbours in the result are set to saturation_level. Returns a
    new array, or out."""
    target = _float_copy(image, out)
    _pximage._widen_saturation(target, reference, float(saturation_level))
    return target


def preproc_log(image, offset=1.0):
    """Tone mapping to about 0..255 in a new float32 array: with lo and hi the smallest and largest pixel,
    uint8 images get (p - lo)^0.1 * 255 / (hi - lo)^0.1, others ln(p - lo + offset) * 255 /
    ln(hi - lo + offset). 2-D or 3-D (planes after the first are converted only)."""
    return _pximage._preproc_log(image, float(offset))


def preproc_standard(image, window, gain=1.0, mean_gain=1.0, ignore_saturation=False):
    """Local normalisation into a new float32 array (uint16 converted with the 0..255 transform):
    (M - lo) * mean_gain + (x - M) * gain / s, M and s the mean and deviation over the window, lo the
    smallest mean; the edge band has mean 0. window 1..min(height, width). O(pixels)."""
    return _pximage._preproc_standard(image, int(window), float(gain), float(mean_gain), bool(ignore_saturation))
