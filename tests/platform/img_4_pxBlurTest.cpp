// img_4_px box means: blur and blurIgnoreSaturation against a direct mean over the window shrunk to the
// image, at odd sizes and windows from 1 to larger than the image.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "img_4_px.h"
#include "pxEnv.h"
#include "support/AllocFailure.h"
#include "support/LogCapture.h"

namespace {

struct Image {
    FIMAGE *f;
    explicit Image(int w, int h, int border = Image_border) : f(alloc_image(w, h, 4, border)) {}
    ~Image() { free_image(f); }
    float &at(int x, int y) { return f->image[y][x]; }
};

// Integer values: every sum in double is exact, so the running sums must give the same bits as a direct sum.
void fillIntegers(Image &image, uint32_t seed, int maxValue = 4095) {
    std::mt19937 rng(seed);
    for (int y = 0; y < image.f->height; ++y)
        for (int x = 0; x < image.f->width; ++x)
            image.at(x, y) = static_cast<float>(rng() % (maxValue + 1));
}

std::vector<float> pixels(const Image &image) {
    std::vector<float> out;
    for (int y = 0; y < image.f->height; ++y)
        out.insert(out.end(), image.f->image[y], image.f->image[y] + image.f->width);
    return out;
}

// The mean over the window of (x, y) shrunk to the image, of the pixels below `level` (all when null).
std::vector<float> directMeans(const Image &image, int window, const float *level) {
    const int w = image.f->width, h = image.f->height;
    const int before = window / 2, after = window - 1 - window / 2;
    std::vector<float> out;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            double sum = 0.0;
            int count = 0;
            for (int v = std::max(0, y - before); v <= std::min(h - 1, y + after); ++v)
                for (int u = std::max(0, x - before); u <= std::min(w - 1, x + after); ++u) {
                    const float p = image.f->image[v][u];
                    if (!level || p < *level) {
                        sum += p;
                        ++count;
                    }
                }
            out.push_back(count > 0 ? static_cast<float>(sum / count) : *level);
        }
    return out;
}

TEST(Img4PxBlur, EqualsTheMeanOverTheWindowShrunkToTheImage) {
    for (int w : {1, 2, 7, 33})
        for (int h : {1, 3, 8, 21})
            for (int window : {1, 2, 3, 4, 5, 8, 13, 40}) {
                Image image(w, h);
                fillIntegers(image, static_cast<uint32_t>(w * 1000 + h * 10 + window));
                const std::vector<float> expected = directMeans(image, window, nullptr);
                ASSERT_EQ(1, blur(*image.f, window));
                ASSERT_EQ(expected, pixels(image)) << w << " x " << h << " window " << window;
            }
}

TEST(Img4PxBlur, IgnoringSaturationAveragesOnlyPixelsBelowTheLevel) {
    const float level = 3000.0f;
    for (int w : {1, 5, 31})
        for (int h : {1, 4, 17})
            for (int window : {1, 2, 3, 6, 9, 50}) {
                Image image(w, h);
                fillIntegers(image, static_cast<uint32_t>(w * 7 + h * 131 + window));
                const std::vector<float> expected = directMeans(image, window, &level);
                ASSERT_EQ(1, blurIgnoreSaturation(*image.f, window, level, 0, 0, 0, 0));
                ASSERT_EQ(expected, pixels(image)) << w << " x " << h << " window " << window;
            }
}

TEST(Img4PxBlur, AWindowWithoutUnsaturatedPixelsGivesTheLevel) {
    Image image(9, 9);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 9; ++x)
            image.at(x, y) = (x < 3 && y < 3) ? 10.0f : 255.0f;
    image.at(8, 8) = std::numeric_limits<float>::quiet_NaN();
    ASSERT_EQ(1, blurIgnoreSaturation(*image.f, 3, 255.0f, 0, 0, 0, 0));
    EXPECT_EQ(10.0f, image.at(0, 0));
    EXPECT_EQ(10.0f, image.at(3, 3)); // one pixel of the window, (2, 2), is below the level
    EXPECT_EQ(255.0f, image.at(4, 4));
    EXPECT_EQ(255.0f, image.at(8, 8)); // NaN is never below the level
}

TEST(Img4PxBlur, ConstantImageStaysConstantAndTheMarginIsUntouched) {
    Image image(13, 6, 2);
    for (int y = -2; y < 8; ++y)
        for (int x = -2; x < 15; ++x)
            image.f->image[y][x] = (y < 0 || y >= 6 || x < 0 || x >= 13) ? -1.0f : 0.1f;
    ASSERT_EQ(1, blur(*image.f, 5));
    for (int y = -2; y < 8; ++y)
        for (int x = -2; x < 15; ++x)
            ASSERT_EQ((y < 0 || y >= 6 || x < 0 || x >= 13) ? -1.0f : 0.1f, image.f->image[y][x])
                << x << "," << y;
}

TEST(Img4PxBlur, FloatValuesStayWithinRoundingOfTheDirectMean) {
    Image image(64, 48);
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> value(-1000.0f, 1000.0f);
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x)
            image.at(x, y) = value(rng);
    const std::vector<float> expected = directMeans(image, 11, nullptr);
    ASSERT_EQ(1, blur(*image.f, 11));
    const std::vector<float> got = pixels(image);
    for (size_t i = 0; i < got.size(); ++i)
        ASSERT_NEAR(expected[i], got[i], 1e-3f) << i;
}

TEST(Img4PxBlur, BadArgumentsAreRefusedAndLogged) {
    Image image(4, 4);
    fillIntegers(image, 1);
    const std::vector<float> before = pixels(image);
    pxtest::LogCapture log;
    EXPECT_EQ(0, blur(*image.f, 0));
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "img_4_px", "blur: image 4 x 4, window 0 refused"));
    EXPECT_EQ(0, blurIgnoreSaturation(*image.f, -3, 1.0f, 0, 0, 0, 0));
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "img_4_px", "blurIgnoreSaturation: image 4 x 4, window -3 refused"));
    EXPECT_EQ(0, blurIgnoreSaturation(*image.f, 3, 1.0f, 0, 1, 0, 0));
    EXPECT_TRUE(
        log.has(5, 0xC43D0003u, "img_4_px", "blurIgnoreSaturation: reserved arguments 0, 1, 0, 0 must be 0"));
    FIMAGE noRows{nullptr, 4, 4};
    EXPECT_EQ(0, blur(noRows, 3));
    EXPECT_EQ(before, pixels(image));
}

TEST(Img4PxBlur, AllocationFailureChangesNothingAndLeaksNothing) {
    Image image(10, 7);
    fillIntegers(image, 2);
    const std::vector<float> before = pixels(image);
    const auto restore = [&] {
        for (int y = 0; y < 7; ++y)
            std::copy(before.begin() + y * 10, before.begin() + y * 10 + 10, image.f->image[y]);
    };
    for (int ignoring = 0; ignoring < 2; ++ignoring) {
        const int allocations = pxtest::forEachAllocationFailure(
            [&] {
                const int done =
                    ignoring ? blurIgnoreSaturation(*image.f, 3, 100.0f, 0, 0, 0, 0) : blur(*image.f, 3);
                if (!done) {
                    EXPECT_EQ(before, pixels(image));
                }
                return done == 1;
            },
            restore);
        EXPECT_EQ(1, allocations);
    }
}

} // namespace
