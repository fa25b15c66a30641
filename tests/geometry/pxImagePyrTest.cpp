// Pyramids and the reduction by two: level sizes, the edge rules at odd and even sizes against the
// formulas written out, the constant image, OpenCV's pyrDown on interior pixels, reads past short rows,
// and every refusal and allocation failure.
#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "CutPyrTestSupport.h"
#include "support/AllocFailure.h"

namespace {

using geomtest::Image;
using geomtest::kInvalidArgument;

const float kBinomial[3] = {0.375f, 0.25f, 0.0625f}; // 1-4-6-4-1 / 16

// A pyramid that destroys its levels.
struct Pyramid {
    pxImagePyramid levels{};
    ~Pyramid() { pxImagePyrDestruct(levels); }
};

// The filter of one line, written out from the rules: x = 0, x = n - 1, x = n - 2, interior.
float line(const std::vector<float> &s, int x, int n, const float k[3]) {
    if (x == 0)
        return (k[0] * s[0] + k[1] * s[1] + k[2] * s[2]) / (k[0] + k[1] + k[2]);
    if (x == n - 1)
        return (k[0] * s[x] + k[1] * s[x - 1] + k[2] * s[x - 2]) / (k[0] + k[1] + k[2]);
    if (x == n - 2)
        return (k[0] * s[x] + k[1] * (s[x - 1] + s[x + 1]) + k[2] * s[x - 2]) / (k[0] + 2 * k[1] + k[2]);
    return k[0] * s[x] + k[1] * (s[x - 1] + s[x + 1]) + k[2] * (s[x - 2] + s[x + 2]);
}

// The reduction of an image of at least 3 x 3 pixels, by the rules, through a row-filtered copy.
std::vector<std::vector<float>> modelReduce(const Image &source, const float k[3]) {
    const int W = source->width, H = source->height, w = (W + 1) / 2, h = (H + 1) / 2;
    std::vector<std::vector<float>> rows(H, std::vector<float>(w));
    for (int y = 0; y < H; ++y) {
        std::vector<float> s(W);
        for (int x = 0; x < W; ++x)
            s[x] = source.at<float>(y, x);
        for (int j = 0; j < w; ++j)
            rows[y][j] = line(s, 2 * j, W, k);
    }
    std::vector<std::vector<float>> out(h, std::vector<float>(w));
    for (int j = 0; j < w; ++j) {
        std::vector<float> s(H);
        for (int y = 0; y < H; ++y)
            s[y] = rows[y][j];
        for (int i = 0; i < h; ++i)
            out[i][j] = line(s, 2 * i, H, k);
    }
    return out;
}

void expectSameBits(float expected, float actual, int i, int j) {
    ASSERT_EQ(0, std::memcmp(&expected, &actual, sizeof(float)))
        << "pixel " << i << "," << j << ": " << expected << " vs " << actual;
}

TEST(pxImagePyr, LevelTwoOfHundredBySixty) {
    Pyramid p;
    ASSERT_EQ(1u, pxImagePyrHeaderConstruct(p.levels, 2, 100, 60, FLOAT, 1, 1));
    const int sizes[][2] = {{400, 240}, {200, 120}, {100, 60}, {50, 30}, {25, 15},
                            {13, 8},    {7, 4},     {4, 2},    {2, 1}};
    for (int l = 0; l < 9; ++l) {
        ASSERT_NE(nullptr, p.levels[l]);
        EXPECT_EQ(sizes[l][0], p.levels[l]->width) << l;
        EXPECT_EQ(sizes[l][1], p.levels[l]->height) << l;
        EXPECT_EQ(nullptr, p.levels[l]->pixMap[0]);
        EXPECT_EQ(FLOAT, p.levels[l]->type);
        EXPECT_EQ(1, p.levels[l]->border);
    }
    for (int l = 9; l < 15; ++l)
        EXPECT_EQ(nullptr, p.levels[l]);
}

TEST(pxImagePyr, SetNullClearsOnlyLevelZero) {
    tag_pxImage marker{};
    pxImagePyramid p;
    for (auto &level : p)
        level = &marker;
    EXPECT_EQ(1u, pxImagePyrSetNull(p));
    EXPECT_EQ(nullptr, p[0]);
    for (int l = 1; l < 15; ++l)
        EXPECT_EQ(&marker, p[l]);
}

TEST(pxImagePyr, ConstantImageStaysConstantAtBothEdges) {
    for (int W : {3, 4, 5, 6, 7, 12, 13}) {
        for (int H : {3, 4, 5, 9, 10}) {
            Image source(FLOAT, W, H);
            for (int y = 0; y < H; ++y)
                for (int x = 0; x < W; ++x)
                    source.at<float>(y, x) = 7.0f;
            Image target(FLOAT, (W + 1) / 2, (H + 1) / 2);
            tag_pxImage *t = target.get();
            ASSERT_EQ(1u, pxImageReduce(source.get(), &t, kBinomial));
            for (int i = 0; i < target->height; ++i)
                for (int j = 0; j < target->width; ++j)
                    ASSERT_EQ(7.0f, target.at<float>(i, j)) << W << "x" << H << " at " << i << "," << j;
        }
    }
}

TEST(pxImagePyr, WidthSixUsesTheSecondToLastRuleWidthFiveTheLastRule) {
    const float k[3] = {0.5f, 0.2f, 0.05f};
    for (int W : {5, 6}) {
        Image source(FLOAT, W, 3);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < W; ++x)
                source.at<float>(y, x) = float((x + 1) * (x + 1));
        Image target(FLOAT, 3, 2);
        tag_pxImage *t = target.get();
        ASSERT_EQ(1u, pxImageReduce(source.get(), &t, k));
        // Every row is the same, so the vertical pass divides the row result by the sum of the weights it
        // multiplied and gives it back up to rounding; the column-2 value of a row is checked directly.
        const float s2 = 9.0f, s3 = 16.0f, s4 = 25.0f, s5 = 36.0f; // (x + 1)^2 at x = 2..5
        const float expected = W == 6 ? (k[0] * s4 + k[1] * (s3 + s5) + k[2] * s2) / (k[0] + 2 * k[1] + k[2])
                                      : (k[0] * s4 + k[1] * s3 + k[2] * s2) / (k[0] + k[1] + k[2]);
        const float row0 = (k[0] * expected + k[1] * expected + k[2] * expected) / (k[0] + k[1] + k[2]);
        expectSameBits(row0, target.at<float>(0, 2), 0, 2);
    }
}

TEST(pxImagePyr, OddAndEvenSizesMatchTheRulesBitForBit) {
    const float k[3] = {0.4f, 0.24f, 0.06f};
    for (int W : {3, 4, 5, 8, 9, 17, 30, 31, 33}) {
        for (int H : {3, 4, 7, 10, 11}) {
            Image source(FLOAT, W, H, 2);
            source.randomFloats(uint32_t(W * 100 + H), -500.0f, 500.0f);
            Image target(FLOAT, (W + 1) / 2, (H + 1) / 2);
            tag_pxImage *t = target.get();
            ASSERT_EQ(1u, pxImageReduce(source.get(), &t, k));
            const auto expected = modelReduce(source, k);
            for (int i = 0; i < target->height; ++i)
                for (int j = 0; j < target->width; ++j)
                    expectSameBits(expected[i][j], target.at<float>(i, j), i, j);
        }
    }
}

TEST(pxImagePyr, InteriorMatchesOpenCvPyrDown) {
    for (int size : {65, 128, 201}) {
        Image source(FLOAT, size, size - 6);
        source.randomFloats(uint32_t(size), 0.0f, 255.0f);
        Image target(FLOAT, (size + 1) / 2, (size - 5) / 2);
        tag_pxImage *t = target.get();
        ASSERT_EQ(1u, pxImageReduce(source.get(), &t, kBinomial));
        const cv::Mat in(source->height, source->width, CV_32F, source->pixMap[0][0]);
        cv::Mat out;
        cv::pyrDown(in, out);
        ASSERT_EQ(target->width, out.cols);
        ASSERT_EQ(target->height, out.rows);
        // Interior: both filters use all five taps in both directions (2 <= 2j <= W - 3). OpenCV sums with
        // the integer weights 1, 4, 6 and scales by 1/256 at the end, so the two differ by rounding only.
        double worst = 0;
        for (int i = 1; 2 * i <= source->height - 3; ++i)
            for (int j = 1; 2 * j <= source->width - 3; ++j)
                worst = std::max(worst, double(std::fabs(out.at<float>(i, j) - target.at<float>(i, j))));
        EXPECT_LE(worst, 255.0 * 4 * 1.2e-7) << size;
    }
}

TEST(pxImagePyr, NarrowImagesReadThePixelsPastTheirRows) {
    const float k[3] = {0.5f, 0.2f, 0.05f};
    for (int W : {1, 2}) {
        Image source(FLOAT, W, 5, 2);
        source.randomFloats(uint32_t(W), 1.0f, 9.0f);
        Image target(FLOAT, 1, 3);
        tag_pxImage *t = target.get();
        ASSERT_EQ(1u, pxImageReduce(source.get(), &t, k));
        // Row y of the scratch image is the x = 0 rule over columns 0, 1, 2 of the stored row: margin.
        std::vector<float> column(5);
        for (int y = 0; y < 5; ++y)
            column[y] =
                line({source.at<float>(y, 0), source.at<float>(y, 1), source.at<float>(y, 2)}, 0, W, k);
        for (int i = 0; i < 3; ++i)
            expectSameBits(line(column, 2 * i, 5, k), target.at<float>(i, 0), i, 0);
    }
    // With a margin of 1, column 2 of a 1-pixel-wide row lies past the margin: it is column -1 of the next
    // stored row.
    Image source(FLOAT, 1, 5, 1);
    source.randomFloats(3, 1.0f, 9.0f);
    Image target(FLOAT, 1, 3);
    tag_pxImage *t = target.get();
    ASSERT_EQ(1u, pxImageReduce(source.get(), &t, k));
    std::vector<float> column(5);
    for (int y = 0; y < 5; ++y)
        column[y] =
            line({source.at<float>(y, 0), source.at<float>(y, 1), source.at<float>(y + 1, -1)}, 0, 1, k);
    for (int i = 0; i < 3; ++i)
        expectSameBits(line(column, 2 * i, 5, k), target.at<float>(i, 0), i, 0);
}

TEST(pxImagePyr, ReadsOutsideTheStorageAreRefused) {
    struct Case {
        int W, H, border, w, h;
        const char *text;
    };
    const Case cases[] = {
        {1, 7, 0, 1, 4, "reduction of 1x7 to 1x4 reads outside the pixels"}, // last row reads 2 past the end
        {2, 7, 0, 1, 4, "reduction of 2x7 to 1x4 reads outside the pixels"},
        {8, 2, 2, 4, 1, "reduction of 8x2 to 4x1 reads outside the pixels"}, // scratch image of 2 rows
        {8, 1, 2, 4, 1, "reduction of 8x1 to 4x1 reads outside the pixels"},
        {8, 8, 0, 4, 5, "reduction of 8x8 to 4x5 reads outside the pixels"}, // target too high
        {8, 8, 0, 6, 4, "reduction of 8x8 to 6x4 reads outside the pixels"}, // too wide: past the last row
    };
    for (const Case &c : cases) {
        Image source(FLOAT, c.W, c.H, c.border);
        Image target(FLOAT, c.w, c.h);
        tag_pxImage *t = target.get();
        pxtest::LogCapture log;
        const long live = pxEnvLiveAllocations();
        EXPECT_EQ(0u, pxImageReduce(source.get(), &t, kBinomial));
        EXPECT_EQ(live, pxEnvLiveAllocations());
        EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImagePyr", c.text));
        EXPECT_EQ(1u, log.records().size());
    }
    // A target wider than the halved source reads past its rows into the next ones: fine with a margin.
    Image source(FLOAT, 8, 8, 3);
    Image target(FLOAT, 6, 4);
    tag_pxImage *t = target.get();
    EXPECT_EQ(1u, pxImageReduce(source.get(), &t, kBinomial));
}

TEST(pxImagePyr, ReduceRefusesOtherTypesAndMissingArguments) {
    Image source(SHORT, 8, 8);
    Image target(FLOAT, 4, 4);
    tag_pxImage *t = target.get();
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageReduce(source.get(), &t, kBinomial));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImagePyr",
                                   "pxImageReduce works only on float images"));
    Image floats(FLOAT, 8, 8);
    EXPECT_EQ(0u, pxImageReduce(floats.get(), &t, nullptr));
    EXPECT_EQ(0u, pxImageReduce(nullptr, &t, kBinomial));
    EXPECT_EQ(0u, pxImageReduce(floats.get(), nullptr, kBinomial));
    tag_pxImage *none = nullptr;
    EXPECT_EQ(0u, pxImageReduce(floats.get(), &none, kBinomial));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImagePyr",
                                   "pxImageReduce needs two images with pixels and a kernel"));
    EXPECT_EQ(5u, log.records().size());
}

TEST(pxImagePyr, WholePyramidEqualsReductionsOneByOne) {
    Pyramid p;
    ASSERT_EQ(1u, pxImagePyrHeaderConstruct(p.levels, 0, 61, 45, FLOAT, 2, 1));
    ASSERT_EQ(1u, pxImagePyrPixMapConstruct(FLOAT, 2, 1, 0, 4, p.levels));
    EXPECT_EQ(nullptr, p.levels[5]->pixMap[0]);
    Image source(FLOAT, 61, 45, 2);
    source.randomFloats(5, 0.0f, 255.0f);
    ASSERT_EQ(1u, pxImagePixMapConvertCopy(source->pixMap[0], 61, 45, FLOAT, 2, 2, 0, FLOAT,
                                           &p.levels[0]->pixMap[0]));
    ASSERT_EQ(1u, pxImagePyrReduce(p.levels, 0, 4, kBinomial));
    // 61x45, 31x23, 16x12, 8x6, 4x3: each level is the reduction of the one below.
    for (int l = 1; l <= 4; ++l) {
        const tag_pxImage *below = p.levels[l - 1];
        Image expected(FLOAT, p.levels[l]->width, p.levels[l]->height);
        tag_pxImage *e = expected.get();
        ASSERT_EQ(1u, pxImageReduce(below, &e, kBinomial));
        for (int i = 0; i < expected->height; ++i)
            for (int j = 0; j < expected->width; ++j)
                expectSameBits(expected.at<float>(i, j), static_cast<float *>(p.levels[l]->pixMap[0][i])[j],
                               i, j);
    }
    EXPECT_EQ(1u, pxImagePyrReduce(p.levels, 3, 3, kBinomial)); // nothing to do
    // Level 4 is 4x3 and level 5 has no pixels: the failure is passed up.
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImagePyrReduce(p.levels, 3, 5, kBinomial));
    EXPECT_EQ(1u, geomtest::tracesOf(log, "pxImagePyr"));
    EXPECT_EQ(2u, log.records().size());
}

TEST(pxImagePyr, DestructFreesEveryLevel) {
    const long live = pxEnvLiveAllocations();
    {
        pxImagePyramid p{};
        ASSERT_EQ(1u, pxImagePyrHeaderConstruct(p, 1, 40, 30, FLOAT, 0, 2));
        ASSERT_EQ(1u, pxImagePyrPixMapConstruct(FLOAT, 0, 2, 0, 3, p));
        EXPECT_EQ(1u, pxImagePyrDestruct(p));
        for (auto *level : p)
            EXPECT_EQ(nullptr, level);
    }
    EXPECT_EQ(live, pxEnvLiveAllocations());
}

TEST(pxImagePyr, HeaderRefusals) {
    pxImagePyramid p{};
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImagePyrHeaderConstruct(p, 15, 100, 100, FLOAT, 0, 1));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImagePyr",
                                   "pyramid level 15 outside 0..14"));
    EXPECT_EQ(0u, pxImagePyrHeaderConstruct(p, -1, 100, 100, FLOAT, 0, 1));
    EXPECT_EQ(0u, pxImagePyrHeaderConstruct(nullptr, 0, 100, 100, FLOAT, 0, 1));
    // 4000 x 4000 ends at 1 x 1 twelve levels up: from level 3 that would be level 15.
    EXPECT_EQ(0u, pxImagePyrHeaderConstruct(p, 3, 4000, 4000, FLOAT, 0, 1));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImagePyr",
                                   "pyramid of 4000x4000 at level 3 needs more than 15 levels"));
    for (auto *level : p)
        EXPECT_EQ(nullptr, level);
    EXPECT_EQ(0u, pxImagePyrHeaderConstruct(p, 2, 4000, 4000, FLOAT, 0, 1)); // level 0 is 16000 wide
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImage", "txt"));
    pxImagePyrDestruct(p);
}

TEST(pxImagePyr, LevelBelowTooLargeFailsWithTheLevelsBuiltSoFar) {
    pxImagePyramid p{};
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImagePyrHeaderConstruct(p, 1, 6000, 20, FLOAT, 0, 1));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImage", "txt"));
    EXPECT_NE(nullptr, p[1]);
    EXPECT_EQ(nullptr, p[0]);
    EXPECT_EQ(nullptr, p[2]);
    pxImagePyrDestruct(p);
}

TEST(pxImagePyr, PixMapsNeedHeadersOfTheSameForm) {
    Pyramid p;
    ASSERT_EQ(1u, pxImagePyrHeaderConstruct(p.levels, 0, 32, 32, FLOAT, 1, 1));
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImagePyrPixMapConstruct(SHORT, 1, 1, 0, 2, p.levels));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImagePyr",
                                   "pyramid level 0 has no header of type 3, border 1 and 1 planes"));
    EXPECT_EQ(0u, pxImagePyrPixMapConstruct(FLOAT, 2, 1, 0, 2, p.levels));
    EXPECT_EQ(0u, pxImagePyrPixMapConstruct(FLOAT, 1, 2, 0, 2, p.levels));
    EXPECT_EQ(0u, pxImagePyrPixMapConstruct(FLOAT, 1, 1, 0, 9, p.levels)); // level 6 is null
    EXPECT_EQ(0u, pxImagePyrPixMapConstruct(FLOAT, 1, 1, 0, 15, p.levels));
    for (auto *level : p.levels)
        EXPECT_TRUE(level == nullptr || level->pixMap[0] == nullptr);
    EXPECT_EQ(1u, pxImagePyrPixMapConstruct(FLOAT, 1, 1, 3, 2, p.levels)); // first > last: nothing
    ASSERT_EQ(1u, pxImagePyrPixMapConstruct(FLOAT, 1, 1, 1, 2, p.levels));
    log.clear();
    EXPECT_EQ(0u, pxImagePyrPixMapConstruct(FLOAT, 1, 1, 0, 2, p.levels));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImagePyr",
                                   "pyramid level 1 already has pixels"));
    EXPECT_EQ(nullptr, p.levels[0]->pixMap[0]);
}

TEST(pxImagePyr, MissingArraysAndLevelsOutsideTheArrayAreRefused) {
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImagePyrSetNull(nullptr));
    EXPECT_EQ(0u, pxImagePyrDestruct(nullptr));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImagePyr", "no pyramid"));
    pxImagePyramid p{};
    EXPECT_EQ(0u, pxImagePyrReduce(p, 0, 15, kBinomial));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImagePyr",
                                   "pyramid levels 0..15 outside 0..14"));
    EXPECT_EQ(0u, pxImagePyrReduce(p, -1, 3, kBinomial));
    EXPECT_EQ(0u, pxImagePyrReduce(nullptr, 0, 3, kBinomial));
    EXPECT_EQ(0u, pxImagePyrPixMapConstruct(FLOAT, 0, 1, -1, 2, p));
    EXPECT_TRUE(geomtest::hasError(log, PXENV_LOG_I, kInvalidArgument, "pxImagePyr",
                                   "pyramid levels -1..2 outside 0..14"));
    EXPECT_EQ(6u, log.records().size());
    EXPECT_EQ(1u, pxImagePyrReduce(nullptr, 4, 4, kBinomial)); // nothing to do
}

TEST(pxImagePyr, EveryAllocationFailureLeavesNothing) {
    Image source(FLOAT, 23, 19, 1);
    source.randomFloats(6, 0.0f, 255.0f);
    Image target(FLOAT, 12, 10);
    tag_pxImage *t = target.get();
    EXPECT_GT(pxtest::forEachAllocationFailure(
                  [&] { return pxImageReduce(source.get(), &t, kBinomial) == 1; }, [] {}),
              0);
    pxImagePyramid p{};
    const auto build = [&] {
        if (pxImagePyrHeaderConstruct(p, 1, 50, 40, FLOAT, 1, 2) &&
            pxImagePyrPixMapConstruct(FLOAT, 1, 2, 0, 4, p) && pxImagePyrReduce(p, 0, 4, kBinomial))
            return true;
        pxImagePyrDestruct(p); // the levels built before a failure are the caller's to free
        return false;
    };
    EXPECT_GT(pxtest::forEachAllocationFailure(build, [&] { pxImagePyrDestruct(p); }), 0);
}

} // namespace
