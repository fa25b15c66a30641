// Ellipse contours of the maths library: points evenly spaced in the parameter angle.
#include "pxMath.h"

#include <cmath>

namespace {

constexpr double TWO_PI = 6.28318530717958647692;

bool isFinite(const pxMath2DEllipse &e) {
    return std::isfinite(e.cx) && std::isfinite(e.cy) && std::isfinite(e.a) && std::isfinite(e.b) &&
           std::isfinite(e.angle);
}

} // namespace

extern "C" {

int pxMath2DEllipseSampleContouerPts(const pxMath2DEllipse *ellipse, int n, pxMathVec2 *points) {
    if (!ellipse || !points || n < 1 || !isFinite(*ellipse))
        return 0;
    const double cosAngle = std::cos(ellipse->angle);
    const double sinAngle = std::sin(ellipse->angle);
    for (int k = 0; k < n; ++k) {
        const double t = TWO_PI * static_cast<double>(k) / static_cast<double>(n);
        const double u = ellipse->a * std::cos(t);
        const double v = ellipse->b * std::sin(t);
        points[k].x = ellipse->cx + u * cosAngle - v * sinAngle;
        points[k].y = ellipse->cy + u * sinAngle + v * cosAngle;
    }
    return 1;
}

} // extern "C"
