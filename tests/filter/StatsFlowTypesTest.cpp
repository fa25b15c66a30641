// Flow statistics over component images of different types: both components are read with the x
// component's type, and a y image whose rows cannot hold the region's pixels of that type is refused.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "pxEnv.h"
#include "pxImage.h"
#include "StatsImage.h"
#include "support/LogCapture.h"

namespace {

using pxtest::StatsImage;

constexpr uint32_t kInvalidArgument = 0xC43D0003u;
const char *const kModule = "pxImageOperations";
const char *const kTooShort = "y component rows too short to be read with the x component's pixel type\n";

// Writes `value` as the x-th pixel of type T into row y of an image of any type.
template <typename T> void store(StatsImage &img, int x, int y, T value) {
    std::memcpy(img.row<unsigned char>(y) + sizeof(T) * static_cast<size_t>(x), &value, sizeof value);
}

// Fills the first `columns` pixels of type T of every row.
template <typename T> void storeRows(StatsImage &img, int columns, T value) {
    for (int y = 0; y < img.image->height; ++y)
        for (int x = 0; x < columns; ++x)
            store<T>(img, x, y, value);
}

struct Flow {
    uint32_t ok = 0;
    int32_t count = -5;
    double minimum = 0, maximum = 0, mean = -6, stdDev = -7;
    uint32_t histogram[3] = {0, 0, 0};
};

Flow flowOver(const StatsImage &fx, const StatsImage &fy, double x1, double y1, double x2, double y2,
              int bins = 0) {
    Flow f;
    const double a[2] = {x1, y1}, b[2] = {x2, y2};
    f.ok = pxImageGetAvarageFlowNorm(fx.image, fy.image, a, b, bins, f.histogram, &f.minimum, &f.maximum,
                                     &f.count, &f.mean, &f.stdDev);
    return f;
}

void expectLengthFive(const Flow &f, int32_t count) {
    EXPECT_EQ(1u, f.ok);
    EXPECT_EQ(count, f.count);
    EXPECT_EQ(5.0, f.mean);
    EXPECT_EQ(0.0, f.stdDev);
}

TEST(StatsFlowTypesTest, IntXReadsTheBitsOfAFloatYAsIntegers) {
    StatsImage fx(INT, 4, 3), fy(FLOAT, 4, 3);
    fx.fill<int32_t>(3);
    storeRows<int32_t>(fy, 4, 4); // a tiny subnormal as a float, 4 as an integer
    pxtest::LogCapture log;
    expectLengthFive(flowOver(fx, fy, 0, 0, 4, 3), 12);
    EXPECT_TRUE(log.records().empty());
}

TEST(StatsFlowTypesTest, FloatXReadsTheBitsOfAnIntYAsFloats) {
    StatsImage fx(FLOAT, 4, 3), fy(INT, 4, 3);
    fx.fill<float>(-3.0f);
    storeRows<float>(fy, 4, 4.0f);
    const Flow f = flowOver(fx, fy, 0, 0, 4, 3, 2);
    expectLengthFive(f, 12);
    EXPECT_EQ(5.0, f.minimum);
    EXPECT_EQ(5.0, f.maximum);
    EXPECT_EQ(12u, f.histogram[0]);
}

TEST(StatsFlowTypesTest, NarrowerXTypeReadsTheLeadingBytesOfTheYRows) {
    StatsImage fx(SHORT, 4, 2), fy(FLOAT, 4, 2);
    fx.fill<uint16_t>(0xFFFD); // -3
    storeRows<int16_t>(fy, 4, 4);
    expectLengthFive(flowOver(fx, fy, 0, 0, 4, 2), 8);
}

TEST(StatsFlowTypesTest, RegionBeyondTheYWidthInItsOwnPixelsIsReadWhenItsBytesFit) {
    // Heights agree: an 8-byte x row over a y row of 4 SHORT pixels, 8 bytes.
    StatsImage fx(UBYTE, 8, 2), fy(SHORT, 4, 2);
    fx.fill<uint8_t>(3);
    storeRows<int8_t>(fy, 8, 4);
    expectLengthFive(flowOver(fx, fy, 0, 0, 8, 2), 16);
}

TEST(StatsFlowTypesTest, WiderXTypeIsReadWhereTheRegionFitsTheYRows) {
    // A y row of 4 SHORT pixels holds 2 floats: columns 0 and 1 may be measured, as may column 1 alone.
    StatsImage fx(FLOAT, 4, 2), fy(SHORT, 4, 2);
    fx.fill<float>(3.0f);
    storeRows<float>(fy, 2, 4.0f);
    expectLengthFive(flowOver(fx, fy, 0, 0, 2, 2), 4);
    expectLengthFive(flowOver(fx, fy, 2, 0, 1, 1), 1);
}

// One refused call: result 0, exactly one invalid-argument record, and no output touched.
void expectRefused(const StatsImage &fx, const StatsImage &fy, double x1, double y1, double x2, double y2,
                   int bins, const std::string &text) {
    pxtest::LogCapture log;
    const Flow f = flowOver(fx, fy, x1, y1, x2, y2, bins);
    EXPECT_EQ(0u, f.ok);
    EXPECT_EQ(-5, f.count);
    EXPECT_EQ(-6.0, f.mean);
    EXPECT_EQ(-7.0, f.stdDev);
    EXPECT_EQ(0.0, f.minimum);
    EXPECT_EQ(0.0, f.maximum);
    EXPECT_EQ(0u, f.histogram[0]);
    ASSERT_EQ(1u, log.records().size());
    const pxtest::LogRecord &r = log.records()[0];
    EXPECT_EQ(PXENV_LOG_I, r.kind);
    EXPECT_EQ(5, r.level);
    EXPECT_EQ(kInvalidArgument, r.code);
    EXPECT_EQ(kModule, r.module);
    EXPECT_EQ(text, r.text);
}

TEST(StatsFlowTypesTest, RegionThatWouldLeaveTheYRowsIsRefused) {
    StatsImage fx(FLOAT, 4, 2), fy(SHORT, 4, 2);
    expectRefused(fx, fy, 0, 0, 4, 2, 0, kTooShort); // 16 bytes of an 8-byte row
    expectRefused(fx, fy, 3, 0, 2, 1, 2, kTooShort); // column 2 alone: bytes 8..11
    StatsImage dx(DOUBLE, 3, 1), dy(INT, 3, 1);
    expectRefused(dx, dy, 0, 0, 3, 1, 2, kTooShort);
}

TEST(StatsFlowTypesTest, TheYMarginIsNotPartOfItsRows) {
    // With a margin of 4 SHORT pixels the storage right of the pixels would hold the region's floats, but
    // margin bytes are not the image's data.
    StatsImage fx(FLOAT, 4, 2), fy(SHORT, 4, 2, 4);
    expectRefused(fx, fy, 0, 0, 4, 2, 0, kTooShort);
}

TEST(StatsFlowTypesTest, FirstPixelMustFitEvenForAnEmptyRegion) {
    // The automatic range starts from pixel (0, 0); a y row too short for one x pixel is refused whatever
    // the region.
    StatsImage fx(DOUBLE, 4, 1), fy(UBYTE, 4, 1);
    expectRefused(fx, fy, 0, 0, 0, 1, 2, kTooShort);
    expectRefused(fx, fy, 0, 0, 0, 1, 0, kTooShort);
}

TEST(StatsFlowTypesTest, RegionRowsBeyondTheYHeightAreRefused) {
    StatsImage fx(INT, 4, 4), fy(FLOAT, 4, 2);
    expectRefused(fx, fy, 0, 0, 4, 3, 0, "region y coordinate out of image limits\n");
    expectLengthFive(
        [&] {
            fx.fill<int32_t>(3);
            storeRows<int32_t>(fy, 4, 4);
            return flowOver(fx, fy, 0, 0, 4, 2);
        }(),
        8);
}

TEST(StatsFlowTypesTest, CornerChecksComeBeforeTheRowCheck) {
    StatsImage fx(FLOAT, 4, 2), fy(SHORT, 4, 2);
    expectRefused(fx, fy, 0, 0, 5, 2, 0, "region x coordinate out of image limits\n");
    expectRefused(fx, fy, 0, 0, 4, 3, 0, "region y coordinate out of image limits\n");
}

} // namespace
