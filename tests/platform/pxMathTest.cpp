// Maths library: real roots of cubics and copying points.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "pxMath.h"

namespace {

constexpr double TOLERANCE = 1e-9;

// Solves and returns the roots (empty when the solver fails).
std::vector<double> solve(double a, double b, double c, double d) {
    int n = -1;
    double roots[3] = {NAN, NAN, NAN};
    if (!pxMathSolveCubic(a, b, c, d, &n, roots))
        return {};
    EXPECT_TRUE(n == 1 || n == 3) << n;
    return std::vector<double>(roots, roots + n);
}

void expectRoots(const std::vector<double> &expected, const std::vector<double> &actual) {
    ASSERT_EQ(expected.size(), actual.size());
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_NEAR(expected[i], actual[i], TOLERANCE * (1.0 + std::fabs(expected[i]))) << i;
}

TEST(PxMathSolveCubic, ThreeDistinctRootsAscending) {
    expectRoots({1.0, 2.0, 3.0}, solve(1.0, -6.0, 11.0, -6.0));
    expectRoots({-4.0, 0.5, 7.0}, solve(2.0, -7.0, -53.0, 28.0));
}

TEST(PxMathSolveCubic, OneRealRoot) {
    expectRoots({1.0}, solve(1.0, 0.0, 1.0, -2.0));
    expectRoots({-2.0}, solve(-1.0, -2.0, -1.0, -2.0)); // -(u + 2)(u^2 + 1)
}

TEST(PxMathSolveCubic, DoubleRootCountsTwice) {
    expectRoots({-2.0, 1.0, 1.0}, solve(1.0, 0.0, -3.0, 2.0));
    expectRoots({-1.0, -1.0, 2.0}, solve(1.0, 0.0, -3.0, -2.0));
}

TEST(PxMathSolveCubic, TripleRoot) {
    expectRoots({0.0, 0.0, 0.0}, solve(1.0, 0.0, 0.0, 0.0));
    expectRoots({2.0, 2.0, 2.0}, solve(1.0, -6.0, 12.0, -8.0));
}

TEST(PxMathSolveCubic, DistortionModelStartingValue) {
    // u^3 + u/k - R0/k as used for inverting a radial distortion: one root for k > 0.
    const double k = 0.01;
    const double r0 = 3.0;
    const std::vector<double> roots = solve(1.0, 0.0, 1.0 / k, -r0 / k);
    ASSERT_EQ(1u, roots.size());
    const double u = roots[0];
    EXPECT_NEAR(0.0, u * u * u + u / k - r0 / k, 1e-9);
}

TEST(PxMathSolveCubic, RandomCubicsHaveSmallResiduals) {
    std::mt19937 random(12345);
    std::uniform_real_distribution<double> coefficient(-100.0, 100.0);
    for (int trial = 0; trial < 2000; ++trial) {
        const double a = coefficient(random);
        const double b = coefficient(random);
        const double c = coefficient(random);
        const double d = coefficient(random);
        const std::vector<double> roots = solve(a, b, c, d);
        ASSERT_FALSE(roots.empty());
        for (size_t i = 0; i < roots.size(); ++i) {
            const double u = roots[i];
            const double scale =
                std::fabs(a * u * u * u) + std::fabs(b * u * u) + std::fabs(c * u) + std::fabs(d);
            EXPECT_LE(std::fabs(((a * u + b) * u + c) * u + d), 1e-9 * scale) << trial;
            if (i > 0) {
                EXPECT_LE(roots[i - 1], roots[i]);
            }
        }
    }
}

TEST(PxMathSolveCubic, RejectsZeroLeadingCoefficientAndNullOutputs) {
    int n = 7;
    double roots[3] = {};
    EXPECT_EQ(0, pxMathSolveCubic(0.0, 1.0, 2.0, 3.0, &n, roots));
    EXPECT_EQ(7, n);
    EXPECT_EQ(0, pxMathSolveCubic(1.0, 1.0, 2.0, 3.0, nullptr, roots));
    EXPECT_EQ(0, pxMathSolveCubic(1.0, 1.0, 2.0, 3.0, &n, nullptr));
    EXPECT_EQ(0, pxMathSolveCubic(INFINITY, 1.0, 2.0, 3.0, &n, roots));
    EXPECT_EQ(0, pxMathSolveCubic(NAN, 1.0, 2.0, 3.0, &n, roots));
    EXPECT_EQ(7, n);
}

TEST(PxMathCopyVec2ToVec2, CopiesBothCoordinates) {
    const pxMathVec2 from = {1.25, -7.5};
    pxMathVec2 to = {0.0, 0.0};
    pxMathCopyVec2ToVec2(&from, &to);
    EXPECT_EQ(1.25, to.x);
    EXPECT_EQ(-7.5, to.y);
}

TEST(PxMathCopyVec2ToVec2, NullPointersDoNothing) {
    const pxMathVec2 from = {1.0, 2.0};
    pxMathVec2 to = {3.0, 4.0};
    pxMathCopyVec2ToVec2(nullptr, &to);
    pxMathCopyVec2ToVec2(&from, nullptr);
    EXPECT_EQ(3.0, to.x);
    EXPECT_EQ(4.0, to.y);
}

} // namespace
