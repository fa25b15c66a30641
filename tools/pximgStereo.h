// A synthetic stereo pair and a plain window matcher, to measure what photometric normalisation does for
// correspondence search: the pair shows one textured surface at a known disparity, the right image under
// another brightness, contrast and a slow illumination gradient; the matcher takes, for every pixel, the
// disparity with the least sum of absolute differences over a square window along the row.
#pragma once

#include <cmath>
#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

namespace pximg {

// Row-major float pixels.
struct Plane {
    int32_t width = 0;
    int32_t height = 0;
    std::vector<float> pixels;
    float at(int32_t x, int32_t y) const { return pixels[static_cast<size_t>(y) * width + x]; }
};

struct StereoPair {
    Plane left;
    Plane right;
    int32_t disparity = 0; // left (x, y) shows what right (x - disparity, y) shows
};

// The pair: a texture of blobs a few pixels wide (values about 60..140) seen by the left camera as it is and
// by the right one shifted by `disparity`, with 0.6 times the contrast plus 130, times an illumination
// falling from 1.0 to 0.75 across the image and to 0.9 down it, each with a little sensor noise; all values
// stay in [1, 254]. O(pixels). The same seed gives the same pair.
inline StereoPair synthesizeStereoPair(int32_t width, int32_t height, int32_t disparity, uint32_t seed) {
    const int32_t surfaceWidth = width + disparity;
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> uniform(0.0f, 1.0f);
    std::vector<float> noise(static_cast<size_t>(surfaceWidth) * height);
    for (float &v : noise)
        v = uniform(rng);
    // Texture: 3 x 3 mean of the noise, stretched to 40..200.
    std::vector<float> surface(noise.size());
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < surfaceWidth; ++x) {
            float sum = 0.0f;
            for (int32_t dy = -1; dy <= 1; ++dy)
                for (int32_t dx = -1; dx <= 1; ++dx) {
                    const int32_t u = std::min(std::max(x + dx, 0), surfaceWidth - 1);
                    const int32_t v = std::min(std::max(y + dy, 0), height - 1);
                    sum += noise[static_cast<size_t>(v) * surfaceWidth + u];
                }
            surface[static_cast<size_t>(y) * surfaceWidth + x] =
                60.0f + 80.0f * std::min(1.0f, std::max(0.0f, (sum / 9.0f - 0.2f) / 0.6f));
        }
    StereoPair pair;
    pair.disparity = disparity;
    pair.left = {width, height, std::vector<float>(static_cast<size_t>(width) * height)};
    pair.right = pair.left;
    std::normal_distribution<float> sensor(0.0f, 1.0f);
    auto clampToCamera = [](float v) { return std::min(254.0f, std::max(1.0f, v)); };
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x) {
            const size_t i = static_cast<size_t>(y) * width + x;
            pair.left.pixels[i] =
                clampToCamera(surface[static_cast<size_t>(y) * surfaceWidth + x] + sensor(rng));
            const float seen = surface[static_cast<size_t>(y) * surfaceWidth + x + disparity];
            const float light = (1.0f - 0.25f * static_cast<float>(x) / static_cast<float>(width)) *
                                (1.0f - 0.1f * static_cast<float>(y) / static_cast<float>(height));
            pair.right.pixels[i] = clampToCamera((0.6f * seen + 130.0f) * light + sensor(rng));
        }
    return pair;
}

// Fraction of the pixels at which the window matcher finds `truth`: for every pixel whose window and
// candidates lie inside both images (x from maxDisparity + window/2, y and x at least window/2 from the
// edges), the disparity 0..maxDisparity with the least sum of |left(x, y) - right(x - d, y)| over the
// window x window square (the smallest such d on a tie). Box sums of the differences keep it
// O(pixels * maxDisparity).
inline double matchFraction(const Plane &left, const Plane &right, int32_t truth, int32_t maxDisparity,
                            int32_t window) {
    const int32_t w = left.width;
    const int32_t h = left.height;
    const int32_t r = window / 2;
    const int32_t x0 = maxDisparity + r;
    if (w - r <= x0 || h - r <= r)
        return 0.0;
    std::vector<double> best(static_cast<size_t>(w) * h, INFINITY);
    std::vector<int32_t> bestD(best.size(), -1);
    std::vector<double> integral(static_cast<size_t>(w + 1) * (h + 1), 0.0);
    for (int32_t d = 0; d <= maxDisparity; ++d) {
        for (int32_t y = 0; y < h; ++y) {
            double row = 0.0;
            for (int32_t x = 0; x < w; ++x) {
                row += x >= d ? std::fabs(static_cast<double>(left.at(x, y)) - right.at(x - d, y)) : 0.0;
                integral[static_cast<size_t>(y + 1) * (w + 1) + x + 1] =
                    integral[static_cast<size_t>(y) * (w + 1) + x + 1] + row;
            }
        }
        auto sumAt = [&](int32_t x, int32_t y) { return integral[static_cast<size_t>(y) * (w + 1) + x]; };
        for (int32_t y = r; y < h - r; ++y)
            for (int32_t x = x0; x < w - r; ++x) {
                const double cost = sumAt(x + r + 1, y + r + 1) - sumAt(x - r, y + r + 1) -
                                    sumAt(x + r + 1, y - r) + sumAt(x - r, y - r);
                const size_t i = static_cast<size_t>(y) * w + x;
                if (cost < best[i]) {
                    best[i] = cost;
                    bestD[i] = d;
                }
            }
    }
    size_t found = 0;
    size_t total = 0;
    for (int32_t y = r; y < h - r; ++y)
        for (int32_t x = x0; x < w - r; ++x) {
            ++total;
            found += bestD[static_cast<size_t>(y) * w + x] == truth;
        }
    return static_cast<double>(found) / static_cast<double>(total);
}

} // namespace pximg
