// The record modes (tone mapping and local normalisation) against their per-pixel rules on the library's
// own conversions and local means, bit for bit; the two private local-mean workers with their exact row and
// column bounds; failures without leaks.
#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <functional>
#include <random>
#include <vector>

#include "PreprocTestUtil.h"
#include "support/AllocFailure.h"
#include "support/LogCapture.h"

namespace pxtest {
namespace {

struct Record {
    tag_pxImage *p = nullptr;
    Record() = default;
    Record(int type, int w, int h, int border = 0) {
        EXPECT_EQ(1u, pxImageConstruct(type, w, h, border, 1, &p));
    }
    Record(const Record &) = delete;
    Record(Record &&other) noexcept : p(other.p) { other.p = nullptr; }
    ~Record() {
        if (p)
            pxImageDestruct(&p);
    }
    float &f(int x, int y) const { return static_cast<float *>(p->pixMap[0][y])[x]; }
    uint16_t &s(int x, int y) const { return static_cast<uint16_t *>(p->pixMap[0][y])[x]; }
    uint8_t &b(int x, int y) const { return static_cast<uint8_t *>(p->pixMap[0][y])[x]; }
    std::vector<float> pixels() const {
        std::vector<float> out;
        for (int y = 0; y < p->height; ++y)
            for (int x = 0; x < p->width; ++x)
                out.push_back(f(x, y));
        return out;
    }
};

void fillFloat(Record &r, uint32_t seed, int maxValue) {
    std::mt19937 rng(seed);
    for (int y = 0; y < r.p->height; ++y)
        for (int x = 0; x < r.p->width; ++x)
            r.f(x, y) = static_cast<float>(rng() % (maxValue + 1));
}

// ---- Module box sum ---------------------------------------------------------------------------------------

// The running sums written out: each row's horizontal sums, then the column sums with the ring of rows.
std::vector<float> referenceBoxSum(const Record &in, int n) {
    const int w = in.p->width, h = in.p->height, half = n / 2;
    auto rowSums = [&](int y) {
        std::vector<float> out(w, 0.0f);
        float sum = 0.0f;
        for (int i = 0; i < n; ++i)
            sum += in.f(i, y);
        out[half] = sum;
        for (int j = 0; j <= w - n - 1; ++j)
            out[half + j + 1] = in.f(n + j, y) + (out[half + j] - in.f(j, y));
        return out;
    };
    std::vector<std::vector<float>> acc(h, std::vector<float>(w, 0.0f));
    std::vector<std::vector<float>> ring;
    for (int r = 0; r < n; ++r) {
        ring.push_back(rowSums(r));
        for (int x = 0; x < w; ++x)
            acc[half][x] += ring[r][x];
    }
    int slot = 0;
    for (int e = n; e <= h - half - 1; ++e) {
        const int target = half + e - n + 1;
        for (int x = 0; x < w; ++x)
            acc[target][x] = acc[target - 1][x] - ring[slot][x];
        ring[slot] = rowSums(e);
        for (int x = 0; x < w; ++x)
            acc[target][x] += ring[slot][x];
        slot = (slot + 1) % n;
    }
    std::vector<float> out;
    for (const auto &row : acc)
        out.insert(out.end(), row.begin(), row.end());
    return out;
}

TEST(PreprocBoxSum, RunningSumsWithTheirExactBounds) {
    for (int n : {1, 2, 3, 4, 7, 12}) {
        Record in(FLOAT, 23, 17);
        fillFloat(in, static_cast<uint32_t>(n), 255);
        Record sums;
        ASSERT_EQ(1u, pxpre::boxSum(in.p, n, &sums.p));
        expectSameBits(referenceBoxSum(in, n), sums.pixels());
        // Integer pixels: every sum is exact, so the filled part equals the n x n sums directly; rows
        // n/2 .. max(n/2, h-n) and columns n/2 .. w-n+n/2 are filled, everything else stays 0.
        for (int y = 0; y < 17; ++y)
            for (int x = 0; x < 23; ++x) {
                const bool filled =
                    y >= n / 2 && y <= std::max(n / 2, 17 - n) && x >= n / 2 && x <= 23 - n + n / 2;
                float direct = 0.0f;
                if (filled)
                    for (int v = y - n / 2; v < y - n / 2 + n; ++v)
                        for (int u = x - n / 2; u < x - n / 2 + n; ++u)
                            direct += in.f(u, v);
                ASSERT_EQ(direct, sums.f(x, y)) << "n " << n << " at " << x << "," << y;
            }
    }
}

// ---- Saturation-aware mean --------------------------------------------------------------------------------

TEST(PreprocSaturationAwareMean, MeanOfValuesBelowTheThresholdWithItsBounds) {
    for (int n : {1, 2, 3, 5, 8}) {
        Record in(FLOAT, 19, 14);
        fillFloat(in, 40u + static_cast<uint32_t>(n), 300);
        for (int y = 4; y < 9; ++y)
            for (int x = 4; x < 12; ++x)
                in.f(x, y) = 300.0f; // a saturated block: some windows hold no value below the threshold
        Record means;
        ASSERT_EQ(1u, pxpre::saturationAwareMean(in.p, n, 255.0f, &means.p));
        const int r = n / 2;
        for (int y = 0; y < 14; ++y)
            for (int x = 0; x < 19; ++x) {
                float expected = 0.0f;
                if (y >= r && y <= 14 - r - 1 && x >= r && x <= 19 - r - 1) {
                    float sum = 0.0f;
                    int count = 0;
                    for (int v = y - r; v <= y + r; ++v)
                        for (int u = x - r; u <= x + r; ++u)
                            if (in.f(u, v) < 255.0f) {
                                sum += in.f(u, v);
                                ++count;
                            }
                    expected = count > 0 ? sum / count : 255.0f;
                }
                ASSERT_EQ(bitsOf(expected), bitsOf(means.f(x, y))) << "n " << n << " at " << x << "," << y;
            }
    }
}

// ---- pxImagePreprocLog ------------------------------------------------------------------------------------

std::vector<float> referenceLog(const tag_pxImage *source, float offset) {
    Record copy;
    EXPECT_EQ(1u, pxImageConvertCopy(source, FLOAT, Image_border, &copy.p));
    float lo = 65535.0f, hi = 0.0f;
    for (float p : copy.pixels()) {
        if (p < lo)
            lo = p;
        else if (p > hi)
            hi = p;
    }
    std::vector<float> out;
    if (source->origType == UBYTE) {
        const float scale = 255.0f / std::pow(hi - lo, 0.1f);
        for (float p : copy.pixels())
            out.push_back(std::pow(p - lo, 0.1f) * scale);
    } else {
        const float scale = 255.0f / std::log(hi - (lo - offset));
        for (float p : copy.pixels())
            out.push_back(std::log(p - (lo - offset)) * scale);
    }
    return out;
}

TEST(PreprocLog, ByteSourcesTakeThePowerCurve) {
    Record source(UBYTE, 21, 13);
    for (int y = 0; y < 13; ++y)
        for (int x = 0; x < 21; ++x)
            source.b(x, y) = static_cast<uint8_t>(3 + (x * 11 + y * 7) % 240);
    Record out;
    out.p = pxImagePreprocLog(source.p, 1.0f);
    ASSERT_NE(nullptr, out.p);
    EXPECT_EQ(FLOAT, out.p->type);
    EXPECT_EQ(Image_border, out.p->border);
    expectSameBits(referenceLog(source.p, 1.0f), out.pixels());
    float hi = 0.0f;
    for (float p : out.pixels())
        hi = std::max(hi, p);
    EXPECT_NEAR(255.0f, hi, 1e-3f);
}

TEST(PreprocLog, OtherSourcesTakeTheLogarithm) {
    Record source(SHORT, 17, 9);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 17; ++x)
            source.s(x, y) = static_cast<uint16_t>(100 + x * 900 + y * 37);
    for (float offset : {1.0f, 10.0f}) {
        Record out;
        out.p = pxImagePreprocLog(source.p, offset);
        ASSERT_NE(nullptr, out.p);
        expectSameBits(referenceLog(source.p, offset), out.pixels());
    }
    source.p->origType = UBYTE; // the record's origin, not its type, selects the curve
    Record out;
    out.p = pxImagePreprocLog(source.p, 1.0f);
    expectSameBits(referenceLog(source.p, 1.0f), out.pixels());
}

TEST(PreprocLog, FailedConversionReturnsNullWithoutLeaks) {
    Record source(SHORT, 8, 8);
    const int allocations = forEachAllocationFailure(
        [&] {
            tag_pxImage *out = pxImagePreprocLog(source.p, 1.0f);
            if (!out)
                return false;
            pxImageDestruct(&out);
            return true;
        },
        [] {});
    EXPECT_GT(allocations, 0);
    LogCapture log;
    EXPECT_EQ(nullptr, pxImagePreprocLog(nullptr, 1.0f));
    EXPECT_EQ(1u, log.traceCount());
}

// ---- pxImagePreprocStandard -------------------------------------------------------------------------------

std::vector<float> referenceStandard(const tag_pxImage *source, int n, float gain, float meanGain,
                                     bool saturation) {
    Record out, dev, mean, variance;
    EXPECT_EQ(1u, pxImageConvertWithTransformCopy(source, FLOAT, Image_border, 1, &out.p));
    EXPECT_EQ(1u, pxImageConvertCopy(out.p, FLOAT, 0, &dev.p));
    const int w = source->width, h = source->height;
    const float a = 1.0f / static_cast<float>(n * n);
    float lo = 65535.0f;
    if (!saturation) {
        EXPECT_EQ(1u, pxpre::boxSum(dev.p, n, &mean.p));
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                mean.f(x, y) = mean.f(x, y) * a;
                lo = std::min(lo, mean.f(x, y));
                dev.f(x, y) = (dev.f(x, y) - mean.f(x, y)) * (dev.f(x, y) - mean.f(x, y));
            }
        EXPECT_EQ(1u, pxpre::boxSum(dev.p, n, &variance.p));
    } else {
        EXPECT_EQ(1u, pxpre::saturationAwareMean(dev.p, n, 255.0f, &mean.p));
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                if (dev.f(x, y) >= 255.0f) {
                    dev.f(x, y) = 65025.0f;
                } else {
                    lo = std::min(lo, mean.f(x, y));
                    dev.f(x, y) = (dev.f(x, y) - mean.f(x, y)) * (dev.f(x, y) - mean.f(x, y));
                }
            }
        EXPECT_EQ(1u, pxpre::saturationAwareMean(dev.p, n, 65025.0f, &variance.p));
    }
    std::vector<float> result;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const float value = out.f(x, y), m = mean.f(x, y);
            if (!saturation) {
                const float v = variance.f(x, y) * a;
                result.push_back(v > 0.0f ? (m - lo) * meanGain + (value - m) * gain / std::sqrt(v)
                                          : (m - lo) * meanGain);
            } else if (value < 255.0f) {
                const float v = variance.f(x, y);
                float o = (m - lo) * meanGain;
                if (v > 0.0f)
                    o = o + (value - m) * gain / (v * referenceReciprocalSqrt(v));
                result.push_back(o);
            } else {
                result.push_back(value);
            }
        }
    return result;
}

Record shortSource(int w, int h, uint32_t seed) {
    Record source(SHORT, w, h);
    std::mt19937 rng(seed);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            source.s(x, y) = static_cast<uint16_t>(20000 + x * 300 + rng() % 9000);
    return source;
}

TEST(PreprocStandard, FollowsItsRuleBitForBit) {
    for (int n : {1, 3, 4, 9}) {
        Record source = shortSource(31, 22, static_cast<uint32_t>(n));
        Record out;
        out.p = pxImagePreprocStandard(source.p, n, 0.0f, 40.0f, 0.5f, 0);
        ASSERT_NE(nullptr, out.p);
        EXPECT_EQ(FLOAT, out.p->type);
        EXPECT_EQ(Image_border, out.p->border);
        expectSameBits(referenceStandard(source.p, n, 40.0f, 0.5f, false), out.pixels());
    }
}

TEST(PreprocStandard, IgnoringSaturationKeepsSaturatedPixelsAsConverted) {
    for (int n : {3, 6}) {
        Record source = shortSource(29, 19, 50u + static_cast<uint32_t>(n));
        for (int x = 5; x < 15; ++x)
            source.s(x, 9) = 65535; // 255.01 after the transform
        source.s(2, 2) = 65535;
        Record converted;
        ASSERT_EQ(1u, pxImageConvertWithTransformCopy(source.p, FLOAT, 0, 1, &converted.p));
        Record out;
        out.p = pxImagePreprocStandard(source.p, n, 123.0f, 40.0f, 0.5f, 1);
        ASSERT_NE(nullptr, out.p);
        expectSameBits(referenceStandard(source.p, n, 40.0f, 0.5f, true), out.pixels());
        for (int y = 0; y < 19; ++y)
            for (int x = 0; x < 29; ++x)
                if (converted.f(x, y) >= 255.0f) {
                    ASSERT_EQ(bitsOf(converted.f(x, y)), bitsOf(out.f(x, y))) << x << "," << y;
                }
    }
}

TEST(PreprocStandard, RefusesWindowsOutsideTheImage) {
    Record source = shortSource(10, 6, 1);
    LogCapture log;
    EXPECT_EQ(nullptr, pxImagePreprocStandard(source.p, 0, 0.0f, 1.0f, 1.0f, 0));
    EXPECT_EQ(nullptr, pxImagePreprocStandard(source.p, 7, 0.0f, 1.0f, 1.0f, 1));
    EXPECT_EQ(nullptr, pxImagePreprocStandard(nullptr, 3, 0.0f, 1.0f, 1.0f, 0));
    EXPECT_EQ(3u, log.messages().size());
    EXPECT_TRUE(
        log.has(5, 0xC43D0003u, "pxImagePreproc", "no image, or window 7 outside 1..min(width, height)"));
}

TEST(PreprocStandard, AllocationFailuresReleaseEverything) {
    Record source = shortSource(16, 12, 2);
    for (int saturation = 0; saturation < 2; ++saturation) {
        const int allocations = forEachAllocationFailure(
            [&] {
                tag_pxImage *out = pxImagePreprocStandard(source.p, 5, 0.0f, 10.0f, 1.0f, saturation);
                if (!out)
                    return false;
                pxImageDestruct(&out);
                return true;
            },
            [] {});
        EXPECT_GT(allocations, 4);
    }
}

} // namespace
} // namespace pxtest
