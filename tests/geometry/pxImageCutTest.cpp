// Cutting a rectangle out of an image: the same-type copy with its header updates, the converting path
// through a scratch image, the signed fit test, reads into the margin, and every refusal.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "CutPyrTestSupport.h"
#include "support/AllocFailure.h"

namespace {

using geomtest::Image;
using geomtest::kInvalidArgument;
constexpr uint32_t kCutDoesNotFit = 0xC41A0005u;

// Expects target pixel (r, c) of plane 0 to equal source pixel (y + r, x + c), byte for byte.
void expectCopied(const Image &source, int x, int y, const Image &target) {
    const size_t s = source.pixelSize();
    for (int r = 0; r < target->height; ++r) {
        const uint8_t *from =
            static_cast<const uint8_t *>(source->pixMap[0][y + r]) + ptrdiff_t(x) * ptrdiff_t(s);
        ASSERT_EQ(0, std::memcmp(target->pixMap[0][r], from, s * target->width)) << "row " << r;
    }
}

TEST(pxImageCut, TenByTenAtFiveFiveOfFifteenFitsAndLogsTheCut) {
    Image source(SHORT, 15, 15);
    source.randomBytes(1);
    Image target(SHORT, 10, 10);
    pxtest::LogCapture log;
    ASSERT_EQ(1u, pxImageCut(source.get(), 5, 5, target.get()));
    expectCopied(source, 5, 5, target);
    ASSERT_EQ(1u, log.records().size());
    const pxtest::LogRecord &r = log.records()[0];
    EXPECT_EQ(PXENV_LOG_F, r.kind);
    EXPECT_EQ(0, r.level);
    EXPECT_EQ("pxImageCut", r.module);
    EXPECT_EQ("cut 10x10+5+5 on image 15x15", r.text);
}

TEST(pxImageCut, SixFiveOfFifteenDoesNotFit) {
    Image source(SHORT, 15, 15);
    Image target(SHORT, 10, 10);
    const auto before = target.storage();
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageCut(source.get(), 6, 5, target.get()));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_ERROR, kCutDoesNotFit, "pxImageCut",
                                   "cut of 10 x 10 at (6, 5) does not fit the image of 15 x 15"));
    EXPECT_EQ(2u, geomtest::tracesOf(log, "pxImageCut")); // pxImageCutWithTransform, pxImageCut
    EXPECT_EQ(4u, log.records().size());
    EXPECT_EQ(before, target.storage());
    EXPECT_EQ(0, target->origX);
    // The height is tested the same way.
    EXPECT_EQ(0u, pxImageCut(source.get(), 5, 6, target.get()));
}

TEST(pxImageCut, SameTypeMovesTheRegionAndOrigin) {
    Image source(FLOAT, 12, 12);
    source->roiminX = 2;
    source->roimaxX = 8;
    source->roiminY = 2;
    source->roimaxY = 8;
    source->origX = 100;
    source->origY = 200;
    source->origWidth = 1000;
    source->origHeight = 900;
    source->auxInt = 77;
    Image target(FLOAT, 3, 3);
    ASSERT_EQ(1u, pxImageCut(source.get(), 4, 4, target.get()));
    EXPECT_EQ(0, target->roiminX);
    EXPECT_EQ(3, target->roimaxX);
    EXPECT_EQ(0, target->roiminY);
    EXPECT_EQ(3, target->roimaxY);
    EXPECT_EQ(104, target->origX);
    EXPECT_EQ(204, target->origY);
    EXPECT_EQ(1000, target->origWidth);
    EXPECT_EQ(900, target->origHeight);
    EXPECT_EQ(0, target->auxInt); // nothing else of the header is copied
}

TEST(pxImageCut, RegionOutsideTheCutComesOutInverted) {
    Image source(UBYTE, 20, 20);
    source->roiminX = 15;
    source->roimaxX = 18;
    Image target(UBYTE, 4, 4);
    ASSERT_EQ(1u, pxImageCut(source.get(), 2, 0, target.get()));
    EXPECT_EQ(13, target->roiminX);
    EXPECT_EQ(4, target->roimaxX);
}

TEST(pxImageCut, ConvertingPathKeepsTheTargetHeader) {
    Image source(SHORT, 12, 12);
    source->roiminX = 2;
    source->roimaxX = 8;
    source->roiminY = 2;
    source->roimaxY = 8;
    source->origX = 100;
    Image target(FLOAT, 3, 3);
    target->roiminX = 1;
    target->origX = 7;
    ASSERT_EQ(1u, pxImageCut(source.get(), 4, 4, target.get()));
    EXPECT_EQ(1, target->roiminX);
    EXPECT_EQ(3, target->roimaxX);
    EXPECT_EQ(0, target->roiminY);
    EXPECT_EQ(3, target->roimaxY);
    EXPECT_EQ(7, target->origX);
    EXPECT_EQ(0, target->origY);
}

TEST(pxImageCut, OnlyPlaneZeroIsWrittenInTheSameTypePath) {
    Image source(INT, 9, 7, 0, 2);
    source.randomBytes(2);
    source.randomBytes(3, 1);
    Image target(INT, 5, 3, 2, 2);
    target.randomBytes(4);
    target.randomBytes(5, 1);
    auto plane0 = target.storage(0);
    const auto plane1 = target.storage(1);
    ASSERT_EQ(1u, pxImageCut(source.get(), 3, 2, target.get()));
    expectCopied(source, 3, 2, target);
    EXPECT_EQ(plane1, target.storage(1));
    // Outside the image proper, plane 0 keeps its bytes.
    const auto after = target.storage(0);
    const size_t stride = 4 * (5 + 4);
    for (int row = 0; row < 3 + 4; ++row) {
        for (int col = 0; col < 9; ++col) {
            const bool inside = row >= 2 && row < 5 && col >= 2 && col < 7;
            if (!inside) {
                ASSERT_EQ(0, std::memcmp(&plane0[row * stride + col * 4], &after[row * stride + col * 4], 4));
            }
        }
    }
}

TEST(pxImageCut, EveryTypeAtOddSizes) {
    for (int32_t type : {UBYTE, SHORT, INT, FLOAT, DOUBLE}) {
        for (int border : {0, 3}) {
            Image source(type, 37, 29, border);
            source.randomBytes(uint32_t(type * 10 + border));
            Image target(type, 13, 11);
            ASSERT_EQ(1u, pxImageCut(source.get(), 23, 17, target.get()));
            expectCopied(source, 23, 17, target);
        }
    }
}

TEST(pxImageCut, ConvertingPathConvertsEveryPlaneAndTheMargin) {
    Image source(SHORT, 11, 9);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 11; ++x)
            source.at<uint16_t>(y, x) = uint16_t(y * 1000 + x * 7 + 1);
    source.at<uint16_t>(4, 5) = 65535;
    Image target(FLOAT, 5, 3, 1, 2);
    target.randomBytes(6);
    target.randomBytes(7, 1);
    ASSERT_EQ(1u, pxImageCutWithTransform(source.get(), 3, 3, 1, target.get()));
    const float scale = static_cast<float>(1.0 / 256.98823529411766);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 5; ++c)
            EXPECT_EQ(float(source.at<uint16_t>(3 + r, 3 + c)) * scale, target.at<float>(r, c));
    EXPECT_NEAR(255.0117, target.at<float>(1, 2), 1e-4);
    // The scratch image's zero margin and zero second plane are converted into the target.
    EXPECT_EQ(0.0f, target.at<float>(-1, -1));
    EXPECT_EQ(0.0f, target.at<float>(3, 4));
    EXPECT_EQ(0.0f, target.at<float>(1, 1, 1));
    // Without the flag, the plain conversion.
    ASSERT_EQ(1u, pxImageCutWithTransform(source.get(), 3, 3, 0, target.get()));
    EXPECT_EQ(65535.0f, target.at<float>(1, 2));
}

TEST(pxImageCut, SignedOriginReadsTheMargin) {
    Image source(UBYTE, 6, 6, 1);
    source.randomBytes(8);
    Image target(UBYTE, 7, 7);
    // x = y = 2^32 - 1 is column and row -1: the fit test passes (6 < 7 - 1 is false).
    ASSERT_EQ(1u, pxImageCut(source.get(), 0xFFFFFFFFu, 0xFFFFFFFFu, target.get()));
    expectCopied(source, -1, -1, target);
    EXPECT_EQ(-1, target->origX);
    EXPECT_EQ(1, target->roiminX);
    EXPECT_EQ(7, target->roimaxX);
}

TEST(pxImageCut, ReadsOutsideTheStorageAreRefused) {
    Image source(UBYTE, 6, 6);
    Image target(UBYTE, 4, 4);
    const auto before = target.storage();
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageCut(source.get(), 0xFFFFFFFFu, 0, target.get()));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImageCut",
                                   "cut at (-1, 0) reads outside the source's pixels"));
    EXPECT_EQ(2u, geomtest::tracesOf(log, "pxImageCut"));
    // A sum that wraps passes the signed fit test but is refused all the same.
    EXPECT_EQ(0u, pxImageCut(source.get(), 0x7FFFFFFFu, 0, target.get()));
    EXPECT_EQ(0u, pxImageCut(source.get(), 0, 0x80000000u, target.get()));
    EXPECT_EQ(before, target.storage());
    EXPECT_EQ(0, target->origX);
}

TEST(pxImageCut, MissingImagesArePassedUpAsTraces) {
    Image image(FLOAT, 4, 4);
    for (int converting = 0; converting < 2; ++converting) {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageCut(nullptr, 0, 0, image.get()));
        EXPECT_EQ(0u, pxImageCut(image.get(), 0, 0, nullptr));
        EXPECT_EQ(0u, pxImageCutWithTransform(nullptr, 0, 0, converting, nullptr));
        EXPECT_EQ(8u, log.records().size());
        EXPECT_EQ(8u, geomtest::tracesOf(log, "pxImageCut"));
    }
    tag_pxImage *empty = nullptr;
    ASSERT_EQ(1u, pxImageCreateEmpty(&empty));
    empty->type = FLOAT;
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageCut(image.get(), 0, 0, empty));
    EXPECT_EQ(0u, pxImageCut(empty, 0, 0, image.get()));
    EXPECT_EQ(6u, log.records().size());
    EXPECT_EQ(6u, geomtest::tracesOf(log, "pxImageCut"));
    pxImageDestruct(&empty);
}

TEST(pxImageCut, ConvertingIntoAPlaneWithoutPixelsIsRefused) {
    Image source(UBYTE, 8, 8);
    Image target(FLOAT, 4, 4, 0, 2);
    pxImagePixMap saved = target->pixMap[1];
    target->pixMap[1] = nullptr;
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageCut(source.get(), 0, 0, target.get()));
    target->pixMap[1] = saved;
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImageCut",
                                   "cut target has no pixels in plane 1"));
    EXPECT_EQ(3u, log.records().size());
}

TEST(pxImageCut, UnconvertibleTypesFailInTheConversion) {
    Image source(CSHORT, 8, 8);
    Image target(FLOAT, 4, 4);
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageCut(source.get(), 0, 0, target.get()));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImage", "Invalid ConvertKind"));
    EXPECT_EQ(2u, geomtest::tracesOf(log, "pxImageCut"));
}

TEST(pxImageCut, InvalidPixelTypeFailsAtThePixelSize) {
    Image source(UBYTE, 8, 8);
    Image target(UBYTE, 4, 4);
    source->type = 9;
    target->type = 9;
    pxtest::LogCapture log;
    const uint32_t result = pxImageCut(source.get(), 0, 0, target.get());
    source->type = UBYTE;
    target->type = UBYTE;
    EXPECT_EQ(0u, result);
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImage", "Invalid image type"));
    EXPECT_EQ(3u, geomtest::tracesOf(log, "pxImageCut"));
}

TEST(pxImageCut, EveryAllocationFailureOfTheConvertingPathLeavesNothing) {
    Image source(FLOAT, 30, 20);
    source.randomFloats(9, 0.0f, 300.0f);
    Image target(SHORT, 9, 7, 1, 3);
    const int allocations = pxtest::forEachAllocationFailure(
        [&] { return pxImageCutWithTransform(source.get(), 5, 6, 1, target.get()) == 1; }, [] {});
    EXPECT_GT(allocations, 0);
}

} // namespace
