// Binary dilation and erosion: against a window search written here over the region of interest, against
// OpenCV's dilate and erode with a square and a zero border, the copy for radius 0, the radius limit, the
// refusals with their trace chains, the fused counts against the box sums and threshold bit for bit, and
// the scratch image's allocation failures where the box sums still run.
#include <algorithm>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "filter/BoxTestSupport.h"
#include "filter/pxImageBoxFilterInternal.h"
#include "support/AllocFailure.h"

namespace {

using boxtest::TestImage;

const char *const kOperations = "pxImageOperations";
const char *const kBox = "pxImageBoxFilter";

// Count of set pixels of the window clipped to the source region, at region offset (i, j).
int windowCount(const TestImage &src, int i, int j, int radius) {
    const int w = src->roimaxX - src->roiminX;
    const int h = src->roimaxY - src->roiminY;
    int count = 0;
    for (int y = std::max(0, j - radius); y <= std::min(h - 1, j + radius); ++y)
        for (int x = std::max(0, i - radius); x <= std::min(w - 1, i + radius); ++x)
            count += src.at<uint8_t>(src->roiminY + y, src->roiminX + x);
    return count;
}

TEST(Morph, DilateAndErodeMatchTheWindowSearch) {
    uint32_t seed = 1;
    for (int radius : {1, 2, 3, 7}) {
        for (bool erode : {false, true}) {
            TestImage src(UBYTE, 41, 33, 1);
            TestImage dst(UBYTE, 41, 33, 0);
            boxtest::fillBinary(src, seed++, erode ? 0.9 : 0.05);
            boxtest::fillRandom(dst, seed++);
            src.setRegion(2, 3, 35, 27);
            dst.setRegion(4, 1, 35, 27);
            TestImage before(UBYTE, 41, 33, 0);
            boxtest::fillRandom(before, seed - 1);
            pxtest::LogCapture log;
            ASSERT_EQ(1u, erode ? pxImageErode(src.get(), radius, dst.get())
                                : pxImageDilate(src.get(), radius, dst.get()));
            EXPECT_TRUE(log.records().empty());
            const int m = 2 * radius + 1;
            for (int y = 0; y < 33; ++y)
                for (int x = 0; x < 41; ++x) {
                    const bool inRegion = y >= 1 && y < 28 && x >= 4 && x < 39;
                    // Outside its region the destination only went through the threshold.
                    int value = before.at<uint8_t>(y, x);
                    if (inRegion)
                        value = windowCount(src, x - 4, y - 1, radius);
                    const int expected = erode ? (value >= m * m ? 1 : 0) : (value >= 1 ? 1 : 0);
                    ASSERT_EQ(expected, dst.at<uint8_t>(y, x))
                        << radius << " " << erode << " at " << x << "," << y;
                }
        }
    }
}

TEST(Morph, MatchesOpenCvWithASquareAndZeroBorder) {
    for (int radius : {1, 4, 7}) {
        TestImage src(UBYTE, 57, 43, 0);
        TestImage dilated(UBYTE, 57, 43, 0);
        TestImage eroded(UBYTE, 57, 43, 0);
        boxtest::fillBinary(src, static_cast<uint32_t>(radius), 0.3);
        for (int y = 10; y < 30; ++y)
            for (int x = 5; x < 40; ++x)
                src.at<uint8_t>(y, x) = 1;
        ASSERT_EQ(1u, pxImageDilate(src.get(), radius, dilated.get()));
        ASSERT_EQ(1u, pxImageErode(src.get(), radius, eroded.get()));
        cv::Mat in(43, 57, CV_8U, src->pixMap[0][0]);
        const cv::Mat square =
            cv::getStructuringElement(cv::MORPH_RECT, cv::Size(2 * radius + 1, 2 * radius + 1));
        cv::Mat d, e;
        cv::dilate(in, d, square, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT, cv::Scalar(0));
        cv::erode(in, e, square, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT, cv::Scalar(0));
        for (int y = 0; y < 43; ++y)
            for (int x = 0; x < 57; ++x) {
                ASSERT_EQ(d.at<uint8_t>(y, x), dilated.at<uint8_t>(y, x));
                ASSERT_EQ(e.at<uint8_t>(y, x), eroded.at<uint8_t>(y, x));
            }
    }
}

TEST(Morph, ErodingAllOnesClearsABandAlongTheRegionEdges) {
    TestImage src(UBYTE, 8, 6, 0);
    TestImage dst(UBYTE, 8, 6, 0);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 8; ++x)
            src.at<uint8_t>(y, x) = 1;
    ASSERT_EQ(1u, pxImageErode(src.get(), 1, dst.get()));
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 8; ++x)
            EXPECT_EQ((y > 0 && y < 5 && x > 0 && x < 7) ? 1 : 0, dst.at<uint8_t>(y, x));
}

// The band follows the region of interest, not the image: inside an all-ones image with a smaller region
// only the region's inner pixels stay set; destination pixels outside its region held 0 and stay 0.
TEST(Morph, ErodingAllOnesClearsABandInsideTheRegionOfInterest) {
    TestImage src(UBYTE, 9, 8, 0);
    TestImage dst(UBYTE, 9, 8, 0);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 9; ++x)
            src.at<uint8_t>(y, x) = 1;
    src.setRegion(2, 1, 6, 5);
    dst.setRegion(2, 1, 6, 5);
    ASSERT_EQ(1u, pxImageErode(src.get(), 1, dst.get()));
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 9; ++x)
            EXPECT_EQ((y >= 2 && y <= 4 && x >= 3 && x <= 6) ? 1 : 0, dst.at<uint8_t>(y, x)) << x << "," << y;
}

TEST(Morph, RadiusZeroCopies) {
    for (bool erode : {false, true}) {
        TestImage src(UBYTE, 9, 7, 0);
        TestImage dst(UBYTE, 9, 7, 0);
        boxtest::fillRandom(src, 8);
        ASSERT_EQ(1u,
                  erode ? pxImageErode(src.get(), 0, dst.get()) : pxImageDilate(src.get(), -3, dst.get()));
        EXPECT_EQ(src.storage(), dst.storage());
    }
}

// With margins the copy is the pixel-map conversion copy: `width` bytes per row from the common margin on.
TEST(Morph, RadiusZeroCopyWithMarginsMovesWidthBytesFromTheMargin) {
    TestImage src(UBYTE, 6, 3, 1);
    TestImage dst(UBYTE, 6, 3, 2);
    boxtest::fillRandom(src, 2);
    ASSERT_EQ(1u, pxImageDilate(src.get(), 0, dst.get()));
    for (int y = -1; y < 4; ++y) {
        for (int x = -1; x < 5; ++x)
            EXPECT_EQ(src.at<uint8_t>(y, x), dst.at<uint8_t>(y, x));
        EXPECT_EQ(0, dst.at<uint8_t>(y, 5));
    }
}

TEST(Morph, RadiusAboveSevenIsRefused) {
    TestImage src(UBYTE, 40, 40, 0);
    TestImage dst(UBYTE, 40, 40, 0);
    for (int radius : {8, 1000, 2147483647}) {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageDilate(src.get(), radius, dst.get()));
        EXPECT_EQ(0u, pxImageErode(src.get(), radius, dst.get()));
        EXPECT_TRUE(boxtest::onlyTraces(log, {kOperations, kOperations}));
    }
    EXPECT_EQ(1u, pxImageDilate(src.get(), 7, dst.get()));
}

TEST(Morph, SizeAndTypeChecks) {
    TestImage src(UBYTE, 8, 8, 0);
    TestImage wide(UBYTE, 9, 8, 0);
    TestImage tall(UBYTE, 8, 9, 0);
    TestImage shortSrc(SHORT, 8, 8, 0);
    TestImage shortDst(SHORT, 8, 8, 0);
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageDilate(src.get(), 1, wide.get()));
    EXPECT_EQ(0u, pxImageErode(src.get(), 1, tall.get()));
    EXPECT_EQ(0u, pxImageDilate(shortSrc.get(), 1, src.get()));
    EXPECT_EQ(0u, pxImageErode(src.get(), 1, shortDst.get()));
    EXPECT_EQ(0u, pxImageErode(nullptr, 1, src.get()));
    EXPECT_TRUE(boxtest::onlyTraces(log, {kOperations, kOperations, kOperations, kOperations, kOperations}));
}

// Plain images (regions inside the images, at least one window wide and high, distinct planes) take the
// fused counts, which allocate nothing.
TEST(Morph, PlainImagesAllocateNothing) {
    TestImage src(UBYTE, 12, 10, 0);
    TestImage dst(UBYTE, 12, 10, 0);
    boxtest::fillBinary(src, 1, 0.5);
    for (bool erode : {false, true}) {
        const int allocations = pxtest::forEachAllocationFailure(
            [&] {
                return (erode ? pxImageErode(src.get(), 2, dst.get())
                              : pxImageDilate(src.get(), 2, dst.get())) == 1;
            },
            [] {});
        EXPECT_EQ(0, allocations);
    }
}

// In place, or with a region narrower than the window, the box sums run through their scratch image: its
// allocation failure leaves the trace chain and frees everything.
TEST(Morph, ScratchAllocationFailureLeavesTheTraceChain) {
    for (bool narrow : {false, true}) {
        for (bool erode : {false, true}) {
            TestImage src(UBYTE, 12, 10, 0);
            TestImage dst(UBYTE, 12, 10, 0);
            boxtest::fillBinary(src, 1, 0.5);
            if (narrow) {
                src.setRegion(2, 1, 4, 8);
                dst.setRegion(3, 2, 4, 8);
            }
            tag_pxImage *target = narrow ? dst.get() : src.get();
            const int allocations = pxtest::forEachAllocationFailure(
                [&] {
                    pxtest::LogCapture log;
                    const bool ok = (erode ? pxImageErode(src.get(), 2, target)
                                           : pxImageDilate(src.get(), 2, target)) == 1;
                    if (!ok) {
                        EXPECT_TRUE(boxtest::endsWithTraces(log, {"pxImage", kBox, kOperations}));
                    }
                    return ok;
                },
                [] {});
            EXPECT_GT(allocations, 0) << narrow << " " << erode;
        }
    }
}

// Sums of the clipped windows by the row and column references through a scratch image, then the byte
// threshold over the destination region: what the fused counts must equal bit for bit.
void referenceCounts(const pxbox::SumPass &pass, uint8_t level) {
    TestImage scratch(UBYTE, pass.src.width, pass.src.height, 0);
    pxbox::SumPass rows = pass;
    rows.dst = {scratch->pixMap[0], scratch->width, scratch->height, 0};
    rows.dstX = pass.srcX;
    rows.dstY = pass.srcY;
    pxbox::blockSumXReference<uint8_t>(rows);
    pxbox::SumPass columns = pass;
    columns.src = rows.dst;
    pxbox::blockSumYReference<uint8_t>(columns);
    for (int j = 0; j < pass.height; ++j) {
        uint8_t *row = static_cast<uint8_t *>(pass.dst.map[pass.dstY + j]) + pass.dstX;
        for (int i = 0; i < pass.width; ++i)
            row[i] = row[i] >= level ? 1 : 0;
    }
}

// Full-range random bytes, so the sums wrap; odd sizes, every window the counts cover, regions at several
// places, strips (rows wider than one strip of column sums), levels 1, the full window and others; every
// instruction-set level this processor runs, forced one at a time.
TEST(MorphKernels, CountsEqualSumsAndThresholdBitForBit) {
    uint32_t seed = 5;
    for (int width : {3, 15, 16, 17, 100, 4111, 8203}) {
        for (int height : {3, 15, 16, 23}) {
            for (int half = 1; half <= pxbox::kCountMaxHalf; ++half) {
                const int m = 2 * half + 1;
                if (width < m || height < m || (width > 100 && half % 3 != 1)) {
                    continue;
                }
                for (int level : {1, m * m, static_cast<int>(seed * 37 % 256), 0}) {
                    const int place = static_cast<int>(seed % 3);
                    TestImage src(UBYTE, width + place, height + 2, place == 1 ? 2 : 0);
                    TestImage fast(UBYTE, width + 3, height + 1, 1);
                    TestImage reference(UBYTE, width + 3, height + 1, 1);
                    boxtest::fillRandom(src, seed++);
                    boxtest::fillRandom(fast, seed);
                    boxtest::fillRandom(reference, seed++);
                    const pxbox::SumPass pass{{src->pixMap[0], src->width, src->height, src->border},
                                              place,
                                              2 - place,
                                              {fast->pixMap[0], fast->width, fast->height, fast->border},
                                              3 - place,
                                              1,
                                              width,
                                              height,
                                              half};
                    pxbox::SumPass ref = pass;
                    ref.dst.map = reference->pixMap[0];
                    referenceCounts(ref, static_cast<uint8_t>(level));
                    for (int kernels = pxbox::kBoxPortable; kernels <= pxbox::kBoxAvx512; ++kernels) {
                        const pxbox::BoxLaneKernels *k = pxbox::boxLaneKernelsAt(kernels);
                        if (!k)
                            continue;
                        boxtest::fillRandom(fast, seed - 1); // as reference was filled
                        k->countsAtLeast(pass, static_cast<uint8_t>(level));
                        ASSERT_EQ(reference.storage(), fast.storage())
                            << width << "x" << height << " half " << half << " level " << level << " place "
                            << place << " kernels " << kernels;
                    }
                }
            }
        }
    }
}

// The exported calls on plain images (fused counts) equal the box sums and the threshold as separate
// calls, outside the destination region too, for full-range bytes and regions at different places.
TEST(Morph, FusedCountsEqualBoxSumsThenThreshold) {
    uint32_t seed = 3;
    for (int radius = 1; radius <= 7; ++radius) {
        for (bool erode : {false, true}) {
            const int m = 2 * radius + 1;
            TestImage src(UBYTE, 53, 47, 1);
            TestImage dst(UBYTE, 53, 47, 0);
            TestImage expected(UBYTE, 53, 47, 0);
            boxtest::fillRandom(src, seed++);
            boxtest::fillRandom(dst, seed);
            boxtest::fillRandom(expected, seed++);
            src.setRegion(radius, 2, 45, 41);
            dst.setRegion(5, 7 - radius, 45, 41);
            expected.setRegion(5, 7 - radius, 45, 41);
            ASSERT_EQ(1u, erode ? pxImageErode(src.get(), radius, dst.get())
                                : pxImageDilate(src.get(), radius, dst.get()));
            ASSERT_EQ(1u, pxImageBoxSums(src.get(), m, expected.get()));
            ASSERT_EQ(1u, pxImageThresh2Binary(expected.get(), erode ? m * m : 1.0));
            ASSERT_EQ(expected.storage(), dst.storage()) << radius << " " << erode;
        }
    }
}

} // namespace
