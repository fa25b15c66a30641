// Real use: a synthetic stereo pair whose right image has another brightness, contrast and a slow
// illumination gradient. After each normalising mode a plain window matcher (sum of absolute differences
// along the rows) finds the true disparity on more pixels than on the raw pair.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>

#include "../../tools/pximgStereo.h"
#include "PreprocTestUtil.h"

namespace pxtest {
namespace {

constexpr int kWidth = 192, kHeight = 128, kDisparity = 6, kMaxDisparity = 16, kMatchWindow = 7;

struct Matching : public ::testing::Test {
    void SetUp() override { resetSettings(); }
    void TearDown() override { resetSettings(); }
    pximg::StereoPair pair = pximg::synthesizeStereoPair(kWidth, kHeight, kDisparity, 1);
};

Fimage toFimage(const pximg::Plane &plane) {
    Fimage image(plane.width, plane.height);
    image.each([&](int x, int y, float &p) { p = plane.at(x, y); });
    return image;
}

pximg::Plane toPlane(const Fimage &image) {
    return {image.width(), image.height(), image.pixels()};
}

double fraction(const pximg::Plane &left, const pximg::Plane &right) {
    return pximg::matchFraction(left, right, kDisparity, kMaxDisparity, kMatchWindow);
}

// Normalises both images in place with `mode` and returns the matcher's fraction of true disparities.
double afterInPlace(const pximg::StereoPair &pair, const std::function<bool(FIMAGE *)> &mode) {
    Fimage left = toFimage(pair.left);
    Fimage right = toFimage(pair.right);
    EXPECT_TRUE(mode(left.f));
    EXPECT_TRUE(mode(right.f));
    return fraction(toPlane(left), toPlane(right));
}

double afterRecord(const pximg::StereoPair &pair,
                   const std::function<tag_pxImage *(const tag_pxImage *)> &mode) {
    pximg::Plane out[2];
    const pximg::Plane *in[2] = {&pair.left, &pair.right};
    for (int i = 0; i < 2; ++i) {
        Fimage image = toFimage(*in[i]);
        tag_pxImage *wrapped = nullptr;
        EXPECT_EQ(1u, pxImageFimage2pxImage(image.f, &wrapped));
        tag_pxImage *result = mode(wrapped);
        EXPECT_NE(nullptr, result);
        FIMAGE view;
        pxImage2fimage(result, &view);
        Fimage copy(in[i]->width, in[i]->height);
        fcopy_img(view, *copy.f);
        out[i] = toPlane(copy);
        pxImageDestruct(&result);
        wrapped->pixMap[0] = nullptr; // the pixels belong to `image`
        pxImageDestruct(&wrapped);
    }
    return fraction(out[0], out[1]);
}

TEST_F(Matching, EveryModeFindsTheTrueDisparityOnMorePixelsThanTheRawPair) {
    const double raw = fraction(pair.left, pair.right);
    const double preproc =
        afterInPlace(pair, [](FIMAGE *f) { return pxImagePreproc(f, 15, 0.0f, 32.0f, 1.0f) == 1; });
    const double adaptiveLog = afterInPlace(pair, [](FIMAGE *f) {
        Fimage scratch(f->width, f->height);
        return pxImagePreprocAdaptiveLog(f, scratch.f, 15, 0, 0.0f) == 1;
    });
    const double bounded = afterInPlace(pair, [](FIMAGE *f) {
        Fimage scratch(f->width, f->height);
        return pxImagePreprocBounded(f, scratch.f, 15, 3.0f, 1.0f, 0, 0.0f) == 1;
    });
    const double log = afterRecord(pair, [](const tag_pxImage *r) { return pxImagePreprocLog(r, 1.0f); });
    const double standard = afterRecord(
        pair, [](const tag_pxImage *r) { return pxImagePreprocStandard(r, 15, 0.0f, 32.0f, 0.0f, 0); });
    std::printf("true disparity found: raw %.3f, preproc %.3f, adaptive log %.3f, bounded %.3f, log %.3f, "
                "standard %.3f\n",
                raw, preproc, adaptiveLog, bounded, log, standard);
    EXPECT_GT(preproc, raw);
    EXPECT_GT(adaptiveLog, raw);
    EXPECT_GT(bounded, raw);
    EXPECT_GT(log, raw);
    EXPECT_GT(standard, raw);
}

} // namespace
} // namespace pxtest
