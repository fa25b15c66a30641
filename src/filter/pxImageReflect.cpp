// Border reflection: fills the margin around the pixels of a float image from the image itself, so that
// later neighbourhood operations can read past the edges without bounds tests.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "pxImage.h"
#include "image/pxImageLog.h"

namespace {

constexpr const char *kModule = "pxImageReflect";
constexpr uint32_t PX_ERR_UNKNOWN_REFLECT_MODE = 0xC41A0017u;

enum Mode { MIRROR = 1, WRAP_SHARED = 2, REPLICATE = 3, POINT_MIRROR = 4, ZERO = 5, WRAP = 6 };

// How one border position is filled: a copy of the pixel at `from`, the point mirror
// 2 * pixel[edge] - pixel[from], or zero. Indices count along the line being extended.
enum class FillKind { COPY, POINT_MIRROR, ZERO };
struct Fill {
    FillKind kind;
    int from;
    int edge;
};

int clampIndex(int index, int last) {
    return std::clamp(index, 0, last);
}

// The rule for the border position -k before the first pixel of a line whose last index is `last`.
Fill fillBefore(int mode, int k, int last) {
    switch (mode) {
    case MIRROR:
        return {FillKind::COPY, clampIndex(k, last), 0};
    case WRAP_SHARED:
        return {FillKind::COPY, clampIndex(last - k, last), 0};
    case REPLICATE:
        return {FillKind::COPY, 0, 0};
    case POINT_MIRROR:
        return {FillKind::POINT_MIRROR, clampIndex(k, last), 0};
    case WRAP:
        return {FillKind::COPY, clampIndex(last + 1 - k, last), 0};
    default:
        return {FillKind::ZERO, 0, 0};
    }
}

// The rule for the border position last + k after the last pixel of a line.
Fill fillAfter(int mode, int k, int last) {
    switch (mode) {
    case MIRROR:
        return {FillKind::COPY, clampIndex(last - k, last), 0};
    case WRAP_SHARED:
        return {FillKind::COPY, clampIndex(k, last), 0};
    case REPLICATE:
        return {FillKind::COPY, last, 0};
    case POINT_MIRROR:
        return {FillKind::POINT_MIRROR, clampIndex(last - k, last), last};
    case WRAP:
        return {FillKind::COPY, clampIndex(k - 1, last), 0};
    default:
        return {FillKind::ZERO, 0, 0};
    }
}

// The point mirror is formed in double precision and stored as float.
float pointMirror(float edge, float mirrored) {
    return static_cast<float>(2.0 * edge - mirrored);
}

void fillPixel(float *row, int target, const Fill &fill) {
    switch (fill.kind) {
    case FillKind::COPY:
        row[target] = row[fill.from];
        break;
    case FillKind::POINT_MIRROR:
        row[target] = pointMirror(row[fill.edge], row[fill.from]);
        break;
    case FillKind::ZERO:
        row[target] = 0.0f;
        break;
    }
}

// Sets both pixels to the single-precision mean of the two (the shared edge of the wrap with shared edge).
void averagePair(float &a, float &b) {
    const float mean = 0.5f * (a + b);
    a = mean;
    b = mean;
}

// Horizontal pass: the n border pixels on either side of every image row.
void fillColumns(float **rows, int width, int height, int n, int mode) {
    const int last = width - 1;
    for (int y = 0; y < height; ++y) {
        float *row = rows[y];
        for (int k = 1; k <= n; ++k) {
            fillPixel(row, -k, fillBefore(mode, k, last));
            fillPixel(row, last + k, fillAfter(mode, k, last));
        }
        if (mode == WRAP_SHARED) {
            averagePair(row[0], row[last]);
        }
    }
}

// Fills border row `target` over columns first .. first + count - 1 by a rule that names source rows.
void fillRow(float **rows, int target, const Fill &fill, int first, int count) {
    float *out = rows[target] + first;
    const float *from = rows[fill.from] + first;
    switch (fill.kind) {
    case FillKind::COPY:
        std::memcpy(out, from, sizeof(float) * static_cast<size_t>(count));
        break;
    case FillKind::POINT_MIRROR: {
        const float *edge = rows[fill.edge] + first;
        for (int x = 0; x < count; ++x) {
            out[x] = pointMirror(edge[x], from[x]);
        }
        break;
    }
    case FillKind::ZERO:
        std::fill(out, out + count, 0.0f);
        break;
    }
}

// Vertical pass: the n border rows above and below the image, across the already extended columns, so the
// corners come from the extended rows. The wrap with shared edge averages rows 0 and h-1 at the one column
// w + n after each pair of rows; in the contiguous plane of a record that position exists even when
// n equals the border (it is then the first margin pixel of the following row).
void fillRows(float **rows, int width, int height, int n, int mode) {
    const int last = height - 1;
    for (int k = 1; k <= n; ++k) {
        fillRow(rows, -k, fillBefore(mode, k, last), -n, width + 2 * n);
        fillRow(rows, last + k, fillAfter(mode, k, last), -n, width + 2 * n);
        if (mode == WRAP_SHARED) {
            averagePair(rows[0][width + n], rows[last][width + n]);
        }
    }
}

// Refuses what cannot be reflected: no image, no pixels, not FLOAT, or a fill wider than the border.
bool reflectArgumentsValid(const tag_pxImage *image, int32_t n) {
    if (image == nullptr || image->pixMap[0] == nullptr) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "pxImageReflect needs an image with pixels");
        return false;
    }
    if (image->type != FLOAT) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "pxImageReflect works only on float images");
        return false;
    }
    if (n > image->border) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "t");
        return false;
    }
    return true;
}

} // namespace

extern "C" PXIMAGE_API uint32_t pxImageReflect(tag_pxImage *image, int32_t n, int32_t mode) {
    if (!reflectArgumentsValid(image, n)) {
        return 0;
    }
    if (mode < MIRROR || mode > WRAP) {
        PX_SEND_ERROR(kModule, PX_ERR_UNKNOWN_REFLECT_MODE, mode);
        return 0;
    }
    float **rows = reinterpret_cast<float **>(image->pixMap[0]);
    fillColumns(rows, image->width, image->height, n, mode);
    fillRows(rows, image->width, image->height, n, mode);
    return 1;
}
