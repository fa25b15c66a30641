// Thresholds: every pixel type against a per-pixel rule written here, the threshold's conversion to the
// pixel type (low byte, signed 16-bit compare, single precision), NaN pixels and the refused types.
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "filter/BoxTestSupport.h"

namespace {

using boxtest::TestImage;

const char *const kOperations = "pxImageOperations";

TEST(Thresh, EveryTypeMatchesThePerPixelRule) {
    uint32_t seed = 1;
    for (double threshold : {0.0, 0.5, 17.0, 100.9, 200.0, 40000.0, -3.5}) {
        for (int32_t type : {UBYTE, SHORT, FLOAT, DOUBLE}) {
            TestImage binary(type, 13, 9, 1);
            TestImage upper(type, 13, 9, 1);
            boxtest::fillRandom(binary, seed);
            boxtest::fillRandom(upper, seed++);
            binary.setRegion(2, 2, 3, 3); // ignored
            TestImage original(type, 13, 9, 1);
            boxtest::fillRandom(original, seed - 1);
            ASSERT_EQ(1u, pxImageThresh2Binary(binary.get(), threshold));
            ASSERT_EQ(1u, pxImageThreshUpper(upper.get(), threshold));
            for (int y = -1; y < 10; ++y)
                for (int x = -1; x < 14; ++x) {
                    const double v = boxtest::pixelValue(original.get(), y, x);
                    const bool inside = y >= 0 && y < 9 && x >= 0 && x < 13;
                    bool atOrAbove = false;
                    switch (type) {
                    case UBYTE:
                        atOrAbove = v >= static_cast<uint8_t>(static_cast<int64_t>(threshold));
                        break;
                    case SHORT:
                        atOrAbove =
                            static_cast<int16_t>(v) >= static_cast<int16_t>(static_cast<int32_t>(threshold));
                        break;
                    case FLOAT:
                        atOrAbove = static_cast<float>(v) >= static_cast<float>(threshold);
                        break;
                    default:
                        atOrAbove = v >= threshold;
                    }
                    ASSERT_EQ(inside ? (atOrAbove ? 1.0 : 0.0) : v, boxtest::pixelValue(binary.get(), y, x));
                    ASSERT_EQ(inside && !atOrAbove ? 0.0 : v, boxtest::pixelValue(upper.get(), y, x));
                }
        }
    }
}

TEST(Thresh, ShortPixelsCompareSigned) {
    TestImage image(SHORT, 2, 1, 0);
    image.at<uint16_t>(0, 0) = 40000;
    image.at<uint16_t>(0, 1) = 200;
    ASSERT_EQ(1u, pxImageThresh2Binary(image.get(), 100.0));
    EXPECT_EQ(0, image.at<uint16_t>(0, 0));
    EXPECT_EQ(1, image.at<uint16_t>(0, 1));
    image.at<uint16_t>(0, 0) = 40000;
    ASSERT_EQ(1u, pxImageThreshUpper(image.get(), 100.0));
    EXPECT_EQ(0, image.at<uint16_t>(0, 0));
    // 65535 as a threshold is -1: every non-negative pixel is above it.
    image.at<uint16_t>(0, 0) = 5;
    ASSERT_EQ(1u, pxImageThresh2Binary(image.get(), 65535.0));
    EXPECT_EQ(1, image.at<uint16_t>(0, 0));
}

TEST(Thresh, ByteThresholdKeepsItsLowByte) {
    TestImage image(UBYTE, 3, 1, 0);
    image.at<uint8_t>(0, 0) = 0;
    image.at<uint8_t>(0, 1) = 7;
    image.at<uint8_t>(0, 2) = 255;
    ASSERT_EQ(1u, pxImageThresh2Binary(image.get(), 256.0));
    EXPECT_EQ(1, image.at<uint8_t>(0, 0));
    EXPECT_EQ(1, image.at<uint8_t>(0, 1));
    EXPECT_EQ(1, image.at<uint8_t>(0, 2));
    // Out of the 64-bit range and NaN give the processor's invalid integer, whose low byte is 0.
    for (double threshold : {1e30, -1e30, std::numeric_limits<double>::quiet_NaN()}) {
        image.at<uint8_t>(0, 0) = 0;
        ASSERT_EQ(1u, pxImageThresh2Binary(image.get(), threshold));
        EXPECT_EQ(1, image.at<uint8_t>(0, 0));
    }
}

TEST(Thresh, UpperKeepsPixelsEqualToTheThreshold) {
    TestImage image(FLOAT, 3, 1, 0);
    image.at<float>(0, 0) = 9.0f;
    image.at<float>(0, 1) = 10.0f;
    image.at<float>(0, 2) = 11.0f;
    ASSERT_EQ(1u, pxImageThreshUpper(image.get(), 10.0));
    EXPECT_EQ(0.0f, image.at<float>(0, 0));
    EXPECT_EQ(10.0f, image.at<float>(0, 1));
    EXPECT_EQ(11.0f, image.at<float>(0, 2));
}

TEST(Thresh, NanPixels) {
    for (int32_t type : {FLOAT, DOUBLE}) {
        TestImage binary(type, 1, 1, 0);
        TestImage upper(type, 1, 1, 0);
        if (type == FLOAT) {
            binary.at<float>(0, 0) = upper.at<float>(0, 0) = std::numeric_limits<float>::quiet_NaN();
        } else {
            binary.at<double>(0, 0) = upper.at<double>(0, 0) = std::numeric_limits<double>::quiet_NaN();
        }
        ASSERT_EQ(1u, pxImageThresh2Binary(binary.get(), 1.0));
        ASSERT_EQ(1u, pxImageThreshUpper(upper.get(), 1.0));
        EXPECT_EQ(0.0, boxtest::pixelValue(binary.get(), 0, 0));
        EXPECT_TRUE(std::isnan(boxtest::pixelValue(upper.get(), 0, 0)));
    }
}

TEST(Thresh, OtherTypesAreRefused) {
    for (int32_t type : {CBIT, CSHORT, INT, SHORT12}) {
        TestImage image(type, 4, 4, 0);
        boxtest::fillRandom(image, 3);
        const std::vector<uint8_t> before = image.storage();
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageThresh2Binary(image.get(), 1.0));
        EXPECT_EQ(0u, pxImageThreshUpper(image.get(), 1.0));
        EXPECT_TRUE(boxtest::onlyTraces(log, {kOperations, kOperations}));
        EXPECT_EQ(before, image.storage());
    }
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageThresh2Binary(nullptr, 1.0));
    EXPECT_EQ(0u, pxImageThreshUpper(nullptr, 1.0));
    EXPECT_TRUE(boxtest::onlyTraces(log, {kOperations, kOperations}));
}

} // namespace
