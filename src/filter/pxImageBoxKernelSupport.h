// Row access and search helpers shared by the box filter kernels and their plain references (internal to
// module pxImageBoxFilter).
#pragma once

#include <cfloat>
#include <cstdint>

#include "pxImageBoxFilterInternal.h"

namespace pxbox {

template <typename T> T *rowOf(void **map, int64_t y) {
    return static_cast<T *>(map[y]);
}

// Pixel right of a region that ends at column `end` of row y: the row's storage, else the first stored
// pixel of the next storage row (rows of a plane are contiguous), else 0.
template <typename T> T pixelBeyondRow(const PlaneView &plane, int32_t y, int32_t end) {
    if (end < plane.width + plane.border) {
        return rowOf<T>(plane.map, y)[end];
    }
    if (y + 1 < plane.height + plane.border) {
        return rowOf<T>(plane.map, y + 1)[-plane.border];
    }
    return T(0);
}

// Source row below a region that ends at row `end`, or null when it lies beyond the storage.
template <typename T> const T *rowBeyondRegion(const PlaneView &plane, int32_t end, int32_t x) {
    if (end < plane.height + plane.border) {
        return rowOf<T>(plane.map, end) + x;
    }
    return nullptr;
}

// Start values of the searches: the most negative and the largest finite value of the type.
template <typename T> struct SearchStart;
template <> struct SearchStart<float> {
    static float lowest() { return -FLT_MAX; }
    static float highest() { return FLT_MAX; }
};
template <> struct SearchStart<uint16_t> {
    static uint16_t lowest() { return 0; }
    static uint16_t highest() { return 65535; }
};

// Keeps the current extreme unless the pixel is strictly beyond it (so NaN is never taken).
template <typename T> T keepMin(T current, T pixel) {
    return pixel < current ? pixel : current;
}
template <typename T> T keepMax(T current, T pixel) {
    return pixel > current ? pixel : current;
}

template <typename T, Extreme E> T keepExtreme(T current, T pixel) {
    return E == Extreme::Min ? keepMin(current, pixel) : keepMax(current, pixel);
}

template <typename T, Extreme E> T searchStart() {
    return E == Extreme::Min ? SearchStart<T>::highest() : SearchStart<T>::lowest();
}

inline int32_t windowFirst(int32_t centre, int32_t half) {
    return centre - half < 0 ? 0 : centre - half;
}

inline int32_t windowLast(int32_t centre, int32_t half, int32_t size) {
    return centre + half > size - 1 ? size - 1 : centre + half;
}

} // namespace pxbox
