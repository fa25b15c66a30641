// Module pxImageMarkPts, ellipse marks: a fitted ellipse drawn into a byte image as crosses at its contour
// samples with an inverted "+" at its centre, either into the image itself together with extra points, or
// into a magnified cut-out around the ellipse. The contour samples come from the maths library.
#include <cmath>
#include <cstdint>

#include "image/pxImageLog.h"
#include "pxImage.h"
#include "pxImageMarkInternal.h"
#include "pxMath.h"

using pxmark::kModule;

namespace {

constexpr double kPi = 3.141592653589793;
// The sampler takes an int, and the scratch array holds five centre points more.
constexpr double kMaxSamples = 2147483647.0 - 5.0;

// Truncation toward zero of a non-negative finite value, saturated far beyond any sample count.
double truncatedCount(double value) {
    constexpr double LIMIT = 4611686018427387904.0; // 2^62
    return value < LIMIT ? static_cast<double>(static_cast<int64_t>(value)) : LIMIT;
}

// Checks the ellipse and computes the sample count truncate((a + b) pi + 0.5) * m * 3; logs and returns 0
// for an ellipse that is missing, not finite, has a negative semi-axis or gives no or too many samples.
int32_t sampleCount(const pxMath2DEllipse *e, int32_t m) {
    if (!e || !std::isfinite(e->cx) || !std::isfinite(e->cy) || !std::isfinite(e->a) ||
        !std::isfinite(e->b) || !(e->a >= 0.0) || !(e->b >= 0.0)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                 "Ellipse missing, not finite or with a negative semi-axis");
        return 0;
    }
    const double n = truncatedCount((e->a + e->b) * kPi + 0.5) * m * 3.0;
    if (n < 1.0 || n > kMaxSamples) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                 "Ellipse with a = %g and b = %g gives %.0f contour samples", e->a, e->b, n);
        return 0;
    }
    return static_cast<int32_t>(n);
}

bool isByteImage(const tag_pxImage *image) {
    return pxmark::hasPixels(image) && image->type == UBYTE;
}

// Drops the points outside [0, width - 1] x [0, height - 1]: the last point moves into the slot, the count
// drops by one and the slot is tested again. Returns the number kept.
int32_t keepInside(pxMathVec2 *points, int32_t count, const tag_pxImage *image) {
    const double right = static_cast<double>(image->width - 1);
    const double bottom = static_cast<double>(image->height - 1);
    int32_t i = 0;
    while (i < count) {
        const pxMathVec2 &p = points[i];
        if (p.x < 0.0 || p.y < 0.0 || p.x > right || p.y > bottom) {
            pxMathCopyVec2ToVec2(&points[count - 1], &points[i]);
            --count;
        } else {
            ++i;
        }
    }
    return count;
}

// Writes the centre point and its four neighbours at +-1 in x and in y.
void appendCentre(pxMathVec2 *at, double x, double y) {
    const pxMathVec2 centre[5] = {{x, y}, {x + 1.0, y}, {x - 1.0, y}, {x, y + 1.0}, {x, y - 1.0}};
    for (int i = 0; i < 5; ++i) {
        pxMathCopyVec2ToVec2(&centre[i], &at[i]);
    }
}

// Inverts the byte under each of the five centre points that lies inside the image.
void invertCentre(tag_pxImage *image, const pxMathVec2 *centre) {
    for (int i = 0; i < 5; ++i) {
        const pxMathVec2 &p = centre[i];
        if (p.x >= 0.0 && p.x <= image->width - 1 && p.y >= 0.0 && p.y <= image->height - 1) {
            uint8_t &pixel = static_cast<uint8_t *>(
                image->pixMap[0][static_cast<int32_t>(p.y)])[static_cast<int32_t>(p.x)];
            pixel = static_cast<uint8_t>(255 - pixel);
        }
    }
}

// Samples the contour into points[0..n-1], keeps the samples inside the image after `map`, appends the
// five centre points around `centre`, marks the samples as crosses and inverts the centre. 1/0 with a trace.
template <class Map>
uint32_t drawEllipse(const pxMath2DEllipse *e, int32_t n, pxMathVec2 *points, tag_pxImage *image, Map map,
                     pxMathVec2 centre) {
    if (!pxMath2DEllipseSampleContouerPts(e, n, points)) {
        PX_TRACE(kModule);
        return 0;
    }
    for (int32_t i = 0; i < n; ++i) {
        points[i] = map(points[i]);
    }
    const int32_t kept = keepInside(points, n, image);
    appendCentre(points + kept, centre.x, centre.y);
    if (!pxImageMarkPts(reinterpret_cast<const double *>(points), kept, image)) {
        PX_TRACE(kModule);
        return 0;
    }
    invertCentre(image, points + kept);
    return 1;
}

// Scratch array of n + 5 point pairs.
pxMathVec2 *allocatePoints(int32_t n) {
    void *block = nullptr;
    if (!pxMallocNoInit(&block, sizeof(pxMathVec2) * (static_cast<size_t>(n) + 5))) {
        return nullptr;
    }
    return static_cast<pxMathVec2 *>(block);
}

void freePoints(pxMathVec2 *points) {
    void *block = points;
    pxMallocFree(&block);
}

// Sets the pixel of each extra point to 255; a point outside the storage is reported and skipped.
bool setExtraPoints(tag_pxImage *image, const double *points, int32_t n) {
    bool allSet = true;
    for (int32_t i = 0; i < n; ++i) {
        const int64_t x = pxmark::truncateTo32(points[2 * i] + 0.5);
        const int64_t y = pxmark::truncateTo32(points[2 * i + 1] + 0.5);
        if (!pxmark::inStorage(image, x, x, y, y)) {
            PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                     "Point at column %lld, row %lld lies outside the %d x %d image and its border of %d; "
                     "skipped",
                     static_cast<long long>(x), static_cast<long long>(y), image->width, image->height,
                     image->border);
            allSet = false;
            continue;
        }
        static_cast<uint8_t *>(image->pixMap[0][y])[x] = 0xFF;
    }
    return allSet;
}

} // namespace

uint32_t pxImageMarkEllipse(const pxMath2DEllipse *ellipse, int32_t m, const tag_pxImage *source,
                            tag_pxImage **output) {
    if (!isByteImage(source)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Ellipse marks need a byte source image with pixels");
        return 0;
    }
    if (m < 1 || !output || *output) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                 "Ellipse cut-outs need a magnification of 1 or more (not %d) and an empty output handle", m);
        return 0;
    }
    const int32_t n = sampleCount(ellipse, m);
    if (n == 0) {
        return 0;
    }
    const int64_t r = pxmark::truncateTo32(ellipse->a + 0.5);
    const int64_t x0 = pxmark::truncateTo32(ellipse->cx + 0.5) - 2 * r;
    const int64_t y0 = pxmark::truncateTo32(ellipse->cy + 0.5) - 2 * r;
    pxMathVec2 *points = allocatePoints(n);
    if (!points) {
        PX_TRACE(kModule);
        return 0;
    }
    const int32_t side = pxmark::clampTo32(4.0 * static_cast<double>(r) * m);
    if (!pxImageConstruct(source->type, side, side, source->border, source->planes, output)) {
        freePoints(points);
        PX_TRACE(kModule);
        return 0;
    }
    pxmark::replicate<uint8_t>(source, x0, y0, 4 * r, 4 * r, m, *output);
    const auto map = [x0, y0, m](pxMathVec2 p) {
        return pxMathVec2{((p.x - static_cast<double>(x0)) + 0.5) * m,
                          ((p.y - static_cast<double>(y0)) + 0.5) * m};
    };
    const uint32_t drawn = drawEllipse(ellipse, n, points, *output, map, map({ellipse->cx, ellipse->cy}));
    freePoints(points);
    if (!drawn) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}

uint32_t pxImageMarkEllipseAndPts(const pxMath2DEllipse *ellipse, const tag_pxImage *checked,
                                  const double *points, int32_t n, tag_pxImage **image) {
    if (!isByteImage(checked)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Ellipse marks need a byte image with pixels");
        return 0;
    }
    if (!image || !isByteImage(*image) || (n > 0 && !points)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                 "Ellipse marks need a byte image to draw into and the points");
        return 0;
    }
    const int32_t samples = sampleCount(ellipse, 1);
    if (samples == 0) {
        return 0;
    }
    pxMathVec2 *contour = allocatePoints(samples);
    if (!contour) {
        PX_TRACE(kModule);
        return 0;
    }
    const auto unmapped = [](pxMathVec2 p) { return p; };
    const uint32_t drawn =
        drawEllipse(ellipse, samples, contour, *image, unmapped, {ellipse->cx + 0.5, ellipse->cy + 0.5});
    freePoints(contour);
    if (!drawn) {
        PX_TRACE(kModule);
        return 0;
    }
    if (!setExtraPoints(*image, points, n)) {
        PX_TRACE(kModule);
        return 0;
    }
    return 1;
}
