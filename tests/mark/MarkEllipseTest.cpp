// Ellipse marks: the magnified cut-out pixel by pixel against a plain reference, the sample counts, the
// five inverted centre pixels, samples outside dropped, the unclipped extra points, refusals and allocation
// failures.
#include <cmath>
#include <cstdint>
#include <vector>

#include "mark/MarkTestSupport.h"
#include "support/AllocFailure.h"

namespace {

using marktest::Image;
using marktest::MarkTest;

using MarkEllipse = MarkTest;

void fillBytes(const Image &image, int seed) {
    for (int y = 0; y < image->height; ++y)
        for (int x = 0; x < image->width; ++x)
            image.at<uint8_t>(y, x) = static_cast<uint8_t>((seed + 13 * x + 7 * y) % 200);
}

// The cut-out of 4r x 4r source pixels from (x0, y0), replicated m times, zero outside the source.
void expectCutOut(const Image &source, const Image &expected, int64_t x0, int64_t y0, int32_t m) {
    for (int y = 0; y < expected->height; ++y)
        for (int x = 0; x < expected->width; ++x) {
            const int64_t sx = x0 + x / m;
            const int64_t sy = y0 + y / m;
            const bool inside = sx >= 0 && sy >= 0 && sx < source->width && sy < source->height;
            expected.at<uint8_t>(y, x) = inside ? source.at<uint8_t>(sy, sx) : 0;
        }
}

void expectMagnifiedEllipse(const pxMath2DEllipse &e, int32_t m, int32_t size, int32_t border) {
    pxImageMarkPtsSetParams(size, 250);
    Image source(UBYTE, 60, 40, border);
    fillBytes(source, 5);
    tag_pxImage *output = nullptr;
    pxtest::LogCapture log;
    ASSERT_EQ(1u, pxImageMarkEllipse(&e, m, source.get(), &output));
    Image owner(output);
    EXPECT_TRUE(log.records().empty());
    const int64_t r = static_cast<int64_t>(e.a + 0.5);
    const int64_t x0 = static_cast<int64_t>(e.cx + 0.5) - 2 * r;
    const int64_t y0 = static_cast<int64_t>(e.cy + 0.5) - 2 * r;
    ASSERT_EQ(4 * r * m, output->width);
    ASSERT_EQ(4 * r * m, output->height);
    EXPECT_EQ(UBYTE, output->type);
    EXPECT_EQ(border, output->border);
    Image expected(UBYTE, output->width, output->height, border);
    expectCutOut(source, expected, x0, y0, m);
    marktest::referenceEllipse(expected, e, marktest::samplesOf(e, m), true, static_cast<double>(x0),
                               static_cast<double>(y0), m, size, 250);
    EXPECT_EQ(expected.storage(), owner.storage()) << e.a << " " << e.b << " m " << m << " size " << size;
}

TEST_F(MarkEllipse, MagnifiedCutOutPixelByPixel) {
    expectMagnifiedEllipse({20.3, 15.6, 3.0, 2.0, 0.4}, 2, 1, 0);
    expectMagnifiedEllipse({20.3, 15.6, 3.0, 2.0, 0.4}, 3, 3, 1);
    expectMagnifiedEllipse({30.0, 20.0, 6.4, 4.0, -1.1}, 1, 1, 0);
    expectMagnifiedEllipse({30.0, 20.0, 6.6, 5.9, 2.0}, 4, 0, 0);
}

TEST_F(MarkEllipse, CutOutBeyondTheSourceStaysZero) {
    expectMagnifiedEllipse({1.2, 38.7, 4.0, 3.0, 0.0}, 2, 1, 0);  // near the bottom-left corner
    expectMagnifiedEllipse({-3.0, -2.0, 5.0, 5.0, 0.0}, 2, 1, 0); // centre outside the image
}

TEST_F(MarkEllipse, OnlyTheFirstSemiAxisSetsTheCutOutTheRestIsCutAway) {
    // b > 2a: the contour leaves the 4a x 4a cut-out, those samples are dropped without complaint.
    expectMagnifiedEllipse({30.0, 20.0, 3.0, 9.0, 0.0}, 2, 1, 0);
}

TEST_F(MarkEllipse, TheCentreIsAPlusOfFiveInvertedPixels) {
    pxImageMarkPtsSetParams(1, 0);
    Image source(UBYTE, 40, 40);
    fillBytes(source, 1);
    const pxMath2DEllipse e = {20.0, 20.0, 8.0, 8.0, 0.0};
    tag_pxImage *output = nullptr;
    ASSERT_EQ(1u, pxImageMarkEllipse(&e, 1, source.get(), &output));
    Image owner(output);
    // r = 8, x0 = y0 = 4; the centre maps to (16.5, 16.5): pixels (16, 16) and its four neighbours.
    const int dx[5] = {0, 1, -1, 0, 0};
    const int dy[5] = {0, 0, 0, 1, -1};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(255 - source.at<uint8_t>(20 + dy[i], 20 + dx[i]),
                  owner.at<uint8_t>(16 + dy[i], 16 + dx[i]));
    EXPECT_EQ(source.at<uint8_t>(21, 21), owner.at<uint8_t>(17, 17));
}

TEST_F(MarkEllipse, RefusesOtherTypesAndBadArguments) {
    Image shorts(SHORT, 20, 20);
    Image bytes(UBYTE, 20, 20);
    const pxMath2DEllipse good = {10.0, 10.0, 3.0, 2.0, 0.0};
    tag_pxImage *output = nullptr;
    struct Case {
        const pxMath2DEllipse *e;
        int32_t m;
        const tag_pxImage *source;
        tag_pxImage **handle;
        const char *text;
    } cases[] = {
        {&good, 2, shorts.get(), &output, "Ellipse marks need a byte source image with pixels"},
        {&good, 2, nullptr, &output, "Ellipse marks need a byte source image with pixels"},
        {&good, 0, bytes.get(), &output,
         "Ellipse cut-outs need a magnification of 1 or more (not 0) and an empty output handle"},
        {&good, 2, bytes.get(), nullptr,
         "Ellipse cut-outs need a magnification of 1 or more (not 2) and an empty output handle"},
        {nullptr, 2, bytes.get(), &output, "Ellipse missing, not finite or with a negative semi-axis"},
    };
    for (const Case &c : cases) {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageMarkEllipse(c.e, c.m, c.source, c.handle)) << c.text;
        EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImageMarkPts", c.text)) << c.text;
        EXPECT_TRUE(marktest::onlyInvalidArgument(log));
        EXPECT_EQ(nullptr, output);
    }
    tag_pxImage *occupied = bytes.get();
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageMarkEllipse(&good, 2, bytes.get(), &occupied));
    EXPECT_EQ(bytes.get(), occupied);
    EXPECT_TRUE(marktest::onlyInvalidArgument(log));
}

TEST_F(MarkEllipse, RefusesEllipsesThatCannotBeSampled) {
    Image bytes(UBYTE, 20, 20);
    const pxMath2DEllipse bad[] = {
        {NAN, 1.0, 3.0, 2.0, 0.0},   {1.0, INFINITY, 3.0, 2.0, 0.0}, {1.0, 1.0, -3.0, 2.0, 0.0},
        {1.0, 1.0, 3.0, -0.1, 0.0},  {1.0, 1.0, NAN, 2.0, 0.0},      {1.0, 1.0, 0.0, 0.0, 0.0},
        {1.0, 1.0, 0.01, 0.01, 0.0}, {1.0, 1.0, 1e300, 1e300, 0.0},  {1.0, 1.0, 3e8, 3e8, 0.0}};
    for (const pxMath2DEllipse &e : bad) {
        tag_pxImage *output = nullptr;
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageMarkEllipse(&e, 1, bytes.get(), &output)) << e.a;
        EXPECT_TRUE(marktest::onlyInvalidArgument(log)) << e.a;
        EXPECT_EQ(nullptr, output);
        tag_pxImage *image = bytes.get();
        EXPECT_EQ(0u, pxImageMarkEllipseAndPts(&e, bytes.get(), nullptr, 0, &image)) << e.a;
    }
    pxtest::LogCapture log;
    const pxMath2DEllipse tiny = {1.0, 1.0, 0.0, 0.0, 0.0};
    tag_pxImage *output = nullptr;
    EXPECT_EQ(0u, pxImageMarkEllipse(&tiny, 1, bytes.get(), &output));
    EXPECT_TRUE(
        log.has(5, 0xC43D0003u, "pxImageMarkPts", "Ellipse with a = 0 and b = 0 gives 0 contour samples"));
    // Within the sample limit, but (a + b) pi m 3 beyond it through the magnification.
    const pxMath2DEllipse large = {1.0, 1.0, 1000.0, 1000.0, 0.0};
    EXPECT_EQ(0u, pxImageMarkEllipse(&large, 200000, bytes.get(), &output));
    EXPECT_EQ(nullptr, output);
}

TEST_F(MarkEllipse, ASemiAxisBelowOneHalfGivesAnEmptyCutOutThatCannotBeConstructed) {
    Image bytes(UBYTE, 20, 20);
    const pxMath2DEllipse e = {10.0, 10.0, 0.4, 3.0, 0.0};
    tag_pxImage *output = nullptr;
    const long live = pxEnvLiveAllocations();
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageMarkEllipse(&e, 2, bytes.get(), &output));
    EXPECT_EQ(nullptr, output);
    EXPECT_EQ(live, pxEnvLiveAllocations());
    EXPECT_EQ("pxImage", log.messages().at(0).module);
}

TEST_F(MarkEllipse, CrossesLeavingTheCutOutFailTheCallAndLeaveTheOutput) {
    pxImageMarkPtsSetParams(5, 200); // arms of 2 around samples on the cut-out's edge, no margin
    Image bytes(UBYTE, 40, 40);
    const pxMath2DEllipse e = {20.0, 20.0, 4.0, 8.0, 0.0};
    tag_pxImage *output = nullptr;
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageMarkEllipse(&e, 1, bytes.get(), &output));
    ASSERT_NE(nullptr, output);
    EXPECT_EQ(16, output->width);
    EXPECT_FALSE(log.messages().empty());
    pxImageDestruct(&output);
}

TEST_F(MarkEllipse, AllocationFailuresLeakNothing) {
    pxImageMarkPtsSetParams(3, 200);
    Image source(UBYTE, 50, 40, 2);
    fillBytes(source, 3);
    const pxMath2DEllipse e = {25.0, 20.0, 6.0, 4.0, 0.3};
    tag_pxImage *output = nullptr;
    const int allocations = pxtest::forEachAllocationFailure(
        [&] {
            const bool ok = pxImageMarkEllipse(&e, 2, source.get(), &output) == 1;
            if (!ok)
                pxImageDestruct(&output);
            return ok;
        },
        [&] { pxImageDestruct(&output); });
    EXPECT_GT(allocations, 1);

    tag_pxImage *image = source.get();
    const double extra[2] = {1.0, 1.0};
    const int drawAllocations = pxtest::forEachAllocationFailure(
        [&] { return pxImageMarkEllipseAndPts(&e, source.get(), extra, 1, &image) == 1; }, [] {});
    EXPECT_EQ(1, drawAllocations);
}

// ---- Drawn into the image with extra points
// -----------------------------------------------------------------

void expectDrawnEllipse(const pxMath2DEllipse &e, int32_t size, int32_t border) {
    pxImageMarkPtsSetParams(size, 230);
    Image image(UBYTE, 50, 40, border);
    Image expected(UBYTE, 50, 40, border);
    fillBytes(image, 2);
    fillBytes(expected, 2);
    const double extra[] = {3.4, 5.6, 48.7, 38.2, 10.0, 10.0};
    tag_pxImage *handle = image.get();
    pxtest::LogCapture log;
    ASSERT_EQ(1u, pxImageMarkEllipseAndPts(&e, image.get(), extra, 3, &handle));
    EXPECT_EQ(image.get(), handle);
    EXPECT_TRUE(log.records().empty());
    marktest::referenceEllipse(expected, e, marktest::samplesOf(e), false, 0.0, 0.0, 1, size, 230);
    expected.at<uint8_t>(6, 3) = 255;
    expected.at<uint8_t>(38, 49) = 255;
    expected.at<uint8_t>(10, 10) = 255;
    EXPECT_EQ(expected.storage(), image.storage()) << e.a << " " << e.b << " size " << size;
}

TEST_F(MarkEllipse, DrawnIntoTheImagePixelByPixel) {
    expectDrawnEllipse({25.3, 19.8, 10.0, 6.0, 0.5}, 1, 0);
    expectDrawnEllipse({25.3, 19.8, 10.0, 6.0, 0.5}, 3, 1);
    expectDrawnEllipse({2.0, 3.0, 15.0, 12.0, -0.2}, 1, 0); // partly outside: those samples dropped
    expectDrawnEllipse({40.0, 30.0, 2.5, 1.5, 1.0}, 0, 0);
}

TEST_F(MarkEllipse, AContourWhollyOutsideDrawsOnlyTheCentreAndTheExtraPoints) {
    pxImageMarkPtsSetParams(3, 230);
    Image image(UBYTE, 30, 20);
    fillBytes(image, 4);
    Image original(UBYTE, 30, 20);
    fillBytes(original, 4);
    const pxMath2DEllipse e = {15.0, 10.0, 100.0, 80.0, 0.0};
    const double extra[] = {1.0, 1.0};
    tag_pxImage *handle = image.get();
    ASSERT_EQ(1u, pxImageMarkEllipseAndPts(&e, image.get(), extra, 1, &handle));
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 30; ++x) {
            const bool centre = (x == 15 && y >= 9 && y <= 11) || (y == 10 && x >= 14 && x <= 16);
            const uint8_t o = original.at<uint8_t>(y, x);
            const int expected = x == 1 && y == 1 ? 255 : centre ? 255 - o : o;
            ASSERT_EQ(expected, image.at<uint8_t>(y, x)) << x << "," << y;
        }
}

TEST_F(MarkEllipse, OnlyTheCentrePixelsInsideAreInverted) {
    pxImageMarkPtsSetParams(1, 230);
    Image image(UBYTE, 30, 20, 2);
    const pxMath2DEllipse e = {-0.5, 5.0, 100.0, 80.0, 0.0}; // centre (0, 5.5): its left neighbour is outside
    tag_pxImage *handle = image.get();
    ASSERT_EQ(1u, pxImageMarkEllipseAndPts(&e, image.get(), nullptr, 0, &handle));
    EXPECT_EQ(255, image.at<uint8_t>(5, 0));
    EXPECT_EQ(255, image.at<uint8_t>(5, 1));
    EXPECT_EQ(255, image.at<uint8_t>(6, 0));
    EXPECT_EQ(255, image.at<uint8_t>(4, 0));
    EXPECT_EQ(0, image.at<uint8_t>(5, -1)); // the margin is not inverted
}

TEST_F(MarkEllipse, DrawingTheCentreTwiceRestoresIt) {
    Image image(UBYTE, 30, 20);
    fillBytes(image, 9);
    const std::vector<uint8_t> before = image.storage();
    const pxMath2DEllipse e = {12.2, 7.7, 60.0, 50.0, 0.0};
    tag_pxImage *handle = image.get();
    ASSERT_EQ(1u, pxImageMarkEllipseAndPts(&e, image.get(), nullptr, 0, &handle));
    EXPECT_NE(before, image.storage());
    ASSERT_EQ(1u, pxImageMarkEllipseAndPts(&e, image.get(), nullptr, 0, &handle));
    EXPECT_EQ(before, image.storage());
}

TEST_F(MarkEllipse, ExtraPointsAreNotClippedButNeverLeaveTheStorage) {
    Image image(UBYTE, 10, 10, 1);
    const pxMath2DEllipse e = {5.0, 5.0, 100.0, 100.0, 0.0};
    const double extra[] = {-1.6, 3.0, 10.4, 10.4, 11.0, 2.0, 4.0, -3.0};
    tag_pxImage *handle = image.get();
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageMarkEllipseAndPts(&e, image.get(), extra, 4, &handle));
    EXPECT_EQ(255, image.at<uint8_t>(3, -1)); // in the margin: written
    EXPECT_EQ(255, image.at<uint8_t>(10, 10));
    EXPECT_TRUE(
        log.has(5, 0xC43D0003u, "pxImageMarkPts",
                "Point at column 11, row 2 lies outside the 10 x 10 image and its border of 1; skipped"));
    EXPECT_TRUE(
        log.has(5, 0xC43D0003u, "pxImageMarkPts",
                "Point at column 4, row -2 lies outside the 10 x 10 image and its border of 1; skipped"));
    EXPECT_EQ(1u, log.traceCount());
}

TEST_F(MarkEllipse, OnlyTheCheckedImageTypeIsRequiredToMatchAndTheDrawnImageMustBeBytes) {
    Image checked(UBYTE, 5, 5);
    Image drawn(UBYTE, 40, 30);
    const pxMath2DEllipse e = {20.0, 15.0, 5.0, 4.0, 0.0};
    tag_pxImage *handle = drawn.get();
    EXPECT_EQ(1u, pxImageMarkEllipseAndPts(&e, checked.get(), nullptr, 0, &handle));
    EXPECT_EQ(255, drawn.at<uint8_t>(15, 20));

    Image shorts(SHORT, 40, 30);
    tag_pxImage *shortHandle = shorts.get();
    for (int i = 0; i < 4; ++i) {
        pxtest::LogCapture log;
        const uint32_t result = i == 0 ? pxImageMarkEllipseAndPts(&e, shorts.get(), nullptr, 0, &handle)
                                : i == 1
                                    ? pxImageMarkEllipseAndPts(&e, checked.get(), nullptr, 0, &shortHandle)
                                : i == 2 ? pxImageMarkEllipseAndPts(&e, checked.get(), nullptr, 0, nullptr)
                                         : pxImageMarkEllipseAndPts(&e, checked.get(), nullptr, 2, &handle);
        EXPECT_EQ(0u, result) << i;
        EXPECT_TRUE(marktest::onlyInvalidArgument(log)) << i;
    }
}

TEST_F(MarkEllipse, ASixteenBitImageIsRefused) {
    Image shorts(SHORT, 40, 30);
    const std::vector<uint8_t> before = shorts.storage();
    const pxMath2DEllipse e = {20.0, 15.0, 5.0, 4.0, 0.0};
    tag_pxImage *handle = shorts.get();
    tag_pxImage *output = nullptr;
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageMarkEllipseAndPts(&e, shorts.get(), nullptr, 0, &handle));
    EXPECT_EQ(0u, pxImageMarkEllipse(&e, 2, shorts.get(), &output));
    EXPECT_EQ(before, shorts.storage());
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImageMarkPts", "Ellipse marks need a byte image with pixels"));
    EXPECT_TRUE(
        log.has(5, 0xC43D0003u, "pxImageMarkPts", "Ellipse marks need a byte source image with pixels"));
}

} // namespace
