// Automatic region extraction: the block test (pixels read as bytes and as floats), the edge peeling and
// its guard, against a plain model of the rules on synthetic images, and the refusals.
#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "CutPyrTestSupport.h"
#include "support/AllocFailure.h"

namespace {

using geomtest::Image;
using geomtest::kInvalidArgument;

// A plain model of the search on a FLOAT image: a float mask, the 6 x 6 block test, then the peeling
// with the guard of the library (stop when the strip to move was refused this round; a strip refused
// in the first round holds 0).
std::array<int, 4> modelRegion(const Image &image) {
    const int w = image->width, h = image->height;
    std::vector<float> mask(size_t(w) * size_t(h), 0.0f);
    for (int y0 = 0; y0 < h - 6; y0 += 6) {
        for (int x0 = 0; x0 < w - 6; x0 += 6) {
            double sum = 0, squares = 0;
            float level = 0;
            for (int y = y0; y < y0 + 6; ++y)
                for (int x = x0; x < x0 + 6; ++x) {
                    const double v = static_cast<const uint8_t *>(image->pixMap[0][y])[x];
                    sum += v;
                    squares += v * v;
                    level += image.at<float>(y, x);
                }
            const double t = squares - sum * sum / 36.0;
            const bool kept = t >= 100.0 && level <= 7344.0f && level >= 345.6;
            for (int y = y0; y < y0 + 6; ++y)
                for (int x = x0; x < x0 + 6; ++x)
                    mask[size_t(y) * w + x] = kept ? 255.0f : 0.0f;
        }
    }
    int left = 0, top = 0, right = w, bottom = h;
    double value[4] = {0, 0, 0, 0};
    for (;;) {
        const int strips[4][4] = {{right - 20, right, top, bottom},
                                  {left, left + 20, top, bottom},
                                  {left, right, bottom - 20, bottom},
                                  {left, right, top, top + 20}};
        bool fresh[4];
        for (int i = 0; i < 4; ++i) {
            const int *s = strips[i];
            fresh[i] = !(s[0] < 0 || s[2] < 0 || s[1] > w || s[3] > h);
            if (!fresh[i])
                continue;
            double total = 0;
            for (int y = s[2]; y < s[3]; ++y)
                for (int x = s[0]; x < s[1]; ++x)
                    total += mask[size_t(y) * w + x];
            const double area = double(s[1] - s[0]) * double(s[3] - s[2]);
            value[i] = (s[1] <= s[0] || s[3] <= s[2]) ? 0.0 : 1.0 - total / 255.0 / area;
        }
        const double m = std::max({value[0], value[1], value[3], value[2]});
        if (m <= 0.6)
            break;
        const int chosen = int(std::find(value, value + 4, m) - value);
        if (!fresh[chosen])
            break;
        int *edge[4] = {&right, &left, &bottom, &top};
        *edge[chosen] += (chosen == 1 || chosen == 3) ? 20 : -20;
    }
    return {left, top, right, bottom};
}

std::array<int, 4> libraryRegion(const Image &image) {
    int32_t rect[4] = {-7, -7, -7, -7};
    int32_t found = 1;
    EXPECT_EQ(1u, pxImageRoi(image.get(), rect, &found));
    EXPECT_EQ(1, found);
    return {rect[0], rect[1], rect[2], rect[3]};
}

void fillRect(const Image &image, int x0, int y0, int x1, int y1, float value) {
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            image.at<float>(y, x) = value;
}

TEST(pxImageRoi, SixPixelsHighTestsNoBlockAndPeelsUntilAStripFallsOutside) {
    Image image(FLOAT, 100, 6);
    fillRect(image, 0, 0, 100, 6, 100.0f); // would pass the block test, but no block is tested
    pxtest::LogCapture log;
    const auto rect = libraryRegion(image);
    // Every strip is wholly empty; the right edge moves first, 100 -> 0, then its strip [-20, 0) is refused.
    EXPECT_EQ((std::array<int, 4>{0, 0, 0, 6}), rect);
    // Rounds at right = 100, 80, 60, 40, 20 refuse the bottom and top strips; the last round also the right.
    EXPECT_EQ(13u, log.records().size());
    EXPECT_EQ(13u, geomtest::tracesOf(log, "pxImageRoi"));
}

TEST(pxImageRoi, FoundZeroOnEntryLeavesTheRectangleAlone) {
    Image image(FLOAT, 40, 40);
    int32_t rect[4] = {9, 9, 9, 9};
    int32_t found = 0;
    EXPECT_EQ(1u, pxImageRoi(image.get(), rect, &found));
    EXPECT_EQ(0, found);
    EXPECT_EQ(9, rect[0]);
    EXPECT_EQ(9, rect[3]);
    found = -3;
    EXPECT_EQ(1u, pxImageRoi(image.get(), nullptr, &found));
    EXPECT_EQ(0, found);
}

TEST(pxImageRoi, BrightEverywhereKeepsTheWholeImage) {
    Image image(FLOAT, 200, 160);
    fillRect(image, 0, 0, 200, 160, 100.0f);
    EXPECT_EQ((std::array<int, 4>{0, 0, 200, 160}), libraryRegion(image));
}

TEST(pxImageRoi, DarkEverywhereIsPeeledAway) {
    Image image(FLOAT, 200, 160);
    const auto rect = libraryRegion(image);
    EXPECT_LE(rect[2], rect[0]);
    EXPECT_EQ(modelRegion(image), rect);
}

TEST(pxImageRoi, RightPartDarkIsPeeledFromTheRight) {
    // Columns 0..99 bright: blocks up to x0 = 96 keep (the texture reads the left quarter of the row's
    // bytes, which is bright), so the mask is set over columns 0..101 and rows 0..155.
    Image image(FLOAT, 200, 160);
    fillRect(image, 0, 0, 100, 160, 100.0f);
    EXPECT_EQ((std::array<int, 4>{0, 0, 100, 160}), libraryRegion(image));
}

TEST(pxImageRoi, BytesAndFloatsOfTheSameRowsDecide) {
    // Brightness alone is not enough: the texture of a block at x0 comes from bytes x0..x0+5 of its rows,
    // the bytes of floats x0/4 .. (x0+5)/4. With the left quarter dark, no block has texture.
    Image image(FLOAT, 200, 160);
    fillRect(image, 60, 0, 200, 160, 100.0f);
    const auto rect = libraryRegion(image);
    EXPECT_LE(rect[2], rect[0]);
    EXPECT_EQ(modelRegion(image), rect);
    // Too bright (a block mean above 204) is not kept either.
    fillRect(image, 0, 0, 200, 160, 204.5f);
    EXPECT_LE(libraryRegion(image)[2], 20);
    fillRect(image, 0, 0, 200, 160, 204.0f);
    EXPECT_EQ((std::array<int, 4>{0, 0, 200, 160}), libraryRegion(image));
}

TEST(pxImageRoi, SyntheticScenesMatchThePlainModel) {
    std::mt19937 rng(11);
    for (int scene = 0; scene < 12; ++scene) {
        const int w = 41 + int(rng() % 160), h = 37 + int(rng() % 120);
        Image image(FLOAT, w, h, int(rng() % 3));
        image.randomFloats(uint32_t(scene), 0.0f, 8.0f);
        for (int k = 0; k < 3; ++k) {
            const int x0 = int(rng() % w), y0 = int(rng() % h);
            const int x1 = std::min(w, x0 + 10 + int(rng() % w)), y1 = std::min(h, y0 + 10 + int(rng() % h));
            fillRect(image, x0, y0, x1, y1, float(20 + rng() % 200));
        }
        EXPECT_EQ(modelRegion(image), libraryRegion(image)) << "scene " << scene << ": " << w << "x" << h;
    }
}

TEST(pxImageRoi, ByteImagesWhoseFloatReadsLeaveTheStorageAreRefused) {
    Image image(UBYTE, 64, 48);
    image.randomBytes(3);
    int32_t rect[4] = {5, 5, 5, 5};
    int32_t found = 1;
    pxtest::LogCapture log;
    const long live = pxEnvLiveAllocations();
    EXPECT_EQ(0u, pxImageRoi(image.get(), rect, &found));
    EXPECT_EQ(live, pxEnvLiveAllocations());
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImageRoi",
                                   "pxImageRoi reads 64x48 pixels of type 2 as floats beyond their storage"));
    EXPECT_EQ(1, found);
    EXPECT_EQ(5, rect[0]);
    Image shorts(SHORT, 30, 30);
    EXPECT_EQ(0u, pxImageRoi(shorts.get(), rect, &found));
}

TEST(pxImageRoi, SmallByteImageWithAWideMarginStaysInside) {
    // One block is tested; its float reads take 24 bytes of rows 0..5, inside the 32-byte rows of the
    // image and inside the 144-byte mask. No strip fits, so nothing is peeled.
    Image image(UBYTE, 12, 12, 10);
    image.randomBytes(4);
    EXPECT_EQ((std::array<int, 4>{0, 0, 12, 12}), libraryRegion(image));
}

TEST(pxImageRoi, OtherWideTypesAreReadTheSameWay) {
    Image image(DOUBLE, 80, 70);
    image.randomBytes(5);
    const auto rect = libraryRegion(image);
    EXPECT_GE(rect[0], 0);
}

TEST(pxImageRoi, MissingImageOrPixelsFail) {
    int32_t rect[4] = {};
    int32_t found = 1;
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageRoi(nullptr, rect, &found));
    EXPECT_EQ(1u, geomtest::tracesOf(log, "pxImageRoi"));
    Image image(FLOAT, 30, 30);
    pxImagePixMap saved = image->pixMap[0];
    image->pixMap[0] = nullptr;
    const long live = pxEnvLiveAllocations();
    EXPECT_EQ(0u, pxImageRoi(image.get(), rect, &found));
    EXPECT_EQ(live, pxEnvLiveAllocations());
    image->pixMap[0] = saved;
    EXPECT_EQ(2u, geomtest::tracesOf(log, "pxImageRoi"));
    EXPECT_EQ(0u, pxImageRoi(image.get(), nullptr, &found));
    EXPECT_EQ(0u, pxImageRoi(image.get(), rect, nullptr));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImageRoi",
                                   "pxImageRoi needs a request flag and a rectangle"));
}

TEST(pxImageRoi, EveryAllocationFailureLeavesNothing) {
    Image image(FLOAT, 90, 70);
    fillRect(image, 10, 10, 80, 60, 90.0f);
    int32_t rect[4];
    int32_t found = 1;
    const int allocations = pxtest::forEachAllocationFailure(
        [&] {
            found = 1;
            return pxImageRoi(image.get(), rect, &found) == 1;
        },
        [] {});
    EXPECT_GT(allocations, 0);
}

} // namespace
