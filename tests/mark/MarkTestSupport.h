// Test images and a plain reference of the point and ellipse marks, written from the rules the marks follow,
// so that the tests can compare whole images pixel by pixel.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "pxEnv.h"
#include "pxImage.h"
#include "pxMath.h"
#include "support/LogCapture.h"

namespace marktest {

// Owns one image; pixel access with margins.
class Image {
  public:
    Image(int32_t type, int32_t width, int32_t height, int32_t border = 0, int32_t planes = 1) {
        EXPECT_EQ(1u, pxImageConstruct(type, width, height, border, planes, &image_));
    }
    explicit Image(tag_pxImage *adopted) : image_(adopted) {}
    ~Image() { pxImageDestruct(&image_); }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;

    tag_pxImage *get() const { return image_; }
    tag_pxImage *operator->() const { return image_; }
    tag_pxImage **handle() { return &image_; }
    template <typename T> T &at(int64_t y, int64_t x, int plane = 0) const {
        return static_cast<T *>(image_->pixMap[plane][y])[x];
    }
    // Every stored byte of a plane, margins included.
    std::vector<uint8_t> storage(int plane = 0) const {
        uint32_t size = 0;
        pxImagePixelSize(image_->type, &size);
        const int32_t b = image_->border;
        const size_t stride = size * static_cast<size_t>(image_->width + 2 * b);
        const uint8_t *first = static_cast<const uint8_t *>(image_->pixMap[plane][-b]) - size * b;
        return std::vector<uint8_t>(first, first + stride * static_cast<size_t>(image_->height + 2 * b));
    }
    // Sets every stored pixel of every plane to a value that tells the position apart (bytes wrap).
    template <typename T> void fillPattern(int seed = 0) const {
        const int32_t b = image_->border;
        for (int p = 0; p < image_->planes; ++p)
            for (int y = -b; y < image_->height + b; ++y)
                for (int x = -b; x < image_->width + b; ++x)
                    at<T>(y, x, p) = static_cast<T>(seed + 7 * p + 3 * y + 11 * x + 1);
    }

  private:
    tag_pxImage *image_ = nullptr;
};

// Round to the marked pixel as the marks do: truncate(v + 0.5).
inline int64_t pixelOf(double v) {
    return static_cast<int64_t>(v + 0.5);
}

// Reference cross: arms of size / 2 pixels, no checks.
template <typename T> void referenceCross(const Image &image, double x, double y, int32_t size, T value) {
    const int32_t h = size / 2;
    const int64_t cx = pixelOf(x);
    const int64_t cy = pixelOf(y);
    for (int64_t r = cy - h; r <= cy + h; ++r)
        image.at<T>(r, cx) = value;
    for (int64_t c = cx - h; c <= cx + h; ++c)
        image.at<T>(cy, c) = value;
}

// Reference of the ellipse drawing into a byte image: contour samples mapped by (x, y) -> ((x - x0) + 0.5) m
// (x0 = y0 = 0 and shift 0 for the unmagnified form, which keeps the samples as they are), samples outside
// dropped, crosses, then the five centre pixels inverted.
inline void referenceEllipse(const Image &image, const pxMath2DEllipse &e, int32_t n, bool magnified,
                             double x0, double y0, int32_t m, int32_t size, uint8_t colour) {
    std::vector<pxMathVec2> samples(static_cast<size_t>(n));
    ASSERT_EQ(1, pxMath2DEllipseSampleContouerPts(&e, n, samples.data()));
    const double right = image->width - 1;
    const double bottom = image->height - 1;
    for (pxMathVec2 p : samples) {
        if (magnified)
            p = {((p.x - x0) + 0.5) * m, ((p.y - y0) + 0.5) * m};
        if (p.x < 0.0 || p.y < 0.0 || p.x > right || p.y > bottom)
            continue;
        referenceCross<uint8_t>(image, p.x, p.y, size, colour);
    }
    const pxMathVec2 c = magnified ? pxMathVec2{((e.cx - x0) + 0.5) * m, ((e.cy - y0) + 0.5) * m}
                                   : pxMathVec2{e.cx + 0.5, e.cy + 0.5};
    const double dx[5] = {0, 1, -1, 0, 0};
    const double dy[5] = {0, 0, 0, 1, -1};
    for (int i = 0; i < 5; ++i) {
        const double x = c.x + dx[i];
        const double y = c.y + dy[i];
        if (x >= 0.0 && x <= right && y >= 0.0 && y <= bottom) {
            uint8_t &p = image.at<uint8_t>(static_cast<int64_t>(y), static_cast<int64_t>(x));
            p = static_cast<uint8_t>(255 - p);
        }
    }
}

// Number of contour samples of the unmagnified ellipse: truncate((a + b) pi + 0.5) * 3.
inline int32_t samplesOf(const pxMath2DEllipse &e, int32_t m = 1) {
    return static_cast<int32_t>((e.a + e.b) * 3.141592653589793 + 0.5) * m * 3;
}

// Starts every test from known settings (an empty parameter store) and restores them afterwards.
class MarkTest : public ::testing::Test {
  protected:
    void SetUp() override {
        pxEnvClearParams();
        pxImageMarkPtsSetParams(1, 0);
    }
    void TearDown() override {
        pxEnvClearParams();
        pxImageMarkPtsSetParams(1, 0);
    }
};

// True when the log holds exactly one invalid-argument error of the module and nothing but traces else.
inline bool onlyInvalidArgument(const pxtest::LogCapture &log) {
    const auto messages = log.messages();
    return messages.size() == 1 && messages[0].level == 5 && messages[0].code == 0xC43D0003u &&
           messages[0].module == "pxImageMarkPts";
}

} // namespace marktest
