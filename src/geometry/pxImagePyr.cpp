// Module pxImagePyr: image pyramids, a fixed array of 15 records with level 0 the largest and each further
// level half the size of the one before, filled by a 5-tap symmetric low-pass filter with subsampling by
// two (pxImageReduce).
#include <algorithm>
#include <cstdint>

#include "pxImage.h"
#include "image/pxImageLog.h"
#include "pxImageGeometryInternal.h"
#include "pxImageReduceKernels.h"

namespace {

constexpr const char *kModule = "pxImagePyr";
constexpr int32_t kLevels = pxImage_PYR_LEVELS;
// Rows of the row-filtered image kept at a time: the reach of the 5-tap filter down a column.
constexpr int32_t kRingRows = 5;

bool levelIsValid(int32_t level) {
    return level >= 0 && level < kLevels;
}

// Number of levels built above a level of width x height: halved (rounding up) while the smaller side of
// the level below is at least 2.
int32_t levelsAbove(int64_t width, int64_t height) {
    int32_t count = 0;
    while (std::min(width, height) >= 2) {
        width = (width + 1) / 2;
        height = (height + 1) / 2;
        ++count;
    }
    return count;
}

bool pyrHeaderArgumentsValid(tag_pxImage **pyramid, int32_t level, int32_t width, int32_t height) {
    if (pyramid == nullptr || !levelIsValid(level)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "pyramid level %d outside 0..14", level);
        return false;
    }
    if (level + levelsAbove(width, height) >= kLevels) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "pyramid of %dx%d at level %d needs more than 15 levels",
                 width, height, level);
        return false;
    }
    return true;
}

// Every level first..last exists, was built with this type, border and plane count (pixel maps of another
// form could not be freed with the record's own) and has no pixel maps yet (they would be lost).
bool pyrPixMapArgumentsValid(int32_t type, int32_t border, int32_t planes, int32_t first, int32_t last,
                             tag_pxImage **pyramid) {
    if (first > last) {
        return true;
    }
    if (pyramid == nullptr || !levelIsValid(first) || !levelIsValid(last)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "pyramid levels %d..%d outside 0..14", first, last);
        return false;
    }
    for (int32_t level = first; level <= last; ++level) {
        const tag_pxImage *image = pyramid[level];
        if (image == nullptr || image->type != type || image->border != border || image->planes != planes) {
            PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                     "pyramid level %d has no header of type %d, border %d and %d planes", level, type,
                     border, planes);
            return false;
        }
        for (int32_t plane = 0; plane < planes; ++plane) {
            if (image->pixMap[plane] != nullptr) {
                PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "pyramid level %d already has pixels", level);
                return false;
            }
        }
    }
    return true;
}

// The rows and columns the two passes read stay inside the source plane and the row-filtered image: that
// image has H rows and no margin, so the rows below every output row must exist (at least 3 rows and
// h <= (H + 1) / 2); a source row may be read past its end, into the margin or the next row, but not past
// the plane's last byte.
bool reduceReadsInside(const tag_pxImage *source, const tag_pxImage *target) {
    const int32_t W = source->width, H = source->height, w = target->width, h = target->height;
    if (H < 3 || int64_t(h - 1) * 2 > int64_t(H) - 1) {
        return false;
    }
    const auto lastRead = [W](int64_t x) { return x == 0 ? 2 : (x == W - 1 || x == W - 2) ? W - 1 : x + 2; };
    const int64_t lastColumn = std::max<int64_t>(lastRead(0), lastRead(2 * int64_t(w - 1)));
    pxgeom::PlaneBytes plane{};
    return pxgeom::planeBytesOf(source, plane) &&
           pxgeom::bytesInsidePlane(plane, H - 1, 0, lastColumn * int64_t(sizeof(float)) + 3);
}

bool reduceArgumentsValid(const tag_pxImage *source, tag_pxImage *const *target, const float *kernel) {
    if (source == nullptr || target == nullptr || *target == nullptr || kernel == nullptr ||
        source->pixMap[0] == nullptr || (*target)->pixMap[0] == nullptr) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "pxImageReduce needs two images with pixels and a kernel");
        return false;
    }
    if (source->type != FLOAT || (*target)->type != FLOAT) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "pxImageReduce works only on float images");
        return false;
    }
    if ((*target)->width < 1 || (*target)->height < 1 || !reduceReadsInside(source, *target)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "reduction of %dx%d to %dx%d reads outside the pixels",
                 source->width, source->height, (*target)->width, (*target)->height);
        return false;
    }
    return true;
}

} // namespace

uint32_t pxImagePyrSetNull(tag_pxImage **pyramid) {
    if (pyramid == nullptr) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "no pyramid");
        return 0;
    }
    pyramid[0] = nullptr;
    return 1;
}

uint32_t pxImagePyrHeaderConstruct(tag_pxImage **pyramid, int32_t level, int32_t width, int32_t height,
                                   int32_t type, int32_t border, int32_t planes) {
    if (!pyrHeaderArgumentsValid(pyramid, level, width, height)) {
        return 0;
    }
    if (!pxImageHeaderConstruct(type, width, height, border, planes, &pyramid[level])) {
        PX_TRACE(kModule);
        return 0;
    }
    for (int32_t l = level - 1; l >= 0; --l) {
        const tag_pxImage *above = pyramid[l + 1];
        if (!pxImageHeaderConstruct(type, 2 * above->width, 2 * above->height, border, planes, &pyramid[l])) {
            PX_TRACE(kModule);
            return 0;
        }
    }
    for (int32_t l = level + 1; std::min(pyramid[l - 1]->width, pyramid[l - 1]->height) >= 2; ++l) {
        const tag_pxImage *below = pyramid[l - 1];
        if (!pxImageHeaderConstruct(type, (below->width + 1) / 2, (below->height + 1) / 2, border, planes,
                                    &pyramid[l])) {
            PX_TRACE(kModule);
            return 0;
        }
    }
    return 1;
}

uint32_t pxImagePyrPixMapConstruct(int32_t type, int32_t border, int32_t planes, int32_t firstLevel,
                                   int32_t lastLevel, tag_pxImage **pyramid) {
    if (!pyrPixMapArgumentsValid(type, border, planes, firstLevel, lastLevel, pyramid)) {
        return 0;
    }
    for (int32_t level = firstLevel; level <= lastLevel; ++level) {
        tag_pxImage *image = pyramid[level];
        for (int32_t plane = 0; plane < planes; ++plane) {
            if (!pxImagePixMapConstruct(type, image->width, image->height, border, &image->pixMap[plane])) {
                PX_TRACE(kModule);
                return 0;
            }
        }
    }
    return 1;
}

uint32_t pxImagePyrReduce(tag_pxImage **pyramid, int32_t firstLevel, int32_t lastLevel,
                          const float kernel[3]) {
    if (firstLevel >= lastLevel) {
        return 1;
    }
    if (pyramid == nullptr || !levelIsValid(firstLevel) || !levelIsValid(lastLevel)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "pyramid levels %d..%d outside 0..14", firstLevel,
                 lastLevel);
        return 0;
    }
    for (int32_t level = firstLevel; level < lastLevel; ++level) {
        if (!pxImageReduce(pyramid[level], &pyramid[level + 1], kernel)) {
            PX_TRACE(kModule);
            return 0;
        }
    }
    return 1;
}

uint32_t pxImagePyrDestruct(tag_pxImage **pyramid) {
    if (pyramid == nullptr) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "no pyramid");
        return 0;
    }
    for (int32_t level = 0; level < kLevels; ++level) {
        if (!pxImageDestruct(&pyramid[level])) {
            PX_TRACE(kModule);
            return 0;
        }
    }
    return 1;
}

uint32_t pxImageReduce(const tag_pxImage *source, tag_pxImage **target, const float kernel[3]) {
    if (!reduceArgumentsValid(source, target, kernel)) {
        return 0;
    }
    tag_pxImage *out = *target;
    tag_pxImage *ring = nullptr;
    if (!pxImageConstruct(FLOAT, out->width, kRingRows, 0, 1, &ring)) {
        PX_TRACE(kModule);
        return 0;
    }
    const pxreduce::Weights k{kernel[0], kernel[1], kernel[2]};
    const pxreduce::Kernels &kernels = pxreduce::bestKernels();
    float *const *in = reinterpret_cast<float *const *>(source->pixMap[0]);
    float *const *slots = reinterpret_cast<float *const *>(ring->pixMap[0]);
    float *const *result = reinterpret_cast<float *const *>(out->pixMap[0]);
    // The row-filtered image is kept as a ring of five rows (row r in slot r % 5): output row i reads rows
    // 2i - 2 .. 2i + 2, and each row is filtered just before the first output that reads it, so it is
    // still in the cache. The arithmetic is that of the two passes one after the other.
    int32_t filtered = 0;
    for (int32_t i = 0; i < out->height; ++i) {
        const int32_t y = 2 * i;
        for (const int32_t needed = std::min(y + 3, source->height); filtered < needed; ++filtered) {
            kernels.row(in[filtered], source->width, out->width, k, slots[filtered % kRingRows]);
        }
        const float *window[kRingRows] = {};
        for (int32_t d = -2; d <= 2; ++d) {
            if (y + d >= 0 && y + d < source->height) {
                window[d + 2] = slots[(y + d) % kRingRows];
            }
        }
        kernels.columns(window, source->height, y, out->width, k, result[i]);
    }
    pxImageDestruct(&ring);
    return 1;
}
