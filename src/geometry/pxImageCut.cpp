// Module pxImageCut: copies a rectangle of an image into a target image prepared by the caller, in the
// source's pixel type or converted to the target's on the way.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "pxImage.h"
#include "image/pxImageLog.h"
#include "pxImageGeometryInternal.h"

namespace {

constexpr const char *kModule = "pxImageCut";
constexpr uint32_t PX_ERR_CUT_DOES_NOT_FIT = 0xC41A0005u;

// True when the rows and columns the cut reads lie inside the source plane's storage. The fit test
// compares signed numbers, so an origin of 2^31 or more arrives as a negative column or row: one inside
// the margin is read as the margin, one beyond it (or a sum that wrapped) would leave the plane.
bool cutReadsInsideSource(const tag_pxImage *source, int32_t x, int32_t y, const tag_pxImage *target,
                          uint32_t pixelSize) {
    if (pixelSize == 0 || target->width <= 0 || target->height <= 0) {
        return true; // nothing is read
    }
    pxgeom::PlaneBytes plane{};
    if (!pxgeom::planeBytesOf(source, plane)) {
        return false;
    }
    const int64_t first = int64_t(x) * pixelSize;
    const int64_t last = (int64_t(x) + target->width) * pixelSize - 1;
    return pxgeom::bytesInsidePlane(plane, y, first, last) &&
           pxgeom::bytesInsidePlane(plane, int64_t(y) + target->height - 1, first, last);
}

// Origin and region of interest of the cut in the target's header; nothing else of the header changes.
// The region may come out empty or inverted when it lies outside the cut.
void setCutHeader(const tag_pxImage *source, int32_t x, int32_t y, tag_pxImage *target) {
    target->origX = pxgeom::wrappingSum(source->origX, x);
    target->origY = pxgeom::wrappingSum(source->origY, y);
    target->origWidth = source->origWidth;
    target->origHeight = source->origHeight;
    target->roiminX = std::max(pxgeom::wrappingSum(source->roiminX, -x), 0);
    target->roimaxX = std::min(pxgeom::wrappingSum(source->roimaxX, -x), target->width);
    target->roiminY = std::max(pxgeom::wrappingSum(source->roiminY, -y), 0);
    target->roimaxY = std::min(pxgeom::wrappingSum(source->roimaxY, -y), target->height);
}

// Copies target width x height pixels of plane 0 from (x, y) of the source to (0, 0) of the target, both
// of the source's pixel type; the target's other planes and its margin are not touched.
uint32_t cutSameType(const tag_pxImage *source, uint32_t x, uint32_t y, tag_pxImage *target) {
    if (source == nullptr || target == nullptr || source->pixMap[0] == nullptr ||
        target->pixMap[0] == nullptr) {
        PX_TRACE(kModule);
        return 0;
    }
    const int32_t sx = static_cast<int32_t>(x);
    const int32_t sy = static_cast<int32_t>(y);
    writeLogF(0, __LINE__, kModule, __DATE__, "cut %dx%d+%d+%d on image %dx%d", target->width, target->height,
              sx, sy, source->width, source->height);
    if (source->width < pxgeom::wrappingSum(target->width, sx) ||
        source->height < pxgeom::wrappingSum(target->height, sy)) {
        PX_SEND_ERROR(kModule, PX_ERR_CUT_DOES_NOT_FIT, target->width, target->height, sx, sy, source->width,
                      source->height);
        return 0;
    }
    uint32_t pixelSize = 0;
    if (!pxImagePixelSize(source->type, &pixelSize)) {
        PX_TRACE(kModule);
        return 0;
    }
    if (!cutReadsInsideSource(source, sx, sy, target, pixelSize)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "cut at (%d, %d) reads outside the source's pixels", sx,
                 sy);
        return 0;
    }
    setCutHeader(source, sx, sy, target);
    const size_t rowBytes = size_t(pixelSize) * static_cast<size_t>(std::max(target->width, 0));
    const ptrdiff_t offset = ptrdiff_t(sx) * ptrdiff_t(pixelSize);
    for (int32_t r = 0; r < target->height; ++r) {
        const char *from = static_cast<const char *>(source->pixMap[0][sy + r]) + offset;
        std::memcpy(target->pixMap[0][r], from, rowBytes);
    }
    return 1;
}

// True when every plane the conversion writes has a pixel map.
bool targetHasPlanes(const tag_pxImage *target) {
    if (target->planes < 1 || target->planes > 9) {
        return true; // the scratch image refuses the plane count
    }
    for (int32_t plane = 0; plane < target->planes; ++plane) {
        if (target->pixMap[plane] == nullptr) {
            PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "cut target has no pixels in plane %d", plane);
            return false;
        }
    }
    return true;
}

// Cuts into a scratch image of the source's type and the target's shape, then converts every plane of it
// into the target. The target's header keeps the origin and region the caller gave it.
uint32_t cutConverted(const tag_pxImage *source, uint32_t x, uint32_t y, int32_t transform,
                      tag_pxImage *target) {
    if (!targetHasPlanes(target)) {
        return 0;
    }
    tag_pxImage *scratch = nullptr;
    if (!pxImageConstruct(source->type, target->width, target->height, target->border, target->planes,
                          &scratch)) {
        return 0;
    }
    uint32_t ok = cutSameType(source, x, y, scratch);
    for (int32_t plane = 0; ok && plane < scratch->planes; ++plane) {
        ok = pxImagePixMapConvertCopy(scratch->pixMap[plane], scratch->width, scratch->height, scratch->type,
                                      scratch->border, target->border, transform, target->type,
                                      &target->pixMap[plane]);
    }
    pxImageDestruct(&scratch);
    return ok;
}

} // namespace

uint32_t pxImageCutWithTransform(const tag_pxImage *source, uint32_t x, uint32_t y, int32_t transform,
                                 tag_pxImage *target) {
    // A missing image goes to the same-type cut, which refuses it before anything is read.
    const bool sameType = source == nullptr || target == nullptr || source->type == target->type;
    if (!(sameType ? cutSameType(source, x, y, target) : cutConverted(source, x, y, transform, target))) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}

uint32_t pxImageCut(const tag_pxImage *source, uint32_t x, uint32_t y, tag_pxImage *target) {
    if (!pxImageCutWithTransform(source, x, y, 0, target)) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}
