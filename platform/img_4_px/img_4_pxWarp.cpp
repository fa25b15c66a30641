// Dense warps of img_4_px: every pixel of two displacement maps reads the source bilinearly at its own
// position plus the displacement; outside the source the caller's fill value, or in the masked form the
// third image's value, is kept.
#include "img_4_px.h"
#include "img_4_pxWarpKernels.h"

#include <cstddef>
#include <cstdint>

namespace {

template <typename Pixel> bool rowsPresent(Pixel *const *rows, int32_t height) {
    if (!rows)
        return false;
    for (int32_t y = 0; y < height; ++y)
        if (!rows[y])
            return false;
    return true;
}

// A float image of at least 1 x 1 pixels whose row table and rows are all there.
bool usable(const FIMAGE &image) {
    return image.width >= 1 && image.height >= 1 && rowsPresent(image.image, image.height);
}

bool covers(int32_t width, int32_t height, const FIMAGE &maps) {
    return width >= maps.width && height >= maps.height;
}

// The common checks of both warps: usable images, maps of one size, a target as large as the maps.
bool warpArgumentsValid(const FIMAGE &source, const FIMAGE &target, const FIMAGE &first,
                        const FIMAGE &second) {
    return usable(source) && usable(target) && usable(first) && usable(second) &&
           first.width == second.width && first.height == second.height &&
           covers(target.width, target.height, first);
}

// The source with its row stride when its rows lie evenly in one block and every index fits in 32 bits.
img4px::WarpSource sourceOf(const FIMAGE &source) {
    const float *const *rows = source.image;
    const ptrdiff_t stride = source.height > 1 ? rows[1] - rows[0] : source.width;
    bool even = stride >= source.width && stride <= INT32_MAX / source.height;
    for (int32_t y = 2; even && y < source.height; ++y)
        even = rows[y] == rows[0] + y * stride;
    return {source, even ? static_cast<int32_t>(stride) : 0};
}

// Runs the row kernel over every row of the maps.
void warpRows(const FIMAGE &source, const FIMAGE &target, const FIMAGE &first, const FIMAGE &second,
              const FIMAGE *third, const BIMAGE *mask, float fill) {
    const img4px::WarpSource in = sourceOf(source);
    const img4px::WarpRowKernel kernel = img4px::warpRowKernel();
    for (int32_t y = 0; y < first.height; ++y) {
        const img4px::WarpRow row{first.image[y],
                                  second.image[y],
                                  mask != nullptr ? mask->image[y] : nullptr,
                                  third != nullptr ? third->image[y] : nullptr,
                                  fill,
                                  y,
                                  first.width,
                                  target.image[y]};
        kernel(in, row);
    }
}

} // namespace

extern "C" {

int bilinear_warp(FIMAGE source, FIMAGE target, FIMAGE first, FIMAGE second, float fill) {
    if (!warpArgumentsValid(source, target, first, second))
        return 0;
    warpRows(source, target, first, second, nullptr, nullptr, fill);
    return 1;
}

int bilinear_warp_masked(FIMAGE source, FIMAGE target, FIMAGE first, FIMAGE second, FIMAGE third,
                         BIMAGE mask) {
    if (!warpArgumentsValid(source, target, first, second) || !usable(third) ||
        !covers(third.width, third.height, first) || !covers(mask.width, mask.height, first) ||
        mask.width < 1 || !rowsPresent(mask.image, mask.height))
        return 0;
    warpRows(source, target, first, second, &third, &mask, 0.0f);
    return 1;
}

} // extern "C"
