// Normalisation and box averages: each region pixel scaled by the single-precision reciprocal of the
// pixel count of its clipped window, the even-window divisors kept as they are, OpenCV's blur in the
// interior, and the failure chains.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "filter/BoxTestSupport.h"
#include "support/AllocFailure.h"

namespace {

using boxtest::TestImage;

const char *const kBox = "pxImageBoxFilter";

// Pixels of the window that lie outside the region on the tighter side of offset i of a line of `size`.
int outside(int i, int size, int half) {
    return std::max({0, half - i, half - (size - 1 - i)});
}

TEST(BoxNormalize, OddWindowsDivideByTheCoveredCount) {
    uint32_t seed = 1;
    for (int n : {1, 3, 5, 7, 9}) {
        TestImage image(FLOAT, 27, 21, 2);
        boxtest::fillRandom(image, seed++);
        image.setRegion(3, 2, 19, 15);
        const std::vector<uint8_t> before = image.storage();
        TestImage original(FLOAT, 27, 21, 2);
        boxtest::fillRandom(original, seed - 1);
        ASSERT_EQ(1u, pxImageBoxNormalize(image.get(), n));
        const int half = n / 2;
        for (int y = -2; y < 23; ++y) {
            for (int x = -2; x < 29; ++x) {
                const float in = original.at<float>(y, x);
                float expected = in;
                if (y >= 2 && y < 17 && x >= 3 && x < 22) {
                    const int count = (n - outside(y - 2, 15, half)) * (n - outside(x - 3, 19, half));
                    expected = in * (1.0f / static_cast<float>(count));
                }
                ASSERT_TRUE(boxtest::sameBits(expected, image.at<float>(y, x)))
                    << n << " at " << x << "," << y;
            }
        }
    }
}

TEST(BoxNormalize, OneWideWindowMultipliesByOne) {
    TestImage image(FLOAT, 7, 5, 0);
    boxtest::fillRandom(image, 4);
    const std::vector<uint8_t> before = image.storage();
    ASSERT_EQ(1u, pxImageBoxNormalize(image.get(), 1));
    EXPECT_EQ(before, image.storage());
}

// Even windows keep divisors built on n and corners that stop one step short.
TEST(BoxNormalize, EvenWindowKeepsItsDivisors) {
    TestImage image(FLOAT, 8, 8, 0);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            image.at<float>(y, x) = 1.0f;
    ASSERT_EQ(1u, pxImageBoxNormalize(image.get(), 4));
    EXPECT_EQ(1.0f / 16.0f, image.at<float>(3, 3));
    EXPECT_EQ(1.0f / 12.0f, image.at<float>(1, 3)); // k = 1: 16 - 4
    EXPECT_EQ(1.0f / 8.0f, image.at<float>(0, 3));  // k = 2: 16 - 8
    EXPECT_EQ(1.0f / 12.0f, image.at<float>(6, 4));
    EXPECT_EQ(1.0f / 8.0f, image.at<float>(7, 4));
    EXPECT_EQ(1.0f / 12.0f, image.at<float>(3, 1));
    EXPECT_EQ(1.0f / 8.0f, image.at<float>(4, 7));
    EXPECT_EQ(1.0f / 9.0f, image.at<float>(1, 1)); // the only corner step: (4 - 1) * (4 - 1)
    EXPECT_EQ(1.0f / 9.0f, image.at<float>(6, 6));
    EXPECT_EQ(1.0f, image.at<float>(0, 0)); // corner pixels beyond the first step stay unscaled
    EXPECT_EQ(1.0f, image.at<float>(0, 1));
    EXPECT_EQ(1.0f, image.at<float>(7, 6));
}

// The normalisation as stated, on a plane whose margin is wide enough for every pixel it reaches: the
// interior, then for k = 1..half the top and bottom band rows and in every interior row the left and right
// band columns, then the corners while n - k > half. A pixel reached twice is multiplied twice, in this
// order.
void modelNormalize(const TestImage &image, int n) {
    const int half = n / 2;
    const int top = image->roiminY + half;
    const int bottom = image->roimaxY - half - 1;
    const int left = image->roiminX + half;
    const int right = image->roimaxX - half - 1;
    auto px = [&](int y, int x) -> float & { return image.at<float>(y, x); };
    const float inner = 1.0f / static_cast<float>(n * n);
    for (int y = top; y <= bottom; ++y)
        for (int x = left; x <= right; ++x)
            px(y, x) *= inner;
    for (int k = 1; k <= half; ++k) {
        const float factor = 1.0f / static_cast<float>(n * n - k * n);
        for (int x = left; x <= right; ++x)
            px(top - k, x) *= factor;
        for (int x = left; x <= right; ++x)
            px(bottom + k, x) *= factor;
        for (int y = top; y <= bottom; ++y) {
            px(y, left - k) *= factor;
            px(y, right + k) *= factor;
        }
    }
    for (int ka = 1; n - ka > half; ++ka)
        for (int kb = 1; n - kb > half; ++kb) {
            const float factor = 1.0f / static_cast<float>((n - ka) * (n - kb));
            px(top - ka, left - kb) *= factor;
            px(bottom + ka, left - kb) *= factor;
            px(top - ka, right + kb) *= factor;
            px(bottom + ka, right + kb) *= factor;
        }
}

// Odd and even windows, regions narrower and shorter than the window (pixels scaled twice, pixels outside
// the region scaled), and negative and zero windows: the same bits as the stated order.
TEST(BoxNormalize, FollowsTheStatedOrderBitForBit) {
    uint32_t seed = 900;
    for (int n : {-4, -3, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}) {
        for (int w : {1, 2, 3, 5, 8, 13}) {
            for (int h : {1, 2, 4, 7, 12}) {
                TestImage image(FLOAT, w + 2, h + 3, 12);
                TestImage model(FLOAT, w + 2, h + 3, 12);
                boxtest::fillRandom(image, seed);
                boxtest::fillRandom(model, seed++);
                image.setRegion(1, 2, w, h);
                model.setRegion(1, 2, w, h);
                ASSERT_EQ(1u, pxImageBoxNormalize(image.get(), n));
                modelNormalize(model, n);
                for (int y = -12; y < h + 15; ++y)
                    for (int x = -12; x < w + 14; ++x) {
                        const float a = model.at<float>(y, x);
                        const float b = image.at<float>(y, x);
                        ASSERT_TRUE(boxtest::sameBits(a, b) || (std::isnan(a) && std::isnan(b)))
                            << "n " << n << " region " << w << "x" << h << " at " << x << "," << y;
                    }
            }
        }
    }
}

// Windows larger than the region scale pixels outside it, but never anything outside the plane.
TEST(BoxNormalize, HugeWindowsStayInsideThePlane) {
    for (int n : {9, 10, 1001, 46341, 2000000001, -7}) {
        TestImage image(FLOAT, 5, 4, 1);
        image.setRegion(1, 1, 3, 2);
        for (int y = -1; y < 5; ++y)
            for (int x = -1; x < 6; ++x)
                image.at<float>(y, x) = 1.0f;
        EXPECT_EQ(1u, pxImageBoxNormalize(image.get(), n));
    }
}

TEST(BoxNormalize, OnlyFloatImages) {
    for (int32_t type : {UBYTE, SHORT, INT, DOUBLE}) {
        TestImage image(type, 5, 5, 0);
        boxtest::fillRandom(image, 3);
        const std::vector<uint8_t> before = image.storage();
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageBoxNormalize(image.get(), 3));
        EXPECT_TRUE(boxtest::onlyTraces(log, {kBox}));
        EXPECT_EQ(before, image.storage());
    }
}

TEST(BoxAverage, EqualsSumsTimesReciprocalCounts) {
    TestImage src(FLOAT, 23, 19, 1);
    TestImage sums(FLOAT, 23, 19, 0);
    TestImage average(FLOAT, 23, 19, 0);
    boxtest::fillRandom(src, 8);
    src.setRegion(2, 1, 17, 15);
    sums.setRegion(4, 3, 17, 15);
    average.setRegion(4, 3, 17, 15);
    ASSERT_EQ(1u, pxImageBoxSums(src.get(), 5, sums.get()));
    ASSERT_EQ(1u, pxImageBoxAverage(src.get(), 5, average.get()));
    for (int j = 0; j < 15; ++j)
        for (int i = 0; i < 17; ++i) {
            const int count = (5 - outside(j, 15, 2)) * (5 - outside(i, 17, 2));
            const float expected = sums.at<float>(3 + j, 4 + i) * (1.0f / static_cast<float>(count));
            ASSERT_TRUE(boxtest::sameBits(expected, average.at<float>(3 + j, 4 + i)));
        }
}

TEST(BoxAverage, InteriorMatchesOpenCvBlur) {
    for (int n : {3, 15}) {
        TestImage src(FLOAT, 61, 47, 0);
        TestImage dst(FLOAT, 61, 47, 0);
        boxtest::fillRandom(src, static_cast<uint32_t>(n));
        ASSERT_EQ(1u, pxImageBoxAverage(src.get(), n, dst.get()));
        cv::Mat in(47, 61, CV_32F, src->pixMap[0][0]);
        cv::Mat out;
        cv::blur(in, out, cv::Size(n, n));
        const int half = n / 2;
        for (int y = half; y < 47 - half; ++y)
            for (int x = half; x < 61 - half; ++x)
                ASSERT_NEAR(out.at<float>(y, x), dst.at<float>(y, x), 1e-3) << n << " at " << x << "," << y;
    }
}

TEST(BoxAverage, NonFloatImagesKeepTheRawSums) {
    TestImage src(SHORT, 4, 4, 0);
    TestImage dst(SHORT, 4, 4, 0);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            src.at<uint16_t>(y, x) = 30000;
    pxtest::LogCapture log;
    EXPECT_EQ(1u, pxImageBoxAverage(src.get(), 3, dst.get()));
    EXPECT_TRUE(boxtest::onlyTraces(log, {kBox})); // the normalisation's refusal
    EXPECT_EQ((9 * 30000) % 65536, dst.at<uint16_t>(1, 1));
    EXPECT_EQ((4 * 30000) % 65536, dst.at<uint16_t>(0, 0));
}

TEST(BoxAverage, FailingSumsLeaveATraceChain) {
    TestImage src(FLOAT, 5, 5, 0);
    TestImage dst(DOUBLE, 5, 5, 0);
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageBoxAverage(src.get(), 3, dst.get()));
    EXPECT_TRUE(boxtest::onlyTraces(log, {kBox, kBox}));
}

TEST(BoxAverage, ScratchAllocationFailureLeaksNothing) {
    TestImage src(FLOAT, 9, 9, 0);
    TestImage dst(FLOAT, 9, 9, 0);
    boxtest::fillRandom(src, 1);
    const int allocations = pxtest::forEachAllocationFailure(
        [&] {
            pxtest::LogCapture log;
            const bool ok = pxImageBoxAverage(src.get(), 3, dst.get()) == 1;
            if (!ok) {
                EXPECT_TRUE(boxtest::endsWithTraces(log, {"pxImage", kBox, kBox}));
            }
            return ok;
        },
        [] {});
    EXPECT_GT(allocations, 0);
}

} // namespace
