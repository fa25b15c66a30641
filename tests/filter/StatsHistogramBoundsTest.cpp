// Region statistics whose histogram index would leave the bins + 1 counters: NaN and infinite quantities
// (in the pixels, or from integer flow lengths whose 32-bit sum of squares wraps negative) and caller
// ranges that do not cover the data. Such pixels are not counted; every counter outside 0..bins, watched by
// guard values on both sides, stays untouched, and the range, sums, mean and deviation come out as they
// always have.
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "pxImage.h"
#include "StatsImage.h"
#include "support/LogCapture.h"

namespace {

using pxtest::StatsImage;

constexpr uint32_t kGuard = 0xA5A5A5A5u;
constexpr int kGuards = 512; // enough to catch an index of 380 past a 5-counter array

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

// A histogram of bins + 1 counters with guard values on both sides.
struct GuardedHistogram {
    std::vector<uint32_t> storage;
    int bins;
    explicit GuardedHistogram(int binCount)
        : storage(static_cast<size_t>(binCount + 1 + 2 * kGuards), kGuard), bins(binCount) {
        for (int i = 0; i <= bins; ++i)
            storage[static_cast<size_t>(kGuards + i)] = 0;
    }
    uint32_t *counters() { return storage.data() + kGuards; }
    std::vector<uint32_t> values() const {
        return std::vector<uint32_t>(storage.begin() + kGuards, storage.begin() + kGuards + bins + 1);
    }
    bool guardsIntact() const {
        for (int i = 0; i < kGuards; ++i)
            if (storage[static_cast<size_t>(i)] != kGuard ||
                storage[static_cast<size_t>(kGuards + bins + 1 + i)] != kGuard)
                return false;
        return true;
    }
};

struct Stats {
    uint32_t ok = 0;
    int32_t count = -1;
    double minimum = 0, maximum = 0, mean = -1, stdDev = -1;
    std::vector<uint32_t> histogram;
};

// One row of pixels, the whole image as the region; the histogram is checked for its guards.
Stats pixValue(const tag_pxImage *image, int bins, double minimum, double maximum) {
    GuardedHistogram histogram(bins);
    Stats s;
    s.minimum = minimum;
    s.maximum = maximum;
    const double a[2] = {0, 0},
                 b[2] = {static_cast<double>(image->width), static_cast<double>(image->height)};
    s.ok = pxImageGetAvaragePixValue(image, a, b, bins, histogram.counters(), &s.minimum, &s.maximum,
                                     &s.count, &s.mean, &s.stdDev);
    EXPECT_TRUE(histogram.guardsIntact());
    s.histogram = histogram.values();
    return s;
}

Stats flowNorm(const tag_pxImage *fx, const tag_pxImage *fy, int bins, double minimum, double maximum) {
    GuardedHistogram histogram(bins);
    Stats s;
    s.minimum = minimum;
    s.maximum = maximum;
    const double a[2] = {0, 0}, b[2] = {static_cast<double>(fx->width), static_cast<double>(fx->height)};
    s.ok = pxImageGetAvarageFlowNorm(fx, fy, a, b, bins, histogram.counters(), &s.minimum, &s.maximum,
                                     &s.count, &s.mean, &s.stdDev);
    EXPECT_TRUE(histogram.guardsIntact());
    s.histogram = histogram.values();
    return s;
}

template <typename T> void setRow(StatsImage &img, std::initializer_list<T> values) {
    int x = 0;
    for (T v : values)
        img.set<T>(x++, 0, v);
}

// The quantities {100, NaN, 5, 6} with 4 bins and the automatic range: the NaN replaces both bounds, 5 and
// 6 then make the range [5, 6], and 100 lies far above it. NaN and 5 count in bin 0, 6 (the maximum) in bin
// 4, 100 nowhere; only 5 and 6 enter the sums, divided by the full count of 4.
void expectNaNBreaksTheRange(const Stats &s) {
    EXPECT_EQ(1u, s.ok);
    EXPECT_EQ(4, s.count);
    EXPECT_EQ(5.0, s.minimum);
    EXPECT_EQ(6.0, s.maximum);
    EXPECT_EQ((std::vector<uint32_t>{2, 0, 0, 0, 1}), s.histogram);
    EXPECT_EQ(11.0 / 4, s.mean);
    EXPECT_EQ(std::sqrt(61.0 / 4 - (11.0 / 4) * (11.0 / 4)), s.stdDev);
}

TEST(StatsHistogramBoundsTest, FloatPixelNaNThatBreaksTheRange) {
    StatsImage img(FLOAT, 4, 1);
    setRow<float>(img, {100.0f, kNaN, 5.0f, 6.0f});
    expectNaNBreaksTheRange(pixValue(img.image, 4, 0.0, 0.0));
}

TEST(StatsHistogramBoundsTest, DoublePixelNaNThatBreaksTheRange) {
    StatsImage img(DOUBLE, 4, 1);
    setRow<double>(img, {100.0, std::nan(""), 5.0, 6.0});
    expectNaNBreaksTheRange(pixValue(img.image, 4, 0.0, 0.0));
}

TEST(StatsHistogramBoundsTest, FloatFlowComponentNaNThatBreaksTheRange) {
    StatsImage fx(FLOAT, 4, 1), fy(FLOAT, 4, 1);
    setRow<float>(fx, {100.0f, kNaN, 5.0f, 6.0f});
    expectNaNBreaksTheRange(flowNorm(fx.image, fy.image, 4, 0.0, 0.0));
}

TEST(StatsHistogramBoundsTest, IntFlowLengthWhoseSquareWrapsIsNaN) {
    // 50000^2 = 2.5e9 wraps to a negative 32-bit sum of squares; its square root is NaN.
    StatsImage fx(INT, 4, 1), fy(INT, 4, 1);
    setRow<int32_t>(fx, {100, 50000, 5, 6});
    expectNaNBreaksTheRange(flowNorm(fx.image, fy.image, 4, 0.0, 0.0));
}

TEST(StatsHistogramBoundsTest, ShortFlowLengthWhoseSquaresWrapIsNaN) {
    // Both components 0x8000 read as -32768: 2^30 + 2^30 wraps to INT32_MIN.
    StatsImage fx(SHORT, 4, 1), fy(SHORT, 4, 1);
    setRow<uint16_t>(fx, {100, 0x8000, 5, 6});
    setRow<uint16_t>(fy, {0, 0x8000, 0, 0});
    expectNaNBreaksTheRange(flowNorm(fx.image, fy.image, 4, 0.0, 0.0));
}

TEST(StatsHistogramBoundsTest, NaNEverywhereButTheFirstPixel) {
    // A NaN last pixel leaves a NaN range: nothing enters the sums and every pixel counts in bin 0.
    StatsImage img(FLOAT, 3, 2);
    img.fill<float>(kNaN);
    img.set<float>(0, 0, 7.0f);
    const Stats s = pixValue(img.image, 3, 0.0, 0.0);
    EXPECT_EQ(1u, s.ok);
    EXPECT_TRUE(std::isnan(s.minimum));
    EXPECT_TRUE(std::isnan(s.maximum));
    EXPECT_EQ((std::vector<uint32_t>{6, 0, 0, 0}), s.histogram);
    EXPECT_EQ(0.0, s.mean);
    EXPECT_EQ(0.0, s.stdDev);
}

// The quantities {1, +inf, 2, 3}: the range is [1, +inf] with bins of infinite width, so every pixel counts
// in bin 0 (+inf itself, whose offset over the bin width is inf / inf, included); the sum is infinite and
// the deviation NaN.
void expectInfiniteMaximum(const Stats &s) {
    EXPECT_EQ(1u, s.ok);
    EXPECT_EQ(1.0, s.minimum);
    EXPECT_EQ(HUGE_VAL, s.maximum);
    EXPECT_EQ((std::vector<uint32_t>{4, 0, 0, 0, 0}), s.histogram);
    EXPECT_EQ(HUGE_VAL, s.mean);
    EXPECT_TRUE(std::isnan(s.stdDev));
}

TEST(StatsHistogramBoundsTest, PositiveInfinityInThePixels) {
    StatsImage img(FLOAT, 4, 1);
    setRow<float>(img, {1.0f, kInf, 2.0f, 3.0f});
    expectInfiniteMaximum(pixValue(img.image, 4, 0.0, 0.0));
    StatsImage d(DOUBLE, 4, 1);
    setRow<double>(d, {1.0, HUGE_VAL, 2.0, 3.0});
    expectInfiniteMaximum(pixValue(d.image, 4, 0.0, 0.0));
}

TEST(StatsHistogramBoundsTest, InfiniteFlowComponentsOfEitherSign) {
    StatsImage fx(FLOAT, 4, 1), fy(FLOAT, 4, 1);
    setRow<float>(fx, {1.0f, kInf, 2.0f, 3.0f});
    expectInfiniteMaximum(flowNorm(fx.image, fy.image, 4, 0.0, 0.0));
    setRow<float>(fx, {1.0f, -kInf, 2.0f, 3.0f});
    expectInfiniteMaximum(flowNorm(fx.image, fy.image, 4, 0.0, 0.0));
    // A finite component whose single-precision square overflows is infinite as well.
    setRow<float>(fx, {1.0f, 3e38f, 2.0f, 3.0f});
    expectInfiniteMaximum(flowNorm(fx.image, fy.image, 4, 0.0, 0.0));
}

TEST(StatsHistogramBoundsTest, NegativeInfinityInThePixels) {
    // The range [-inf, 3]: bins of infinite width, so every pixel counts in bin 0; the sum is -inf.
    StatsImage img(FLOAT, 4, 1);
    setRow<float>(img, {1.0f, -kInf, 2.0f, 3.0f});
    const Stats s = pixValue(img.image, 4, 0.0, 0.0);
    EXPECT_EQ(1u, s.ok);
    EXPECT_EQ(-HUGE_VAL, s.minimum);
    EXPECT_EQ(3.0, s.maximum);
    EXPECT_EQ((std::vector<uint32_t>{4, 0, 0, 0, 0}), s.histogram);
    EXPECT_EQ(-HUGE_VAL, s.mean);
    EXPECT_TRUE(std::isnan(s.stdDev));
}

TEST(StatsHistogramBoundsTest, InfinitiesAfterANaNThatBrokeTheRange) {
    // {100, +inf, NaN, -inf, 5, 6}: the range ends as [-inf, 6] after the NaN; bins of infinite width.
    StatsImage img(FLOAT, 6, 1);
    setRow<float>(img, {100.0f, kInf, kNaN, -kInf, 5.0f, 6.0f});
    const Stats s = pixValue(img.image, 4, 0.0, 0.0);
    EXPECT_EQ(1u, s.ok);
    EXPECT_EQ(-HUGE_VAL, s.minimum);
    EXPECT_EQ(6.0, s.maximum);
    EXPECT_EQ((std::vector<uint32_t>{6, 0, 0, 0, 0}), s.histogram);
    // {inf, NaN, 5, 6}: the range [5, 6] and an infinite pixel above it, which is not counted.
    StatsImage f(FLOAT, 4, 1);
    setRow<float>(f, {kInf, kNaN, 5.0f, 6.0f});
    const Stats t = pixValue(f.image, 4, 0.0, 0.0);
    EXPECT_EQ(5.0, t.minimum);
    EXPECT_EQ(6.0, t.maximum);
    EXPECT_EQ((std::vector<uint32_t>{2, 0, 0, 0, 1}), t.histogram);
    EXPECT_EQ(11.0 / 4, t.mean);
}

// A caller range [5, 6] with 4 bins over {5, 6, 100, -3, 6.25}: 5 and -3 (raised to offset 0) count in bin
// 0, 6 in bin 4; 100 and 6.25 (index 5, one past the last counter) are not counted. Only 5 and 6 enter the
// sums, divided by the full count of 5.
TEST(StatsHistogramBoundsTest, CallerRangeThatDoesNotCoverThePixels) {
    StatsImage img(DOUBLE, 5, 1);
    setRow<double>(img, {5.0, 6.0, 100.0, -3.0, 6.25});
    const Stats s = pixValue(img.image, 4, 5.0, 6.0);
    EXPECT_EQ(1u, s.ok);
    EXPECT_EQ(5, s.count);
    EXPECT_EQ(5.0, s.minimum);
    EXPECT_EQ(6.0, s.maximum);
    EXPECT_EQ((std::vector<uint32_t>{2, 0, 0, 0, 1}), s.histogram);
    EXPECT_EQ(11.0 / 5, s.mean);
    EXPECT_EQ(std::sqrt(61.0 / 5 - (11.0 / 5) * (11.0 / 5)), s.stdDev);
}

TEST(StatsHistogramBoundsTest, CallerRangeBelowIntegerPixels) {
    // Integer sums wrap in 32 bits; the pixels above the range are not counted in the histogram.
    StatsImage img(INT, 4, 1);
    setRow<int32_t>(img, {5, 6, 2000000000, -3});
    const Stats s = pixValue(img.image, 2, 5.0, 6.0);
    EXPECT_EQ((std::vector<uint32_t>{2, 0, 1}), s.histogram);
    EXPECT_EQ(11.0 / 4, s.mean);
    StatsImage u(UBYTE, 3, 1);
    setRow<uint8_t>(u, {1, 2, 127});
    const Stats t = pixValue(u.image, 2, 0.0, 2.0);
    EXPECT_EQ((std::vector<uint32_t>{0, 1, 1}), t.histogram); // 1 in bin 1, 2 (the maximum) in bin 2
}

TEST(StatsHistogramBoundsTest, CallerRangeBelowTheFlowLengths) {
    StatsImage fx(FLOAT, 4, 1), fy(FLOAT, 4, 1);
    setRow<float>(fx, {3.0f, 6.0f, 300.0f, 0.0f});
    setRow<float>(fy, {4.0f, 8.0f, 400.0f, 0.0f});
    const Stats s = flowNorm(fx.image, fy.image, 5, 5.0, 10.0);
    EXPECT_EQ(5.0, s.minimum);
    EXPECT_EQ(10.0, s.maximum);
    // Lengths 5 (bin 0), 10 (the maximum, bin 5), 500 (not counted), 0 (raised to offset 0, bin 0).
    EXPECT_EQ((std::vector<uint32_t>{2, 0, 0, 0, 0, 1}), s.histogram);
    EXPECT_EQ(15.0 / 4, s.mean);
}

TEST(StatsHistogramBoundsTest, SoundRangesStillReachTheLastCounter) {
    // Over random data with the automatic range every pixel is counted somewhere in 0..bins.
    std::mt19937 rng(41);
    for (int32_t type : {UBYTE, SHORT, INT, FLOAT, DOUBLE}) {
        StatsImage img(type, 13, 7);
        img.randomize(rng);
        for (int bins : {1, 3, 16}) {
            const Stats s = pixValue(img.image, bins, 0.0, 0.0);
            uint32_t total = 0;
            for (uint32_t c : s.histogram)
                total += c;
            EXPECT_EQ(static_cast<uint32_t>(13 * 7), total) << type << " " << bins;
        }
    }
}

} // namespace
