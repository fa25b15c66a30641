// Module pxImageWarp: resampling under a geometric mapping. An integer shift for every in-memory pixel
// type, a sub-pixel shift and an affine map of FLOAT images with bilinear interpolation (results whose
// source position lies outside the source get the invalid-pixel marker), and two dense warps by
// displacement maps that hand the pixels to img_4_px without copying them.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "image/pxImageInternal.h"
#include "image/pxImageLog.h"
#include "pxImage.h"
#include "pxImageWarpKernels.h"

namespace {

constexpr const char *kModule = "pxImageWarp";
constexpr uint32_t PX_ERR_DENSE_WARP_TYPE = 0xC41A0018u;
constexpr uint32_t PX_ERR_DENSE_WARP_SIZE = 0xC41A0019u;
constexpr uint32_t PX_ERR_MASKED_WARP_TYPE = 0xC41A001Au;
constexpr uint32_t PX_ERR_DENSE_WARP_BORDER = 0xC41A001Bu;
// Smallest border of source and target that the masked warp accepts.
constexpr int32_t kMaskedWarpMinBorder = 3;

bool hasPixels(const tag_pxImage *image) {
    return image != nullptr && image->pixMap[0] != nullptr;
}

// ---- Integer shift --------------------------------------------------------------------------------------

// Copies the source pixels that land inside the target: row y takes source row y + dy, columns
// [max(0, -dx), min(width, width - dx)) from column x + dx. The target is zero-filled already.
void shiftPlane(const tag_pxImage *source, int32_t dx, int32_t dy, tag_pxImage *target) {
    const int64_t width = source->width;
    const int64_t height = source->height;
    const int64_t first = std::max<int64_t>(0, -int64_t{dx});
    const int64_t last = std::min<int64_t>(width, width - int64_t{dx});
    if (first >= last)
        return;
    const size_t size = pxImagePixelSizeTable[source->type];
    for (int64_t y = 0; y < height; ++y) {
        const int64_t from = y + dy;
        if (from < 0 || from >= height)
            continue;
        const char *in = static_cast<const char *>(source->pixMap[0][from]) + size * (first + dx);
        std::memcpy(static_cast<char *>(target->pixMap[0][y]) + size * first, in, size * (last - first));
    }
}

bool shiftableType(int32_t type) {
    return type == UBYTE || type == SHORT || type == INT || type == FLOAT || type == DOUBLE;
}

// ---- FLOAT warps ----------------------------------------------------------------------------------------

// Refuses a FLOAT warp whose images cannot be read or written as floats.
bool floatWarpImagesValid(const tag_pxImage *source, tag_pxImage *const *target) {
    if (!hasPixels(source) || target == nullptr || !hasPixels(*target) || source->type != FLOAT ||
        (*target)->type != FLOAT || source->width < 1 || source->height < 1) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "warp needs FLOAT source and target images with pixels");
        return false;
    }
    if ((*target)->pixMap[0] == source->pixMap[0]) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "warp target must not be the source");
        return false;
    }
    return true;
}

// The range test of the FLOAT warps on the unscaled offsets, compared as floats.
bool offsetsInRange(const tag_pxImage *source, float du, float dv) {
    if (!(std::fabs(du) < static_cast<float>(source->width - 1) &&
          std::fabs(dv) < static_cast<float>(source->height - 1))) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "\n Warping transformation is too rought \n");
        return false;
    }
    return true;
}

// The source plane for the kernels, with its row stride when the rows lie evenly in one block.
pxwarp::Source sourceOf(const tag_pxImage *source) {
    const float *const *rows = reinterpret_cast<const float *const *>(source->pixMap[0]);
    const ptrdiff_t stride = source->height > 1 ? rows[1] - rows[0] : 0;
    bool even = stride > 0 && stride <= INT32_MAX / source->height;
    for (int32_t y = 2; even && y < source->height; ++y)
        even = rows[y] == rows[0] + y * stride;
    return {rows, source->width, source->height, even ? static_cast<int32_t>(stride) : 0};
}

pxwarp::Target targetOf(tag_pxImage *target) {
    return {reinterpret_cast<float *const *>(target->pixMap[0]), target->width, target->height};
}

// ---- Dense warps ----------------------------------------------------------------------------------------

bool allFloat(std::initializer_list<const tag_pxImage *> images) {
    return std::all_of(images.begin(), images.end(), [](const tag_pxImage *i) { return i->type == FLOAT; });
}

// The maps have one size and the target is at least as large.
bool denseSizesValid(const tag_pxImage *first, const tag_pxImage *second, const tag_pxImage *target) {
    return first->width == second->width && first->height == second->height &&
           target->width >= first->width && target->height >= first->height;
}

const tag_pxImage *targetOrNull(tag_pxImage *const *target) {
    return target != nullptr ? *target : nullptr;
}

// Refuses a dense-warp target that shares its pixels with an image the warp reads while it writes.
bool targetSeparate(const tag_pxImage *target, std::initializer_list<const tag_pxImage *> read) {
    for (const tag_pxImage *image : read)
        if (image->pixMap[0] == target->pixMap[0]) {
            PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "dense warp target must not be the source or a map");
            return false;
        }
    return true;
}

bool coversMaps(const tag_pxImage *image, const tag_pxImage *maps) {
    return image->width >= maps->width && image->height >= maps->height;
}

// Refuses dense-warp images that are missing or have no pixels.
bool denseImagesPresent(std::initializer_list<const tag_pxImage *> images) {
    if (!std::all_of(images.begin(), images.end(), hasPixels)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "dense warp needs images with pixels");
        return false;
    }
    return true;
}

} // namespace

uint32_t pxImageTranslationWarpInt(const tag_pxImage *source, int32_t dx, int32_t dy, tag_pxImage **target) {
    if (!hasPixels(source) || target == nullptr) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "TranslationWarp needs a source image with pixels");
        return 0;
    }
    if (!pxImageConstruct(source->type, source->width, source->height, 0, 1, target)) {
        PX_TRACE(kModule);
        return 0;
    }
    if (!shiftableType(source->type)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "unsupported format for TranslationWarp");
        pxImageDestruct(target);
        return 0;
    }
    shiftPlane(source, dx, dy, *target);
    return 1;
}

uint32_t pxImageTranslationWarp(const tag_pxImage *source, float dx, float dy, float scale,
                                tag_pxImage **target) {
    if (!floatWarpImagesValid(source, target) || !offsetsInRange(source, dx, dy))
        return 0;
    pxwarp::translationFast(sourceOf(source), dx * scale, dy * scale, targetOf(*target),
                            pxwarp::sampleRowBest());
    return 1;
}

uint32_t pxImageAffineWarp(const tag_pxImage *source, float a[3], float b[3], float scale,
                           tag_pxImage **target) {
    if (a == nullptr || b == nullptr) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "warp needs both coefficient arrays");
        return 0;
    }
    if (!floatWarpImagesValid(source, target) || !offsetsInRange(source, a[0], b[0]))
        return 0;
    // The caller's arrays are scaled in place: they hold a * scale and b * scale afterwards.
    pxwarp::Affine map;
    for (int k = 0; k < 3; ++k) {
        a[k] *= scale;
        b[k] *= scale;
        map.a[k] = a[k];
        map.b[k] = b[k];
    }
    pxwarp::affineFast(sourceOf(source), map, targetOf(*target), pxwarp::sampleRowBest());
    return 1;
}

uint32_t pxImageBilinearWarp(const tag_pxImage *source, const tag_pxImage *first, const tag_pxImage *second,
                             tag_pxImage **target) {
    if (!denseImagesPresent({source, first, second, targetOrNull(target)}))
        return 0;
    if (!allFloat({source, first, second, *target})) {
        PX_SEND_ERROR(kModule, PX_ERR_DENSE_WARP_TYPE);
        return 0;
    }
    if (!denseSizesValid(first, second, *target)) {
        PX_SEND_ERROR(kModule, PX_ERR_DENSE_WARP_SIZE);
        return 0;
    }
    if (!targetSeparate(*target, {source, first, second}))
        return 0;
    FIMAGE in, out, mapX, mapY;
    if (!pxImage2fimage(source, &in) || !pxImage2fimage(*target, &out) || !pxImage2fimage(first, &mapX) ||
        !pxImage2fimage(second, &mapY) || !bilinear_warp(in, out, mapX, mapY, -1.0f)) {
        PX_TRACE(kModule);
        return 0;
    }
    (*target)->origType = source->origType;
    return 1;
}

uint32_t pxImageBilinearWarpMasked(const tag_pxImage *source, const tag_pxImage *first,
                                   const tag_pxImage *second, const tag_pxImage *third,
                                   const tag_pxImage *mask, tag_pxImage **target) {
    if (!denseImagesPresent({source, first, second, third, mask, targetOrNull(target)}))
        return 0;
    if (!allFloat({source, first, second, third, *target}) || mask->type != UBYTE) {
        PX_SEND_ERROR(kModule, PX_ERR_MASKED_WARP_TYPE);
        return 0;
    }
    if (!denseSizesValid(first, second, *target)) {
        PX_SEND_ERROR(kModule, PX_ERR_DENSE_WARP_SIZE);
        return 0;
    }
    if ((*target)->border < kMaskedWarpMinBorder || source->border < kMaskedWarpMinBorder) {
        PX_SEND_ERROR(kModule, PX_ERR_DENSE_WARP_BORDER);
        return 0;
    }
    // The third image and the mask are read at every map position.
    if (!coversMaps(third, first) || !coversMaps(mask, first)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                 "masked warp needs a third image and a mask as large as the maps");
        return 0;
    }
    if (!targetSeparate(*target, {source, first, second, mask}))
        return 0;
    FIMAGE in, out, mapX, mapY, kept;
    BIMAGE where;
    if (!pxImage2fimage(source, &in) || !pxImage2fimage(*target, &out) || !pxImage2fimage(first, &mapX) ||
        !pxImage2fimage(second, &mapY) || !pxImage2fimage(third, &kept) || !pxImage2bimage(mask, &where) ||
        !bilinear_warp_masked(in, out, mapX, mapY, kept, where)) {
        PX_TRACE(kModule);
        return 0;
    }
    (*target)->origType = source->origType;
    return 1;
}
