// Magnified cut-outs of float images around points: the region rules, replication pixel by pixel, the
// mapped marks, reuse of an existing output with the corners after the points, refusals and allocation
// failures.
#include <cstdint>
#include <cstring>
#include <vector>

#include "mark/MarkTestSupport.h"
#include "support/AllocFailure.h"

namespace {

using marktest::Image;
using marktest::MarkTest;

using MarkMagnify = MarkTest;

// Source pixel value of (x, y) in the test images.
float sourceValue(int64_t x, int64_t y) {
    return static_cast<float>(1000 * y + x) + 0.25f;
}

void fillSource(const Image &source) {
    for (int y = 0; y < source->height; ++y)
        for (int x = 0; x < source->width; ++x)
            source.at<float>(y, x) = sourceValue(x, y);
}

// The expected cut-out of source columns xmin..xmax, rows ymin..ymax at magnification m: blocks of the
// source pixels, 0 where the region leaves the source.
void expectBlocks(const Image &source, const tag_pxImage *output, int64_t xmin, int64_t ymin, int64_t xmax,
                  int64_t ymax, int32_t m, const std::vector<std::pair<int, int>> &marked, float mark) {
    ASSERT_EQ((xmax - xmin + 1) * m, output->width);
    ASSERT_EQ((ymax - ymin + 1) * m, output->height);
    for (int y = 0; y < output->height; ++y)
        for (int x = 0; x < output->width; ++x) {
            const int64_t sx = xmin + x / m;
            const int64_t sy = ymin + y / m;
            const bool inside = sx >= 0 && sy >= 0 && sx < source->width && sy < source->height;
            float expected = inside ? sourceValue(sx, sy) : 0.0f;
            for (const auto &p : marked)
                if (p.first == x && p.second == y)
                    expected = mark;
            ASSERT_EQ(expected, static_cast<float *>(output->pixMap[0][y])[x]) << x << "," << y;
        }
}

TEST_F(MarkMagnify, OnePointMagnifiedThreeTimes) {
    pxImageMarkPtsSetParams(1, -1);
    Image source(FLOAT, 40, 30, 2);
    fillSource(source);
    const double point[2] = {5.2, 7.9};
    tag_pxImage *output = nullptr;
    pxtest::LogCapture log;
    ASSERT_EQ(1u, pxImageMarkPtsMagnify(point, 1, 3, source.get(), &output));
    Image owner(output);
    EXPECT_TRUE(log.records().empty());
    // Columns 4..6, rows 6..8; the point maps to (5.1, 7.2), drawn at column 5, row 7.
    expectBlocks(source, output, 4, 6, 6, 8, 3, {{5, 7}}, -1.0f);
    EXPECT_EQ(FLOAT, output->type);
    EXPECT_EQ(2, output->border);
    EXPECT_EQ(1, output->planes);
}

TEST_F(MarkMagnify, BoundingBoxOfSeveralPointsWithCrosses) {
    pxImageMarkPtsSetParams(3, 5000);
    Image source(FLOAT, 40, 30, 1);
    fillSource(source);
    const double points[] = {10.7, 12.1, 14.2, 9.6, 12.0, 15.99};
    tag_pxImage *output = nullptr;
    ASSERT_EQ(1u, pxImageMarkPtsMagnify(points, 3, 4, source.get(), &output));
    Image owner(output);
    // Truncated: x 10..14, y 9..15, widened: columns 9..15, rows 8..16.
    std::vector<std::pair<int, int>> marked;
    for (int i = 0; i < 3; ++i) {
        const int cx = static_cast<int>((points[2 * i] - 9 + 0.5) * 4 + 0.5);
        const int cy = static_cast<int>((points[2 * i + 1] - 8 + 0.5) * 4 + 0.5);
        for (int d = -1; d <= 1; ++d) {
            marked.push_back({cx + d, cy});
            marked.push_back({cx, cy + d});
        }
    }
    expectBlocks(source, output, 9, 8, 15, 16, 4, marked, 5000.0f);
}

TEST_F(MarkMagnify, WideningStopsAtTheImageEdges) {
    pxImageMarkPtsSetParams(1, -5);
    Image source(FLOAT, 10, 8, 1);
    fillSource(source);
    const double corners[] = {0.3, 0.9, 9.9, 7.2};
    tag_pxImage *output = nullptr;
    ASSERT_EQ(1u, pxImageMarkPtsMagnify(corners, 2, 1, source.get(), &output));
    Image owner(output);
    // At m = 1 the mapped point (x - xmin + 0.5) rounds once more: (0.8, 1.4) marks (1, 1), and (10.4, 7.7)
    // marks (10, 8), in the margin, since the region could not be widened beyond the last column and row.
    expectBlocks(source, output, 0, 0, 9, 7, 1, {{1, 1}}, -5.0f);
    EXPECT_EQ(-5.0f, owner.at<float>(8, 10));
}

TEST_F(MarkMagnify, PointsOutsideTheImageGiveARegionBeyondItLeftZero) {
    pxImageMarkPtsSetParams(1, 77);
    Image source(FLOAT, 10, 8);
    fillSource(source);
    const double point[2] = {-3.2, 2.0}; // truncated -3: not widened below 0, widened to -2 on the right
    tag_pxImage *output = nullptr;
    ASSERT_EQ(1u, pxImageMarkPtsMagnify(point, 1, 2, source.get(), &output));
    Image owner(output);
    // Columns -3..-2 (all outside the source, so zero), rows 1..3; the point maps to ((-3.2 + 3 + 0.5) 2,
    // (2 - 1 + 0.5) 2) = (0.6, 3), drawn at column 1, row 3.
    expectBlocks(source, output, -3, 1, -2, 3, 2, {{1, 3}}, 77.0f);
}

TEST_F(MarkMagnify, EveryPlaneIsReplicatedMarksGoToPlaneZero) {
    pxImageMarkPtsSetParams(1, 9);
    Image source(FLOAT, 6, 5, 0, 3);
    source.fillPattern<float>();
    const double point[2] = {2.0, 2.0};
    tag_pxImage *output = nullptr;
    ASSERT_EQ(1u, pxImageMarkPtsMagnify(point, 1, 2, source.get(), &output));
    Image owner(output);
    ASSERT_EQ(3, output->planes);
    for (int p = 0; p < 3; ++p)
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 6; ++x) {
                const float expected =
                    p == 0 && x == 3 && y == 3 ? 9.0f : source.at<float>(1 + y / 2, 1 + x / 2, p);
                ASSERT_EQ(expected, owner.at<float>(y, x, p)) << p << " " << x << "," << y;
            }
}

TEST_F(MarkMagnify, ValuesAreCopiedAsBits) {
    Image source(FLOAT, 3, 3);
    const uint32_t payload = 0x7FC12345u; // a NaN with a payload
    std::memcpy(&source.at<float>(1, 1), &payload, 4);
    const double point[2] = {0.0, 0.0};
    tag_pxImage *output = nullptr;
    pxImageMarkPtsSetParams(-2, 0); // no cross
    ASSERT_EQ(1u, pxImageMarkPtsMagnify(point, 1, 2, source.get(), &output));
    Image owner(output);
    uint32_t copied = 0;
    std::memcpy(&copied, &owner.at<float>(3, 3), 4);
    EXPECT_EQ(payload, copied);
}

TEST_F(MarkMagnify, AnExistingOutputIsReusedAsItIsWithTheCornersAfterThePoints) {
    pxImageMarkPtsSetParams(1, 3);
    Image source(FLOAT, 40, 30);
    fillSource(source);
    Image output(FLOAT, 12, 12);
    output.fillPattern<float>();
    Image expected(FLOAT, 12, 12);
    expected.fillPattern<float>();
    // Two points, then (xmin, ymin) = (10.9, 20.2) and (xmax, ymax) = (13, 23): region from (10, 20), m = 3.
    const double points[] = {11.0, 21.0, 12.4, 22.6, 10.9, 20.2, 13.0, 23.0};
    tag_pxImage *handle = output.get();
    pxtest::LogCapture log;
    ASSERT_EQ(1u, pxImageMarkPtsMagnify(points, 2, 3, source.get(), &handle));
    EXPECT_EQ(output.get(), handle);
    EXPECT_TRUE(log.records().empty());
    marktest::referenceCross<float>(expected, (11.0 - 10 + 0.5) * 3, (21.0 - 20 + 0.5) * 3, 1, 3.0f);
    marktest::referenceCross<float>(expected, (12.4 - 10 + 0.5) * 3, (22.6 - 20 + 0.5) * 3, 1, 3.0f);
    EXPECT_EQ(expected.storage(), output.storage());
}

TEST_F(MarkMagnify, ReusedOutputWithCornersThatPutThePointsOutsideFails) {
    pxImageMarkPtsSetParams(1, 3);
    Image source(FLOAT, 40, 30);
    Image output(FLOAT, 6, 6);
    const double points[] = {30.0, 5.0, 0.0, 0.0, 1.0, 1.0};
    tag_pxImage *handle = output.get();
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageMarkPtsMagnify(points, 1, 2, source.get(), &handle));
    EXPECT_EQ(1u, log.messages().size());
    EXPECT_EQ(2u, log.traceCount()); // pxImageMarkPts, then the magnification
}

TEST_F(MarkMagnify, RefusesBadSourcesMagnificationsAndHandles) {
    Image floats(FLOAT, 8, 8);
    Image bytes(UBYTE, 8, 8);
    tag_pxImage *empty = nullptr;
    ASSERT_EQ(1u, pxImageCreateEmpty(&empty));
    const double point[2] = {2.0, 2.0};
    tag_pxImage *output = nullptr;
    struct Case {
        const double *points;
        int32_t m;
        const tag_pxImage *source;
        tag_pxImage **handle;
        const char *text;
    } cases[] = {
        {point, 2, nullptr, &output, "Magnified marks need a float source image with pixels"},
        {point, 2, bytes.get(), &output, "Magnified marks need a float source image with pixels"},
        {point, 2, empty, &output, "Magnified marks need a float source image with pixels"},
        {point, 0, floats.get(), &output, "Magnification 0 is below 1"},
        {point, -3, floats.get(), &output, "Magnification -3 is below 1"},
        {point, 2, floats.get(), nullptr, "Magnified marks need the points and an output handle"},
        {nullptr, 2, floats.get(), &output, "Magnified marks need the points and an output handle"},
    };
    for (const Case &c : cases) {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageMarkPtsMagnify(c.points, 1, c.m, c.source, c.handle)) << c.text;
        EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImageMarkPts", c.text)) << c.text;
        EXPECT_TRUE(marktest::onlyInvalidArgument(log)) << c.text;
        EXPECT_EQ(nullptr, output);
    }
    tag_pxImage *reuse = empty;
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageMarkPtsMagnify(point, 0, 2, floats.get(), &reuse));
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImageMarkPts", "The output image to reuse has no pixels"));
    pxImageDestruct(&empty);
}

TEST_F(MarkMagnify, NoPointsGiveNoRegionAndTheConstructionFails) {
    Image source(FLOAT, 8, 8);
    tag_pxImage *output = nullptr;
    const long live = pxEnvLiveAllocations();
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageMarkPtsMagnify(nullptr, 0, 2, source.get(), &output));
    EXPECT_EQ(nullptr, output);
    EXPECT_EQ(live, pxEnvLiveAllocations());
    EXPECT_EQ(1u, log.messages().size()); // the constructor's own report
    EXPECT_EQ("pxImage", log.messages()[0].module);
    int ours = 0;
    for (const pxtest::LogRecord &r : log.records())
        ours += r.module == "pxImageMarkPts" && r.level == 1 && r.text.empty();
    EXPECT_EQ(2, ours); // the construction, then the exported function
    EXPECT_EQ("pxImageMarkPts", log.records().back().module);
}

TEST_F(MarkMagnify, ACutOutTooLargeForARecordFails) {
    Image source(FLOAT, 100, 100);
    const double points[] = {0.0, 0.0, 99.0, 99.0};
    tag_pxImage *output = nullptr;
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageMarkPtsMagnify(points, 2, 100, source.get(), &output));
    EXPECT_EQ(0u, pxImageMarkPtsMagnify(points, 2, 2147483647, source.get(), &output));
    EXPECT_EQ(nullptr, output);
}

TEST_F(MarkMagnify, AllocationFailuresLeakNothing) {
    Image source(FLOAT, 30, 20, 1);
    fillSource(source);
    const double points[] = {3.0, 4.0, 9.5, 11.2, 6.0, 6.0, 12.0, 14.0};
    tag_pxImage *output = nullptr;
    const int allocations = pxtest::forEachAllocationFailure(
        [&] {
            const bool ok = pxImageMarkPtsMagnify(points, 2, 3, source.get(), &output) == 1;
            if (!ok)
                pxImageDestruct(&output); // a constructed output stays in the handle
            return ok;
        },
        [&] { pxImageDestruct(&output); });
    EXPECT_GT(allocations, 1);

    Image reused(FLOAT, 30, 40);
    tag_pxImage *handle = reused.get();
    const double withCorners[] = {3.0, 4.0, 9.5, 11.2, 2.0, 3.0, 10.0, 13.0};
    const int reuseAllocations = pxtest::forEachAllocationFailure(
        [&] { return pxImageMarkPtsMagnify(withCorners, 2, 3, source.get(), &handle) == 1; }, [] {});
    EXPECT_EQ(1, reuseAllocations); // the scratch array alone
}

TEST_F(MarkMagnify, AConstructedOutputStaysInTheHandleWhenTheScratchArrayFails) {
    Image source(FLOAT, 30, 20);
    const double point[2] = {3.0, 4.0};
    tag_pxImage *output = nullptr;
    // Construction allocates the record, its row table and pixels; fail every later allocation in turn
    // until the call succeeds: the last failing one is the scratch array.
    int n = 1;
    for (;; ++n) {
        pxtest::AllocFailure fail(n);
        pxtest::LogCapture log;
        if (pxImageMarkPtsMagnify(point, 1, 2, source.get(), &output))
            break;
        if (output) {
            EXPECT_EQ(6, output->width);
            pxImageDestruct(&output);
        }
    }
    pxImageDestruct(&output);
    EXPECT_GT(n, 2);
}

} // namespace
