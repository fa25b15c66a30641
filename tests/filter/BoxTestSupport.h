// Test images of the box filters, morphology and point operations: ownership, random pixels of every
// type, pixel access and log-chain checks.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pxEnv.h"
#include "pxImage.h"
#include "support/LogCapture.h"

namespace boxtest {

// Owns one image with one plane.
class TestImage {
  public:
    TestImage(int32_t type, int32_t width, int32_t height, int32_t border = 0) {
        EXPECT_EQ(1u, pxImageConstruct(type, width, height, border, 1, &image_));
    }
    ~TestImage() { pxImageDestruct(&image_); }
    TestImage(const TestImage &) = delete;
    TestImage &operator=(const TestImage &) = delete;

    tag_pxImage *get() const { return image_; }
    tag_pxImage *operator->() const { return image_; }
    template <typename T> T &at(int y, int x) const { return static_cast<T *>(image_->pixMap[0][y])[x]; }
    void setRegion(int x, int y, int width, int height) const {
        image_->roiminX = x;
        image_->roimaxX = x + width;
        image_->roiminY = y;
        image_->roimaxY = y + height;
    }
    // Every stored pixel of the plane, margins included, as bytes.
    std::vector<uint8_t> storage() const {
        uint32_t size = 0;
        pxImagePixelSize(image_->type, &size);
        const int32_t b = image_->border;
        const size_t stride = size * static_cast<size_t>(image_->width + 2 * b);
        const uint8_t *first = static_cast<const uint8_t *>(image_->pixMap[0][-b]) - size * b;
        return std::vector<uint8_t>(first, first + stride * static_cast<size_t>(image_->height + 2 * b));
    }

  private:
    tag_pxImage *image_ = nullptr;
};

// Fills every stored pixel (margins included) with random values of the type: the whole range of the
// integer types; for FLOAT and DOUBLE values in [-1000, 1000], or small integers when `exact` asks for
// sums without rounding.
inline void fillRandom(const TestImage &image, uint32_t seed, bool exact = false) {
    std::mt19937 rng(seed);
    const int32_t b = image->border;
    for (int y = -b; y < image->height + b; ++y) {
        for (int x = -b; x < image->width + b; ++x) {
            switch (image->type) {
            case UBYTE:
                image.at<uint8_t>(y, x) = static_cast<uint8_t>(rng());
                break;
            case SHORT:
                image.at<uint16_t>(y, x) = static_cast<uint16_t>(rng());
                break;
            case FLOAT:
                image.at<float>(y, x) = exact ? static_cast<float>(static_cast<int>(rng() % 201) - 100)
                                              : std::uniform_real_distribution<float>(-1000.0f, 1000.0f)(rng);
                break;
            case DOUBLE:
                image.at<double>(y, x) = exact ? static_cast<double>(static_cast<int>(rng() % 201) - 100)
                                               : std::uniform_real_distribution<double>(-1000.0, 1000.0)(rng);
                break;
            default:
                break;
            }
        }
    }
}

// Fills the image proper with 0/1 bytes, each set with the given probability.
inline void fillBinary(const TestImage &image, uint32_t seed, double probability) {
    std::mt19937 rng(seed);
    std::bernoulli_distribution set(probability);
    for (int y = 0; y < image->height; ++y) {
        for (int x = 0; x < image->width; ++x) {
            image.at<uint8_t>(y, x) = set(rng) ? 1 : 0;
        }
    }
}

// Pixel (y, x) of plane 0 as a double, whatever the type.
inline double pixelValue(const tag_pxImage *image, int y, int x) {
    const void *row = image->pixMap[0][y];
    switch (image->type) {
    case UBYTE:
        return static_cast<const uint8_t *>(row)[x];
    case SHORT:
        return static_cast<const uint16_t *>(row)[x];
    case FLOAT:
        return static_cast<const float *>(row)[x];
    default:
        return static_cast<const double *>(row)[x];
    }
}

template <typename T> bool sameBits(T a, T b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// True when the captured records are exactly level-1 traces of these modules in this order, after any
// records of other modules that came first (the point of failure inside a callee).
inline ::testing::AssertionResult endsWithTraces(const pxtest::LogCapture &log,
                                                 const std::vector<std::string> &modules) {
    const auto &records = log.records();
    if (records.size() < modules.size()) {
        return ::testing::AssertionFailure()
               << records.size() << " records, expected at least " << modules.size();
    }
    const size_t first = records.size() - modules.size();
    for (size_t i = 0; i < modules.size(); ++i) {
        const pxtest::LogRecord &r = records[first + i];
        if (r.kind != PXENV_LOG_F || r.level != 1 || !r.text.empty() || r.code != 0 ||
            r.module != modules[i]) {
            return ::testing::AssertionFailure()
                   << "record " << first + i << ": kind " << r.kind << " level " << r.level << " module "
                   << r.module << " text '" << r.text << "'";
        }
    }
    return ::testing::AssertionSuccess();
}

// Exactly these traces and nothing else.
inline ::testing::AssertionResult onlyTraces(const pxtest::LogCapture &log,
                                             const std::vector<std::string> &modules) {
    if (log.records().size() != modules.size()) {
        return ::testing::AssertionFailure()
               << log.records().size() << " records, expected " << modules.size();
    }
    return endsWithTraces(log, modules);
}

} // namespace boxtest
