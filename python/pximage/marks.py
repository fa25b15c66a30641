"""Annotation: crosses at points, magnified cut-outs around points or an ellipse, and ellipses drawn into
images, for visual inspection of detected features. Each function returns a new array; the input is not
changed. A point (x, y) marks the pixel (int(x + 0.5), int(y + 0.5)); a cross of size s has arms of s // 2
pixels and is clipped to the image. The colour is written as the pixel type holds it (uint8 its low byte,
uint16 its low 16 bits, float types the number)."""

from . import _pximage

__all__ = ["mark_points", "magnify_points", "mark_ellipse", "mark_ellipse_and_points"]


def mark_points(image, points, size=1, colour=255):
    """A copy of a 2-D image with a cross of ``size`` in ``colour`` at each (x, y) point (an (n, 2) array
    or sequence of pairs). A cross wholly outside the image raises ArgumentError. O(pixels + n * size)."""
    return _pximage._mark_points(image, points, int(size), int(colour))


def magnify_points(image, points, magnification, size=1, colour=255):
    """A magnified cut-out of a float32 image around points: the bounding box of the points widened by one
    pixel (inside the image), each pixel an m x m block, with the points marked at the centres of their
    magnified pixels. O(result pixels)."""
    return _pximage._magnify_points(image, points, int(magnification), int(size), int(colour))


def mark_ellipse(image, ellipse, magnification=1, size=1, colour=255):
    """A magnified 4r x 4r cut-out (r = int(a + 0.5)) of a uint8 image around ellipse = (cx, cy, a, b,
    angle) with its contour marked by crosses and the "+" at its centre inverted (255 - p). O(result
    pixels)."""
    return _pximage._mark_ellipse(image, ellipse, int(magnification), int(size), int(colour))


def mark_ellipse_and_points(image, ellipse, points=(), size=1, colour=255):
    """A copy of a uint8 image with the ellipse (cx, cy, a, b, angle) drawn by crosses, the "+" at its centre
    inverted (255 - p), and each extra point's pixel set to 255."""
    return _pximage._mark_ellipse_and_points(image, ellipse, points, int(size), int(colour))
