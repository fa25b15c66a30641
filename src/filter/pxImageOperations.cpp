// Module pxImageOperations: thresholds, binary dilation and erosion built on the box sums, negation, and
// region statistics (count, mean, standard deviation and histogram of the pixel values of a rectangle, or of
// the vector lengths of a two-image vector field such as an optical flow).
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

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
    // A row of `width` bytes must fit in the row's storage: a type-0 plane has pixels of no bytes.
    if (image->type < 0 || image->type > 8 || pxImagePixelSizeTable[image->type] < 1) {
        // Reported and left alone; the result stays 1 as for every call of this function.
        PX_ERROR(kModule, PX_ERR_TYPE_NOT_SUPPORTED, "Pixel type %d holds no bytes", image->type);
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

// ---- Region statistics ----

namespace {

// Columns x0 .. x1 - 1 and rows y0 .. y1 - 1.
struct Region {
    int32_t x0, x1, y0, y1;
    int32_t width() const { return x1 - x0; }
    int32_t height() const { return y1 - y0; }
};

// The outputs shared by both functions; the range is in/out.
struct Outputs {
    int32_t bins;
    uint32_t *histogram;
    double *minimum;
    double *maximum;
    int32_t *count;
    double *mean;
    double *stdDev;
};

bool outputsGiven(const Outputs &out) {
    return out.minimum != nullptr && out.maximum != nullptr && out.count != nullptr && out.mean != nullptr &&
           out.stdDev != nullptr && (out.bins < 1 || out.histogram != nullptr);
}

bool hasPixels(const tag_pxImage *image) {
    return image != nullptr && image->pixMap[0] != nullptr;
}

bool reportMissing() {
    PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "missing image, pixels or output pointer\n");
    return false;
}

// Both corner coordinates lie in [0, limit]; a NaN does not.
bool cornersWithin(double a, double b, int32_t limit) {
    return a >= 0.0 && a <= limit && b >= 0.0 && b <= limit;
}

// The region between two checked corners: bounds truncated toward zero, the upper one exclusive.
Region regionOf(const double corner1[2], const double corner2[2]) {
    return {static_cast<int32_t>(std::fmin(corner1[0], corner2[0])),
            static_cast<int32_t>(std::fmax(corner1[0], corner2[0])),
            static_cast<int32_t>(std::fmin(corner1[1], corner2[1])),
            static_cast<int32_t>(std::fmax(corner1[1], corner2[1]))};
}

// Automatic range: starts at the quantity of the image's pixel (0, 0), then widens over the region. The
// comparisons are written so that a NaN quantity replaces the bound, as the range search always did.
template <typename Read>
void findRange(const Read &read, const Region &region, double &minimum, double &maximum) {
    minimum = static_cast<double>(read(0, 0));
    maximum = minimum;
    for (int32_t y = region.y0; y < region.y1; ++y) {
        for (int32_t x = region.x0; x < region.x1; ++x) {
            const double q = static_cast<double>(read(x, y));
            if (!(q > minimum)) {
                minimum = q;
            }
            if (!(maximum > q)) {
                maximum = q;
            }
        }
    }
}

// The histogram bin of a pixel whose offset from the minimum is d (already raised to 0 if not positive).
// An offset of 0 in a range of width 0 (0 / 0), and any other quotient without a value (a NaN range, an
// infinite offset over infinite bins), is bin 0. Only the bins + 1 counters 0..bins exist: the maximum lands
// in bin `bins`, and a pixel further out (above a caller's range, or past a range that a NaN broke) names no
// counter and is not counted.
bool binIndex(double d, double binWidth, int32_t bins, int32_t &index) {
    const double quotient = std::floor(d / binWidth);
    if (std::isnan(quotient)) {
        index = 0;
        return true;
    }
    if (!(quotient >= 0.0 && quotient <= static_cast<double>(bins))) {
        return false;
    }
    index = static_cast<int32_t>(quotient);
    return true;
}

// Adds the region's quantities to the sums (only those within the range when bins is non-zero) and, with
// bins >= 1, counts every region pixel in the histogram.
template <typename Read, typename Sums>
void accumulate(const Read &read, const Region &region, const Outputs &out, Sums &sums) {
    const double minimum = *out.minimum;
    const double maximum = *out.maximum;
    const double binWidth = (maximum - minimum) / out.bins;
    for (int32_t y = region.y0; y < region.y1; ++y) {
        for (int32_t x = region.x0; x < region.x1; ++x) {
            const auto q = read(x, y);
            const double value = static_cast<double>(q);
            if (out.bins == 0 || (minimum <= value && value <= maximum)) {
                sums.add(q);
            }
            if (out.bins >= 1) {
                double d = value - minimum;
                if (!(d > 0.0)) {
                    d = 0.0;
                }
                int32_t index = 0;
                if (binIndex(d, binWidth, out.bins, index)) {
                    out.histogram[index] += 1;
                }
            }
        }
    }
}

// Steps shared by both functions once the arguments are checked: range, sums, histogram.
template <typename Read, typename Sums>
void measure(const Read &read, const Region &region, const Outputs &out, Sums &sums) {
    if (out.bins > 0 && *out.minimum == 0.0 && *out.maximum == 0.0) {
        findRange(read, region, *out.minimum, *out.maximum);
    }
    accumulate(read, region, out, sums);
}

// Sums of 8-, 16- and 32-bit integer pixels: 32-bit integers that wrap, read as signed.
struct IntegerSums {
    uint32_t sum = 0;
    uint32_t squares = 0;
    void add(int32_t q) {
        sum += static_cast<uint32_t>(q);
        squares += static_cast<uint32_t>(q) * static_cast<uint32_t>(q);
    }
    double total() const { return static_cast<int32_t>(sum); }
    double totalSquares() const { return static_cast<int32_t>(squares); }
};

// Sums of float pixels: in double, with the square formed in single precision.
struct FloatSums {
    double sum = 0.0;
    double squares = 0.0;
    void add(float q) {
        sum += static_cast<double>(q);
        squares += static_cast<double>(q * q);
    }
    double total() const { return sum; }
    double totalSquares() const { return squares; }
};

// Sums in double (double pixels and every vector length).
struct DoubleSums {
    double sum = 0.0;
    double squares = 0.0;
    void add(double q) {
        sum += q;
        squares += q * q;
    }
    double total() const { return sum; }
    double totalSquares() const { return squares; }
};

// Reads plane 0 of an image as Stored and hands the pixel on as Quantity (so UBYTE and SHORT pixels are
// read as signed numbers by choosing a signed Stored type). The pixel is copied from the row's bytes, so the
// y component of a flow can be read with the x component's type whatever the alignment of its rows.
template <typename Stored, typename Quantity> struct PixelReader {
    void *const *rows;
    explicit PixelReader(const tag_pxImage *image) : rows(image->pixMap[0]) {}
    Quantity operator()(int32_t x, int32_t y) const {
        Stored value;
        std::memcpy(&value,
                    static_cast<const unsigned char *>(rows[y]) + sizeof(Stored) * static_cast<size_t>(x),
                    sizeof value);
        return static_cast<Quantity>(value);
    }
};

template <typename Stored, typename Quantity, typename Sums>
uint32_t pixValueOfType(const tag_pxImage *image, const Region &region, const Outputs &out) {
    Sums sums;
    measure(PixelReader<Stored, Quantity>(image), region, out, sums);
    const int32_t count = region.width() * region.height();
    *out.count = count;
    if (count <= 0) {
        PX_TRACE(kModule);
        return 0;
    }
    const double mean = sums.total() / count;
    *out.mean = mean;
    *out.stdDev = std::sqrt(sums.totalSquares() / count - mean * mean);
    return 1;
}

// Vector length of two integer components: the sum of squares in 32-bit arithmetic (wrapping), read as
// signed before the square root.
template <typename Stored> struct IntegerNorm {
    PixelReader<Stored, int32_t> fx, fy;
    IntegerNorm(const tag_pxImage *x, const tag_pxImage *y) : fx(x), fy(y) {}
    double operator()(int32_t x, int32_t y) const {
        const uint32_t a = static_cast<uint32_t>(fx(x, y));
        const uint32_t b = static_cast<uint32_t>(fy(x, y));
        return std::sqrt(static_cast<double>(static_cast<int32_t>(a * a + b * b)));
    }
};

// Vector length of two float components: the sum of squares in single precision, the root in double.
struct FloatNorm {
    PixelReader<float, float> fx, fy;
    FloatNorm(const tag_pxImage *x, const tag_pxImage *y) : fx(x), fy(y) {}
    double operator()(int32_t x, int32_t y) const {
        const float a = fx(x, y);
        const float b = fy(x, y);
        return std::sqrt(static_cast<double>(a * a + b * b));
    }
};

// Vector length of two double components.
struct DoubleNorm {
    PixelReader<double, double> fx, fy;
    DoubleNorm(const tag_pxImage *x, const tag_pxImage *y) : fx(x), fy(y) {}
    double operator()(int32_t x, int32_t y) const {
        const double a = fx(x, y);
        const double b = fy(x, y);
        return std::sqrt(a * a + b * b);
    }
};

bool typeMeasurable(int32_t type) {
    return type == UBYTE || type == SHORT || type == INT || type == FLOAT || type == DOUBLE;
}

template <typename Norm> uint32_t flowNormWith(const Norm &norm, const Region &region, const Outputs &out) {
    DoubleSums sums;
    measure(norm, region, out, sums);
    const int32_t count = region.width() * region.height();
    *out.count = count;
    const double mean = sums.total() / count;
    *out.mean = mean;
    if (count <= 0) {
        PX_TRACE(kModule);
        return 0;
    }
    *out.stdDev = std::sqrt(sums.totalSquares() / count - mean * mean);
    return 1;
}

// Both components are read with the x component's type.
uint32_t flowNormOfType(const tag_pxImage *flowX, const tag_pxImage *flowY, const Region &region,
                        const Outputs &out) {
    switch (flowX->type) {
    case UBYTE:
        return flowNormWith(IntegerNorm<int8_t>(flowX, flowY), region, out);
    case SHORT:
        return flowNormWith(IntegerNorm<int16_t>(flowX, flowY), region, out);
    case INT:
        return flowNormWith(IntegerNorm<int32_t>(flowX, flowY), region, out);
    case FLOAT:
        return flowNormWith(FloatNorm(flowX, flowY), region, out);
    default:
        return flowNormWith(DoubleNorm(flowX, flowY), region, out);
    }
}

// A y component of another type is read with the x component's type: its rows must hold pixels of that type
// up to the region's right edge, and at least the first one (the automatic range starts from pixel (0, 0)).
// Only the row's pixels count, not its margin, which holds no image data.
bool yRowsHoldRegion(const tag_pxImage *flowX, const tag_pxImage *flowY, const Region &region) {
    const int64_t columns = std::max(region.x1, 1);
    const int64_t needed = columns * pxImagePixelSizeTable[flowX->type];
    return needed <= static_cast<int64_t>(flowY->width) * pxImagePixelSizeTable[flowY->type];
}

// The two component images are refused only when width, height and type all differ at once.
bool componentsComparable(const tag_pxImage *flowX, const tag_pxImage *flowY) {
    return flowX->width == flowY->width || flowX->height == flowY->height || flowX->type == flowY->type;
}

} // namespace

extern "C" PXIMAGE_API uint32_t pxImageGetAvaragePixValue(const tag_pxImage *image, const double corner1[2],
                                                          const double corner2[2], int32_t bins,
                                                          uint32_t *histogram, double *minimum,
                                                          double *maximum, int32_t *count, double *mean,
                                                          double *stdDev) {
    const Outputs out{bins, histogram, minimum, maximum, count, mean, stdDev};
    if (!hasPixels(image) || corner1 == nullptr || corner2 == nullptr || !outputsGiven(out)) {
        return reportMissing();
    }
    if (!cornersWithin(corner1[0], corner2[0], image->width)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "x out of image limits\n");
        return 0;
    }
    if (!cornersWithin(corner1[1], corner2[1], image->height)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "y out of image limits\n");
        return 0;
    }
    const Region region = regionOf(corner1, corner2);
    switch (image->type) {
    case UBYTE:
        return pixValueOfType<int8_t, int32_t, IntegerSums>(image, region, out);
    case SHORT:
        return pixValueOfType<int16_t, int32_t, IntegerSums>(image, region, out);
    case INT:
        return pixValueOfType<int32_t, int32_t, IntegerSums>(image, region, out);
    case FLOAT:
        return pixValueOfType<float, float, FloatSums>(image, region, out);
    case DOUBLE:
        return pixValueOfType<double, double, DoubleSums>(image, region, out);
    default:
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "unsupported format for averaging");
        return 0;
    }
}

extern "C" PXIMAGE_API uint32_t pxImageGetAvarageFlowNorm(const tag_pxImage *flowX, const tag_pxImage *flowY,
                                                          const double corner1[2], const double corner2[2],
                                                          int32_t bins, uint32_t *histogram, double *minimum,
                                                          double *maximum, int32_t *count, double *mean,
                                                          double *stdDev) {
    const Outputs out{bins, histogram, minimum, maximum, count, mean, stdDev};
    if (!hasPixels(flowX) || !hasPixels(flowY) || corner1 == nullptr || corner2 == nullptr ||
        !outputsGiven(out)) {
        return reportMissing();
    }
    if (!componentsComparable(flowX, flowY)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                 "x and y components of flow must be of the same type, height and width\n");
        return 0;
    }
    // The x component's size rules; the region must also lie inside the y component so that no read
    // leaves its pixels (in bytes of the x type when the types differ, checked below).
    const bool sameType = flowX->type == flowY->type;
    if (!cornersWithin(corner1[0], corner2[0], flowX->width) ||
        (sameType && !cornersWithin(corner1[0], corner2[0], flowY->width))) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "region x coordinate out of image limits\n");
        return 0;
    }
    if (!cornersWithin(corner1[1], corner2[1], flowX->height) ||
        !cornersWithin(corner1[1], corner2[1], flowY->height)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "region y coordinate out of image limits\n");
        return 0;
    }
    if (!typeMeasurable(flowX->type) || !typeMeasurable(flowY->type)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "unsupported format for averaging");
        return 0;
    }
    const Region region = regionOf(corner1, corner2);
    if (!sameType && !yRowsHoldRegion(flowX, flowY, region)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                 "y component rows too short to be read with the x component's pixel type\n");
        return 0;
    }
    return flowNormOfType(flowX, flowY, region, out);
}
