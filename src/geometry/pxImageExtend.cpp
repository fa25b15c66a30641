// Module pxImageExtend: enlarges a byte image by an integer factor, every source pixel becoming a
// factor x factor block of the target.
#include <cstdint>

#include "pxImage.h"
#include "image/pxImageLog.h"
#include "pxImageGeometryInternal.h"

namespace {

constexpr const char *kModule = "pxImageExtend";

// Smallest and largest of r / factor (truncating) over r in [0, count); count >= 1, factor != 0.
void quotientRange(int32_t count, int32_t factor, int64_t &low, int64_t &high) {
    const int64_t end = int64_t(count - 1) / factor;
    low = end < 0 ? end : 0;
    high = end < 0 ? 0 : end;
}

// True when every byte the extension reads from the source and writes to the target lies inside the
// storage of plane 0 of each. Reads may reach the source's margin, and past a row's end its next row.
bool extendStaysInside(const tag_pxImage *source, int32_t factor, const tag_pxImage *target) {
    pxgeom::PlaneBytes from{}, to{};
    if (!pxgeom::planeBytesOf(source, from) || !pxgeom::planeBytesOf(target, to)) {
        return false;
    }
    int64_t rowLow = 0, rowHigh = 0, colLow = 0, colHigh = 0;
    quotientRange(target->height, factor, rowLow, rowHigh);
    quotientRange(target->width, factor, colLow, colHigh);
    return pxgeom::bytesInsidePlane(from, rowLow, colLow, colHigh) &&
           pxgeom::bytesInsidePlane(from, rowHigh, colLow, colHigh) &&
           pxgeom::bytesInsidePlane(to, target->height - 1, 0, target->width - 1);
}

bool extendArgumentsValid(const tag_pxImage *source, int32_t factor, const tag_pxImage *target) {
    if (source == nullptr || target == nullptr || source->pixMap[0] == nullptr ||
        target->pixMap[0] == nullptr) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "pxImageExtend needs two images with pixels");
        return false;
    }
    if (factor == 0) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "pxImageExtend needs a factor other than 0");
        return false;
    }
    if (target->width < 1 || target->height < 1) {
        return true; // nothing to do
    }
    if (!extendStaysInside(source, factor, target)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                 "extension by %d into %dx%d reads outside the source's pixels", factor, target->width,
                 target->height);
        return false;
    }
    return true;
}

} // namespace

uint32_t pxImageExtend(const tag_pxImage *source, int32_t factor, tag_pxImage *target) {
    if (!extendArgumentsValid(source, factor, target)) {
        return 1;
    }
    const int32_t width = target->width;
    const int32_t height = target->height;
    void *const *from = source->pixMap[0];
    void *const *to = target->pixMap[0];
    for (int32_t r = 0; r < height; ++r) {
        const uint8_t *in = static_cast<const uint8_t *>(from[r / factor]);
        uint8_t *out = static_cast<uint8_t *>(to[r]);
        for (int32_t c = 0; c < width; ++c) {
            out[c] = in[c / factor];
        }
    }
    return 1;
}
