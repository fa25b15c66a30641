// Lens-distortion resampling: the documented examples, the fast kernels against the column-by-column
// references at odd sizes and every pixel kind, the module against the reference with the starting root
// chosen as documented, a synthetic grid of spots distorted by the forward model and corrected back (the
// residual is printed), pxImageAber followed by pxImageFixAber, the region narrowing, every refusal and
// every allocation failure.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "ResampleTestSupport.h"
#include "geometry/pxImageFixAberKernels.h"
#include "pxMath.h"
#include "support/AllocFailure.h"

namespace {

using namespace pxresample;

const char *const kModule = "pxImageFixAber";

pxaber::Plane planeOf(const tag_pxImage *image) {
    return {image->pixMap[0], image->width, image->height};
}

// ---- Full model ---------------------------------------------------------------------------------------

TEST(Aber, ZeroCoefficientsReproduceAllButTheLastColumnAndRow) {
    Image image = make(FLOAT, 9, 7, 2);
    fillFloats(image.get(), 1, 1.0f, 100.0f);
    Image original = make(FLOAT, 9, 7);
    for (int32_t y = 0; y < 7; ++y)
        std::memcpy(original->pixMap[0][y], image->pixMap[0][y], 9 * sizeof(float));
    ASSERT_EQ(1u, pxImageAber(image.get(), 0, 0, 0, 0, 0, -1.0, -1.0, 1));
    for (int32_t y = 0; y < 7; ++y)
        for (int32_t x = 0; x < 9; ++x) {
            const float expected = (x == 8 || y == 6) ? 0.0f : rows<float>(original.get())[y][x];
            EXPECT_EQ(expected, rows<float>(image.get())[y][x]) << x << "," << y;
        }
    EXPECT_EQ(4.5, image->aberCx);
    EXPECT_EQ(3.5, image->aberCy);
}

// One output pixel of the full model, written out from the definition.
float literalAber(const tag_pxImage *s, double k1, double k2, double k3, double p1, double p2, double cx,
                  double cy, int n, int x, int y) {
    const double inv = 1.0 / n;
    double sum = 0.0;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            const double ys = y - 0.5 + (i + 0.5) * inv, xs = x - 0.5 + (j + 0.5) * inv;
            const double dx = xs - cx, dy = ys - cy, r2 = dx * dx + dy * dy;
            const double R = (k3 * r2 * r2 + k2 * r2 + k1) * r2;
            const double sx = xs + dx * R + 2 * p2 * dx * dy + p1 * (r2 + 2 * dx * dx) + 0.5;
            const double sy = ys + dy * R + 2 * p1 * dx * dy + p2 * (r2 + 2 * dy * dy) + 0.5;
            const int ix = static_cast<int>(sx), iy = static_cast<int>(sy);
            if (ix < 0 || iy < 0 || ix >= s->width - 1 || iy >= s->height - 1)
                return 0.0f;
            sum += rows<float>(s)[iy][ix];
        }
    return static_cast<float>(sum / (n * n));
}

TEST(Aber, SupersamplingAveragesNearestSamplesAndStoresTheModel) {
    for (int n : {1, 2, 3}) {
        Image image = make(FLOAT, 23, 17, 1);
        fillFloats(image.get(), 2, 0.0f, 1000.0f);
        Image original = make(FLOAT, 23, 17, 1);
        for (int32_t y = 0; y < 17; ++y)
            std::memcpy(original->pixMap[0][y], image->pixMap[0][y], 23 * sizeof(float));
        const double k1 = 4e-4, k2 = -3e-7, k3 = 1e-9, p1 = 2e-3, p2 = -1e-3, cx = 10.25, cy = -5.0;
        ASSERT_EQ(1u, pxImageAber(image.get(), k1, k2, k3, p1, p2, cx, cy, n));
        for (int32_t y = 0; y < 17; ++y)
            for (int32_t x = 0; x < 23; ++x)
                ASSERT_EQ(bitsOf(literalAber(original.get(), k1, k2, k3, p1, p2, cx, 8.5, n, x, y)),
                          bitsOf(rows<float>(image.get())[y][x]))
                    << n << ": " << x << "," << y;
        EXPECT_EQ(k1, image->aberK1);
        EXPECT_EQ(k2, image->aberK2);
        EXPECT_EQ(k3, image->aberK3);
        EXPECT_EQ(p1, image->aberP1);
        EXPECT_EQ(p2, image->aberP2);
        EXPECT_EQ(cx, image->aberCx);
        EXPECT_EQ(8.5, image->aberCy);
    }
}

TEST(Aber, TwoByTwoIsTheMeanOfFourNeighbours) {
    // A shift of half a pixel to the right and down by p1 = p2 = 0 and k1 = 0 is not in the model; instead
    // check directly: with no distortion the four samples of pixel (x, y) are pixels (x, y) each.
    Image image = make(FLOAT, 5, 5);
    fillFloats(image.get(), 4);
    std::vector<float> before;
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 5; ++x)
            before.push_back(rows<float>(image.get())[y][x]);
    ASSERT_EQ(1u, pxImageAber(image.get(), 0, 0, 0, 0, 0, 2.0, 2.0, 2));
    for (int32_t y = 0; y < 4; ++y)
        for (int32_t x = 0; x < 4; ++x) {
            const double v = before[y * 5 + x];
            EXPECT_EQ(static_cast<float>((v + v + v + v) / 4.0), rows<float>(image.get())[y][x]);
        }
}

TEST(AberKernels, FastEqualsReferenceBitForBit) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> k(-2e-4, 2e-4), p(-3e-3, 3e-3), c(0.0, 40.0);
    for (int round = 0; round < 12; ++round) {
        const int32_t w = 3 + (round * 11) % 37, h = 3 + (round * 7) % 19;
        Image source = make(FLOAT, w, h, round % 2);
        fillFloats(source.get(), round, -5.0f, 5.0f);
        Image fast = make(FLOAT, w, h), reference = make(FLOAT, w, h);
        const pxaber::FullModel model{k(rng), k(rng) * 1e-3, k(rng) * 1e-6, p(rng),
                                      p(rng), c(rng),        c(rng),        1 + round % 3};
        pxaber::aberReference(planeOf(source.get()), model, planeOf(reference.get()));
        const int32_t stride = pxaber::evenStride(planeOf(source.get()), sizeof(float));
        for (int level : {0, 2}) {
            pxaber::aberFast(planeOf(source.get()), model, planeOf(fast.get()), level, stride);
            ASSERT_EQ(planeBytes(reference.get()), planeBytes(fast.get())) << round << " level " << level;
        }
    }
}

// ---- Inverse radial model -------------------------------------------------------------------------------

// The starting value as documented: the root nearest to r0 by the stated comparisons.
double startingRoot(double k, double r0) {
    if (r0 == 0.0)
        return 0.0;
    int n = 0;
    double roots[3];
    EXPECT_EQ(1, pxMathSolveCubic(1.0, 0.0, 1.0 / k, -r0 / k, &n, roots));
    if (n == 1)
        return roots[0];
    const double e0 = std::fabs(roots[0] - r0), e1 = std::fabs(roots[1] - r0), e2 = std::fabs(roots[2] - r0);
    if (e0 < e1 && e0 < e2)
        return roots[0];
    return e2 > e1 ? roots[1] : roots[2];
}

pxaber::Pixels kindOf(int32_t type) {
    return type == UBYTE   ? pxaber::Pixels::UBYTE
           : type == SHORT ? pxaber::Pixels::SHORT
                           : pxaber::Pixels::FLOAT;
}

TEST(FixAberKernels, FastEqualsReferenceForEveryKindAtOddSizes) {
    for (int32_t type : {UBYTE, SHORT, FLOAT})
        for (double k : {3e-5, -3e-5, 1e-3, -2e-3})
            for (auto [w, h] : {std::pair<int32_t, int32_t>{1, 1}, {2, 3}, {17, 9}, {1031, 5}, {515, 13}}) {
                Image source = make(type, w, h, 1);
                fillBytes(source.get(), static_cast<uint32_t>(w + h + type));
                if (type == FLOAT)
                    fillFloats(source.get(), 9, -100.0f, 100.0f);
                Image fast = make(type, w, h), reference = make(type, w, h);
                const double cx = w * 0.37, cy = h * 0.61;
                const pxaber::RadialModel model{k, cx, cy, startingRoot(k, std::sqrt(cx * cx + cy * cy))};
                pxaber::fixAberReference(planeOf(source.get()), model, kindOf(type),
                                         planeOf(reference.get()));
                const int32_t stride = pxaber::evenStride(planeOf(source.get()), pixelSize(type));
                EXPECT_EQ(h > 1 ? w + 2 : 0, stride);
                for (int level : {0, 2}) {
                    pxaber::fixAberFast(planeOf(source.get()), model, kindOf(type), planeOf(fast.get()),
                                        level, stride);
                    ASSERT_EQ(planeBytes(reference.get()), planeBytes(fast.get()))
                        << type << " " << k << " " << w << " level " << level;
                }
            }
}

TEST(FixAber, ZeroCoefficientChangesNothing) {
    Image image = make(SHORT, 8, 6);
    fillBytes(image.get(), 12);
    image->roiminX = 1;
    const std::vector<unsigned char> before = planeBytes(image.get());
    const tag_pxImage header = *image;
    EXPECT_EQ(1u, pxImageFixAber(image.get(), 0.0, -1.0, -1.0));
    EXPECT_EQ(before, planeBytes(image.get()));
    EXPECT_EQ(0, std::memcmp(&header, image.get(), sizeof header));
    EXPECT_EQ(1u, pxImageFixAber(nullptr, 0.0, 0.0, 0.0));
}

TEST(FixAber, EveryTypeEqualsTheReferenceWithTheChosenRoot) {
    for (int32_t type : {UBYTE, SHORT, INT, FLOAT, DOUBLE})
        for (double k : {2e-5, -2e-5, -4e-3}) {
            const int32_t w = 41, h = 29;
            Image image = make(type, w, h, 2, 2);
            fillBytes(image.get(), static_cast<uint32_t>(type));
            fillBytes(image.get(), 77, 1);
            if (type == FLOAT)
                fillFloats(image.get(), 5);
            Image expected = make(type, w, h, 2);
            const double cx = w * 0.5, cy = 11.0;
            pxaber::fixAberReference(planeOf(image.get()), {k, cx, cy, startingRoot(k, std::hypot(cx, cy))},
                                     kindOf(type), planeOf(expected.get()));
            const std::vector<unsigned char> second = planeBytes(image.get(), 1);
            pxtest::LogCapture log;
            ASSERT_EQ(1u, pxImageFixAber(image.get(), k, -3.0, cy));
            EXPECT_EQ(planeBytes(expected.get()), planeBytes(image.get())) << type << " " << k;
            EXPECT_EQ(second, planeBytes(image.get(), 1));
            EXPECT_EQ(k < -1e-7 ? 1u : 0u, log.records().size());
        }
}

TEST(FixAber, NegativeCoefficientWarnsAndGoesOn) {
    Image image = make(UBYTE, 12, 10);
    pxtest::LogCapture log;
    EXPECT_EQ(1u, pxImageFixAber(image.get(), -1e-6, -1.0, -1.0));
    ASSERT_EQ(1u, log.records().size());
    EXPECT_EQ(PXENV_LOG_F, log.records()[0].kind);
    EXPECT_TRUE(log.has(3, 0, kModule, "Possible division by 0!"));
    log.clear();
    EXPECT_EQ(1u, pxImageFixAber(image.get(), -1e-7, -1.0, -1.0));
    EXPECT_TRUE(log.records().empty());
}

TEST(FixAber, NegativeCoefficientNarrowsTheRegionPositiveLeavesIt) {
    Image image = make(FLOAT, 101, 81);
    pxtest::LogCapture quiet;
    ASSERT_EQ(1u, pxImageFixAber(image.get(), -2e-6, -1.0, -1.0));
    EXPECT_GT(image->roiminX, 0);
    EXPECT_GT(image->roiminY, 0);
    EXPECT_LT(image->roimaxX, 101);
    EXPECT_LT(image->roimaxY, 81);
    // The bounds as defined: R0 = |(50.5, 40.5)|, R1 the radius of the last pixel.
    const double cx = 50.5, cy = 40.5, k = -2e-6, r0 = std::hypot(cx, cy), r1 = std::hypot(100 - cx, 80 - cy);
    EXPECT_EQ(static_cast<int32_t>(std::ceil(-(k * cx * r0 * r0))), image->roiminX);
    EXPECT_EQ(static_cast<int32_t>(std::ceil(-(k * cy * r0 * r0))), image->roiminY);
    EXPECT_EQ(static_cast<int32_t>((100 - cx) * k * r1 * r1 + 100), image->roimaxX);
    EXPECT_EQ(static_cast<int32_t>((80 - cy) * k * r1 * r1 + 80), image->roimaxY);
    Image positive = make(FLOAT, 101, 81);
    ASSERT_EQ(1u, pxImageFixAber(positive.get(), 2e-5, -1.0, -1.0));
    EXPECT_EQ(0, positive->roiminX);
    EXPECT_EQ(0, positive->roiminY);
    EXPECT_EQ(101, positive->roimaxX);
    EXPECT_EQ(81, positive->roimaxY);
    // The upper bounds start from the last pixel index: a positive k that moves the last pixel by less than
    // one pixel lowers them by one.
    Image slight = make(FLOAT, 101, 81);
    ASSERT_EQ(1u, pxImageFixAber(slight.get(), 2e-6, -1.0, -1.0));
    EXPECT_EQ(0, slight->roiminX);
    EXPECT_EQ(100, slight->roimaxX);
    EXPECT_EQ(80, slight->roimaxY);
}

TEST(FixAber, CentreAtTheCornerStartsFromZero) {
    Image image = make(FLOAT, 15, 11);
    fillFloats(image.get(), 8);
    Image expected = make(FLOAT, 15, 11);
    pxaber::fixAberReference(planeOf(image.get()), {1e-3, 0.0, 0.0, 0.0}, pxaber::Pixels::FLOAT,
                             planeOf(expected.get()));
    ASSERT_EQ(1u, pxImageFixAber(image.get(), 1e-3, 0.0, 0.0));
    EXPECT_EQ(planeBytes(expected.get()), planeBytes(image.get()));
}

// ---- Distorted and corrected grids ------------------------------------------------------------------------

// A grid of Gaussian spots (sigma 1.5 pixels, peak 200) every 16 pixels at integer positions, evaluated at
// (px, py).
constexpr int32_t kGridSize = 257;
constexpr int32_t kSpacing = 16;
double spots(double px, double py) {
    const double gx = std::round(px / kSpacing) * kSpacing, gy = std::round(py / kSpacing) * kSpacing;
    double value = 0.0;
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
            const double ex = px - (gx + dx * kSpacing), ey = py - (gy + dy * kSpacing);
            value += 200.0 * std::exp(-(ex * ex + ey * ey) / (2.0 * 1.5 * 1.5));
        }
    return value;
}

// The largest distance between a spot's centroid (over a 9 x 9 window, in the region of interest and away
// from the image edge) and its true position; `count` receives the number of spots measured.
double worstCentroidError(const tag_pxImage *image, int &count) {
    double worst = 0.0;
    count = 0;
    for (int32_t gy = kSpacing; gy < kGridSize - kSpacing; gy += kSpacing)
        for (int32_t gx = kSpacing; gx < kGridSize - kSpacing; gx += kSpacing) {
            if (gx - 4 < image->roiminX + 2 || gx + 4 >= image->roimaxX - 2 || gy - 4 < image->roiminY + 2 ||
                gy + 4 >= image->roimaxY - 2)
                continue;
            double sum = 0.0, sx = 0.0, sy = 0.0;
            for (int32_t y = gy - 4; y <= gy + 4; ++y)
                for (int32_t x = gx - 4; x <= gx + 4; ++x) {
                    const double v = rows<float>(image)[y][x];
                    sum += v;
                    sx += v * x;
                    sy += v * y;
                }
            worst = std::max(worst, std::hypot(sx / sum - gx, sy / sum - gy));
            ++count;
        }
    return worst;
}

// The grid as seen through the forward model r = u (1 + k u^2) about the default centre: the pixel at
// radius u shows the scene at radius u (1 + k u^2) on the same ray.
Image distortedGrid(double k) {
    Image image = make(FLOAT, kGridSize, kGridSize);
    const double c = kGridSize * 0.5;
    for (int32_t y = 0; y < kGridSize; ++y)
        for (int32_t x = 0; x < kGridSize; ++x) {
            const double dx = x - c, dy = y - c, f = 1.0 + k * (dx * dx + dy * dy);
            rows<float>(image.get())[y][x] = static_cast<float>(spots(c + dx * f, c + dy * f));
        }
    return image;
}

TEST(FixAber, CorrectsAGridDistortedByTheForwardModel) {
    for (double k : {2e-6, -2e-6}) {
        Image image = distortedGrid(k);
        int before = 0;
        const double distorted = worstCentroidError(image.get(), before);
        pxtest::LogCapture quiet;
        ASSERT_EQ(1u, pxImageFixAber(image.get(), k, -1.0, -1.0));
        int measured = 0;
        const double residual = worstCentroidError(image.get(), measured);
        std::printf("k = %g: %d spots, worst centroid error %.4f px distorted, %.4f px corrected\n", k,
                    measured, distorted, residual);
        EXPECT_GT(measured, 100);
        EXPECT_GT(distorted, 3.0);
        EXPECT_LT(residual, 0.05);
    }
}

TEST(FixAber, UndoesAberWithTheSameCoefficient) {
    for (double k : {2e-6, -2e-6}) {
        Image image = make(FLOAT, kGridSize, kGridSize);
        for (int32_t y = 0; y < kGridSize; ++y)
            for (int32_t x = 0; x < kGridSize; ++x)
                rows<float>(image.get())[y][x] = static_cast<float>(spots(x, y));
        ASSERT_EQ(1u, pxImageAber(image.get(), k, 0, 0, 0, 0, -1.0, -1.0, 4));
        pxtest::LogCapture quiet;
        ASSERT_EQ(1u, pxImageFixAber(image.get(), k, -1.0, -1.0));
        int measured = 0;
        const double residual = worstCentroidError(image.get(), measured);
        std::printf(
            "k = %g: pxImageAber (n = 4) then pxImageFixAber: %d spots, worst centroid error %.4f px\n", k,
            measured, residual);
        EXPECT_GT(measured, 100);
        EXPECT_LT(residual, 0.25);
    }
}

TEST(FixAber, OneWarmStartedNewtonStepStaysCloseToTheRoot) {
    // The source radius of every pixel of a 2048 x 2048 frame by the chain of single steps, against the root
    // of k u^3 + u = r solved per pixel.
    for (double k : {2e-8, -2e-8, 1e-7}) {
        const int32_t size = 2048;
        const double c = size * 0.5;
        double top = startingRoot(k, std::hypot(c, c)), worst = 0.0;
        for (int32_t x = 0; x < size; x += 1) {
            double u = top;
            for (int32_t y = 0; y < size; y += 1) {
                const double r = std::hypot(x - c, y - c);
                if (r > 0.0)
                    u = (2.0 * k * u * u * u + r) / (3.0 * k * u * u + 1.0);
                else
                    u = 0.0;
                if (y == 0)
                    top = u;
                if ((x % 64) == 0 && (y % 8) == 0 && r > 0.0) {
                    int n = 0;
                    double roots[3];
                    ASSERT_EQ(1, pxMathSolveCubic(k, 0.0, 1.0, -r, &n, roots));
                    double best = roots[0];
                    for (int i = 1; i < n; ++i)
                        if (std::fabs(roots[i] - r) < std::fabs(best - r))
                            best = roots[i];
                    worst = std::max(worst, std::fabs(u - best));
                }
            }
        }
        std::printf("k = %g: largest source-radius error of the single Newton step %.3g px\n", k, worst);
        EXPECT_LT(worst, 1e-3);
    }
}

// ---- Refusals and allocation failures ---------------------------------------------------------------------

TEST(Aber, OtherTypesAreTracedAndLeftAlone) {
    Image image = make(SHORT, 6, 5);
    fillBytes(image.get(), 3);
    const std::vector<unsigned char> before = planeBytes(image.get());
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageAber(image.get(), 1e-3, 0, 0, 0, 0, -1, -1, 1));
    EXPECT_EQ(1u, log.records().size());
    EXPECT_EQ(1u, log.traceCount());
    EXPECT_EQ(kModule, log.records()[0].module);
    EXPECT_EQ(before, planeBytes(image.get()));
}

TEST(Aber, BadArgumentsAreRefused) {
    Image image = make(FLOAT, 6, 5);
    tag_pxImage *header = nullptr;
    ASSERT_EQ(1u, pxImageHeaderConstruct(FLOAT, 6, 5, 0, 1, &header));
    for (auto run : std::vector<std::function<uint32_t()>>{
             [&] { return pxImageAber(nullptr, 0, 0, 0, 0, 0, -1, -1, 1); },
             [&] { return pxImageAber(header, 0, 0, 0, 0, 0, -1, -1, 1); },
             [&] { return pxImageAber(image.get(), 0, 0, 0, 0, 0, -1, -1, 0); },
             [&] { return pxImageAber(image.get(), 0, 0, 0, 0, 0, -1, -1, 46341); },
             [&] { return pxImageAber(image.get(), NAN, 0, 0, 0, 0, -1, -1, 1); },
             [&] { return pxImageAber(image.get(), 0, 0, 0, 0, INFINITY, -1, -1, 1); },
         }) {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, run());
        expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule);
    }
    pxImageHeaderDestruct(&header);
}

TEST(FixAber, BadArgumentsAreRefused) {
    Image image = make(FLOAT, 6, 5);
    tag_pxImage *header = nullptr;
    ASSERT_EQ(1u, pxImageHeaderConstruct(FLOAT, 6, 5, 0, 1, &header));
    std::vector<Image> encoded;
    for (int32_t type : {CBIT, CSHORT, SHORT12})
        encoded.push_back(make(type, 6, 5));
    std::vector<std::function<uint32_t()>> runs = {
        [&] { return pxImageFixAber(nullptr, 1e-3, -1, -1); },
        [&] { return pxImageFixAber(header, 1e-3, -1, -1); },
        [&] { return pxImageFixAber(image.get(), NAN, -1, -1); },
        [&] { return pxImageFixAber(image.get(), 1e-3, INFINITY, -1); },
        [&] { return pxImageFixAber(image.get(), 1e-3, -1, NAN); },
    };
    for (const Image &e : encoded)
        runs.push_back([&e] { return pxImageFixAber(e.get(), 1e-3, -1, -1); });
    for (const auto &run : runs) {
        const int32_t roi[4] = {image->roiminX, image->roimaxX, image->roiminY, image->roimaxY};
        pxtest::LogCapture log;
        EXPECT_EQ(0u, run());
        expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule);
        EXPECT_EQ(roi[0], image->roiminX);
        EXPECT_EQ(roi[1], image->roimaxX);
    }
    pxImageHeaderDestruct(&header);
}

// Runs `call` under every allocation failure and checks that a failed call leaves pixels and header as
// they were.
void expectAllocationFailuresHarmless(tag_pxImage *image, const std::function<uint32_t()> &call) {
    const std::vector<unsigned char> pixels = planeBytes(image);
    const tag_pxImage header = *image;
    const int allocations = pxtest::forEachAllocationFailure(
        [&] {
            pxtest::LogCapture quiet;
            if (call() == 1)
                return true;
            EXPECT_EQ(pixels, planeBytes(image));
            EXPECT_EQ(0, std::memcmp(&header, image, sizeof header));
            return false;
        },
        [] {});
    EXPECT_GT(allocations, 0);
}

TEST(Aber, AllocationFailuresLeakNothingAndChangeNothing) {
    Image image = make(FLOAT, 13, 9, 1, 3);
    fillFloats(image.get(), 6);
    expectAllocationFailuresHarmless(image.get(),
                                     [&] { return pxImageAber(image.get(), 1e-3, 0, 0, 0, 0, -1, -1, 2); });
}

TEST(FixAber, AllocationFailuresLeakNothingAndChangeNothing) {
    Image image = make(SHORT, 13, 9, 2, 2);
    fillBytes(image.get(), 6);
    expectAllocationFailuresHarmless(image.get(), [&] { return pxImageFixAber(image.get(), -1e-3, -1, -1); });
}

} // namespace
