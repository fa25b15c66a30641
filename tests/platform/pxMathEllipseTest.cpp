// Maths library: sampling the contour of an ellipse.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <vector>

#include "pxMath.h"

namespace {

constexpr double PI = 3.141592653589793;

// (u/a)^2 + (v/b)^2 of a point in the ellipse's own axes: 1 on the contour.
double ellipseEquation(const pxMath2DEllipse &e, const pxMathVec2 &p) {
    const double dx = p.x - e.cx;
    const double dy = p.y - e.cy;
    const double u = dx * std::cos(e.angle) + dy * std::sin(e.angle);
    const double v = -dx * std::sin(e.angle) + dy * std::cos(e.angle);
    return (u / e.a) * (u / e.a) + (v / e.b) * (v / e.b);
}

std::vector<pxMathVec2> sample(const pxMath2DEllipse &e, int n) {
    std::vector<pxMathVec2> points(static_cast<size_t>(n));
    EXPECT_EQ(1, pxMath2DEllipseSampleContouerPts(&e, n, points.data()));
    return points;
}

TEST(PxMathEllipse, EverySampleLiesOnTheEllipse) {
    const pxMath2DEllipse ellipses[] = {{10.0, 20.0, 5.0, 3.0, 0.0},        {-4.5, 7.25, 40.0, 12.5, 0.7},
                                        {100.0, 50.0, 2.0, 9.0, -2.3},      {0.0, 0.0, 1.0, 1.0, 1.0},
                                        {512.3, 384.9, 300.0, 0.5, PI / 2}, {3.0, 3.0, 7.0, 7.0, 10.0}};
    for (const pxMath2DEllipse &e : ellipses) {
        for (int n : {1, 2, 3, 7, 100, 1001}) {
            for (const pxMathVec2 &p : sample(e, n))
                EXPECT_NEAR(1.0, ellipseEquation(e, p), 1e-9) << e.a << " " << e.b << " " << n;
        }
    }
}

TEST(PxMathEllipse, SamplesAreEvenlySpacedInTheParameterAngleFromTheAAxis) {
    const pxMath2DEllipse e = {10.0, 20.0, 5.0, 3.0, 0.0};
    const std::vector<pxMathVec2> p = sample(e, 4);
    EXPECT_NEAR(15.0, p[0].x, 1e-12);
    EXPECT_NEAR(20.0, p[0].y, 1e-12);
    EXPECT_NEAR(10.0, p[1].x, 1e-12);
    EXPECT_NEAR(23.0, p[1].y, 1e-12); // towards +y (down the rows) first
    EXPECT_NEAR(5.0, p[2].x, 1e-12);
    EXPECT_NEAR(20.0, p[2].y, 1e-12);
    EXPECT_NEAR(10.0, p[3].x, 1e-12);
    EXPECT_NEAR(17.0, p[3].y, 1e-12);
    const pxMath2DEllipse big = {0.0, 0.0, 7.0, 2.0, 0.3};
    const int n = 360;
    const std::vector<pxMathVec2> q = sample(big, n);
    for (int k = 0; k < n; ++k) {
        const double dx = q[k].x * std::cos(0.3) + q[k].y * std::sin(0.3);
        const double dy = -q[k].x * std::sin(0.3) + q[k].y * std::cos(0.3);
        double t = std::atan2(dy / 2.0, dx / 7.0);
        if (t < -1e-12)
            t += 2.0 * PI;
        EXPECT_NEAR(2.0 * PI * k / n, t, 1e-9) << k;
    }
}

TEST(PxMathEllipse, TheAngleTurnsTheAAxisFromColumnsTowardRows) {
    const pxMath2DEllipse e = {0.0, 0.0, 4.0, 1.0, PI / 2};
    const std::vector<pxMathVec2> p = sample(e, 1);
    EXPECT_NEAR(0.0, p[0].x, 1e-12);
    EXPECT_NEAR(4.0, p[0].y, 1e-12);
}

TEST(PxMathEllipse, RefusesBadArgumentsWithoutWriting) {
    const pxMath2DEllipse e = {1.0, 2.0, 3.0, 4.0, 0.5};
    pxMathVec2 points[2] = {{-1.0, -2.0}, {-3.0, -4.0}};
    EXPECT_EQ(0, pxMath2DEllipseSampleContouerPts(&e, 0, points));
    EXPECT_EQ(0, pxMath2DEllipseSampleContouerPts(&e, -3, points));
    EXPECT_EQ(0, pxMath2DEllipseSampleContouerPts(nullptr, 2, points));
    EXPECT_EQ(0, pxMath2DEllipseSampleContouerPts(&e, 2, nullptr));
    for (int field = 0; field < 5; ++field) {
        for (double bad : {NAN, INFINITY, -INFINITY}) {
            pxMath2DEllipse broken = e;
            (&broken.cx)[field] = bad;
            EXPECT_EQ(0, pxMath2DEllipseSampleContouerPts(&broken, 2, points)) << field;
        }
    }
    EXPECT_EQ(-1.0, points[0].x);
    EXPECT_EQ(-4.0, points[1].y);
}

TEST(PxMathEllipse, RecordLayoutIsFiveDoubles) {
    EXPECT_EQ(5 * sizeof(double), sizeof(pxMath2DEllipse));
    EXPECT_EQ(0u, offsetof(pxMath2DEllipse, cx));
    EXPECT_EQ(8u, offsetof(pxMath2DEllipse, cy));
    EXPECT_EQ(16u, offsetof(pxMath2DEllipse, a));
    EXPECT_EQ(24u, offsetof(pxMath2DEllipse, b));
    EXPECT_EQ(32u, offsetof(pxMath2DEllipse, angle));
}

} // namespace
