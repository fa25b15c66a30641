// Helpers shared by the point and ellipse marks of module pxImageMarkPts.
#pragma once

#include <cstdint>
#include <cstring>

#include "pxImage.h"

namespace pxmark {

constexpr const char *kModule = "pxImageMarkPts";

// Truncation toward zero as the processor does it: a value outside the 32-bit range (or NaN) gives the
// smallest 32-bit integer, which no image contains.
inline int32_t truncateTo32(double value) {
    if (!(value > -2147483649.0 && value < 2147483648.0)) {
        return INT32_MIN;
    }
    return static_cast<int32_t>(value);
}

// A size computed in double, clamped to the 32-bit range so that the record constructor refuses it with
// its own message instead of receiving a wrapped value.
inline int32_t clampTo32(double value) {
    if (!(value > -2147483648.0)) {
        return INT32_MIN;
    }
    return value < 2147483647.0 ? static_cast<int32_t>(value) : INT32_MAX;
}

// True for a record whose plane 0 exists with a sane shape.
inline bool hasPixels(const tag_pxImage *image) {
    return image && image->planes >= 1 && image->pixMap[0] && image->width >= 1 && image->height >= 1 &&
           image->border >= 0;
}

// True when rows [y0, y1] and columns [x0, x1] lie in the plane's storage, margin included.
inline bool inStorage(const tag_pxImage *image, int64_t x0, int64_t x1, int64_t y0, int64_t y1) {
    const int64_t b = image->border;
    return x0 >= -b && x1 < image->width + b && y0 >= -b && y1 < image->height + b;
}

// Fills a zero-filled output with source pixels: source pixel (x0 + i, y0 + j), i < columns, j < rows,
// becomes an m x m block at (i m, j m) in every plane both images have; pixels outside the source are
// skipped. T is an unsigned type of the pixel size, so values (NaN payloads included) are copied as bits.
template <typename T>
void replicate(const tag_pxImage *source, int64_t x0, int64_t y0, int64_t columns, int64_t rows, int32_t m,
               tag_pxImage *output) {
    for (int32_t p = 0; p < source->planes && p < output->planes && p < 9; ++p) {
        if (!source->pixMap[p] || !output->pixMap[p]) {
            continue;
        }
        for (int64_t j = 0; j < rows; ++j) {
            const int64_t sy = y0 + j;
            if (sy < 0 || sy >= source->height) {
                continue;
            }
            const T *from = static_cast<const T *>(source->pixMap[p][sy]);
            T *first = static_cast<T *>(output->pixMap[p][j * m]);
            for (int64_t i = 0; i < columns; ++i) {
                const int64_t sx = x0 + i;
                if (sx >= 0 && sx < source->width) {
                    for (int32_t k = 0; k < m; ++k) {
                        first[i * m + k] = from[sx];
                    }
                }
            }
            for (int32_t k = 1; k < m; ++k) {
                std::memcpy(output->pixMap[p][j * m + k], first,
                            sizeof(T) * static_cast<size_t>(columns * m));
            }
        }
    }
}

} // namespace pxmark
