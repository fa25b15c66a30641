// Module pxImageCombine: weighted sum of two byte images with the wrap-around of the byte store.
#include <cstdint>

#include "pxImage.h"
#include "image/pxImageLog.h"

namespace {

constexpr const char *kModule = "pxImageCombine";

// A UBYTE image with plane 0 that holds at least width x height pixels.
bool holdsBytes(const tag_pxImage *image, int32_t width, int32_t height) {
    return image && image->planes >= 1 && image->pixMap[0] && image->type == UBYTE && image->width >= width &&
           image->height >= height;
}

// The low 8 bits of the value truncated toward zero to 64 bits; out of range (or NaN) the processor gives
// the smallest 64-bit integer, whose low byte is 0.
uint8_t lowByteOfTruncated(double value) {
    if (!(value > -9223372036854775809.0 && value < 9223372036854775808.0)) {
        return 0;
    }
    return static_cast<uint8_t>(static_cast<int64_t>(value));
}

} // namespace

uint32_t pxImageCombine(const tag_pxImage *first, const tag_pxImage *second, double firstWeight,
                        double secondWeight, int32_t width, int32_t height, tag_pxImage *output) {
    if (height < 1 || width < 1) {
        return 1;
    }
    if (!holdsBytes(first, width, height) || !holdsBytes(second, width, height) ||
        !holdsBytes(output, width, height)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Combination needs byte images of at least %d x %d pixels",
                 width, height);
        return 1; // reported and nothing written; the result stays 1 as for every call
    }
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t *a = static_cast<const uint8_t *>(first->pixMap[0][y]);
        const uint8_t *b = static_cast<const uint8_t *>(second->pixMap[0][y]);
        uint8_t *out = static_cast<uint8_t *>(output->pixMap[0][y]);
        for (int32_t x = 0; x < width; ++x) {
            out[x] = lowByteOfTruncated(firstWeight * a[x] + secondWeight * b[x]);
        }
    }
    return 1;
}
