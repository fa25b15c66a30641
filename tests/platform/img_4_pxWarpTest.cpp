// Dense warps of img_4_px on their own: the sample rule (exact on pixels, clamped neighbours on the last
// column and row, fill outside), the extent of the maps, the masked form's third image and mask, and every
// refusal writing nothing.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "img_4_px.h"

namespace {

// An image of alloc_image, freed on scope exit.
struct Owned {
    FIMAGE *image;
    Owned(int32_t w, int32_t h, int32_t pixelSize = 4) : image(alloc_image(w, h, pixelSize, 2)) {}
    ~Owned() { free_image(image); }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
    FIMAGE &f() { return *image; }
    BIMAGE &b() { return *reinterpret_cast<BIMAGE *>(image); }
    void fill(uint32_t seed, float lo, float hi) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<float> v(lo, hi);
        for (int32_t y = 0; y < image->height; ++y)
            for (int32_t x = 0; x < image->width; ++x)
                image->image[y][x] = v(rng);
    }
    void set(float value) {
        for (int32_t y = 0; y < image->height; ++y)
            for (int32_t x = 0; x < image->width; ++x)
                image->image[y][x] = value;
    }
};

uint32_t bitsOf(float v) {
    uint32_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

TEST(Img4PxBilinearWarp, ZeroMapsCopyTheSourceExactlyIncludingTheLastColumnAndRow) {
    Owned source(7, 5), target(7, 5), mx(7, 5), my(7, 5);
    source.fill(1, -1e8f, 1e8f);
    ASSERT_EQ(1, bilinear_warp(source.f(), target.f(), mx.f(), my.f(), -1.0f));
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 7; ++x)
            EXPECT_EQ(bitsOf(source.f().image[y][x]), bitsOf(target.f().image[y][x]));
}

TEST(Img4PxBilinearWarp, HalfPixelShiftAveragesNeighboursAndFillsOutside) {
    Owned source(4, 3), target(4, 3), mx(4, 3), my(4, 3);
    for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < 4; ++x)
            source.f().image[y][x] = static_cast<float>(10 * y + x);
    mx.set(0.5f);
    my.set(0.25f);
    ASSERT_EQ(1, bilinear_warp(source.f(), target.f(), mx.f(), my.f(), -7.0f));
    for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < 4; ++x) {
            const bool inside = x + 0.5f <= 3.0f && y + 0.25f <= 2.0f;
            EXPECT_EQ(inside ? 10.0f * (y + 0.25f) + x + 0.5f : -7.0f, target.f().image[y][x])
                << x << "," << y;
        }
}

TEST(Img4PxBilinearWarp, OneByOneSourceAndNonFiniteDisplacements) {
    Owned source(1, 1), target(3, 1), mx(3, 1), my(3, 1);
    source.f().image[0][0] = 42.0f;
    // The margin holds something else: a 1-pixel source must never read it.
    source.f().image[0][1] = 1e30f;
    source.f().image[1][0] = 1e30f;
    mx.f().image[0][0] = 0.0f;
    mx.f().image[0][1] = NAN;
    mx.f().image[0][2] = -2.0f;
    ASSERT_EQ(1, bilinear_warp(source.f(), target.f(), mx.f(), my.f(), -1.0f));
    EXPECT_EQ(42.0f, target.f().image[0][0]);
    EXPECT_EQ(-1.0f, target.f().image[0][1]);
    EXPECT_EQ(42.0f, target.f().image[0][2]);
}

TEST(Img4PxBilinearWarp, WritesOnlyTheExtentOfTheMaps) {
    Owned source(6, 6), target(9, 8), mx(5, 4), my(5, 4);
    source.fill(2, 0.0f, 1.0f);
    target.set(99.0f);
    ASSERT_EQ(1, bilinear_warp(source.f(), target.f(), mx.f(), my.f(), -1.0f));
    for (int32_t y = 0; y < 8; ++y)
        for (int32_t x = 0; x < 9; ++x)
            EXPECT_EQ(x < 5 && y < 4 ? source.f().image[y][x] : 99.0f, target.f().image[y][x]);
}

TEST(Img4PxBilinearWarp, RefusesWithoutWriting) {
    Owned source(6, 6), target(5, 5), mx(5, 5), my(5, 5), small(4, 5), otherMap(5, 4);
    target.set(3.0f);
    FIMAGE noRows = mx.f();
    noRows.image = nullptr;
    FIMAGE negative = mx.f();
    negative.width = -5;
    EXPECT_EQ(0, bilinear_warp(source.f(), small.f(), mx.f(), my.f(), 0.0f));
    EXPECT_EQ(0, bilinear_warp(source.f(), target.f(), mx.f(), otherMap.f(), 0.0f));
    EXPECT_EQ(0, bilinear_warp(source.f(), target.f(), noRows, my.f(), 0.0f));
    EXPECT_EQ(0, bilinear_warp(source.f(), target.f(), negative, negative, 0.0f));
    FIMAGE empty = source.f();
    empty.height = 0;
    EXPECT_EQ(0, bilinear_warp(empty, target.f(), mx.f(), my.f(), 0.0f));
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 5; ++x)
            EXPECT_EQ(3.0f, target.f().image[y][x]);
}

TEST(Img4PxBilinearWarpMasked, MaskAndOutsideKeepTheThirdImage) {
    Owned source(8, 6), target(8, 6), mx(8, 6), my(8, 6), third(8, 6), mask(8, 6, 1);
    source.fill(3, 0.0f, 10.0f);
    third.fill(4, 100.0f, 200.0f);
    mx.set(1.5f);
    my.set(-0.5f);
    for (int32_t y = 0; y < 6; ++y)
        for (int32_t x = 0; x < 8; ++x)
            mask.b().image[y][x] = static_cast<uint8_t>((x + y) % 2 ? 0 : 1 + x);
    ASSERT_EQ(1, bilinear_warp_masked(source.f(), target.f(), mx.f(), my.f(), third.f(), mask.b()));
    Owned plain(8, 6);
    ASSERT_EQ(1, bilinear_warp(source.f(), plain.f(), mx.f(), my.f(), -1.0f));
    for (int32_t y = 0; y < 6; ++y)
        for (int32_t x = 0; x < 8; ++x) {
            const bool sampled = mask.b().image[y][x] != 0 && x + 1.5f <= 7.0f && y >= 1;
            EXPECT_EQ(sampled ? plain.f().image[y][x] : third.f().image[y][x], target.f().image[y][x])
                << x << "," << y;
        }
    // In place: the third image as the target.
    ASSERT_EQ(1, bilinear_warp_masked(source.f(), third.f(), mx.f(), my.f(), third.f(), mask.b()));
    for (int32_t y = 0; y < 6; ++y)
        for (int32_t x = 0; x < 8; ++x)
            EXPECT_EQ(target.f().image[y][x], third.f().image[y][x]);
}

TEST(Img4PxBilinearWarpMasked, RefusesSmallCompanionsWithoutWriting) {
    Owned source(6, 6), target(5, 5), mx(5, 5), my(5, 5), third(5, 5), mask(5, 5, 1), smallThird(5, 4),
        smallMask(4, 5, 1);
    target.set(3.0f);
    BIMAGE noMaskRows = mask.b();
    noMaskRows.image = nullptr;
    EXPECT_EQ(0, bilinear_warp_masked(source.f(), target.f(), mx.f(), my.f(), smallThird.f(), mask.b()));
    EXPECT_EQ(0, bilinear_warp_masked(source.f(), target.f(), mx.f(), my.f(), third.f(), smallMask.b()));
    EXPECT_EQ(0, bilinear_warp_masked(source.f(), target.f(), mx.f(), my.f(), third.f(), noMaskRows));
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 5; ++x)
            EXPECT_EQ(3.0f, target.f().image[y][x]);
}

// The sample rule written out, as the tests read it.
float literalSample(const FIMAGE &s, float sx, float sy, float otherwise) {
    if (!(sx >= 0.0f && sx <= s.width - 1 && sy >= 0.0f && sy <= s.height - 1))
        return otherwise;
    const int32_t j = static_cast<int32_t>(std::floor(sx)), i = static_cast<int32_t>(std::floor(sy));
    const int32_t j1 = std::min(j + 1, s.width - 1), i1 = std::min(i + 1, s.height - 1);
    const float fu = sx - j, fv = sy - i;
    const float top = s.image[i][j] + (s.image[i][j1] - s.image[i][j]) * fu;
    const float bottom = s.image[i1][j] + (s.image[i1][j1] - s.image[i1][j]) * fu;
    return top + (bottom - top) * fv;
}

TEST(Img4PxBilinearWarp, EveryLevelGivesTheRuleBitForBitAtOddSizes) {
    std::mt19937 rng(11);
    for (int level : {0, 2}) {
        const int previous = img_4_px_limit_kernels(level);
        for (int round = 0; round < 24; ++round) {
            const int32_t w = 1 + (round * 7) % 29, h = 1 + (round * 5) % 17, mw = 1 + (round * 11) % 37,
                          mh = 1 + round % 9;
            Owned source(w, h), target(mw, mh), mx(mw, mh), my(mw, mh), third(mw, mh), mask(mw, mh, 1);
            source.fill(round, -1e4f, 1e4f);
            mx.fill(round + 1, -3.0f, static_cast<float>(w) + 2.0f);
            my.fill(round + 2, -3.0f, static_cast<float>(h) + 2.0f);
            third.fill(round + 3, 0.0f, 1.0f);
            for (int32_t y = 0; y < mh; ++y)
                for (int32_t x = 0; x < mw; ++x) {
                    mask.b().image[y][x] = static_cast<uint8_t>(rng() % 3 == 0 ? 0 : rng());
                    if (rng() % 17 == 0)
                        mx.f().image[y][x] =
                            (rng() % 2) ? NAN : static_cast<float>(w - 1) - static_cast<float>(x);
                }
            // A source whose rows are not evenly spaced (reversed row table) takes the row-table path.
            std::vector<float *> reversed(source.f().image, source.f().image + h);
            std::reverse(reversed.begin(), reversed.end());
            FIMAGE shuffled{reversed.data(), w, h};
            for (const FIMAGE &in : {source.f(), shuffled}) {
                ASSERT_EQ(1, bilinear_warp(in, target.f(), mx.f(), my.f(), -1.0f));
                for (int32_t y = 0; y < mh; ++y)
                    for (int32_t x = 0; x < mw; ++x)
                        ASSERT_EQ(
                            bitsOf(literalSample(in, x + mx.f().image[y][x], y + my.f().image[y][x], -1.0f)),
                            bitsOf(target.f().image[y][x]))
                            << level << " " << round << ": " << x << "," << y;
                ASSERT_EQ(1, bilinear_warp_masked(in, target.f(), mx.f(), my.f(), third.f(), mask.b()));
                for (int32_t y = 0; y < mh; ++y)
                    for (int32_t x = 0; x < mw; ++x) {
                        const float keep = third.f().image[y][x];
                        const float expected =
                            mask.b().image[y][x] == 0
                                ? keep
                                : literalSample(in, x + mx.f().image[y][x], y + my.f().image[y][x], keep);
                        ASSERT_EQ(bitsOf(expected), bitsOf(target.f().image[y][x]))
                            << level << " " << round << ": " << x << "," << y;
                    }
            }
        }
        img_4_px_limit_kernels(previous);
    }
}

} // namespace
