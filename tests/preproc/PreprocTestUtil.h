// Helpers of the preprocessing tests: owned img_4_px images, test images, and the fast reciprocal square
// root written out as the modes define it.
#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "img_4_px.h"
#include "pxEnv.h"
#include "pxImage.h"
#include "preproc/pxImagePreprocInternal.h"

namespace pxtest {

// An img_4_px float image owned by the test.
struct Fimage {
    FIMAGE *f = nullptr;
    Fimage(int width, int height, int border = Image_border) : f(alloc_image(width, height, 4, border)) {}
    Fimage(const Fimage &other, int border = Image_border) : Fimage(other.f->width, other.f->height, border) {
        fcopy_img(*other.f, *f);
    }
    Fimage &operator=(const Fimage &) = delete;
    ~Fimage() { free_image(f); }
    int width() const { return f->width; }
    int height() const { return f->height; }
    float &at(int x, int y) const { return f->image[y][x]; }
    std::vector<float> pixels() const {
        std::vector<float> out;
        for (int y = 0; y < height(); ++y)
            out.insert(out.end(), f->image[y], f->image[y] + width());
        return out;
    }
    // Applies rule(x, y, pixel) to every pixel.
    template <class Rule> void each(Rule rule) const {
        for (int y = 0; y < height(); ++y)
            for (int x = 0; x < width(); ++x)
                rule(x, y, at(x, y));
    }
};

// A textured camera-like image: values in about [20, 230], smooth shading plus fine random texture.
inline void fillTexture(Fimage &image, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> noise(-40.0f, 40.0f);
    image.each([&](int x, int y, float &p) {
        p = 120.0f + 0.5f * static_cast<float>(x) - 0.3f * static_cast<float>(y) + noise(rng);
    });
}

// Bit pattern of a float, for exact comparisons that also tell NaN from NaN.
inline uint32_t bitsOf(float v) {
    uint32_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

inline void expectSameBits(const std::vector<float> &expected, const std::vector<float> &got) {
    ASSERT_EQ(expected.size(), got.size());
    for (size_t i = 0; i < got.size(); ++i)
        ASSERT_EQ(bitsOf(expected[i]), bitsOf(got[i]))
            << "pixel " << i << ": " << expected[i] << " vs " << got[i];
}

// 1/sqrt(v): start from the float with bits (0xBE6F0000 - bits(v)) >> 1, then four Newton steps.
inline float referenceReciprocalSqrt(float v) {
    uint32_t bits = (0xBE6F0000u - bitsOf(v)) >> 1;
    float y;
    std::memcpy(&y, &bits, sizeof y);
    y = y * (1.5f - 0.5f * v * y * y);
    y = y * (1.5f - 0.5f * v * y * y);
    y = y * (1.5f - 0.5f * v * y * y);
    y = y * (1.5f - 0.5f * v * y * y);
    return y;
}

// Settings of the modes from a clean store, read again on the next call of each mode.
inline void resetSettings() {
    pxEnvClearParams();
    pxpre::forgetSettings();
}

} // namespace pxtest
