// The in-place preprocessing modes against their per-pixel rules written out in single precision on the
// library's own box means, bit for bit; the fast reciprocal square root; the settings; failures.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "PreprocTestUtil.h"
#include "support/AllocFailure.h"
#include "support/LogCapture.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace pxtest {
namespace {

constexpr uint32_t kInvalidArgument = 0xC43D0003u;

class PreprocInPlace : public ::testing::Test {
  protected:
    void SetUp() override { resetSettings(); }
    void TearDown() override { resetSettings(); }
};

// ---- Fast reciprocal square root ------------------------------------------------------------------------

TEST(FastReciprocalSqrt, SameBitsAsTheDefinitionOverManyValues) {
    // Every 4099th positive finite float plus some round values.
    for (uint32_t bits = 1; bits < 0x7F800000u; bits += 4099) {
        float v;
        std::memcpy(&v, &bits, sizeof v);
        ASSERT_EQ(bitsOf(referenceReciprocalSqrt(v)), bitsOf(pxpre::fastReciprocalSqrt(v))) << v;
    }
    for (float v : {1.0f, 2.0f, 4.0f, 0.25f, 100.0f, 65025.0f, 1e-6f, 3e8f})
        ASSERT_EQ(bitsOf(referenceReciprocalSqrt(v)), bitsOf(pxpre::fastReciprocalSqrt(v))) << v;
}

TEST(FastReciprocalSqrt, IsCloseToTheTrueValueOverTheRangeOfVariances) {
    for (float v = 1e-3f; v < 1e7f; v *= 1.37f)
        EXPECT_NEAR(1.0 / std::sqrt(static_cast<double>(v)), pxpre::fastReciprocalSqrt(v),
                    4e-7 / std::sqrt(static_cast<double>(v)))
            << v;
}

// ---- pxImagePreproc --------------------------------------------------------------------------------------

std::vector<float> referencePreproc(const Fimage &in, int window, float offset, float gain, float minSigma) {
    Fimage mean(in);
    EXPECT_EQ(1, blur(*mean.f, window));
    Fimage d(in);
    Fimage sq(in);
    in.each([&](int x, int y, float &p) {
        d.at(x, y) = p - mean.at(x, y);
        sq.at(x, y) = d.at(x, y) * d.at(x, y);
    });
    EXPECT_EQ(1, blur(*sq.f, window));
    std::vector<float> out;
    d.each([&](int x, int y, float &dv) {
        const float v = sq.at(x, y);
        float z;
        if (v > minSigma * minSigma)
            z = dv / (v * referenceReciprocalSqrt(v));
        else
            z = dv / minSigma;
        out.push_back(gain * z + offset);
    });
    return out;
}

TEST_F(PreprocInPlace, PreprocFollowsItsRuleBitForBit) {
    for (int window : {1, 3, 4, 15}) {
        Fimage image(37, 29);
        fillTexture(image, 7 + window);
        // A flat patch exercises the minSigma branch.
        for (int y = 0; y < 10; ++y)
            for (int x = 0; x < 10; ++x)
                image.at(x, y) = 50.0f;
        const std::vector<float> expected = referencePreproc(image, window, 128.0f, 20.0f, 2.0f);
        const long live = pxEnvLiveAllocations();
        ASSERT_EQ(1u, pxImagePreproc(image.f, window, 128.0f, 20.0f, 2.0f));
        EXPECT_EQ(live, pxEnvLiveAllocations());
        expectSameBits(expected, image.pixels());
    }
}

TEST_F(PreprocInPlace, FlatImageBecomesTheOffset) {
    Fimage image(20, 11);
    image.each([](int, int, float &p) { p = 77.0f; });
    ASSERT_EQ(1u, pxImagePreproc(image.f, 5, 128.0f, 3.0f, 1.5f));
    image.each([](int, int, float &p) { ASSERT_EQ(128.0f, p); });
}

TEST_F(PreprocInPlace, PreprocScratchAllocationFailureIsSentAsAnError) {
    Fimage image(8, 8);
    fillTexture(image, 1);
    const std::vector<float> before = image.pixels();
    LogCapture log;
    const long live = pxEnvLiveAllocations();
    {
        AllocFailure fail(1);
        EXPECT_EQ(0u, pxImagePreproc(image.f, 3, 0.0f, 1.0f, 1.0f));
    }
    EXPECT_EQ(live, pxEnvLiveAllocations());
    EXPECT_EQ(before, image.pixels());
    ASSERT_EQ(1u, log.records().size());
    EXPECT_EQ(PXENV_LOG_ERROR, log.records()[0].kind);
    EXPECT_EQ(5, log.records()[0].level);
    EXPECT_EQ(0xC43D0310u, log.records()[0].code);
    EXPECT_EQ("pxImagePreproc", log.records()[0].module);
}

// A failing box mean returns 0 and keeps the scratch image allocated: the mode releases it on success only.
TEST_F(PreprocInPlace, PreprocFailingBlurKeepsTheScratchImage) {
    Fimage image(8, 8);
    fillTexture(image, 1);
    LogCapture log;
    const long live = pxEnvLiveAllocations();
    {
#if defined(__SANITIZE_ADDRESS__)
        __lsan::ScopedDisabler leakIsExpected;
#endif
        AllocFailure fail(2);
        EXPECT_EQ(0u, pxImagePreproc(image.f, 3, 0.0f, 1.0f, 1.0f));
    }
    EXPECT_EQ(live + 1, pxEnvLiveAllocations());
    EXPECT_EQ(1u, log.records().size());
    EXPECT_EQ(1u, log.traceCount());
}

TEST_F(PreprocInPlace, PreprocRefusesBadArguments) {
    Fimage image(8, 8);
    LogCapture log;
    EXPECT_EQ(0u, pxImagePreproc(image.f, 0, 0.0f, 1.0f, 1.0f));
    EXPECT_TRUE(log.has(5, kInvalidArgument, "pxImagePreproc", "window 0 below 1"));
    EXPECT_EQ(0u, pxImagePreproc(nullptr, 3, 0.0f, 1.0f, 1.0f));
    EXPECT_TRUE(log.has(5, kInvalidArgument, "pxImagePreproc", "missing image or image row"));
}

// ---- pxImagePreprocAdaptiveLog ---------------------------------------------------------------------------

// ln(image / mean) on a mean made by `makeMean`, only below the level when `level` is given.
template <class MakeMean>
std::vector<float> referenceAdaptiveLog(const Fimage &in, MakeMean makeMean, const float *level) {
    Fimage mean(in);
    makeMean(mean);
    std::vector<float> out;
    in.each([&](int x, int y, float &p) {
        if (level && !(p < *level))
            out.push_back(p);
        else
            out.push_back(std::log(p / mean.at(x, y)));
    });
    return out;
}

TEST_F(PreprocInPlace, AdaptiveLogFollowsItsRuleBitForBit) {
    Fimage image(41, 23);
    fillTexture(image, 3);
    Fimage scratch(41, 23);
    const std::vector<float> expected = referenceAdaptiveLog(
        image, [](Fimage &m) { ASSERT_EQ(1, blur(*m.f, 9)); }, nullptr);
    ASSERT_EQ(1u, pxImagePreprocAdaptiveLog(image.f, scratch.f, 9, 0, 0.0f));
    expectSameBits(expected, image.pixels());
}

TEST_F(PreprocInPlace, AdaptiveLogIgnoringSaturationKeepsPixelsAtTheLevel) {
    Fimage image(30, 20);
    fillTexture(image, 4);
    image.at(5, 5) = 200.0f; // exactly the level: not transformed
    image.at(6, 5) = 199.99f;
    const float level = 200.0f;
    const std::vector<float> expected = referenceAdaptiveLog(
        image, [&](Fimage &m) { ASSERT_EQ(1, blurIgnoreSaturation(*m.f, 7, level, 0, 0, 0, 0)); }, &level);
    Fimage scratch(30, 20);
    ASSERT_EQ(1u, pxImagePreprocAdaptiveLog(image.f, scratch.f, 7, 1, level));
    expectSameBits(expected, image.pixels());
    EXPECT_EQ(200.0f, image.at(5, 5));
    EXPECT_LT(std::fabs(image.at(6, 5)), 1.0f);
}

TEST_F(PreprocInPlace, AdaptiveLogWithGaussianSettingIgnoresTheWindow) {
    pxEnvSetParam("useGaussianBlur", "1");
    pxEnvSetParam("corresPrepInitialFilterWinSize", "7");
    pxEnvSetParam("corresPrepInitialSigma", "1.5");
    Fimage original(33, 21);
    fillTexture(original, 5);
    const std::vector<float> expected = referenceAdaptiveLog(
        original, [](Fimage &m) { ASSERT_TRUE(BlurByGaussianFilterUsingOpenCv(m.f, 7, 1.5)); }, nullptr);
    for (int window : {3, 11}) {
        Fimage image(original);
        Fimage scratch(33, 21);
        ASSERT_EQ(1u, pxImagePreprocAdaptiveLog(image.f, scratch.f, window, 0, 0.0f));
        expectSameBits(expected, image.pixels());
    }
    // With ignoreSaturation the box mean over the window is used whatever the setting says.
    const float level = 1e9f;
    const std::vector<float> boxed = referenceAdaptiveLog(
        original, [&](Fimage &m) { ASSERT_EQ(1, blurIgnoreSaturation(*m.f, 5, level, 0, 0, 0, 0)); }, &level);
    Fimage image(original);
    Fimage scratch(33, 21);
    ASSERT_EQ(1u, pxImagePreprocAdaptiveLog(image.f, scratch.f, 5, 1, level));
    expectSameBits(boxed, image.pixels());
}

TEST_F(PreprocInPlace, AdaptiveLogGaussianDefaultsAreSize13AndSigma3) {
    pxEnvSetParam("useGaussianBlur", "1");
    Fimage image(30, 30);
    fillTexture(image, 8);
    const std::vector<float> expected = referenceAdaptiveLog(
        image, [](Fimage &m) { ASSERT_TRUE(BlurByGaussianFilterUsingOpenCv(m.f, 13, 3.0)); }, nullptr);
    Fimage scratch(30, 30);
    ASSERT_EQ(1u, pxImagePreprocAdaptiveLog(image.f, scratch.f, 5, 0, 0.0f));
    expectSameBits(expected, image.pixels());
}

TEST_F(PreprocInPlace, AdaptiveLogAllocationFailuresLeakNothing) {
    Fimage original(20, 14);
    fillTexture(original, 9);
    Fimage image(original);
    Fimage scratch(20, 14);
    for (int saturation = 0; saturation < 2; ++saturation) {
        const int allocations = forEachAllocationFailure(
            [&] { return pxImagePreprocAdaptiveLog(image.f, scratch.f, 5, saturation, 200.0f) == 1; },
            [&] { fcopy_img(*original.f, *image.f); });
        EXPECT_EQ(1, allocations);
    }
}

TEST_F(PreprocInPlace, AdaptiveLogReadsItsSettingsOnce) {
    Fimage original(16, 16);
    fillTexture(original, 6);
    const std::vector<float> boxed = referenceAdaptiveLog(
        original, [](Fimage &m) { ASSERT_EQ(1, blur(*m.f, 5)); }, nullptr);
    Fimage image(original);
    Fimage scratch(16, 16);
    ASSERT_EQ(1u, pxImagePreprocAdaptiveLog(image.f, scratch.f, 5, 0, 0.0f));
    pxEnvSetParam("useGaussianBlur", "1"); // too late: the first call has read the settings
    Fimage again(original);
    ASSERT_EQ(1u, pxImagePreprocAdaptiveLog(again.f, scratch.f, 5, 0, 0.0f));
    expectSameBits(boxed, again.pixels());
    // The bounded mode's own setting does not steer this mode.
    resetSettings();
    pxEnvSetParam("corresPrepFilterWinSize", "5");
    Fimage third(original);
    ASSERT_EQ(1u, pxImagePreprocAdaptiveLog(third.f, scratch.f, 5, 0, 0.0f));
    expectSameBits(boxed, third.pixels());
}

TEST_F(PreprocInPlace, AdaptiveLogReportsAGaussianSizeThatOpenCvRefuses) {
    pxEnvSetParam("useGaussianBlur", "1");
    pxEnvSetParam("corresPrepInitialFilterWinSize", "4");
    Fimage image(16, 16);
    fillTexture(image, 6);
    Fimage scratch(16, 16);
    LogCapture log;
    EXPECT_EQ(0u, pxImagePreprocAdaptiveLog(image.f, scratch.f, 5, 0, 0.0f));
    ASSERT_EQ(1u, log.messages().size());
    EXPECT_EQ(kInvalidArgument, log.messages()[0].code);
    EXPECT_EQ(0u, log.messages()[0].text.find("Gaussian blur of size 4, sigma 3 refused: "));
    EXPECT_EQ(1u, log.traceCount());
}

TEST_F(PreprocInPlace, AdaptiveLogRefusesImagesOfDifferentSizes) {
    Fimage image(16, 16);
    Fimage scratch(16, 15);
    LogCapture log;
    EXPECT_EQ(0u, pxImagePreprocAdaptiveLog(image.f, scratch.f, 5, 0, 0.0f));
    EXPECT_TRUE(
        log.has(5, kInvalidArgument, "pxImagePreproc", "images of 16 x 16 and 16 x 15 differ in size"));
}

} // namespace
} // namespace pxtest
