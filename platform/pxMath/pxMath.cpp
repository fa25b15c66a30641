// Small numeric services of the maths library: real roots of a cubic and copying points.
#include "pxMath.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double PI = 3.14159265358979323846;
// Relative size below which the discriminant of the depressed cubic counts as zero.
constexpr double DOUBLE_ROOT_TOLERANCE = 1e-12;

// One Newton step on the monic cubic u^3 + b u^2 + c u + d, kept only when it brings the residual down;
// polishes roots computed in closed form.
double polish(double u, double b, double c, double d) {
    const double f = ((u + b) * u + c) * u + d;
    const double df = (3.0 * u + 2.0 * b) * u + c;
    if (df == 0.0)
        return u;
    const double next = u - f / df;
    const double fNext = ((next + b) * next + c) * next + d;
    return std::fabs(fNext) < std::fabs(f) ? next : u;
}

// Roots of the monic cubic u^3 + b u^2 + c u + d through the depressed cubic t^3 + p t + q (u = t - b/3):
// three real roots by the trigonometric method when the discriminant allows, else one by Cardano.
int solveMonic(double b, double c, double d, double roots[3]) {
    const double shift = b / 3.0;
    const double p = c - b * shift;
    const double q = (2.0 * shift * shift - c) * shift + d;
    const double h = p / 3.0;
    const double g = q / 2.0;
    const double discriminant = g * g + h * h * h;
    if (h == 0.0 && g == 0.0) {
        roots[0] = roots[1] = roots[2] = -shift;
        return 3;
    }
    // A discriminant within rounding of zero is a double root: take the three-root branch so that it is
    // reported twice rather than lost.
    const double tolerance = DOUBLE_ROOT_TOLERANCE * (g * g + std::fabs(h * h * h));
    if (h < 0.0 && discriminant <= tolerance) {
        const double r = std::sqrt(-h);
        const double cosine = std::clamp(-g / (r * r * r), -1.0, 1.0);
        const double angle = std::acos(cosine) / 3.0;
        for (int k = 0; k < 3; ++k)
            roots[k] = 2.0 * r * std::cos(angle - 2.0 * PI * k / 3.0) - shift;
        return 3;
    }
    const double s = std::sqrt(std::max(discriminant, 0.0));
    // Pick the sign that avoids cancellation, and obtain the second cube root from the product -h.
    const double a = std::cbrt(-g + (g <= 0.0 ? s : -s));
    const double t = (a == 0.0) ? 0.0 : a - h / a;
    roots[0] = t - shift;
    return 1;
}

} // namespace

extern "C" {

int pxMathSolveCubic(double a, double b, double c, double d, int *nRoots, double roots[3]) {
    if (a == 0.0 || !nRoots || !roots || !std::isfinite(a))
        return 0;
    const double bn = b / a;
    const double cn = c / a;
    const double dn = d / a;
    const int n = solveMonic(bn, cn, dn, roots);
    for (int i = 0; i < n; ++i)
        roots[i] = polish(roots[i], bn, cn, dn);
    std::sort(roots, roots + n);
    *nRoots = n;
    return 1;
}

void pxMathCopyVec2ToVec2(const pxMathVec2 *from, pxMathVec2 *to) {
    if (from && to)
        *to = *from;
}

} // extern "C"
