// Module pxImageFixAber: resampling through a lens-distortion model about a distortion centre. pxImageAber
// applies the full radial and tangential model to a FLOAT image with supersampling and records the
// coefficients in the header; pxImageFixAber undoes the one-coefficient radial model by inverting the cubic
// radius map and narrows the region of interest to what stays valid. Both compute the new plane 0 into a
// temporary image of the same shape and then exchange the two plane-0 pixel maps.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "image/pxImageLog.h"
#include "pxImage.h"
#include "pxImageFixAberKernels.h"
#include "pxMath.h"

namespace {

constexpr const char *kModule = "pxImageFixAber";
// Below this coefficient the Newton denominator 3k u^2 + 1 can reach zero inside the image.
constexpr double kNegativeKWarning = -1e-7;
// Largest supersampling factor whose n * n fits in 32 bits.
constexpr int32_t kMaxSupersampling = 46340;

// A negative centre coordinate means the middle of the image.
double defaultCentre(double c, int32_t size) {
    return c < 0.0 ? size * 0.5 : c;
}

// Truncation toward zero that saturates at the ends of int32 (used for region bounds).
int32_t truncateSaturating(double value) {
    if (value >= 2147483647.0)
        return INT32_MAX;
    if (value <= -2147483648.0)
        return INT32_MIN;
    return static_cast<int32_t>(value);
}

bool allFinite(std::initializer_list<double> values) {
    return std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); });
}

bool hasPixels(const tag_pxImage *image) {
    return image != nullptr && image->pixMap[0] != nullptr;
}

pxaber::Plane planeOf(const tag_pxImage *image) {
    return {image->pixMap[0], image->width, image->height};
}

// The temporary image that receives the new plane 0: the image's type, size, border and planes.
tag_pxImage *constructTemporary(const tag_pxImage *image, int32_t type) {
    tag_pxImage *temporary = nullptr;
    if (!pxImageConstruct(type, image->width, image->height, image->border, image->planes, &temporary))
        return nullptr;
    return temporary;
}

// Gives the image the temporary's plane 0 and destroys the temporary with the old pixels.
void exchangePlane0(tag_pxImage *image, tag_pxImage *temporary) {
    std::swap(image->pixMap[0], temporary->pixMap[0]);
    pxImageDestruct(&temporary);
}

// Which pixels the inverse model reads and writes as which kind; false for types whose rows cannot be
// read as 32-bit floats (1- and 2-byte types other than UBYTE and SHORT, and type 0).
bool radialKindOf(int32_t type, pxaber::Pixels &kind) {
    switch (type) {
    case UBYTE:
        kind = pxaber::Pixels::UBYTE;
        return true;
    case SHORT:
        kind = pxaber::Pixels::SHORT;
        return true;
    case INT:
    case FLOAT:
    case DOUBLE:
        kind = pxaber::Pixels::FLOAT;
        return true;
    default:
        return false;
    }
}

// Raises the region's lower bounds by how far the corner pixel (0, 0) moves: the distortion of the corner
// radius R0 along each axis.
void narrowLowerBounds(tag_pxImage *image, double k, double cx, double cy, double r0) {
    image->roiminX = truncateSaturating(std::fmax(image->roiminX, std::ceil(-(k * cx * r0 * r0))));
    image->roiminY = truncateSaturating(std::fmax(image->roiminY, std::ceil(-(k * cy * r0 * r0))));
}

// Lowers the region's upper bounds by the distortion of radius r1 of the last pixel along each axis.
void narrowUpperBounds(tag_pxImage *image, double k, double cx, double cy, double r1) {
    const int32_t lastX = image->width - 1;
    const int32_t lastY = image->height - 1;
    image->roimaxX = std::min(image->roimaxX, truncateSaturating((lastX - cx) * k * r1 * r1 + lastX));
    image->roimaxY = std::min(image->roimaxY, truncateSaturating((lastY - cy) * k * r1 * r1 + lastY));
}

// The starting value of the first Newton step: the root of u^3 + u / k - r0 / k nearest to r0 (root 0 when
// it is strictly nearest, else root 1 when root 2 is farther than root 1, else root 2). False when the
// cubic cannot be solved.
bool startingValue(double k, double r0, double &u0) {
    if (r0 == 0.0) {
        u0 = 0.0;
        return true;
    }
    int count = 0;
    double roots[3] = {0.0, 0.0, 0.0};
    if (!pxMathSolveCubic(1.0, 0.0, 1.0 / k, -r0 / k, &count, roots))
        return false;
    if (count == 1) {
        u0 = roots[0];
        return true;
    }
    const double e0 = std::fabs(roots[0] - r0);
    const double e1 = std::fabs(roots[1] - r0);
    const double e2 = std::fabs(roots[2] - r0);
    if (e0 < e1 && e0 < e2)
        u0 = roots[0];
    else
        u0 = e2 > e1 ? roots[1] : roots[2];
    return true;
}

} // namespace

uint32_t pxImageAber(tag_pxImage *image, double k1, double k2, double k3, double p1, double p2, double cx,
                     double cy, int32_t n) {
    if (!hasPixels(image) || n < 1 || n > kMaxSupersampling || !allFinite({k1, k2, k3, p1, p2, cx, cy})) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                 "aberration needs an image with pixels, n in 1..%d and finite "
                 "coefficients",
                 kMaxSupersampling);
        return 0;
    }
    if (image->type != FLOAT) {
        PX_TRACE(kModule);
        return 0;
    }
    tag_pxImage *temporary = constructTemporary(image, FLOAT);
    if (temporary == nullptr) {
        PX_TRACE(kModule);
        return 0;
    }
    cx = defaultCentre(cx, image->width);
    cy = defaultCentre(cy, image->height);
    const pxaber::Plane source = planeOf(image);
    pxaber::aberFast(source, {k1, k2, k3, p1, p2, cx, cy, n}, planeOf(temporary), 2,
                     pxaber::evenStride(source, sizeof(float)));
    exchangePlane0(image, temporary);
    image->aberK1 = k1;
    image->aberK2 = k2;
    image->aberK3 = k3;
    image->aberP1 = p1;
    image->aberP2 = p2;
    image->aberCx = cx;
    image->aberCy = cy;
    return 1;
}

uint32_t pxImageFixAber(tag_pxImage *image, double k, double cx, double cy) {
    if (k == 0.0)
        return 1;
    pxaber::Pixels kind = pxaber::Pixels::FLOAT;
    if (!hasPixels(image) || !radialKindOf(image->type, kind) || !allFinite({k, cx, cy})) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                 "FixAber needs a UBYTE, SHORT, INT, FLOAT or DOUBLE image "
                 "with pixels and finite k, cx, cy");
        return 0;
    }
    if (k < kNegativeKWarning)
        PX_WARN(3, kModule, "Possible division by 0!");
    cx = defaultCentre(cx, image->width);
    cy = defaultCentre(cy, image->height);
    tag_pxImage *temporary = constructTemporary(image, image->type);
    if (temporary == nullptr) {
        PX_TRACE(kModule);
        return 0;
    }
    const double r0 = std::sqrt(cx * cx + cy * cy);
    narrowLowerBounds(image, k, cx, cy, r0);
    double u0 = 0.0;
    if (!startingValue(k, r0, u0)) {
        PX_TRACE(kModule);
        pxImageDestruct(&temporary);
        return 0;
    }
    const pxaber::Plane source = planeOf(image);
    pxaber::fixAberFast(source, {k, cx, cy, u0}, kind, planeOf(temporary), 2,
                        kind == pxaber::Pixels::FLOAT ? pxaber::evenStride(source, sizeof(float)) : 0);
    const double lastDx = (image->width - 1) - cx;
    const double lastDy = (image->height - 1) - cy;
    narrowUpperBounds(image, k, cx, cy, std::sqrt(lastDx * lastDx + lastDy * lastDy));
    exchangePlane0(image, temporary);
    return 1;
}
