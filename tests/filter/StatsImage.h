// A test image for the region statistics: owns its record and reads and writes plane 0 by pixel type.
#pragma once

#include <cstdint>
#include <random>

#include <gtest/gtest.h>

#include "pxImage.h"

namespace pxtest {

// Owns a test image whose plane 0 can be filled with random bytes (so integer pixels cover their whole
// range).
struct StatsImage {
    tag_pxImage *image = nullptr;
    StatsImage(int32_t type, int32_t width, int32_t height, int32_t border = 1) {
        EXPECT_EQ(1u, pxImageConstruct(type, width, height, border, 1, &image));
    }
    ~StatsImage() { pxImageDestruct(&image); }
    StatsImage(const StatsImage &) = delete;
    StatsImage &operator=(const StatsImage &) = delete;

    template <typename T> T *row(int y) const { return reinterpret_cast<T **>(image->pixMap[0])[y]; }
    template <typename T> void set(int x, int y, T value) { row<T>(y)[x] = value; }
    template <typename T> void fill(T value) {
        for (int y = 0; y < image->height; ++y)
            for (int x = 0; x < image->width; ++x)
                set<T>(x, y, value);
    }
    void randomize(std::mt19937 &rng) {
        std::uniform_int_distribution<int> byte(0, 255);
        std::uniform_real_distribution<double> real(-1000.0, 1000.0);
        for (int y = 0; y < image->height; ++y) {
            for (int x = 0; x < image->width; ++x) {
                if (image->type == FLOAT) {
                    set<float>(x, y, static_cast<float>(real(rng)));
                } else if (image->type == DOUBLE) {
                    set<double>(x, y, real(rng));
                } else {
                    uint32_t size = 0;
                    pxImagePixelSize(image->type, &size);
                    unsigned char *p = row<unsigned char>(y) + static_cast<size_t>(x) * size;
                    for (uint32_t i = 0; i < size; ++i)
                        p[i] = static_cast<unsigned char>(byte(rng));
                }
            }
        }
    }
};

} // namespace pxtest
