// Windowed minimum, maximum and minimum-with-range: against a direct search of every window written here,
// with NaN, signed zeros, infinities and the largest finite values in the images; the separable kernels
// against the direct ones; OpenCV's erosion and dilation of float images; refusals and the scratch rows.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "filter/BoxTestSupport.h"
#include "filter/pxImageBoxFilterInternal.h"
#include "support/AllocFailure.h"

namespace {

using boxtest::TestImage;

const char *const kBox = "pxImageBoxFilter";

// Random floats with a good share of values on which the order of a search shows.
void fillSpecial(const TestImage &image, uint32_t seed) {
    std::mt19937 rng(seed);
    const float specials[] = {
        std::numeric_limits<float>::quiet_NaN(), 0.0f,    -0.0f,    std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity(), FLT_MAX, -FLT_MAX, 1.0f};
    const int b = image->border;
    for (int y = -b; y < image->height + b; ++y)
        for (int x = -b; x < image->width + b; ++x)
            image.at<float>(y, x) = rng() % 3 == 0 ? std::uniform_real_distribution<float>(-5.0f, 5.0f)(rng)
                                                   : specials[rng() % 8];
}

struct Search {
    float low;
    float high;
};

// Row by row, left to right, strict compares from the largest finite values.
Search directSearch(const TestImage &src, int x, int y, int n, int width, int height) {
    const int half = n / 2;
    Search s{FLT_MAX, -FLT_MAX};
    for (int wy = std::max(0, y - half); wy <= std::min(height - 1, y + half); ++wy)
        for (int wx = std::max(0, x - half); wx <= std::min(width - 1, x + half); ++wx) {
            const float v = src.at<float>(wy, wx);
            if (v < s.low)
                s.low = v;
            if (v > s.high)
                s.high = v;
        }
    return s;
}

TEST(BoxExtreme, MinAndMaxMatchTheDirectSearchBitForBit) {
    uint32_t seed = 1;
    for (int n : {1, 2, 3, 4, 5, 9, 12, 100}) {
        TestImage src(FLOAT, 31, 25, 2);
        TestImage low(FLOAT, 29, 23, 1);
        TestImage high(FLOAT, 29, 23, 0);
        fillSpecial(src, seed++);
        src.setRegion(3, 3, 5, 5); // ignored
        pxtest::LogCapture log;
        ASSERT_EQ(1u, pxImageBoxMin(src.get(), n, low.get()));
        ASSERT_EQ(1u, pxImageBoxMax(src.get(), n, high.get()));
        EXPECT_TRUE(log.records().empty());
        for (int y = 0; y < 23; ++y)
            for (int x = 0; x < 29; ++x) {
                const Search s = directSearch(src, x, y, n, 29, 23);
                ASSERT_TRUE(boxtest::sameBits(s.low, low.at<float>(y, x))) << n << " at " << x << "," << y;
                ASSERT_TRUE(boxtest::sameBits(s.high, high.at<float>(y, x))) << n << " at " << x << "," << y;
            }
    }
}

TEST(BoxExtreme, MinAndRangeMatchTheDirectSearch) {
    uint32_t seed = 50;
    for (int n : {1, 3, 4, 7, 40}) {
        TestImage src(FLOAT, 21, 19, 0);
        TestImage low(FLOAT, 21, 19, 0);
        TestImage range(FLOAT, 23, 19, 0);
        fillSpecial(src, seed++);
        ASSERT_EQ(1u, pxImageBoxMinAndRange(src.get(), n, low.get(), range.get()));
        for (int y = 0; y < 19; ++y)
            for (int x = 0; x < 21; ++x) {
                const Search s = directSearch(src, x, y, n, 21, 19);
                ASSERT_TRUE(boxtest::sameBits(s.low, low.at<float>(y, x)));
                ASSERT_TRUE(boxtest::sameBits(s.high - s.low, range.at<float>(y, x)));
            }
    }
    for (int n : {1, 3, 6, 11}) {
        TestImage src(SHORT, 17, 13, 1);
        TestImage low(SHORT, 17, 13, 0);
        TestImage range(SHORT, 17, 13, 2);
        boxtest::fillRandom(src, seed++);
        ASSERT_EQ(1u, pxImageBoxMinAndRange(src.get(), n, low.get(), range.get()));
        const int half = n / 2;
        for (int y = 0; y < 13; ++y)
            for (int x = 0; x < 17; ++x) {
                uint16_t lo = 65535;
                uint16_t hi = 0;
                for (int wy = std::max(0, y - half); wy <= std::min(12, y + half); ++wy)
                    for (int wx = std::max(0, x - half); wx <= std::min(16, x + half); ++wx) {
                        lo = std::min(lo, src.at<uint16_t>(wy, wx));
                        hi = std::max(hi, src.at<uint16_t>(wy, wx));
                    }
                ASSERT_EQ(lo, low.at<uint16_t>(y, x));
                ASSERT_EQ(static_cast<uint16_t>(hi - lo), range.at<uint16_t>(y, x));
            }
    }
}

TEST(BoxLaneKernels, SeparableEqualsDirectAtOddSizes) {
    uint32_t seed = 300;
    for (int width : {1, 3, 7, 19}) {
        for (int height : {1, 2, 5, 13}) {
            for (int half : {0, 1, 2, 4, 9}) {
                TestImage src(FLOAT, width, height, 0);
                TestImage a(FLOAT, width, height, 0), b(FLOAT, width, height, 0);
                TestImage c(FLOAT, width, height, 0), d(FLOAT, width, height, 0);
                fillSpecial(src, seed++);
                pxbox::WindowPass direct{src->pixMap[0], a->pixMap[0], b->pixMap[0], width, height, half};
                pxbox::WindowPass separable{src->pixMap[0], c->pixMap[0], d->pixMap[0], width, height, half};
                pxbox::boxExtremeDirect<float, pxbox::Extreme::Min>(direct);
                ASSERT_EQ(1u, (pxbox::boxExtremeSeparable<float, pxbox::Extreme::Min>(separable)));
                EXPECT_EQ(a.storage(), c.storage());
                pxbox::boxExtremeDirect<float, pxbox::Extreme::Max>(direct);
                ASSERT_EQ(1u, (pxbox::boxExtremeSeparable<float, pxbox::Extreme::Max>(separable)));
                EXPECT_EQ(a.storage(), c.storage());
                pxbox::boxMinAndRangeDirect<float>(direct);
                ASSERT_EQ(1u, pxbox::boxMinAndRangeSeparable<float>(separable));
                EXPECT_EQ(a.storage(), c.storage());
                EXPECT_EQ(b.storage(), d.storage());

                TestImage s16(SHORT, width, height, 0);
                TestImage e(SHORT, width, height, 0), f(SHORT, width, height, 0);
                TestImage g(SHORT, width, height, 0), h(SHORT, width, height, 0);
                boxtest::fillRandom(s16, seed++);
                pxbox::boxMinAndRangeDirect<uint16_t>(
                    {s16->pixMap[0], e->pixMap[0], f->pixMap[0], width, height, half});
                ASSERT_EQ(1u, pxbox::boxMinAndRangeSeparable<uint16_t>(
                                  {s16->pixMap[0], g->pixMap[0], h->pixMap[0], width, height, half}));
                EXPECT_EQ(e.storage(), g.storage());
                EXPECT_EQ(f.storage(), h.storage());
            }
        }
    }
}

TEST(BoxExtreme, SignedZeroFollowsTheSearchOrder) {
    // Top row holds -0 on the right, second row +0 on the left: the search meets -0 first.
    TestImage src(FLOAT, 2, 2, 0);
    TestImage high(FLOAT, 2, 2, 0);
    src.at<float>(0, 0) = -1.0f;
    src.at<float>(0, 1) = -0.0f;
    src.at<float>(1, 0) = 0.0f;
    src.at<float>(1, 1) = -2.0f;
    ASSERT_EQ(1u, pxImageBoxMax(src.get(), 3, high.get()));
    EXPECT_TRUE(std::signbit(high.at<float>(0, 0)));
    EXPECT_TRUE(std::signbit(high.at<float>(1, 1)));
}

TEST(BoxExtreme, AllNanWindows) {
    TestImage src(FLOAT, 3, 3, 0);
    TestImage out(FLOAT, 3, 3, 0);
    TestImage range(FLOAT, 3, 3, 0);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x)
            src.at<float>(y, x) = std::numeric_limits<float>::quiet_NaN();
    ASSERT_EQ(1u, pxImageBoxMax(src.get(), 3, out.get()));
    EXPECT_EQ(-3.4028235e38f, out.at<float>(1, 1));
    ASSERT_EQ(1u, pxImageBoxMin(src.get(), 3, out.get()));
    EXPECT_EQ(3.4028235e38f, out.at<float>(1, 1));
    ASSERT_EQ(1u, pxImageBoxMinAndRange(src.get(), 3, out.get(), range.get()));
    EXPECT_EQ(-std::numeric_limits<float>::infinity(), range.at<float>(2, 0));
}

TEST(BoxExtreme, WindowLargerThanTheImageGivesTheGlobalMinimum) {
    TestImage src(FLOAT, 7, 5, 0);
    TestImage out(FLOAT, 7, 5, 0);
    boxtest::fillRandom(src, 5);
    float least = FLT_MAX;
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 7; ++x)
            least = std::min(least, src.at<float>(y, x));
    ASSERT_EQ(1u, pxImageBoxMin(src.get(), 99, out.get()));
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 7; ++x)
            EXPECT_EQ(least, out.at<float>(y, x));
}

// The largest windows cost no more than one as wide as the image: every window holds the whole image.
TEST(BoxExtreme, LargestWindowsGiveTheGlobalExtremes) {
    TestImage src(FLOAT, 6, 40, 0);
    TestImage low(FLOAT, 6, 40, 0), high(FLOAT, 6, 40, 0), low2(FLOAT, 6, 40, 0), range(FLOAT, 6, 40, 0);
    fillSpecial(src, 21);
    const int n = std::numeric_limits<int32_t>::max();
    ASSERT_EQ(1u, pxImageBoxMin(src.get(), n, low.get()));
    ASSERT_EQ(1u, pxImageBoxMax(src.get(), n, high.get()));
    ASSERT_EQ(1u, pxImageBoxMinAndRange(src.get(), n, low2.get(), range.get()));
    const Search s = directSearch(src, 0, 0, 99, 6, 40);
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 6; ++x) {
            ASSERT_TRUE(boxtest::sameBits(s.low, low.at<float>(y, x)));
            ASSERT_TRUE(boxtest::sameBits(s.high, high.at<float>(y, x)));
            ASSERT_TRUE(boxtest::sameBits(s.low, low2.at<float>(y, x)));
            ASSERT_TRUE(boxtest::sameBits(s.high - s.low, range.at<float>(y, x)));
        }
}

// In place the direct search reads pixels it has already written; that order is kept.
TEST(BoxExtreme, InPlaceFollowsTheDirectSearch) {
    TestImage image(FLOAT, 13, 11, 0);
    TestImage copy(FLOAT, 13, 11, 0);
    fillSpecial(image, 77);
    fillSpecial(copy, 77);
    ASSERT_EQ(1u, pxImageBoxMax(image.get(), 3, image.get()));
    pxbox::boxExtremeDirect<float, pxbox::Extreme::Max>(
        {copy->pixMap[0], copy->pixMap[0], nullptr, 13, 11, 1});
    EXPECT_EQ(copy.storage(), image.storage());
}

TEST(BoxExtreme, MinAndMaxMatchOpenCvErodeAndDilate) {
    for (int n : {3, 9}) {
        TestImage src(FLOAT, 53, 41, 0);
        TestImage low(FLOAT, 53, 41, 0);
        TestImage high(FLOAT, 53, 41, 0);
        boxtest::fillRandom(src, static_cast<uint32_t>(n));
        ASSERT_EQ(1u, pxImageBoxMin(src.get(), n, low.get()));
        ASSERT_EQ(1u, pxImageBoxMax(src.get(), n, high.get()));
        cv::Mat in(41, 53, CV_32F, src->pixMap[0][0]);
        cv::Mat eroded, dilated;
        const cv::Mat square = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(n, n));
        cv::erode(in, eroded, square);
        cv::dilate(in, dilated, square);
        for (int y = 0; y < 41; ++y)
            for (int x = 0; x < 53; ++x) {
                ASSERT_EQ(eroded.at<float>(y, x), low.at<float>(y, x));
                ASSERT_EQ(dilated.at<float>(y, x), high.at<float>(y, x));
            }
    }
}

TEST(BoxExtremeRefusals, MinAndMaxChecks) {
    TestImage src(FLOAT, 8, 8, 0);
    TestImage dst(FLOAT, 8, 8, 0);
    TestImage big(FLOAT, 9, 8, 0);
    TestImage other(DOUBLE, 8, 8, 0);
    TestImage otherSrc(DOUBLE, 8, 8, 0);
    for (auto run : {pxImageBoxMin, pxImageBoxMax}) {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, run(src.get(), 3, other.get()));
        EXPECT_EQ(0u, run(otherSrc.get(), 3, other.get()));
        EXPECT_EQ(0u, run(src.get(), 0, dst.get()));
        EXPECT_EQ(0u, run(src.get(), 3, big.get()));
        EXPECT_EQ(0u, run(nullptr, 3, dst.get()));
        EXPECT_TRUE(boxtest::onlyTraces(log, {kBox, kBox, kBox, kBox, kBox}));
    }
}

TEST(BoxExtremeRefusals, MinAndRangeChecks) {
    TestImage src(FLOAT, 8, 8, 0);
    TestImage low(FLOAT, 8, 8, 0);
    TestImage range(FLOAT, 8, 8, 0);
    TestImage shortImage(SHORT, 8, 8, 0);
    TestImage d1(DOUBLE, 8, 8, 0), d2(DOUBLE, 8, 8, 0), d3(DOUBLE, 8, 8, 0);
    TestImage small(FLOAT, 7, 8, 0);
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageBoxMinAndRange(src.get(), 3, shortImage.get(), range.get()));
    EXPECT_EQ(0u, pxImageBoxMinAndRange(src.get(), 3, low.get(), shortImage.get()));
    EXPECT_EQ(0u, pxImageBoxMinAndRange(d1.get(), 3, d2.get(), d3.get()));
    EXPECT_EQ(0u, pxImageBoxMinAndRange(src.get(), 0, low.get(), range.get()));
    EXPECT_EQ(0u, pxImageBoxMinAndRange(small.get(), 3, low.get(), range.get()));
    EXPECT_EQ(0u, pxImageBoxMinAndRange(src.get(), 3, low.get(), small.get()));
    EXPECT_TRUE(boxtest::onlyTraces(log, {kBox, kBox, kBox, kBox, kBox, kBox}));
}

// Without memory for the scratch rows the direct search does the work: same bits, nothing leaked.
TEST(BoxExtreme, ScratchAllocationFailureFallsBackToTheDirectSearch) {
    TestImage src(FLOAT, 15, 12, 0);
    TestImage expected(FLOAT, 15, 12, 0), expectedRange(FLOAT, 15, 12, 0);
    TestImage out(FLOAT, 15, 12, 0), range(FLOAT, 15, 12, 0);
    fillSpecial(src, 12);
    pxbox::boxExtremeDirect<float, pxbox::Extreme::Min>(
        {src->pixMap[0], expected->pixMap[0], nullptr, 15, 12, 2});
    pxbox::boxMinAndRangeDirect<float>(
        {src->pixMap[0], expected->pixMap[0], expectedRange->pixMap[0], 15, 12, 2});
    for (long failing : {1L, 2L}) {
        const long live = pxEnvLiveAllocations();
        {
            pxtest::AllocFailure fail(failing);
            pxtest::LogCapture log;
            ASSERT_EQ(1u, pxImageBoxMinAndRange(src.get(), 5, out.get(), range.get()));
            EXPECT_TRUE(log.records().empty());
        }
        EXPECT_EQ(live, pxEnvLiveAllocations());
        EXPECT_EQ(expected.storage(), out.storage());
        EXPECT_EQ(expectedRange.storage(), range.storage());
        {
            pxtest::AllocFailure fail(failing);
            ASSERT_EQ(1u, pxImageBoxMin(src.get(), 5, out.get()));
        }
        EXPECT_EQ(live, pxEnvLiveAllocations());
        pxbox::boxExtremeDirect<float, pxbox::Extreme::Min>(
            {src->pixMap[0], expected->pixMap[0], nullptr, 15, 12, 2});
        EXPECT_EQ(expected.storage(), out.storage());
    }
}

} // namespace

// Every instruction-set level this processor runs, forced one at a time, against the direct search, at odd
// sizes (tails of every vector width) and windows from a copy to wider than the image.
TEST(BoxLaneKernels, EveryLevelEqualsDirectAtOddSizes) {
    int levels = 0;
    for (int level = pxbox::kBoxPortable; level <= pxbox::kBoxAvx512; ++level) {
        const pxbox::BoxLaneKernels *k = pxbox::boxLaneKernelsAt(level);
        if (!k)
            continue;
        ++levels;
        uint32_t seed = 900 + 1000 * static_cast<uint32_t>(level);
        for (int width : {1, 3, 17, 35, 70}) {
            for (int height : {1, 2, 6, 23}) {
                for (int half : {0, 1, 2, 3, 4, 5, 7, 12, 15, 20, 31, 40}) {
                    SCOPED_TRACE(testing::Message()
                                 << level << ": " << width << "x" << height << " half " << half);
                    TestImage src(FLOAT, width, height, 0);
                    TestImage a(FLOAT, width, height, 0), b(FLOAT, width, height, 0);
                    TestImage c(FLOAT, width, height, 0), d(FLOAT, width, height, 0);
                    fillSpecial(src, seed++);
                    const pxbox::WindowPass direct{src->pixMap[0], a->pixMap[0], b->pixMap[0],
                                                   width,          height,       half};
                    const pxbox::WindowPass fast{src->pixMap[0], c->pixMap[0], d->pixMap[0],
                                                 width,          height,       half};
                    pxbox::boxExtremeDirect<float, pxbox::Extreme::Min>(direct);
                    ASSERT_EQ(1u, k->minFloat(fast));
                    EXPECT_EQ(a.storage(), c.storage());
                    pxbox::boxExtremeDirect<float, pxbox::Extreme::Max>(direct);
                    ASSERT_EQ(1u, k->maxFloat(fast));
                    EXPECT_EQ(a.storage(), c.storage());
                    pxbox::boxMinAndRangeDirect<float>(direct);
                    ASSERT_EQ(1u, k->minAndRangeFloat(fast));
                    EXPECT_EQ(a.storage(), c.storage());
                    EXPECT_EQ(b.storage(), d.storage());

                    TestImage s16(SHORT, width, height, 0);
                    TestImage e(SHORT, width, height, 0), f(SHORT, width, height, 0);
                    TestImage g(SHORT, width, height, 0), h(SHORT, width, height, 0);
                    boxtest::fillRandom(s16, seed++);
                    pxbox::boxMinAndRangeDirect<uint16_t>(
                        {s16->pixMap[0], e->pixMap[0], f->pixMap[0], width, height, half});
                    ASSERT_EQ(1u, k->minAndRangeShort(
                                      {s16->pixMap[0], g->pixMap[0], h->pixMap[0], width, height, half}));
                    EXPECT_EQ(e.storage(), g.storage());
                    EXPECT_EQ(f.storage(), h.storage());
                }
            }
        }
    }
    EXPECT_GE(levels, 2);
}

// Zeros of both signs only: which one a window gives depends on nothing but the order of the search.
TEST(BoxLaneKernels, EveryLevelPicksTheZeroTheSearchMeets) {
    for (int level = pxbox::kBoxPortable; level <= pxbox::kBoxAvx512; ++level) {
        const pxbox::BoxLaneKernels *k = pxbox::boxLaneKernelsAt(level);
        if (!k)
            continue;
        std::mt19937 rng(77 + level);
        for (int half : {1, 2, 4, 6}) {
            SCOPED_TRACE(testing::Message() << level << " half " << half);
            TestImage src(FLOAT, 67, 41, 0);
            TestImage a(FLOAT, 67, 41, 0), c(FLOAT, 67, 41, 0);
            for (int y = 0; y < 41; ++y)
                for (int x = 0; x < 67; ++x)
                    src.at<float>(y, x) = rng() % 2 ? 0.0f : -0.0f;
            const pxbox::WindowPass direct{src->pixMap[0], a->pixMap[0], nullptr, 67, 41, half};
            const pxbox::WindowPass fast{src->pixMap[0], c->pixMap[0], nullptr, 67, 41, half};
            pxbox::boxExtremeDirect<float, pxbox::Extreme::Min>(direct);
            ASSERT_EQ(1u, k->minFloat(fast));
            EXPECT_EQ(a.storage(), c.storage());
            pxbox::boxExtremeDirect<float, pxbox::Extreme::Max>(direct);
            ASSERT_EQ(1u, k->maxFloat(fast));
            EXPECT_EQ(a.storage(), c.storage());
        }
    }
}
