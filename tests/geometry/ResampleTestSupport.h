// Helpers of the warp, de-interlacing and lens-distortion tests: owned images, random fills, plane
// comparisons and the expected shape of a refusal in the log.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pxEnv.h"
#include "pxImage.h"
#include "support/LogCapture.h"

namespace pxresample {

constexpr uint32_t kInvalidArgument = 0xC43D0003u;

struct Deleter {
    void operator()(tag_pxImage *image) const { pxImageDestruct(&image); }
};
using Image = std::unique_ptr<tag_pxImage, Deleter>;

inline Image make(int32_t type, int32_t width, int32_t height, int32_t border = 0, int32_t planes = 1) {
    tag_pxImage *image = nullptr;
    EXPECT_EQ(1u, pxImageConstruct(type, width, height, border, planes, &image));
    return Image(image);
}

template <typename T> T **rows(const tag_pxImage *image, int plane = 0) {
    return reinterpret_cast<T **>(image->pixMap[plane]);
}

inline size_t pixelSize(int32_t type) {
    uint32_t size = 0;
    pxImagePixelSize(type, &size);
    return size;
}

// The whole plane, margin included, as bytes.
inline std::vector<unsigned char> planeBytes(const tag_pxImage *image, int plane = 0) {
    const size_t size = pixelSize(image->type);
    const size_t stride = size * static_cast<size_t>(image->width + 2 * image->border);
    const unsigned char *first =
        static_cast<const unsigned char *>(image->pixMap[plane][-image->border]) - size * image->border;
    return std::vector<unsigned char>(
        first, first + stride * static_cast<size_t>(image->height + 2 * image->border));
}

// Fills the whole plane (margin too) with random bytes, or the image proper with random floats in [lo, hi).
inline void fillBytes(tag_pxImage *image, uint32_t seed, int plane = 0) {
    std::mt19937 rng(seed);
    const std::vector<unsigned char> bytes = planeBytes(image, plane);
    unsigned char *first = static_cast<unsigned char *>(image->pixMap[plane][-image->border]) -
                           pixelSize(image->type) * image->border;
    for (size_t i = 0; i < bytes.size(); ++i)
        first[i] = static_cast<unsigned char>(rng());
}

inline void fillFloats(tag_pxImage *image, uint32_t seed, float lo = 0.0f, float hi = 255.0f) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> value(lo, hi);
    for (int32_t y = 0; y < image->height; ++y)
        for (int32_t x = 0; x < image->width; ++x)
            rows<float>(image)[y][x] = value(rng);
}

// Bit patterns of a float, for exact comparisons that also cover NaN and the sign of zero.
inline uint32_t bitsOf(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// Expects exactly one message record of the given kind (sendError or writeLogI), level 5, code and module,
// its text when given, and `traces` traces of the module.
inline void expectRefusal(const pxtest::LogCapture &log, int kind, uint32_t code, const std::string &module,
                          const std::string &text = std::string(), size_t traces = 0) {
    const auto messages = log.messages();
    ASSERT_EQ(1u, messages.size());
    EXPECT_EQ(kind, messages[0].kind);
    EXPECT_EQ(5, messages[0].level);
    EXPECT_EQ(code, messages[0].code);
    EXPECT_EQ(module, messages[0].module);
    EXPECT_EQ(std::strlen(__DATE__), messages[0].date.size());
    if (!text.empty()) {
        EXPECT_EQ(text, messages[0].text);
    }
    EXPECT_EQ(traces, log.traceCount());
    for (const pxtest::LogRecord &r : log.records())
        EXPECT_EQ(module, r.module);
}

} // namespace pxresample
