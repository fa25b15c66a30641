"""Pixel types of the library and their NumPy dtypes."""

import numpy as np

from ._errors import ArgumentError

# In-memory pixel types: UBYTE 2, SHORT 3, INT 5, FLOAT 6, DOUBLE 7.
_TYPE_OF_DTYPE = {
    np.dtype(np.uint8): 2,
    np.dtype(np.uint16): 3,
    np.dtype(np.int32): 5,
    np.dtype(np.float32): 6,
    np.dtype(np.float64): 7,
}


def pixel_type(dtype):
    """The library's pixel type code of a NumPy dtype; None gives 0 (the source's or file's type)."""
    if dtype is None:
        return 0
    try:
        return _TYPE_OF_DTYPE[np.dtype(dtype).newbyteorder("=")]
    except (KeyError, TypeError):
        raise ArgumentError(
            f"dtype {dtype!r} is not supported (uint8, uint16, int32, float32 or float64)", module="pximage"
        ) from None
