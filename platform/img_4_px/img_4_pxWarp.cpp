// Dense warps of img_4_px: every pixel of two displacement maps reads the source bilinearly at its own
// position plus the displacement; outside the source the caller's fill value, or in the masked form the
// third image's value, is kept.
#include "img_4_px.h"

#include <algorithm>
#include <cmath>
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

// The bilinear sample of the source at (sx, sy); false (and no read) when the position is outside.
bool sample(const FIMAGE &source, float sx, float sy, float &value) {
    if (!(sx >= 0.0f && sx <= static_cast<float>(source.width - 1) && sy >= 0.0f &&
          sy <= static_cast<float>(source.height - 1)))
        return false;
    const int32_t j = static_cast<int32_t>(std::floor(sx));
    const int32_t i = static_cast<int32_t>(std::floor(sy));
    const int32_t right = std::min(j + 1, source.width - 1);
    const int32_t below = std::min(i + 1, source.height - 1);
    const float fu = sx - static_cast<float>(j);
    const float fv = sy - static_cast<float>(i);
    const float *upper = source.image[i];
    const float *lower = source.image[below];
    const float top = upper[j] + (upper[right] - upper[j]) * fu;
    const float bottom = lower[j] + (lower[right] - lower[j]) * fu;
    value = top + (bottom - top) * fv;
    return true;
}

} // namespace

extern "C" {

int bilinear_warp(FIMAGE source, FIMAGE target, FIMAGE first, FIMAGE second, float fill) {
    if (!warpArgumentsValid(source, target, first, second))
        return 0;
    for (int32_t y = 0; y < first.height; ++y) {
        const float *mx = first.image[y];
        const float *my = second.image[y];
        float *out = target.image[y];
        const float row = static_cast<float>(y);
        for (int32_t x = 0; x < first.width; ++x) {
            float value;
            out[x] = sample(source, static_cast<float>(x) + mx[x], row + my[x], value) ? value : fill;
        }
    }
    return 1;
}

int bilinear_warp_masked(FIMAGE source, FIMAGE target, FIMAGE first, FIMAGE second, FIMAGE third,
                         BIMAGE mask) {
    if (!warpArgumentsValid(source, target, first, second) || !usable(third) ||
        !covers(third.width, third.height, first) || !covers(mask.width, mask.height, first) ||
        mask.width < 1 || !rowsPresent(mask.image, mask.height))
        return 0;
    for (int32_t y = 0; y < first.height; ++y) {
        const float *mx = first.image[y];
        const float *my = second.image[y];
        const float *kept = third.image[y];
        const uint8_t *use = mask.image[y];
        float *out = target.image[y];
        const float row = static_cast<float>(y);
        for (int32_t x = 0; x < first.width; ++x) {
            float value;
            out[x] = use[x] != 0 && sample(source, static_cast<float>(x) + mx[x], row + my[x], value)
                         ? value
                         : kept[x];
        }
    }
    return 1;
}

} // extern "C"
