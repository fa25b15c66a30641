// Narrowing row kernels: every instruction-set level this machine runs, forced one at a time, against the
// per-pixel reference of the row converter, bit for bit, at odd sizes and at starts off vector alignment.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "image/pxImageConvertKernels.h"
#include "image/pxImageInternal.h"
#include "pxImageTestUtil.h"

namespace {

constexpr uint32_t kSizes[] = {0, 1, 3, 7, 8, 15, 16, 17, 31, 33, 47, 48, 63, 100, 1001};
// Pixels into the buffer, so that rows start off vector alignment: every distance from a 64-byte boundary
// (the kernels align their stores and overlap their first and last steps).
constexpr uint32_t kStarts[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 31, 63};

// Values where rounding, the int32 limits and the clamps decide.
template <typename T> std::vector<T> edgeValues() {
    const T inf = std::numeric_limits<T>::infinity();
    std::vector<T> v = {0,
                        -T(0),
                        std::numeric_limits<T>::quiet_NaN(),
                        -std::numeric_limits<T>::quiet_NaN(),
                        inf,
                        -inf,
                        std::numeric_limits<T>::denorm_min(),
                        -std::numeric_limits<T>::denorm_min(),
                        std::numeric_limits<T>::max(),
                        std::numeric_limits<T>::lowest(),
                        T(2147483648.0),
                        T(-2147483648.0),
                        T(2147483647.0),
                        T(-2147483649.0),
                        T(2147483647.5),
                        T(-2147483648.5),
                        T(4294967296.0),
                        T(1e10),
                        T(-1e10),
                        T(8388607.5),
                        T(16777216.0)};
    for (T base : {T(0), T(1), T(254), T(255), T(256), T(65534), T(65535), T(65536), T(-1), T(-255)}) {
        for (T half : {T(-0.5), T(0.5)}) {
            const T h = base + half;
            v.insert(v.end(), {h, std::nextafter(h, -inf), std::nextafter(h, inf), -h});
        }
    }
    return v;
}

// A row of count + start values: edge values and random ones (bit patterns, and values over -300..70000).
template <typename T> std::vector<T> makeRow(uint32_t length, std::mt19937_64 &rng) {
    const std::vector<T> edges = edgeValues<T>();
    std::uniform_real_distribution<double> spread(-300.0, 70000.0);
    std::vector<T> row(length);
    for (uint32_t i = 0; i < length; ++i) {
        const uint64_t bits = rng();
        switch (bits % 3) {
        case 0:
            row[i] = edges[(bits >> 8) % edges.size()];
            break;
        case 1:
            std::memcpy(&row[i], &bits, sizeof(T));
            break;
        default:
            row[i] = static_cast<T>(spread(rng));
            break;
        }
    }
    return row;
}

// One kernel against the reference of its kind; the target has a guard pixel on either side.
template <typename S, typename D>
void expectEqualsReference(void (*kernel)(const S *, uint32_t, D *), int32_t srcType, int32_t dstType,
                           std::mt19937_64 &rng) {
    for (uint32_t count : kSizes) {
        for (uint32_t start : kStarts) {
            const std::vector<S> source = makeRow<S>(count + start, rng);
            std::vector<D> fast(count + start + 2, D(0x5A)), reference(count + start + 2, D(0x5A));
            kernel(source.data() + start, count, fast.data() + start + 1);
            ASSERT_EQ(pxImageConvertRowReference(source.data() + start, count, srcType, dstType,
                                                 reference.data() + start + 1),
                      1u);
            ASSERT_EQ(0, std::memcmp(fast.data(), reference.data(), fast.size() * sizeof(D)))
                << srcType << " -> " << dstType << " count " << count << " start " << start;
        }
    }
}

// The range factor of the scaled FLOAT -> SHORT copy, as a float.
const float kScale = static_cast<float>(256.98823529411766);

// Values whose products with the scale land where rounding and clamping decide: each edge value, and
// each divided by the scale with its two float neighbours (products just below, at and above the edge).
std::vector<float> scaledEdgeValues(float scale) {
    std::vector<float> v = edgeValues<float>();
    const size_t edges = v.size();
    const float inf = std::numeric_limits<float>::infinity();
    for (size_t i = 0; i < edges; ++i) {
        const float q = v[i] / scale;
        v.insert(v.end(), {q, std::nextafter(q, -inf), std::nextafter(q, inf)});
    }
    return v;
}

// The fused scaled kernel against the two steps it replaces: the float product row, then the reference
// of kind 9 over it. Rows mix scaled edge values, random bit patterns and random values; the target has a
// guard pixel on either side.
void expectScaledEqualsTwoSteps(void (*kernel)(const float *, uint32_t, float, uint16_t *), float scale,
                                std::mt19937_64 &rng) {
    const std::vector<float> edges = scaledEdgeValues(scale);
    std::uniform_real_distribution<double> spread(-2.0, 300.0);
    for (uint32_t count : kSizes) {
        for (uint32_t start : kStarts) {
            std::vector<float> source(count + start), product(count + start);
            for (float &value : source) {
                const uint64_t bits = rng();
                if (bits % 3 == 0)
                    value = edges[(bits >> 8) % edges.size()];
                else if (bits % 3 == 1)
                    std::memcpy(&value, &bits, sizeof value);
                else
                    value = static_cast<float>(spread(rng));
            }
            for (size_t i = 0; i < source.size(); ++i)
                product[i] = source[i] * scale;
            std::vector<uint16_t> fast(count + start + 2, 0x5A5A), reference(count + start + 2, 0x5A5A);
            kernel(source.data() + start, count, scale, fast.data() + start + 1);
            ASSERT_EQ(pxImageConvertRowReference(product.data() + start, count, FLOAT, SHORT,
                                                 reference.data() + start + 1),
                      1u);
            ASSERT_EQ(fast, reference) << "scale " << scale << " count " << count << " start " << start;
        }
    }
}

} // namespace

TEST(pxImageConvertKernels, ScaledFloatToShortEqualsMultiplyThenRoundAtEveryLevel) {
    int levels = 0;
    for (int level = PX_KERNELS_PORTABLE; level <= PX_KERNELS_AVX512; ++level) {
        const pxImageNarrowKernels *k = pxImageNarrowKernelsAt(level);
        if (k == nullptr)
            continue;
        ++levels;
        SCOPED_TRACE(level);
        std::mt19937_64 rng(20240613 + level);
        for (int round = 0; round < 20; ++round)
            for (float scale : {kScale, 1.0f, 0.5f, 3.0e38f, -kScale})
                expectScaledEqualsTwoSteps(k->floatScaledToShort, scale, rng);
    }
    EXPECT_GE(levels, 1);
}

TEST(pxImageConvertKernels, ScaledFloatToShortEdgeValuesAtEveryLevel) {
    // 1.0 -> 256.98822 -> 257; 255.0117 -> 65535 (the top of the range comes back); a product of 2^31 or
    // more, infinity and NaN give 0; a value whose exact product is just below 0.5 but whose float product
    // is 0.5 rounds to 1, as the product is rounded to float first.
    const float half = 0.5f / kScale;
    const float halfProduct = half * kScale;
    const float values[] = {1.0f,
                            255.01175f,
                            1.0e10f,
                            std::numeric_limits<float>::infinity(),
                            std::numeric_limits<float>::quiet_NaN(),
                            -1.0f,
                            half,
                            65535.0f / kScale,
                            std::numeric_limits<float>::max(),
                            -0.0f};
    const uint16_t expected[] = {257,   65535, 0, 0, 0, 0, static_cast<uint16_t>(halfProduct >= 0.5f),
                                 65535, 0,     0};
    constexpr uint32_t kCount = sizeof values / sizeof values[0];
    for (int level = PX_KERNELS_PORTABLE; level <= PX_KERNELS_AVX512; ++level) {
        const pxImageNarrowKernels *k = pxImageNarrowKernelsAt(level);
        if (k == nullptr)
            continue;
        SCOPED_TRACE(level);
        // Twice in a row of 32, so the values pass through the vector body and the scalar tail.
        std::vector<float> row(32, 2.0f);
        std::copy(values, values + kCount, row.begin());
        std::copy(values, values + kCount, row.begin() + 21);
        std::vector<uint16_t> out(32);
        k->floatScaledToShort(row.data(), 32, kScale, out.data());
        for (uint32_t i = 0; i < kCount; ++i) {
            EXPECT_EQ(out[i], expected[i]) << i;
            EXPECT_EQ(out[21 + i], expected[i]) << i;
        }
        EXPECT_EQ(out[10], 514);
    }
}

TEST(pxImageConvertKernels, EveryLevelEqualsTheReferenceBitForBit) {
    int levels = 0;
    for (int level = PX_KERNELS_PORTABLE; level <= PX_KERNELS_AVX512; ++level) {
        const pxImageNarrowKernels *k = pxImageNarrowKernelsAt(level);
        if (k == nullptr)
            continue; // not built for this target, or not run by this processor
        ++levels;
        SCOPED_TRACE(level);
        std::mt19937_64 rng(20240612 + level);
        for (int round = 0; round < 20; ++round) {
            expectEqualsReference(k->doubleToInt, DOUBLE, INT, rng);
            expectEqualsReference(k->doubleToShort, DOUBLE, SHORT, rng);
            expectEqualsReference(k->doubleToUbyte, DOUBLE, UBYTE, rng);
            expectEqualsReference(k->floatToInt, FLOAT, INT, rng);
            expectEqualsReference(k->floatToShort, FLOAT, SHORT, rng);
            expectEqualsReference(k->floatToUbyte, FLOAT, UBYTE, rng);
        }
    }
    EXPECT_GE(levels, 1);
}

TEST(pxImageConvertKernels, ThePortableLevelIsAlwaysThereAndTheBestIsOneOfTheLevels) {
    ASSERT_NE(pxImageNarrowKernelsAt(PX_KERNELS_PORTABLE), nullptr);
    EXPECT_EQ(pxImageNarrowKernelsAt(PX_KERNELS_AVX512 + 1), nullptr);
    EXPECT_EQ(pxImageNarrowKernelsAt(-1), nullptr);
    bool found = false;
    for (int level = PX_KERNELS_PORTABLE; level <= PX_KERNELS_AVX512; ++level)
        found |= pxImageNarrowKernelsAt(level) == &pxImageNarrowKernelsBest();
    EXPECT_TRUE(found);
#if defined(__SSE2__)
    EXPECT_NE(pxImageNarrowKernelsAt(PX_KERNELS_SSE2), nullptr);
#endif
}

TEST(pxImageConvertKernels, EdgeValuesGiveTheRuleAtEveryLevel) {
    // 0.49999997f + 0.5f would round to 1 in float; the rule's double sum truncates to 0.
    const float floats[] = {0.49999997f, 2.5f, -2.5f, 2147483648.0f, -2147483648.0f, 65535.5f, 255.5f, -0.0f};
    const int32_t toInt[] = {0, 3, -3, INT32_MIN, INT32_MIN, 65536, 256, 0};
    const uint16_t toShort[] = {0, 3, 0, 0, 0, 65535, 256, 0};
    const uint8_t toUbyte[] = {0, 3, 0, 0, 0, 255, 255, 0};
    const double doubles[] = {-2.5, 2.5, 70000.4, -0.4, 3000000000.0, 1e10, 2147483647.49, 2147483647.5};
    const int32_t doubleToInt[] = {-3, 3, 70000, 0, INT32_MIN, INT32_MIN, INT32_MAX, INT32_MIN};
    const uint16_t doubleToShort[] = {0, 3, 65535, 0, 0, 0, 65535, 0};
    for (int level = PX_KERNELS_PORTABLE; level <= PX_KERNELS_AVX512; ++level) {
        const pxImageNarrowKernels *k = pxImageNarrowKernelsAt(level);
        if (k == nullptr)
            continue;
        SCOPED_TRACE(level);
        int32_t i32[8];
        uint16_t u16[8];
        uint8_t u8[8];
        k->floatToInt(floats, 8, i32);
        k->floatToShort(floats, 8, u16);
        k->floatToUbyte(floats, 8, u8);
        EXPECT_EQ(0, std::memcmp(i32, toInt, sizeof i32));
        EXPECT_EQ(0, std::memcmp(u16, toShort, sizeof u16));
        EXPECT_EQ(0, std::memcmp(u8, toUbyte, sizeof u8));
        k->doubleToInt(doubles, 8, i32);
        k->doubleToShort(doubles, 8, u16);
        EXPECT_EQ(0, std::memcmp(i32, doubleToInt, sizeof i32));
        EXPECT_EQ(0, std::memcmp(u16, doubleToShort, sizeof u16));
    }
}

// The widening kernels: every UBYTE and SHORT value, rows of odd lengths from odd starts, at every level.
template <typename S>
void expectWideningExact(void (*kernel)(const S *, uint32_t, float *), int32_t srcType) {
    std::vector<S> all(65536 / (sizeof(S) == 1 ? 256 : 1) + 40);
    for (size_t i = 0; i < all.size(); ++i)
        all[i] = static_cast<S>(i * 7919u);
    for (uint32_t count : {0u, 1u, 15u, 17u, 33u, 63u, 257u, static_cast<uint32_t>(all.size() - 3)}) {
        for (uint32_t start : {0u, 1u, 3u}) {
            std::vector<float> fast(count + 2, 0.25f), reference(count + 2, 0.25f);
            kernel(all.data() + start, count, fast.data() + 1);
            ASSERT_EQ(1u, pxImageConvertRowReference(all.data() + start, count, srcType, FLOAT,
                                                     reference.data() + 1));
            ASSERT_EQ(0, std::memcmp(fast.data(), reference.data(), fast.size() * sizeof(float)))
                << srcType << " count " << count << " start " << start;
        }
    }
}

TEST(pxImageConvertKernels, WideningToFloatIsExactAtEveryLevel) {
    int levels = 0;
    for (int level = PX_KERNELS_PORTABLE; level <= PX_KERNELS_AVX512; ++level) {
        const pxImageNarrowKernels *k = pxImageNarrowKernelsAt(level);
        if (!k)
            continue;
        ++levels;
        SCOPED_TRACE(level);
        expectWideningExact(k->ubyteToFloat, UBYTE);
        expectWideningExact(k->shortToFloat, SHORT);
    }
    EXPECT_GE(levels, 1);
}
