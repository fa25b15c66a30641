// The fast passes of the reduction at every instruction level against the plain references, bit for bit,
// at odd sizes, narrow rows and targets wider than the halved source.
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "geometry/pxImageReduceKernels.h"

namespace {

const pxreduce::Weights kWeights[] = {{0.375f, 0.25f, 0.0625f}, {0.4f, 0.24f, 0.06f}, {1.5f, -0.3f, 0.1f}};

std::vector<float> randomRow(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> dist(-1000.0f, 1000.0f);
    std::vector<float> v(n);
    for (float &f : v)
        f = dist(rng);
    return v;
}

TEST(pxImageReduceKernels, RowsAgreeWithTheReferenceAtEveryLevel) {
    for (int level = 0; level < 4; ++level) {
        const pxreduce::Kernels *kernels = pxreduce::kernelsAt(level);
        if (kernels == nullptr)
            continue;
        for (int width = 1; width <= 70; ++width) {
            for (int outWidth : {(width + 1) / 2, (width + 1) / 2 + 3}) {
                // The row lies inside a longer buffer, so reads past its end find pixels.
                const std::vector<float> buffer =
                    randomRow(size_t(width + 2 * outWidth + 16), uint32_t(width));
                const float *row = buffer.data() + 2;
                for (const pxreduce::Weights &k : kWeights) {
                    std::vector<float> expected(static_cast<size_t>(outWidth)),
                        actual(static_cast<size_t>(outWidth));
                    pxreduce::reduceRowReference(row, width, outWidth, k, expected.data());
                    kernels->row(row, width, outWidth, k, actual.data());
                    ASSERT_EQ(0,
                              std::memcmp(expected.data(), actual.data(), sizeof(float) * size_t(outWidth)))
                        << "level " << level << " width " << width << " out " << outWidth;
                }
            }
        }
    }
}

TEST(pxImageReduceKernels, ColumnsAgreeWithTheReferenceAtEveryLevel) {
    for (int level = 0; level < 4; ++level) {
        const pxreduce::Kernels *kernels = pxreduce::kernelsAt(level);
        if (kernels == nullptr)
            continue;
        for (int height : {3, 4, 5, 6, 7, 11, 12}) {
            const int outWidth = 37;
            std::vector<std::vector<float>> storage;
            std::vector<const float *> rows;
            for (int y = 0; y < height; ++y)
                storage.push_back(randomRow(size_t(outWidth), uint32_t(100 * height + y)));
            for (const auto &r : storage)
                rows.push_back(r.data());
            for (const pxreduce::Weights &k : kWeights) {
                for (int y = 0; y < height; y += 2) {
                    std::vector<float> expected(outWidth), actual(outWidth);
                    const float *window[5] = {};
                    for (int d = -2; d <= 2; ++d)
                        if (y + d >= 0 && y + d < height)
                            window[d + 2] = rows[size_t(y + d)];
                    pxreduce::reduceColumnsReference(window, height, y, outWidth, k, expected.data());
                    kernels->columns(window, height, y, outWidth, k, actual.data());
                    ASSERT_EQ(0,
                              std::memcmp(expected.data(), actual.data(), sizeof(float) * size_t(outWidth)))
                        << "level " << level << " height " << height << " y " << y;
                }
            }
        }
    }
}

TEST(pxImageReduceKernels, PortableLevelAlwaysExists) {
    EXPECT_NE(nullptr, pxreduce::kernelsAt(0));
    EXPECT_EQ(nullptr, pxreduce::kernelsAt(7));
}

} // namespace
