// pxMathSolveCubic as the lens-distortion correction uses it: u^3 + u / k - r0 / k = 0 for coefficients
// from strong to barely measurable distortion, both signs, and radii up to the corner of the largest frame.
#include <gtest/gtest.h>

#include <cmath>

#include "pxMath.h"

namespace {

// Residual of the original equation k u^3 + u - r0, relative to the size of its terms.
double relativeResidual(double k, double r0, double u) {
    const double terms = std::fabs(k * u * u * u) + std::fabs(u) + r0;
    return std::fabs(k * u * u * u + u - r0) / terms;
}

TEST(PxMathSolveCubicLens, RootsOfTheRadiusMapAreAccurateForEveryScale) {
    for (double magnitude = 1e-12; magnitude <= 1e-2; magnitude *= 10.0)
        for (double sign : {1.0, -1.0})
            for (double r0 : {0.5, 3.0, 100.0, 1448.3, 7070.0}) {
                const double k = sign * magnitude;
                int n = 0;
                double roots[3] = {0, 0, 0};
                ASSERT_EQ(1, pxMathSolveCubic(1.0, 0.0, 1.0 / k, -r0 / k, &n, roots)) << k << " " << r0;
                // k > 0: u + k u^3 increases, one real root. k < 0: three real roots while r0 is below the
                // maximum 2 / (3 sqrt(-3k)) of u + k u^3, else one.
                const bool three = k < 0.0 && r0 < 2.0 / (3.0 * std::sqrt(-3.0 * k)) * 0.999;
                const bool one = k > 0.0 || r0 > 2.0 / (3.0 * std::sqrt(-3.0 * k)) * 1.001;
                if (three) {
                    EXPECT_EQ(3, n) << k << " " << r0;
                }
                if (one) {
                    EXPECT_EQ(1, n) << k << " " << r0;
                }
                for (int i = 0; i < n; ++i)
                    EXPECT_LT(relativeResidual(k, r0, roots[i]), 1e-12)
                        << k << " " << r0 << " root " << roots[i];
                // With distortion small at r0 the root nearest r0 is r0 - k r0^3 to first order.
                if (std::fabs(k) * r0 * r0 < 1e-3) {
                    double nearest = roots[0];
                    for (int i = 1; i < n; ++i)
                        if (std::fabs(roots[i] - r0) < std::fabs(nearest - r0))
                            nearest = roots[i];
                    EXPECT_NEAR(r0 - k * r0 * r0 * r0, nearest, 4.0 * k * k * std::pow(r0, 5) + 1e-9 * r0)
                        << k << " " << r0;
                }
            }
}

} // namespace
