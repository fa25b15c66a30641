// Weighted combination of byte images: truncation and wrap of the 64-bit integer, the given width and
// height rather than the images', and the refusal of images that cannot hold them.
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "filter/BoxTestSupport.h"

namespace {

using boxtest::TestImage;

TEST(Combine, MatchesThePerPixelRule) {
    uint32_t seed = 3;
    for (double wa : {0.5, 1.0, -0.7, 2.3}) {
        for (double wb : {0.5, 0.25, -1.0}) {
            TestImage a(UBYTE, 15, 9, 1), b(UBYTE, 17, 11, 0), out(UBYTE, 15, 10, 2),
                original(UBYTE, 15, 10, 2);
            boxtest::fillRandom(a, seed++);
            boxtest::fillRandom(b, seed++);
            boxtest::fillRandom(out, seed);
            boxtest::fillRandom(original, seed++);
            pxtest::LogCapture log;
            ASSERT_EQ(1u, pxImageCombine(a.get(), b.get(), wa, wb, 13, 8, out.get()));
            EXPECT_TRUE(log.records().empty());
            for (int y = -2; y < 12; ++y)
                for (int x = -2; x < 17; ++x) {
                    uint8_t expected = original.at<uint8_t>(y, x);
                    if (y >= 0 && y < 8 && x >= 0 && x < 13) {
                        const double v = wa * a.at<uint8_t>(y, x) + wb * b.at<uint8_t>(y, x);
                        expected = static_cast<uint8_t>(static_cast<int64_t>(std::trunc(v)));
                    }
                    ASSERT_EQ(expected, out.at<uint8_t>(y, x)) << wa << " " << wb << " at " << x << "," << y;
                }
        }
    }
}

TEST(Combine, TruncatesAndWraps) {
    TestImage a(UBYTE, 3, 1, 0), b(UBYTE, 3, 1, 0), out(UBYTE, 3, 1, 0);
    a.at<uint8_t>(0, 0) = 255;
    b.at<uint8_t>(0, 0) = 254;
    a.at<uint8_t>(0, 1) = 150;
    b.at<uint8_t>(0, 1) = 150;
    a.at<uint8_t>(0, 2) = 0;
    b.at<uint8_t>(0, 2) = 1;
    ASSERT_EQ(1u, pxImageCombine(a.get(), b.get(), 0.5, 0.5, 1, 1, out.get()));
    EXPECT_EQ(254, out.at<uint8_t>(0, 0)); // 254.5 truncated
    ASSERT_EQ(1u, pxImageCombine(a.get(), b.get(), 1.0, 1.0, 3, 1, out.get()));
    EXPECT_EQ(44, out.at<uint8_t>(0, 1)); // 300
    ASSERT_EQ(1u, pxImageCombine(a.get(), b.get(), 1.0, -1.0, 3, 1, out.get()));
    EXPECT_EQ(255, out.at<uint8_t>(0, 2)); // -1
}

TEST(Combine, EmptyAreaSucceedsAtOnce) {
    pxtest::LogCapture log;
    EXPECT_EQ(1u, pxImageCombine(nullptr, nullptr, 1.0, 1.0, 5, 0, nullptr));
    EXPECT_EQ(1u, pxImageCombine(nullptr, nullptr, 1.0, 1.0, 0, 5, nullptr));
    EXPECT_TRUE(log.records().empty());
}

// The images must be byte images large enough for the area; otherwise the call is reported, nothing is
// written and the result is still 1.
TEST(Combine, RefusesImagesThatCannotHoldTheArea) {
    TestImage a(UBYTE, 8, 8, 0), b(UBYTE, 8, 8, 0), out(UBYTE, 8, 8, 0), f(FLOAT, 8, 8, 0),
        small(UBYTE, 8, 7, 0);
    boxtest::fillRandom(out, 2);
    const std::vector<uint8_t> before = out.storage();
    const std::string text = "Combination needs byte images of at least 8 x 8 pixels";
    for (auto call :
         {std::function<uint32_t()>([&] { return pxImageCombine(f.get(), b.get(), 1, 1, 8, 8, out.get()); }),
          std::function<uint32_t()>(
              [&] { return pxImageCombine(a.get(), small.get(), 1, 1, 8, 8, out.get()); }),
          std::function<uint32_t()>(
              [&] { return pxImageCombine(a.get(), b.get(), 1, 1, 8, 8, small.get()); }),
          std::function<uint32_t()>(
              [&] { return pxImageCombine(a.get(), nullptr, 1, 1, 8, 8, out.get()); })}) {
        pxtest::LogCapture log;
        EXPECT_EQ(1u, call());
        ASSERT_EQ(1u, log.records().size());
        EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImageCombine", text));
    }
    EXPECT_EQ(before, out.storage());
}

} // namespace
