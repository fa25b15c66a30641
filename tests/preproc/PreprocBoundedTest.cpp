// The bounded mode against its per-pixel rule on the library's own means, bit for bit, with each of its
// local means (box, Gaussian from the setting, box without saturated pixels); and widening of saturation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "PreprocTestUtil.h"
#include "support/AllocFailure.h"
#include "support/LogCapture.h"

namespace pxtest {
namespace {

class PreprocBounded : public ::testing::Test {
  protected:
    void SetUp() override { resetSettings(); }
    void TearDown() override { resetSettings(); }
};

float clampTo(float z, float bound) {
    z = z < bound ? z : bound;
    return z > -bound ? z : -bound;
}

// Without saturation handling: z = d / sqrt(max(v, minSigma^2)), clamped, times 127.5 / bound.
std::vector<float> referencePlain(const Fimage &in, const std::function<void(Fimage &)> &mean, float bound,
                                  float minSigma) {
    const float k = static_cast<float>(127.5 / static_cast<double>(bound));
    Fimage m(in);
    mean(m);
    Fimage d(in);
    Fimage sq(in);
    in.each([&](int x, int y, float &p) {
        d.at(x, y) = p - m.at(x, y);
        sq.at(x, y) = d.at(x, y) * d.at(x, y);
    });
    mean(sq);
    std::vector<float> out;
    d.each([&](int x, int y, float &dv) {
        const float v = std::max(sq.at(x, y), minSigma * minSigma);
        out.push_back(clampTo(dv / std::sqrt(v), bound) * k);
    });
    return out;
}

std::vector<float> referenceSaturated(const Fimage &in, int window, float bound, float minSigma,
                                      float level) {
    const float k = static_cast<float>(127.5 / static_cast<double>(bound));
    Fimage m(in);
    EXPECT_EQ(1, blurIgnoreSaturation(*m.f, window, level, 0, 0, 0, 0));
    Fimage img(in);
    Fimage sq(in);
    in.each([&](int x, int y, float &p) {
        if (p >= level) {
            img.at(x, y) = level;
            sq.at(x, y) = level;
        } else {
            const float d = p - m.at(x, y);
            img.at(x, y) = d;
            sq.at(x, y) = d * d;
        }
    });
    EXPECT_EQ(1, blurIgnoreSaturation(*sq.f, window, level, 0, 0, 0, 0));
    std::vector<float> out;
    img.each([&](int x, int y, float &p) {
        if (p < level) {
            const float v = sq.at(x, y);
            const float z = v <= minSigma * minSigma ? p / minSigma : p / (v * referenceReciprocalSqrt(v));
            out.push_back(clampTo(z, bound) * k);
        } else {
            out.push_back(255.0f);
        }
    });
    return out;
}

TEST_F(PreprocBounded, BoxMeanFollowsTheRuleBitForBit) {
    for (float bound : {1.0f, 2.5f, 6.0f}) {
        Fimage image(45, 31);
        fillTexture(image, 11);
        Fimage scratch(45, 31);
        const auto expected = referencePlain(
            image, [](Fimage &m) { ASSERT_EQ(1, blur(*m.f, 7)); }, bound, 3.0f);
        ASSERT_EQ(1u, pxImagePreprocBounded(image.f, scratch.f, 7, bound, 3.0f, 0, 0.0f));
        expectSameBits(expected, image.pixels());
        for (float p : image.pixels()) {
            ASSERT_LE(p, 127.5f);
            ASSERT_GE(p, -127.5f);
        }
    }
}

TEST_F(PreprocBounded, GaussianSizeSettingAloneSwitchesToTheGaussianMean) {
    pxEnvSetParam("corresPrepFilterWinSize", "9");
    pxEnvSetParam("corresPrepSigma", "2.5");
    pxEnvSetParam("useGaussianBlur", "0"); // the other mode's flag does not matter here
    Fimage image(40, 27);
    fillTexture(image, 12);
    Fimage scratch(40, 27);
    const auto expected = referencePlain(
        image, [](Fimage &m) { ASSERT_TRUE(BlurByGaussianFilterUsingOpenCv(m.f, 9, 2.5)); }, 3.0f, 1.0f);
    ASSERT_EQ(1u, pxImagePreprocBounded(image.f, scratch.f, 5, 3.0f, 1.0f, 0, 0.0f));
    expectSameBits(expected, image.pixels());
}

TEST_F(PreprocBounded, DefaultSigmaOfTheGaussianMeanIsTwo) {
    pxEnvSetParam("corresPrepFilterWinSize", "5");
    Fimage image(20, 20);
    fillTexture(image, 13);
    Fimage scratch(20, 20);
    const auto expected = referencePlain(
        image, [](Fimage &m) { ASSERT_TRUE(BlurByGaussianFilterUsingOpenCv(m.f, 5, 2.0)); }, 2.0f, 1.0f);
    ASSERT_EQ(1u, pxImagePreprocBounded(image.f, scratch.f, 5, 2.0f, 1.0f, 0, 0.0f));
    expectSameBits(expected, image.pixels());
}

TEST_F(PreprocBounded, ReadsItsSettingsOnce) {
    Fimage original(20, 20);
    fillTexture(original, 16);
    const auto boxed = referencePlain(
        original, [](Fimage &m) { ASSERT_EQ(1, blur(*m.f, 5)); }, 2.0f, 1.0f);
    Fimage scratch(20, 20);
    Fimage first(original);
    ASSERT_EQ(1u, pxImagePreprocBounded(first.f, scratch.f, 5, 2.0f, 1.0f, 0, 0.0f));
    pxEnvSetParam("corresPrepFilterWinSize", "5"); // too late: the first call has read the settings
    Fimage second(original);
    ASSERT_EQ(1u, pxImagePreprocBounded(second.f, scratch.f, 5, 2.0f, 1.0f, 0, 0.0f));
    expectSameBits(boxed, second.pixels());
    // The adaptive log mode's flag does not steer this mode.
    resetSettings();
    pxEnvSetParam("useGaussianBlur", "1");
    Fimage third(original);
    ASSERT_EQ(1u, pxImagePreprocBounded(third.f, scratch.f, 5, 2.0f, 1.0f, 0, 0.0f));
    expectSameBits(boxed, third.pixels());
}

TEST_F(PreprocBounded, AllocationFailuresLeakNothing) {
    Fimage original(20, 14);
    fillTexture(original, 17);
    Fimage image(original);
    Fimage scratch(20, 14);
    for (int saturation = 0; saturation < 2; ++saturation) {
        const int allocations = forEachAllocationFailure(
            [&] { return pxImagePreprocBounded(image.f, scratch.f, 5, 2.0f, 1.0f, saturation, 200.0f) == 1; },
            [&] { fcopy_img(*original.f, *image.f); });
        EXPECT_EQ(2, allocations); // the scratch of each of the two box means
    }
}

TEST_F(PreprocBounded, SaturatedPixelsAreLeftOutAndMarked) {
    Fimage image(39, 25);
    fillTexture(image, 14);
    for (int x = 10; x < 16; ++x)
        image.at(x, 12) = 250.0f;
    image.at(3, 3) = 240.0f; // exactly the level
    Fimage scratch(39, 25);
    const auto expected = referenceSaturated(image, 7, 4.0f, 2.0f, 240.0f);
    ASSERT_EQ(1u, pxImagePreprocBounded(image.f, scratch.f, 7, 4.0f, 2.0f, 1, 240.0f));
    expectSameBits(expected, image.pixels());
    EXPECT_EQ(255.0f, image.at(3, 3));
    EXPECT_EQ(255.0f, image.at(12, 12));
    for (float p : image.pixels())
        ASSERT_TRUE(p == 255.0f || (p >= -127.5f && p <= 127.5f)) << p;
}

TEST_F(PreprocBounded, BoundBelowOneChangesNothing) {
    Fimage image(12, 12);
    fillTexture(image, 15);
    Fimage scratch(12, 12);
    scratch.each([](int, int, float &p) { p = -3.0f; });
    const auto before = image.pixels();
    const auto scratchBefore = scratch.pixels();
    LogCapture log;
    EXPECT_EQ(0u, pxImagePreprocBounded(image.f, scratch.f, 5, 0.5f, 1.0f, 0, 0.0f));
    EXPECT_EQ(0u, pxImagePreprocBounded(image.f, scratch.f, 5, std::nanf(""), 1.0f, 1, 200.0f));
    EXPECT_EQ(before, image.pixels());
    EXPECT_EQ(scratchBefore, scratch.pixels());
    EXPECT_EQ(2u, log.traceCount());
    EXPECT_EQ(2u, log.records().size());
}

// ---- pxImagePreprocWidenSaturation ------------------------------------------------------------------------

TEST(PreprocWidenSaturation, InteriorSaturatedPixelsSetTheirFourNeighbours) {
    Fimage image(6, 5);
    image.each([](int x, int y, float &p) { p = static_cast<float>(10 * y + x); });
    Fimage reference(6, 5);
    reference.each([](int, int, float &p) { p = 0.0f; });
    reference.at(1, 1) = 100.0f; // interior: sets (1,0), (1,2), (0,1), (2,1)
    reference.at(0, 3) = 100.0f; // outermost column: never tested
    reference.at(5, 2) = 100.0f; // outermost column: never tested
    reference.at(3, 4) = 100.0f; // outermost row: never tested
    reference.at(4, 3) = 99.0f;  // below the level
    const auto before = image.pixels();
    pxImagePreprocWidenSaturation(image.f, reference.f, 100.0f, 0);
    std::vector<float> expected = before;
    for (auto [x, y] : {std::pair{1, 0}, {1, 2}, {0, 1}, {2, 1}})
        expected[y * 6 + x] = 100.0f;
    EXPECT_EQ(expected, image.pixels());
}

TEST(PreprocWidenSaturation, CopyFirstWidensByOnePixelOnly) {
    Fimage image(7, 7);
    image.each([](int, int, float &p) { p = 1.0f; });
    image.at(3, 3) = 9.0f;
    Fimage reference(7, 7);
    pxImagePreprocWidenSaturation(image.f, reference.f, 9.0f, 1);
    EXPECT_EQ(9.0f, reference.at(3, 3));
    int widened = 0;
    image.each([&](int x, int y, float &p) {
        const bool cross = (std::abs(x - 3) + std::abs(y - 3)) <= 1;
        EXPECT_EQ(cross ? 9.0f : 1.0f, p) << x << "," << y;
        widened += cross;
    });
    EXPECT_EQ(5, widened);
}

TEST(PreprocWidenSaturation, ImagesOfDifferentSizesAreRefused) {
    Fimage image(7, 7);
    image.each([](int, int, float &p) { p = 9.0f; });
    Fimage reference(7, 6);
    LogCapture log;
    pxImagePreprocWidenSaturation(image.f, reference.f, 9.0f, 1);
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImagePreproc", "images of 7 x 7 and 7 x 6 differ in size"));
}

} // namespace
} // namespace pxtest
