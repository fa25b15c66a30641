// Helpers shared by the geometry modules: where a plane's storage begins and ends, so that an operation
// that reads past a row (into the margin or the next row, as several of them are defined to) can tell
// beforehand whether it would leave the plane's one block of memory.
#pragma once

#include <cstdint>

#include "pxImage.h"
#include "image/pxImageInternal.h"

namespace pxgeom {

// One plane of a record as bytes: rows [-border, height + border) of pixelSize * (width + 2 border) bytes,
// one contiguous block; byte 0 of row 0 is the first pixel of the image proper.
struct PlaneBytes {
    int64_t pixelSize;
    int64_t width;
    int64_t height;
    int64_t border;
};

// The byte layout of an image's planes; false for a type that is not valid or has no pixel size (its
// storage holds no bytes). O(1).
inline bool planeBytesOf(const tag_pxImage *image, PlaneBytes &plane) {
    if (!pxImageTypeIsValid(image->type)) {
        return false;
    }
    plane = {pxImagePixelSizeTable[image->type], image->width, image->height, image->border};
    return plane.pixelSize > 0 && plane.width > 0 && plane.height > 0 && plane.border >= 0;
}

// True when row `row` has an entry in the row table and the bytes [firstByte, lastByte], counted from
// column 0 of that row (negative: left margin; past the row: the following rows), lie inside the plane's
// block. O(1).
inline bool bytesInsidePlane(const PlaneBytes &plane, int64_t row, int64_t firstByte, int64_t lastByte) {
    if (row < -plane.border || row >= plane.height + plane.border) {
        return false;
    }
    const int64_t stride = plane.pixelSize * (plane.width + 2 * plane.border);
    const int64_t rowStart = (row + plane.border) * stride + plane.border * plane.pixelSize;
    const int64_t total = stride * (plane.height + 2 * plane.border);
    return rowStart + firstByte >= 0 && rowStart + lastByte < total;
}

// a + b in 32-bit two's complement, as the record's int32 fields wrap.
inline int32_t wrappingSum(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

} // namespace pxgeom
