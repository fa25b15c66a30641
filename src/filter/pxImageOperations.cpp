// Module pxImageOperations: thresholds, binary dilation and erosion built on the box sums, and negation.
#include <cstdint>

#include "pxImage.h"
#include "image/pxImageInternal.h"
#include "image/pxImageLog.h"
#include "pxImageBoxFilterInternal.h"

namespace {

constexpr const char *kModule = "pxImageOperations";

bool hasPlane(const tag_pxImage *image) {
    return image && image->planes >= 1 && image->pixMap[0];
}

// Truncation toward zero as the processor does it: a value outside the target range (or NaN) gives the
// smallest integer of that width.
int64_t truncateTo64(double value) {
    if (!(value > -9223372036854775809.0 && value < 9223372036854775808.0)) {
        return INT64_MIN;
    }
    return static_cast<int64_t>(value);
}

int32_t truncateTo32(double value) {
    if (!(value > -2147483649.0 && value < 2147483648.0)) {
        return INT32_MIN;
    }
    return static_cast<int32_t>(value);
}

// Applies `rule` to the pixels [from, to) of one row.
template <typename T, class Rule> void applyToRow(T *row, int32_t from, int32_t to, Rule rule) {
    for (int32_t x = from; x < to; ++x) {
        row[x] = rule(row[x]);
    }
}

// Applies `rule` to every pixel of plane 0 (rows 0..height-1, columns 0..width-1). The sizes are read
// once: byte stores may alias the record, and with them in registers the row loop vectorises.
template <typename T, class Rule> void forEachPixel(tag_pxImage *image, Rule rule) {
    void *const *rows = image->pixMap[0];
    const int32_t width = image->width;
    const int32_t height = image->height;
    for (int32_t y = 0; y < height; ++y) {
        applyToRow(static_cast<T *>(rows[y]), 0, width, rule);
    }
}

uint8_t byteToBinary(uint8_t value, uint8_t level) {
    return static_cast<uint8_t>(value >= level ? 1 : 0);
}

// The byte threshold to 0/1 on every pixel of plane 0 outside the region of interest, which lies inside
// the image.
void bytesToBinaryOutsideRegion(tag_pxImage *image, uint8_t level) {
    const auto rule = [level](uint8_t v) { return byteToBinary(v, level); };
    void *const *rows = image->pixMap[0];
    const int32_t width = image->width;
    const int32_t height = image->height;
    const int32_t left = image->roiminX;
    const int32_t right = image->roimaxX;
    const int32_t top = image->roiminY;
    const int32_t bottom = image->roimaxY;
    for (int32_t y = 0; y < height; ++y) {
        uint8_t *row = static_cast<uint8_t *>(rows[y]);
        if (y < top || y >= bottom) {
            applyToRow(row, 0, width, rule);
        } else {
            applyToRow(row, 0, left, rule);
            applyToRow(row, right, width, rule);
        }
    }
}

uint32_t thresholdToBinary(tag_pxImage *image, double threshold) {
    switch (image->type) {
    case UBYTE: {
        const uint8_t level = static_cast<uint8_t>(truncateTo64(threshold));
        forEachPixel<uint8_t>(image, [level](uint8_t v) { return byteToBinary(v, level); });
        return 1;
    }
    case SHORT: {
        // Pixels and threshold compare as signed 16-bit numbers.
        const int16_t level = static_cast<int16_t>(static_cast<uint16_t>(truncateTo32(threshold)));
        forEachPixel<uint16_t>(image, [level](uint16_t v) {
            return static_cast<uint16_t>(static_cast<int16_t>(v) >= level ? 1 : 0);
        });
        return 1;
    }
    case FLOAT: {
        const float level = static_cast<float>(threshold);
        forEachPixel<float>(image, [level](float v) { return v >= level ? 1.0f : 0.0f; });
        return 1;
    }
    case DOUBLE:
        forEachPixel<double>(image, [threshold](double v) { return v >= threshold ? 1.0 : 0.0; });
        return 1;
    default:
        return 0;
    }
}

uint32_t thresholdUpper(tag_pxImage *image, double threshold) {
    switch (image->type) {
    case UBYTE: {
        const uint8_t level = static_cast<uint8_t>(truncateTo64(threshold));
        forEachPixel<uint8_t>(image, [level](uint8_t v) { return v < level ? uint8_t(0) : v; });
        return 1;
    }
    case SHORT: {
        const int16_t level = static_cast<int16_t>(static_cast<uint16_t>(truncateTo32(threshold)));
        forEachPixel<uint16_t>(
            image, [level](uint16_t v) { return static_cast<int16_t>(v) < level ? uint16_t(0) : v; });
        return 1;
    }
    case FLOAT: {
        const float level = static_cast<float>(threshold);
        forEachPixel<float>(image, [level](float v) { return level > v ? 0.0f : v; });
        return 1;
    }
    case DOUBLE:
        forEachPixel<double>(image, [threshold](double v) { return threshold > v ? 0.0 : v; });
        return 1;
    default:
        return 0;
    }
}

// Box sums of a 0/1 byte image over a (2 radius + 1) square, then a threshold: 1 for dilation (any pixel
// set), the full window count for erosion (every pixel set).
uint32_t morphology(const tag_pxImage *source, int32_t radius, tag_pxImage *destination, bool erode) {
    if (!hasPlane(source) || !hasPlane(destination) || source->width != destination->width ||
        source->height != destination->height || source->type != UBYTE || destination->type != UBYTE) {
        PX_TRACE(kModule);
        return 0;
    }
    if (radius < 1) {
        if (!pxImagePixMapConvertCopy(source->pixMap[0], source->width, source->height, UBYTE, source->border,
                                      destination->border, 0, UBYTE, &destination->pixMap[0])) {
            PX_TRACE(kModule);
            return 0;
        }
        return 1;
    }
    const int64_t window = 2 * static_cast<int64_t>(radius) + 1;
    // The byte sums of m x m pixels of 0/1 stay below 255 only up to radius 7 (m * m = 225).
    if (static_cast<double>(window) * static_cast<double>(window) >= 255.0) {
        PX_TRACE(kModule);
        return 0;
    }
    const int32_t n = static_cast<int32_t>(window);
    // Plain images take the fused counts (no scratch image, one pass); the others, whose passes may refuse
    // and leave a scratch image's contents behind, take the sums and the threshold as they stand.
    const uint8_t level = static_cast<uint8_t>(erode ? n * n : 1);
    if (pxbox::boxCountsAtLeastInRegion(source, n, destination, level)) {
        bytesToBinaryOutsideRegion(destination, level);
        return 1;
    }
    if (!pxImageBoxSums(source, n, destination)) {
        PX_TRACE(kModule);
        return 0;
    }
    if (!pxImageThresh2Binary(destination, erode ? static_cast<double>(n * n) : 1.0)) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}

} // namespace

uint32_t pxImageThresh2Binary(tag_pxImage *image, double threshold) {
    if (!hasPlane(image) || !thresholdToBinary(image, threshold)) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}

uint32_t pxImageThreshUpper(tag_pxImage *image, double threshold) {
    if (!hasPlane(image) || !thresholdUpper(image, threshold)) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}

uint32_t pxImageDilate(const tag_pxImage *source, int32_t radius, tag_pxImage *destination) {
    return morphology(source, radius, destination, false);
}

uint32_t pxImageErode(const tag_pxImage *source, int32_t radius, tag_pxImage *destination) {
    return morphology(source, radius, destination, true);
}

uint32_t pxImageOperationsNegate(tag_pxImage *image) {
    if (!hasPlane(image) || image->height < 1) {
        return 1;
    }
    for (int32_t y = 0; y < image->height; ++y) {
        uint8_t *row = static_cast<uint8_t *>(image->pixMap[0][y]);
        for (int32_t x = 0; x < image->width; ++x) {
            row[x] = static_cast<uint8_t>(~row[x]);
        }
    }
    return 1;
}

uint32_t pxImageOperationsNegateFloat(tag_pxImage *image) {
    if (!hasPlane(image) || image->height < 1) {
        return 1;
    }
    // A row of `width` floats must fit in the row's storage, whatever the declared type.
    if (image->type < 0 || image->type > 8 || pxImagePixelSizeTable[image->type] < sizeof(float)) {
        // Reported and left alone; the result stays 1 as for every call of this function.
        PX_ERROR(kModule, PX_ERR_TYPE_NOT_SUPPORTED, "Pixel type %d holds no 32-bit floats", image->type);
        return 1;
    }
    forEachPixel<float>(image, [](float v) { return 255.0f - v; });
    return 1;
}
