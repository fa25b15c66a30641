// Module pxImagePreproc, the record modes: tone mapping of a whole record to 0..255 and the local
// normalisation of a record with saturation handling, with their private local-mean workers (a running box
// sum and a mean that leaves saturated pixels out).
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>

#include "pxImage.h"
#include "image/pxImageLog.h"
#include "pxImagePreprocInternal.h"

namespace {

constexpr const char *kModule = "pxImagePreproc";

float *rowOf(const tag_pxImage *image, int32_t y) {
    return static_cast<float *>(image->pixMap[0][y]);
}

// Applies `rule(pixel)` to every pixel of plane 0 (rows and columns of the image, not its margin).
template <class Rule> void forEachPixel(tag_pxImage *image, Rule rule) {
    const int32_t width = image->width;
    const int32_t height = image->height;
    for (int32_t y = 0; y < height; ++y) {
        float *row = rowOf(image, y);
        for (int32_t x = 0; x < width; ++x)
            rule(row[x]);
    }
}

// Applies `rule(a pixel, b pixel)` to the same pixel of plane 0 of two records of the same size.
template <class Rule> void forEachPixelPair(tag_pxImage *a, tag_pxImage *b, Rule rule) {
    const int32_t width = a->width;
    const int32_t height = a->height;
    for (int32_t y = 0; y < height; ++y) {
        float *ra = rowOf(a, y);
        float *rb = rowOf(b, y);
        for (int32_t x = 0; x < width; ++x)
            rule(ra[x], rb[x]);
    }
}

// The same for three records.
template <class Rule> void forEachPixelTriple(tag_pxImage *a, tag_pxImage *b, tag_pxImage *c, Rule rule) {
    const int32_t width = a->width;
    const int32_t height = a->height;
    for (int32_t y = 0; y < height; ++y) {
        float *ra = rowOf(a, y);
        float *rb = rowOf(b, y);
        float *rc = rowOf(c, y);
        for (int32_t x = 0; x < width; ++x)
            rule(ra[x], rb[x], rc[x]);
    }
}

// Rows whose horizontal sums are formed together: their running sums are independent chains of additions
// that the processor overlaps, while each row's own sums keep their order.
constexpr int32_t kRowBatch = 4;

// Horizontal running sums of `count` (1..kRowBatch) rows, each as the row worker defines it:
// out[n/2] = row[0] + ... + row[n-1], then out[n/2 + j + 1] = row[n + j] + (out[n/2 + j] - row[j]).
// Other columns are not written.
void rowSums(const float *const *rows, int32_t count, int32_t width, int32_t n, float *const *outs) {
    const int32_t h = n / 2;
    for (int32_t k = 0; k < count; ++k) {
        float sum = 0.0f;
        for (int32_t i = 0; i < n; ++i)
            sum += rows[k][i];
        outs[k][h] = sum;
    }
    if (count == kRowBatch) {
        for (int32_t j = 0; j < width - n; ++j)
            for (int32_t k = 0; k < kRowBatch; ++k)
                outs[k][h + j + 1] = rows[k][n + j] + (outs[k][h + j] - rows[k][j]);
        return;
    }
    for (int32_t k = 0; k < count; ++k)
        for (int32_t j = 0; j < width - n; ++j)
            outs[k][h + j + 1] = rows[k][n + j] + (outs[k][h + j] - rows[k][j]);
}

// Horizontal sums of image rows first .. first+count-1 into the given rows of `target`.
void rowSumsInto(const tag_pxImage *image, int32_t first, int32_t count, int32_t n, tag_pxImage *target,
                 int32_t targetRow) {
    const float *rows[kRowBatch];
    float *outs[kRowBatch];
    for (int32_t k = 0; k < count; ++k) {
        rows[k] = rowOf(image, first + k);
        outs[k] = rowOf(target, targetRow + k);
    }
    rowSums(rows, count, image->width, n, outs);
}

// sum[x] += value[x] and count[x] += 1 for the values strictly below the threshold (adding 0 for the others
// leaves a sum unchanged: it starts at +0 and never becomes -0).
void addBelow(const float *__restrict value, int32_t width, float threshold, float *__restrict sum,
              float *__restrict count) {
    for (int32_t x = 0; x < width; ++x) {
        const bool below = value[x] < threshold;
        sum[x] += below ? value[x] : 0.0f;
        count[x] += below ? 1.0f : 0.0f;
    }
}

tag_pxImage *newFloatImage(int32_t width, int32_t height) {
    tag_pxImage *image = nullptr;
    if (!pxImageConstruct(FLOAT, width, height, 0, 1, &image))
        PX_TRACE(kModule);
    return image;
}

// Releases every record of the list that exists.
void release(std::initializer_list<tag_pxImage **> images) {
    for (tag_pxImage **image : images)
        if (*image)
            pxImageDestruct(image);
}

// Smallest and largest pixel of plane 0: a value below the current minimum becomes the minimum and is not
// considered for the maximum.
void lowAndHigh(tag_pxImage *image, float &lo, float &hi) {
    lo = 65535.0f;
    hi = 0.0f;
    forEachPixel(image, [&](float &p) {
        if (p < lo)
            lo = p;
        else if (p > hi)
            hi = p;
    });
}

// Mean M, squared deviation and variance without saturation handling; `lo` receives the smallest mean.
bool plainStatistics(tag_pxImage *dev, int32_t n, tag_pxImage **mean, tag_pxImage **variance, float &lo) {
    if (!pxpre::boxSum(dev, n, mean)) {
        PX_TRACE(kModule);
        return false;
    }
    const float a = 1.0f / static_cast<float>(n * n);
    lo = 65535.0f;
    forEachPixelPair(*mean, dev, [&](float &m, float &d) {
        m = m * a;
        lo = m < lo ? m : lo;
        const float e = d - m;
        d = e * e;
    });
    if (!pxpre::boxSum(dev, n, variance)) {
        PX_TRACE(kModule);
        return false;
    }
    forEachPixel(*variance, [a](float &s) { s = s * a; });
    return true;
}

// The same with pixels at or above 255.0 left out of both means.
bool saturatedStatistics(tag_pxImage *dev, int32_t n, tag_pxImage **mean, tag_pxImage **variance, float &lo) {
    if (!pxpre::saturationAwareMean(dev, n, 255.0f, mean)) {
        PX_TRACE(kModule);
        return false;
    }
    lo = 65535.0f;
    forEachPixelPair(*mean, dev, [&](float &m, float &d) {
        if (d >= 255.0f) {
            d = 65025.0f;
        } else {
            lo = m < lo ? m : lo;
            const float e = d - m;
            d = e * e;
        }
    });
    if (!pxpre::saturationAwareMean(dev, n, 65025.0f, variance)) {
        PX_TRACE(kModule);
        return false;
    }
    return true;
}

void normalisePlain(tag_pxImage *out, tag_pxImage *mean, tag_pxImage *variance, float lo, float gain,
                    float meanGain) {
    // The quotient is formed everywhere and selected, so that the loop has no branch and vectorises.
    forEachPixelTriple(out, mean, variance, [=](float &x, float &m, float &v) {
        const float base = (m - lo) * meanGain;
        const float scaled = base + (x - m) * gain / std::sqrt(v);
        x = v > 0.0f ? scaled : base;
    });
}

void normaliseSaturated(tag_pxImage *out, tag_pxImage *mean, tag_pxImage *variance, float lo, float gain,
                        float meanGain) {
    forEachPixelTriple(out, mean, variance, [=](float &x, float &m, float &v) {
        const float base = (m - lo) * meanGain;
        const float scaled = base + (x - m) * gain / (v * pxpre::fastReciprocalSqrt(v));
        x = x < 255.0f ? (v > 0.0f ? scaled : base) : x;
    });
}

} // namespace

namespace pxpre {

uint32_t boxSum(const tag_pxImage *image, int32_t n, tag_pxImage **sums) {
    const int32_t width = image->width;
    const int32_t height = image->height;
    // The ring's n rows, then kRowBatch rows where the sums of the next entering rows wait for their slot.
    tag_pxImage *ring = nullptr;
    *sums = newFloatImage(width, height);
    if (!*sums || !(ring = newFloatImage(width, n + kRowBatch))) {
        release({sums});
        PX_TRACE(kModule);
        return 0;
    }
    const int32_t h = n / 2;
    for (int32_t r = 0; r < n; r += kRowBatch)
        rowSumsInto(image, r, std::min(kRowBatch, n - r), n, ring, r);
    float *first = rowOf(*sums, h);
    for (int32_t r = 0; r < n; ++r) {
        const float *slot = rowOf(ring, r);
        for (int32_t x = 0; x < width; ++x)
            first[x] += slot[x];
    }
    int32_t slotIndex = 0;
    const int32_t lastEntering = height - h - 1;
    for (int32_t batch = n; batch <= lastEntering; batch += kRowBatch) {
        const int32_t count = std::min(kRowBatch, lastEntering - batch + 1);
        rowSumsInto(image, batch, count, n, ring, n);
        for (int32_t k = 0; k < count; ++k) {
            const int32_t target = h + batch + k - n + 1;
            const float *previous = rowOf(*sums, target - 1);
            float *row = rowOf(*sums, target);
            float *slot = rowOf(ring, slotIndex);
            const float *entering = rowOf(ring, n + k);
            for (int32_t x = 0; x < width; ++x)
                row[x] = (previous[x] - slot[x]) + entering[x];
            std::copy(entering, entering + width, slot);
            slotIndex = (slotIndex + 1) % n;
        }
    }
    pxImageDestruct(&ring);
    return 1;
}

uint32_t saturationAwareMean(const tag_pxImage *image, int32_t n, float threshold, tag_pxImage **means) {
    const int32_t width = image->width;
    const int32_t height = image->height;
    *means = newFloatImage(width, height);
    tag_pxImage *counts = nullptr;
    if (!*means || !(counts = newFloatImage(width, 1))) {
        release({means});
        PX_TRACE(kModule);
        return 0;
    }
    // Columns x of one output row are summed side by side over the square in row-major order, which keeps
    // every pixel's order of additions that of a plain scan of its square.
    const int32_t r = n / 2;
    float *count = rowOf(counts, 0);
    for (int32_t y = r; y < height - r; ++y) {
        float *sum = rowOf(*means, y);
        for (int32_t dy = -r; dy <= r; ++dy) {
            const float *in = rowOf(image, y + dy);
            for (int32_t dx = -r; dx <= r; ++dx)
                addBelow(in + dx + r, width - 2 * r, threshold, sum + r, count + r);
        }
        for (int32_t x = r; x < width - r; ++x) {
            sum[x] = count[x] > 0.0f ? sum[x] / count[x] : threshold;
            count[x] = 0.0f;
        }
    }
    pxImageDestruct(&counts);
    return 1;
}

} // namespace pxpre

tag_pxImage *pxImagePreprocLog(const tag_pxImage *source, float offset) {
    tag_pxImage *copy = nullptr;
    if (!source || !pxImageConvertCopy(source, FLOAT, Image_border, &copy)) {
        PX_TRACE(kModule);
        return copy;
    }
    float lo;
    float hi;
    lowAndHigh(copy, lo, hi);
    if (source->origType == UBYTE) {
        const float scale = 255.0f / std::pow(hi - lo, 0.1f);
        forEachPixel(copy, [=](float &p) { p = std::pow(p - lo, 0.1f) * scale; });
    } else {
        const float shift = lo - offset;
        const float scale = 255.0f / std::log(hi - shift);
        forEachPixel(copy, [=](float &p) { p = std::log(p - shift) * scale; });
    }
    return copy;
}

tag_pxImage *pxImagePreprocStandard(const tag_pxImage *source, int32_t window, float unused, float gain,
                                    float meanGain, int32_t ignoreSaturation) {
    (void)unused;
    if (!source || source->planes < 1 || window < 1 || window > source->width || window > source->height) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "no image, or window %d outside 1..min(width, height)",
                 window);
        return nullptr;
    }
    tag_pxImage *out = nullptr;
    tag_pxImage *dev = nullptr;
    tag_pxImage *mean = nullptr;
    tag_pxImage *variance = nullptr;
    if (!pxImageConvertWithTransformCopy(source, FLOAT, Image_border, 1, &out) ||
        !pxImageConvertCopy(out, FLOAT, 0, &dev)) {
        release({&out});
        PX_TRACE(kModule);
        return nullptr;
    }
    float lo = 65535.0f;
    const bool made = ignoreSaturation ? saturatedStatistics(dev, window, &mean, &variance, lo)
                                       : plainStatistics(dev, window, &mean, &variance, lo);
    if (made) {
        if (ignoreSaturation)
            normaliseSaturated(out, mean, variance, lo, gain, meanGain);
        else
            normalisePlain(out, mean, variance, lo, gain, meanGain);
    }
    release({&mean, &dev, &variance});
    if (!made) {
        release({&out});
        PX_TRACE(kModule);
    }
    return out;
}
