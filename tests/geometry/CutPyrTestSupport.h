// Test images of the cut, extend, region and pyramid tests: ownership, pixel access and log checks.
#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pxEnv.h"
#include "pxImage.h"
#include "support/LogCapture.h"

namespace geomtest {

constexpr uint32_t kInvalidArgument = 0xC43D0003u;

// Owns one image.
class Image {
  public:
    Image(int32_t type, int32_t width, int32_t height, int32_t border = 0, int32_t planes = 1) {
        EXPECT_EQ(1u, pxImageConstruct(type, width, height, border, planes, &image_));
    }
    ~Image() { pxImageDestruct(&image_); }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;

    tag_pxImage *get() const { return image_; }
    tag_pxImage *operator->() const { return image_; }
    template <typename T> T &at(int y, int x, int plane = 0) const {
        return static_cast<T *>(image_->pixMap[plane][y])[x];
    }
    size_t pixelSize() const {
        uint32_t size = 0;
        pxImagePixelSize(image_->type, &size);
        return size;
    }
    // Every stored byte of a plane, margins included.
    std::vector<uint8_t> storage(int plane = 0) const {
        const int32_t b = image_->border;
        const size_t stride = pixelSize() * static_cast<size_t>(image_->width + 2 * b);
        const uint8_t *first = static_cast<const uint8_t *>(image_->pixMap[plane][-b]) - pixelSize() * b;
        return std::vector<uint8_t>(first, first + stride * static_cast<size_t>(image_->height + 2 * b));
    }
    uint8_t *firstByte(int plane = 0) const {
        return static_cast<uint8_t *>(image_->pixMap[plane][-image_->border]) - pixelSize() * image_->border;
    }
    // Fills every stored byte of a plane (margins too) with random bytes.
    void randomBytes(uint32_t seed, int plane = 0) const {
        std::mt19937 rng(seed);
        const auto bytes = storage(plane);
        uint8_t *p = firstByte(plane);
        for (size_t i = 0; i < bytes.size(); ++i) {
            p[i] = static_cast<uint8_t>(rng());
        }
    }
    // Fills every stored float of plane 0 (margins too) with random values in [low, high).
    void randomFloats(uint32_t seed, float low, float high) const {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<float> dist(low, high);
        float *p = reinterpret_cast<float *>(firstByte());
        const size_t n = storage().size() / sizeof(float);
        for (size_t i = 0; i < n; ++i) {
            p[i] = dist(rng);
        }
    }

  private:
    tag_pxImage *image_ = nullptr;
};

// The level-5 error record of a call: kind, code, module and text.
inline ::testing::AssertionResult hasError(const pxtest::LogCapture &log, int kind, uint32_t code,
                                           const std::string &module, const std::string &text) {
    for (const pxtest::LogRecord &r : log.records()) {
        if (r.kind == kind && r.level == 5 && r.code == code && r.module == module && r.text == text &&
            r.date == __DATE__ && r.line > 0) {
            return ::testing::AssertionSuccess();
        }
    }
    ::testing::AssertionResult failure = ::testing::AssertionFailure();
    failure << "no level-5 record (" << module << ", '" << text << "'); got:";
    for (const pxtest::LogRecord &r : log.records()) {
        failure << "\n  kind " << r.kind << " level " << r.level << " " << r.module << " '" << r.text << "'";
    }
    return failure;
}

// Number of level-1 traces without text of a module.
inline size_t tracesOf(const pxtest::LogCapture &log, const std::string &module) {
    size_t n = 0;
    for (const pxtest::LogRecord &r : log.records()) {
        n += (r.kind == PXENV_LOG_F && r.level == 1 && r.text.empty() && r.code == 0 && r.module == module)
                 ? 1
                 : 0;
    }
    return n;
}

} // namespace geomtest
