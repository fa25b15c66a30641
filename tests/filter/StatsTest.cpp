// Region statistics: both functions against a plain per-pixel model on random images of every type with
// regions at many places, the documented edge cases, and every refusal with its exact log record.
#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "pxEnv.h"
#include "pxImage.h"
#include "StatsImage.h"
#include "support/LogCapture.h"

namespace {

using pxtest::StatsImage;

constexpr uint32_t kInvalidArgument = 0xC43D0003u;
const char *const kModule = "pxImageOperations";

// Reads a pixel of the given type from an image's row bytes as this module measures it: UBYTE and SHORT as
// signed numbers. The type may differ from the image's own (the y component of a flow is read with the x
// component's type).
double componentAs(const tag_pxImage *image, int32_t type, int x, int y) {
    const unsigned char *row = static_cast<const unsigned char *>(image->pixMap[0][y]);
    uint32_t size = 0;
    pxImagePixelSize(type, &size);
    const unsigned char *p = row + static_cast<size_t>(x) * size;
    switch (type) {
    case UBYTE:
        return static_cast<int8_t>(*p);
    case SHORT: {
        int16_t v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    case INT: {
        int32_t v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    case FLOAT: {
        float v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    default: {
        double v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    }
}

double componentOf(const tag_pxImage *image, int x, int y) {
    return componentAs(image, image->type, x, y);
}

// The vector length of the flow model: both components read with the x component's type.
double flowLengthOf(const tag_pxImage *fx, const tag_pxImage *fy, int x, int y) {
    const double a = componentOf(fx, x, y), b = componentAs(fy, fx->type, x, y);
    if (fx->type == DOUBLE)
        return std::sqrt(a * a + b * b);
    if (fx->type == FLOAT) {
        const float fa = static_cast<float>(a), fb = static_cast<float>(b);
        return std::sqrt(static_cast<double>(fa * fa + fb * fb));
    }
    const int64_t ia = static_cast<int64_t>(a), ib = static_cast<int64_t>(b);
    const uint64_t squares = static_cast<uint64_t>(ia * ia) + static_cast<uint64_t>(ib * ib);
    return std::sqrt(static_cast<double>(static_cast<int32_t>(static_cast<uint32_t>(squares))));
}

struct Result {
    uint32_t ok = 0;
    int32_t count = -7;
    double minimum = 0, maximum = 0, mean = -7, stdDev = -7;
    std::vector<uint32_t> histogram;
};

// The plain model of both functions, written step by step; `flowY` null means the pixel-value function.
Result model(const tag_pxImage *image, const tag_pxImage *flowY, const double c1[2], const double c2[2],
             int bins, double minimum, double maximum, size_t histogramSize) {
    Result r;
    r.minimum = minimum;
    r.maximum = maximum;
    r.histogram.assign(histogramSize, 0);
    auto q = [&](int x, int y) {
        return flowY ? flowLengthOf(image, flowY, x, y) : componentOf(image, x, y);
    };
    const int x0 = static_cast<int>(std::min(c1[0], c2[0])), x1 = static_cast<int>(std::max(c1[0], c2[0]));
    const int y0 = static_cast<int>(std::min(c1[1], c2[1])), y1 = static_cast<int>(std::max(c1[1], c2[1]));
    if (bins > 0 && r.minimum == 0.0 && r.maximum == 0.0) {
        r.minimum = r.maximum = q(0, 0);
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x) {
                if (!(q(x, y) > r.minimum))
                    r.minimum = q(x, y);
                if (!(r.maximum > q(x, y)))
                    r.maximum = q(x, y);
            }
    }
    const bool integerSums = !flowY && (image->type == UBYTE || image->type == SHORT || image->type == INT);
    uint64_t isum = 0, isquares = 0;
    double sum = 0, squares = 0;
    for (int y = y0; y < y1; ++y) {
        for (int x = x0; x < x1; ++x) {
            const double v = q(x, y);
            if (bins == 0 || (r.minimum <= v && v <= r.maximum)) {
                if (integerSums) {
                    isum += static_cast<uint64_t>(static_cast<int64_t>(v));
                    isquares += static_cast<uint64_t>(static_cast<int64_t>(v) * static_cast<int64_t>(v));
                } else if (!flowY && image->type == FLOAT) {
                    sum += v;
                    squares += static_cast<double>(static_cast<float>(v) * static_cast<float>(v));
                } else {
                    sum += v;
                    squares += v * v;
                }
            }
            if (bins >= 1) {
                double d = v - r.minimum;
                if (!(d > 0))
                    d = 0;
                const double quotient = std::floor(d / ((r.maximum - r.minimum) / bins));
                if (std::isnan(quotient)) {
                    r.histogram.at(0) += 1;
                } else if (quotient >= 0 && quotient <= bins) { // other indices name no counter
                    r.histogram.at(static_cast<size_t>(quotient)) += 1;
                }
            }
        }
    }
    if (integerSums) {
        sum = static_cast<int32_t>(static_cast<uint32_t>(isum));
        squares = static_cast<int32_t>(static_cast<uint32_t>(isquares));
    }
    r.count = (x1 - x0) * (y1 - y0);
    if (flowY)
        r.mean = sum / r.count;
    if (r.count > 0) {
        r.mean = sum / r.count;
        r.stdDev = std::sqrt(squares / r.count - r.mean * r.mean);
        r.ok = 1;
    }
    return r;
}

// Runs one of the two functions with the model's starting values.
Result run(const tag_pxImage *image, const tag_pxImage *flowY, const double c1[2], const double c2[2],
           int bins, double minimum, double maximum, size_t histogramSize) {
    Result r;
    r.minimum = minimum;
    r.maximum = maximum;
    r.histogram.assign(histogramSize, 0);
    uint32_t *histogram = r.histogram.empty() ? nullptr : r.histogram.data();
    r.ok = flowY ? pxImageGetAvarageFlowNorm(image, flowY, c1, c2, bins, histogram, &r.minimum, &r.maximum,
                                             &r.count, &r.mean, &r.stdDev)
                 : pxImageGetAvaragePixValue(image, c1, c2, bins, histogram, &r.minimum, &r.maximum, &r.count,
                                             &r.mean, &r.stdDev);
    return r;
}

bool sameNumber(double a, double b) {
    return (std::isnan(a) && std::isnan(b)) || a == b;
}

void expectSame(const Result &expected, const Result &actual, const std::string &what) {
    EXPECT_EQ(expected.ok, actual.ok) << what;
    EXPECT_EQ(expected.count, actual.count) << what;
    EXPECT_TRUE(sameNumber(expected.minimum, actual.minimum)) << what;
    EXPECT_TRUE(sameNumber(expected.maximum, actual.maximum)) << what;
    EXPECT_TRUE(sameNumber(expected.mean, actual.mean)) << what << " " << expected.mean << " " << actual.mean;
    EXPECT_TRUE(sameNumber(expected.stdDev, actual.stdDev)) << what;
    EXPECT_EQ(expected.histogram, actual.histogram) << what;
}

// Random corners inside [0, limit], with fractional parts, either order.
void randomCorners(std::mt19937 &rng, int width, int height, double c1[2], double c2[2]) {
    std::uniform_real_distribution<double> fx(0.0, width), fy(0.0, height);
    std::uniform_int_distribution<int> edge(0, 5);
    c1[0] = fx(rng);
    c1[1] = fy(rng);
    c2[0] = edge(rng) == 0 ? width : fx(rng);
    c2[1] = edge(rng) == 0 ? height : fy(rng);
}

// The exact region range of the model, for a caller-given range that covers the data.
void regionRange(const tag_pxImage *image, const tag_pxImage *flowY, const double c1[2], const double c2[2],
                 double &lo, double &hi) {
    lo = 1e300;
    hi = -1e300;
    for (int y = static_cast<int>(std::min(c1[1], c2[1])); y < static_cast<int>(std::max(c1[1], c2[1])); ++y)
        for (int x = static_cast<int>(std::min(c1[0], c2[0])); x < static_cast<int>(std::max(c1[0], c2[0]));
             ++x) {
            const double v = flowY ? flowLengthOf(image, flowY, x, y) : componentOf(image, x, y);
            lo = std::min(lo, v);
            hi = std::max(hi, v);
        }
}

void compareOnRandomRegions(const tag_pxImage *image, const tag_pxImage *flowY, std::mt19937 &rng) {
    for (int trial = 0; trial < 12; ++trial) {
        double c1[2], c2[2];
        randomCorners(rng, image->width, image->height, c1, c2);
        const std::string what = "type " + std::to_string(image->type) + " corners " + std::to_string(c1[0]) +
                                 "," + std::to_string(c1[1]) + " " + std::to_string(c2[0]) + "," +
                                 std::to_string(c2[1]);
        // Every pixel counts, no histogram.
        expectSame(model(image, flowY, c1, c2, 0, 3.0, 4.0, 0), run(image, flowY, c1, c2, 0, 3.0, 4.0, 0),
                   what + " bins 0");
        // Automatic range and histogram.
        expectSame(model(image, flowY, c1, c2, 5, 0.0, 0.0, 6), run(image, flowY, c1, c2, 5, 0.0, 0.0, 6),
                   what + " bins 5 auto");
        // A caller range covering the region, and a narrower one without histogram (negative bins).
        double lo = 0, hi = 0;
        regionRange(image, flowY, c1, c2, lo, hi);
        if (lo <= hi) {
            expectSame(model(image, flowY, c1, c2, 7, lo - 1, hi, 8),
                       run(image, flowY, c1, c2, 7, lo - 1, hi, 8), what + " bins 7 range");
            const double mid = 0.5 * (lo + hi);
            expectSame(model(image, flowY, c1, c2, -2, lo, mid, 0), run(image, flowY, c1, c2, -2, lo, mid, 0),
                       what + " bins -2 range");
        }
    }
}

TEST(StatsModelTest, PixValueMatchesThePlainModelForEveryType) {
    std::mt19937 rng(11);
    for (int32_t type : {UBYTE, SHORT, INT, FLOAT, DOUBLE}) {
        for (const auto &size : {std::pair<int, int>{1, 1}, {7, 5}, {33, 21}, {64, 3}}) {
            StatsImage img(type, size.first, size.second);
            img.randomize(rng);
            compareOnRandomRegions(img.image, nullptr, rng);
        }
    }
}

TEST(StatsModelTest, FlowNormMatchesThePlainModelForEveryType) {
    std::mt19937 rng(12);
    for (int32_t type : {UBYTE, SHORT, INT, FLOAT, DOUBLE}) {
        for (const auto &size : {std::pair<int, int>{1, 1}, {9, 7}, {31, 17}}) {
            StatsImage fx(type, size.first, size.second), fy(type, size.first, size.second);
            fx.randomize(rng);
            fy.randomize(rng);
            compareOnRandomRegions(fx.image, fy.image, rng);
        }
    }
}

TEST(StatsModelTest, FlowNormOfMixedTypesReadsBothComponentsWithTheXType) {
    std::mt19937 rng(13);
    // A narrower x type reads the leading bytes of each y row.
    StatsImage fx(UBYTE, 11, 6), fy(FLOAT, 11, 6);
    fx.randomize(rng);
    fy.randomize(rng);
    compareOnRandomRegions(fx.image, fy.image, rng);
    StatsImage gx(SHORT, 11, 6), gy(DOUBLE, 11, 6);
    gx.randomize(rng);
    gy.randomize(rng);
    compareOnRandomRegions(gx.image, gy.image, rng);
    // Types of the same size: the y bits are reinterpreted.
    StatsImage hx(INT, 9, 5), hy(FLOAT, 9, 5);
    hx.randomize(rng);
    hy.randomize(rng);
    compareOnRandomRegions(hx.image, hy.image, rng);
    compareOnRandomRegions(hy.image, hx.image, rng);
}

TEST(StatsModelTest, FloatRegionWithNaNFollowsTheRangeRules) {
    std::mt19937 rng(14);
    StatsImage img(FLOAT, 6, 4);
    img.randomize(rng);
    img.set<float>(5, 3, std::nanf("")); // the last region pixel: the range becomes NaN, every pixel bin 0
    const double c1[2] = {0, 0}, c2[2] = {6, 4};
    expectSame(model(img.image, nullptr, c1, c2, 3, 0.0, 0.0, 4),
               run(img.image, nullptr, c1, c2, 3, 0.0, 0.0, 4), "nan auto");
    expectSame(model(img.image, nullptr, c1, c2, 0, 0.0, 0.0, 0),
               run(img.image, nullptr, c1, c2, 0, 0.0, 0.0, 0), "nan all");
}

// ---- Documented edge cases ------------------------------------------------------------------------------

TEST(StatsEdgeTest, CornersInEitherOrderAndAtTheWidth) {
    std::mt19937 rng(21);
    StatsImage img(SHORT, 10, 8);
    img.randomize(rng);
    const double a[2] = {10.0, 2.5}, b[2] = {3.9, 8.0};
    const Result ab = run(img.image, nullptr, a, b, 0, 0, 0, 0);
    const Result ba = run(img.image, nullptr, b, a, 0, 0, 0, 0);
    EXPECT_EQ(1u, ab.ok);
    EXPECT_EQ(7 * 6, ab.count);
    expectSame(ab, ba, "swapped");
    const double c[2] = {3.0, 8.0}, d[2] = {10.0, 2.0};
    expectSame(ab, run(img.image, nullptr, c, d, 0, 0, 0, 0), "truncated");
}

TEST(StatsEdgeTest, EmptyRegionStoresCountZeroAndFailsWithATrace) {
    StatsImage img(UBYTE, 5, 5);
    img.fill<uint8_t>(9);
    const double a[2] = {2.0, 1.0}, b[2] = {2.7, 4.0};
    uint32_t histogram[3] = {0, 0, 0};
    double minimum = 0, maximum = 0, mean = 42.0, stdDev = 43.0;
    int32_t count = -1;
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageGetAvaragePixValue(img.image, a, b, 2, histogram, &minimum, &maximum, &count, &mean,
                                            &stdDev));
    EXPECT_EQ(0, count);
    EXPECT_EQ(42.0, mean);
    EXPECT_EQ(43.0, stdDev);
    EXPECT_EQ(9.0, minimum); // the automatic range was found (from pixel (0, 0)) before the count
    EXPECT_EQ(9.0, maximum);
    ASSERT_EQ(1u, log.records().size());
    const pxtest::LogRecord &r = log.records()[0];
    EXPECT_EQ(PXENV_LOG_F, r.kind);
    EXPECT_EQ(1, r.level);
    EXPECT_EQ(kModule, r.module);
    EXPECT_EQ("", r.text);
    EXPECT_EQ(0u, r.code);
}

TEST(StatsEdgeTest, EmptyFlowRegionStoresTheQuotientInTheMean) {
    StatsImage fx(FLOAT, 5, 5), fy(FLOAT, 5, 5);
    const double a[2] = {1.0, 3.0}, b[2] = {4.0, 3.5};
    double minimum = 0, maximum = 0, mean = 42.0, stdDev = 43.0;
    int32_t count = -1;
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageGetAvarageFlowNorm(fx.image, fy.image, a, b, 0, nullptr, &minimum, &maximum, &count,
                                            &mean, &stdDev));
    EXPECT_EQ(0, count);
    EXPECT_TRUE(std::isnan(mean)); // 0 / 0
    EXPECT_EQ(43.0, stdDev);
    EXPECT_EQ(1u, log.traceCount());
    EXPECT_EQ(1u, log.records().size());
    EXPECT_EQ(kModule, log.records()[0].module);
}

TEST(StatsEdgeTest, BytesAreReadAsSignedNumbers) {
    StatsImage img(UBYTE, 4, 3);
    img.fill<uint8_t>(200);
    const double a[2] = {0, 0}, b[2] = {4, 3};
    const Result r = run(img.image, nullptr, a, b, 0, 0, 0, 0);
    EXPECT_EQ(1u, r.ok);
    EXPECT_EQ(12, r.count);
    EXPECT_EQ(-56.0, r.mean);
    EXPECT_EQ(0.0, r.stdDev);
}

TEST(StatsEdgeTest, ShortsAreReadAsSignedNumbers) {
    StatsImage img(SHORT, 2, 1);
    img.fill<uint16_t>(65535);
    const double a[2] = {0, 0}, b[2] = {2, 1};
    EXPECT_EQ(-1.0, run(img.image, nullptr, a, b, 0, 0, 0, 0).mean);
}

TEST(StatsEdgeTest, MaximumLandsOnePastTheLastBin) {
    StatsImage img(INT, 9, 1);
    for (int x = 0; x < 9; ++x)
        img.set<int32_t>(x, 0, x);
    const double a[2] = {0, 0}, b[2] = {9, 1};
    const Result r = run(img.image, nullptr, a, b, 4, 0.0, 0.0, 5);
    EXPECT_EQ(0.0, r.minimum);
    EXPECT_EQ(8.0, r.maximum);
    EXPECT_EQ((std::vector<uint32_t>{2, 2, 2, 2, 1}), r.histogram);
    EXPECT_EQ(4.0, r.mean);
}

TEST(StatsEdgeTest, CallerRangeFiltersTheSumsButNotTheDivisor) {
    StatsImage img(DOUBLE, 5, 1);
    const double values[] = {5, 10, 15, 20, 25};
    for (int x = 0; x < 5; ++x)
        img.set<double>(x, 0, values[x]);
    const double a[2] = {0, 0}, b[2] = {5, 1};
    const Result r = run(img.image, nullptr, a, b, 1, 10.0, 20.0, 3);
    EXPECT_EQ(1u, r.ok);
    EXPECT_EQ(5, r.count);
    EXPECT_EQ(45.0 / 5, r.mean);
    EXPECT_EQ(std::sqrt((100.0 + 225.0 + 400.0) / 5 - 81.0), r.stdDev);
    // 5 clamps to bin 0, 10 is bin 0, 15 bin 0, 20 and 25 bin 1 (bin width 10).
    EXPECT_EQ((std::vector<uint32_t>{3, 2, 0}), r.histogram);
    EXPECT_EQ(10.0, r.minimum);
    EXPECT_EQ(20.0, r.maximum);
}

TEST(StatsEdgeTest, FlowComponentsOfDifferentTypesPassWhenWidthsAgree) {
    StatsImage fx(FLOAT, 3, 2), fy(DOUBLE, 3, 4);
    fx.fill<float>(3.0f);
    // The y rows hold floats of 4 in their leading bytes, since they are read with the x type.
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x) {
            const float four = 4.0f;
            std::memcpy(fy.row<unsigned char>(y) + 4 * x, &four, sizeof four);
        }
    const double a[2] = {0, 0}, b[2] = {3, 2};
    pxtest::LogCapture log;
    const Result r = run(fx.image, fy.image, a, b, 0, 0, 0, 0);
    EXPECT_EQ(1u, r.ok);
    EXPECT_EQ(6, r.count);
    EXPECT_EQ(5.0, r.mean);
    EXPECT_EQ(0.0, r.stdDev);
    EXPECT_TRUE(log.records().empty());
}

TEST(StatsEdgeTest, FlowComponentsPassWhenOnlyOneOfTheThreeAgrees) {
    const double a[2] = {0, 0}, b[2] = {2, 2};
    {
        StatsImage fx(FLOAT, 3, 2), fy(DOUBLE, 4, 2); // heights agree
        EXPECT_EQ(1u, run(fx.image, fy.image, a, b, 0, 0, 0, 0).ok);
    }
    {
        StatsImage fx(INT, 3, 2), fy(INT, 4, 5); // types agree
        EXPECT_EQ(1u, run(fx.image, fy.image, a, b, 0, 0, 0, 0).ok);
    }
}

TEST(StatsEdgeTest, HistogramIsAddedToNotCleared) {
    StatsImage img(UBYTE, 3, 1);
    img.set<uint8_t>(0, 0, 1);
    img.set<uint8_t>(1, 0, 2);
    img.set<uint8_t>(2, 0, 3);
    const double a[2] = {0, 0}, b[2] = {3, 1};
    uint32_t histogram[3] = {10, 20, 30};
    double minimum = 1, maximum = 3, mean = 0, stdDev = 0;
    int32_t count = 0;
    ASSERT_EQ(1u, pxImageGetAvaragePixValue(img.image, a, b, 2, histogram, &minimum, &maximum, &count, &mean,
                                            &stdDev));
    EXPECT_EQ(11u, histogram[0]);
    EXPECT_EQ(21u, histogram[1]);
    EXPECT_EQ(31u, histogram[2]);
}

TEST(StatsEdgeTest, AutomaticRangeStartsFromTheImagesFirstPixel) {
    StatsImage img(FLOAT, 4, 4);
    img.fill<float>(5.0f);
    img.set<float>(0, 0, -100.0f);
    const double a[2] = {1, 1}, b[2] = {4, 4};
    const Result r = run(img.image, nullptr, a, b, 2, 0.0, 0.0, 3);
    EXPECT_EQ(-100.0, r.minimum);
    EXPECT_EQ(5.0, r.maximum);
    EXPECT_EQ((std::vector<uint32_t>{0, 0, 9}), r.histogram);
}

TEST(StatsEdgeTest, ConstantRegionWithAutomaticRangeCountsInBinZero) {
    StatsImage img(SHORT, 4, 3);
    img.fill<uint16_t>(77);
    const double a[2] = {0, 0}, b[2] = {4, 3};
    const Result r = run(img.image, nullptr, a, b, 3, 0.0, 0.0, 4);
    EXPECT_EQ((std::vector<uint32_t>{12, 0, 0, 0}), r.histogram);
    EXPECT_EQ(77.0, r.mean);
}

TEST(StatsEdgeTest, BinsNoCounterCanHoldAreSkipped) {
    StatsImage img(INT, 4, 1);
    const int32_t values[] = {15, 25, 30, 5};
    for (int x = 0; x < 4; ++x)
        img.set<int32_t>(x, 0, values[x]);
    const double a[2] = {0, 0}, b[2] = {4, 1};
    // A reversed caller range gives a negative bin width: values above the minimum would have negative
    // indices and are not counted; values at or below it land in bin 0.
    std::vector<uint32_t> guarded(7, 0);
    double minimum = 20, maximum = 10, mean = 0, stdDev = 0;
    int32_t count = 0;
    ASSERT_EQ(1u, pxImageGetAvaragePixValue(img.image, a, b, 2, guarded.data() + 3, &minimum, &maximum,
                                            &count, &mean, &stdDev));
    EXPECT_EQ((std::vector<uint32_t>{0, 0, 0, 2, 0, 0, 0}), guarded);
    EXPECT_EQ(0.0, mean); // nothing lies in [20, 10]
}

// ---- Refusals --------------------------------------------------------------------------------------------

// One refused call: result 0, exactly one record with these values, and no output touched.
void expectRefusal(const std::function<uint32_t(int32_t *, double *)> &call, const std::string &text) {
    int32_t count = -5;
    double mean = -6;
    pxtest::LogCapture log;
    EXPECT_EQ(0u, call(&count, &mean)) << text;
    ASSERT_EQ(1u, log.records().size()) << text;
    const pxtest::LogRecord &r = log.records()[0];
    EXPECT_EQ(PXENV_LOG_I, r.kind);
    EXPECT_EQ(5, r.level);
    EXPECT_EQ(kInvalidArgument, r.code);
    EXPECT_EQ(kModule, r.module);
    EXPECT_EQ(text, r.text);
    EXPECT_EQ(-5, count);
    EXPECT_EQ(-6.0, mean);
}

void expectPixValueRefusal(const tag_pxImage *image, double x1, double y1, double x2, double y2,
                           const std::string &text) {
    const double a[2] = {x1, y1}, b[2] = {x2, y2};
    expectRefusal(
        [&](int32_t *count, double *mean) {
            double minimum = 0, maximum = 0, stdDev = 0;
            return pxImageGetAvaragePixValue(image, a, b, 0, nullptr, &minimum, &maximum, count, mean,
                                             &stdDev);
        },
        text);
}

void expectFlowRefusal(const tag_pxImage *fx, const tag_pxImage *fy, double x1, double y1, double x2,
                       double y2, const std::string &text) {
    const double a[2] = {x1, y1}, b[2] = {x2, y2};
    expectRefusal(
        [&](int32_t *count, double *mean) {
            double minimum = 0, maximum = 0, stdDev = 0;
            return pxImageGetAvarageFlowNorm(fx, fy, a, b, 0, nullptr, &minimum, &maximum, count, mean,
                                             &stdDev);
        },
        text);
}

TEST(StatsRefusalTest, PixValueCornersOutsideTheImage) {
    StatsImage img(FLOAT, 10, 6);
    const double nan = std::nan("");
    expectPixValueRefusal(img.image, -0.5, 0, 3, 3, "x out of image limits\n");
    expectPixValueRefusal(img.image, 0, 0, 10.01, 3, "x out of image limits\n");
    expectPixValueRefusal(img.image, nan, 0, 3, 3, "x out of image limits\n");
    expectPixValueRefusal(img.image, 1, 0, nan, 3, "x out of image limits\n");
    expectPixValueRefusal(img.image, 11, 7, 3, 3, "x out of image limits\n"); // x is checked first
    expectPixValueRefusal(img.image, 1, -1, 3, 3, "y out of image limits\n");
    expectPixValueRefusal(img.image, 1, 0, 3, 6.5, "y out of image limits\n");
    expectPixValueRefusal(img.image, 1, 0, 3, nan, "y out of image limits\n");
}

TEST(StatsRefusalTest, FlowCornersOutsideTheImages) {
    StatsImage fx(FLOAT, 10, 6), fy(FLOAT, 10, 6), narrow(FLOAT, 8, 6), low(FLOAT, 10, 4);
    expectFlowRefusal(fx.image, fy.image, -1, 0, 3, 3, "region x coordinate out of image limits\n");
    expectFlowRefusal(fx.image, fy.image, 0, 0, 3, 6.1, "region y coordinate out of image limits\n");
    // The region must also lie inside the y component.
    expectFlowRefusal(fx.image, narrow.image, 0, 0, 9, 3, "region x coordinate out of image limits\n");
    expectFlowRefusal(fx.image, low.image, 0, 0, 3, 5, "region y coordinate out of image limits\n");
}

TEST(StatsRefusalTest, FlowComponentsDifferingInAllThreeAreRefusedFirst) {
    StatsImage fx(FLOAT, 10, 6), fy(DOUBLE, 9, 5);
    expectFlowRefusal(fx.image, fy.image, -1, 0, 3, 3,
                      "x and y components of flow must be of the same type, height and width\n");
}

TEST(StatsRefusalTest, UnsupportedPixelTypes) {
    for (int32_t type : {CBIT, CSHORT, SHORT12}) {
        StatsImage img(type, 4, 4), other(FLOAT, 4, 4);
        expectPixValueRefusal(img.image, 0, 0, 2, 2, "unsupported format for averaging");
        expectPixValueRefusal(img.image, 0, 0, 5, 2, "x out of image limits\n"); // after the corner checks
        expectFlowRefusal(img.image, img.image, 0, 0, 2, 2, "unsupported format for averaging");
        expectFlowRefusal(other.image, img.image, 0, 0, 2, 2, "unsupported format for averaging");
    }
}

TEST(StatsRefusalTest, MissingImagesPixelsOrOutputs) {
    StatsImage img(FLOAT, 4, 4);
    tag_pxImage *header = nullptr;
    ASSERT_EQ(1u, pxImageHeaderConstruct(FLOAT, 4, 4, 0, 1, &header));
    const std::string text = "missing image, pixels or output pointer\n";
    expectPixValueRefusal(nullptr, 0, 0, 2, 2, text);
    expectPixValueRefusal(header, 0, 0, 2, 2, text);
    expectFlowRefusal(img.image, nullptr, 0, 0, 2, 2, text);
    expectFlowRefusal(header, img.image, 0, 0, 2, 2, text);
    const double a[2] = {0, 0}, b[2] = {2, 2};
    expectRefusal(
        [&](int32_t *count, double *mean) {
            double minimum = 0, maximum = 0, stdDev = 0;
            return pxImageGetAvaragePixValue(img.image, a, b, 3, nullptr, &minimum, &maximum, count, mean,
                                             &stdDev);
        },
        text);
    expectRefusal(
        [&](int32_t *count, double *mean) {
            double minimum = 0, maximum = 0;
            return pxImageGetAvarageFlowNorm(img.image, img.image, a, nullptr, 0, nullptr, &minimum, &maximum,
                                             count, mean, nullptr);
        },
        text);
    pxImageHeaderDestruct(&header);
}

TEST(StatsAllocationTest, AllocatesNothing) {
    std::mt19937 rng(31);
    StatsImage img(FLOAT, 8, 8);
    img.randomize(rng);
    const double a[2] = {1, 1}, b[2] = {7, 6};
    const long live = pxEnvLiveAllocations();
    pxEnvFailAllocationAfter(1);
    EXPECT_EQ(1u, run(img.image, nullptr, a, b, 4, 0, 0, 5).ok);
    EXPECT_EQ(1u, run(img.image, img.image, a, b, 4, 0, 0, 5).ok);
    pxEnvFailAllocationAfter(0);
    EXPECT_EQ(live, pxEnvLiveAllocations());
}

} // namespace
