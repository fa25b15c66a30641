// Pixel conversion: the row converter against its per-pixel reference, the conversion table, the scaled
// SHORT<->FLOAT conversion and the pixel-map and image copies.
#include <cfloat>
#include <climits>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "pxImageTestUtil.h"
#include "support/AllocFailure.h"

using namespace pxtest;

namespace {

constexpr int32_t kConvertible[] = {UBYTE, SHORT, INT, FLOAT, DOUBLE};
constexpr uint32_t kOddSizes[] = {1, 3, 7, 17, 33, 1001};

bool isConvertible(int32_t type) {
    for (int32_t t : kConvertible)
        if (t == type)
            return true;
    return false;
}

template <typename T> void put(std::vector<uint8_t> &bytes, size_t i, T v) {
    std::memcpy(bytes.data() + i * sizeof(T), &v, sizeof(T));
}

template <typename T> T get(const void *bytes, size_t i = 0) {
    T v;
    std::memcpy(&v, static_cast<const uint8_t *>(bytes) + i * sizeof(T), sizeof(T));
    return v;
}

// Reads pixel i of a row of a convertible type as a double.
double valueOf(const void *row, int32_t type, size_t i = 0) {
    switch (type) {
    case UBYTE:
        return get<uint8_t>(row, i);
    case SHORT:
        return get<uint16_t>(row, i);
    case INT:
        return get<int32_t>(row, i);
    case FLOAT:
        return get<float>(row, i);
    default:
        return get<double>(row, i);
    }
}

// Values every floating-point kernel must get right: halves, signed zeros, infinities, NaNs, limits.
std::vector<double> specialDoubles() {
    std::vector<double> v = {0.0,
                             -0.0,
                             0.5,
                             -0.5,
                             1.5,
                             -1.5,
                             2.5,
                             -2.5,
                             254.5,
                             255.5,
                             -255.5,
                             65534.5,
                             65535.5,
                             65535.49,
                             255.49,
                             0.49999999999999994,
                             -0.49999999999999994,
                             2147483647.0,
                             2147483647.49,
                             2147483647.5,
                             2147483648.0,
                             -2147483648.0,
                             -2147483648.49,
                             -2147483648.5,
                             -2147483649.0,
                             3000000000.0,
                             1e10,
                             -1e10,
                             70000.4,
                             -0.4,
                             DBL_MAX,
                             -DBL_MAX,
                             DBL_MIN,
                             DBL_TRUE_MIN,
                             -DBL_TRUE_MIN,
                             FLT_MAX,
                             static_cast<double>(FLT_MAX) * 2.0,
                             std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::quiet_NaN(),
                             -std::numeric_limits<double>::quiet_NaN()};
    return v;
}

std::vector<float> specialFloats() {
    std::vector<float> v;
    for (double d : specialDoubles())
        v.push_back(static_cast<float>(d));
    const float more[] = {2147483520.0f, 2147483648.0f, -2147483648.0f, -2147483904.0f,
                          8388607.5f,    -8388607.5f,   16777216.0f,    FLT_MIN,
                          FLT_TRUE_MIN,  65535.5f,      -65535.5f};
    v.insert(v.end(), std::begin(more), std::end(more));
    uint32_t signalling = 0x7F800001u;
    float snan;
    std::memcpy(&snan, &signalling, sizeof snan);
    v.push_back(snan);
    return v;
}

std::vector<int32_t> specialInts() {
    return {0,     1,      -1,        255,       256,           -255,         65535,
            65536, -65535, INT32_MAX, INT32_MIN, INT32_MAX - 1, INT32_MIN + 1};
}

// Fills count pixels of a type: the special values first (cycled), then random values that include
// random bit patterns and values spread over and beyond the target ranges.
std::vector<uint8_t> makeRow(int32_t type, uint32_t count, std::mt19937_64 &rng, uint32_t offset) {
    std::vector<uint8_t> bytes(static_cast<size_t>(count) * pxImagePixelSizeTable[type]);
    std::uniform_real_distribution<double> wide(-3e9, 3e9), narrow(-300.0, 70000.0);
    const auto doubles = specialDoubles();
    const auto floats = specialFloats();
    const auto ints = specialInts();
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t bits = rng();
        const uint32_t pick = static_cast<uint32_t>(bits % 4);
        const size_t special = (i + offset);
        switch (type) {
        case UBYTE:
            put<uint8_t>(bytes, i, static_cast<uint8_t>(bits >> 8));
            break;
        case SHORT:
            put<uint16_t>(bytes, i, static_cast<uint16_t>(bits >> 8));
            break;
        case INT:
            put<int32_t>(bytes, i,
                         pick == 0   ? ints[special % ints.size()]
                         : pick == 1 ? static_cast<int32_t>(bits >> 20) % 70000
                                     : static_cast<int32_t>(bits >> 32));
            break;
        case FLOAT: {
            float f;
            const uint32_t raw = static_cast<uint32_t>(bits >> 32);
            std::memcpy(&f, &raw, sizeof f);
            put<float>(bytes, i,
                       pick == 0   ? floats[special % floats.size()]
                       : pick == 1 ? f
                       : pick == 2 ? static_cast<float>(narrow(rng))
                                   : std::round(static_cast<float>(narrow(rng))) + 0.5f);
            break;
        }
        default: {
            double d;
            std::memcpy(&d, &bits, sizeof d);
            put<double>(bytes, i,
                        pick == 0   ? doubles[special % doubles.size()]
                        : pick == 1 ? d
                        : pick == 2 ? wide(rng)
                                    : std::round(narrow(rng)) - 0.5);
            break;
        }
        }
    }
    return bytes;
}

} // namespace

// ---- Row converter
// -----------------------------------------------------------------------------------------

TEST(pxImageConvertRow, FastKernelsEqualTheReferenceBitForBitOnEveryKindAndOddSize) {
    std::mt19937_64 rng(20240611);
    int kinds = 0;
    for (int32_t src : kConvertible) {
        for (int32_t dst : kConvertible) {
            ++kinds;
            const size_t dstSize = pxImagePixelSizeTable[dst];
            for (uint32_t count : kOddSizes) {
                for (uint32_t offset : {0u, 1u, 29u}) {
                    // The source starts one pixel into a buffer so that rows need not be aligned.
                    std::vector<uint8_t> src0 = makeRow(src, count + 1, rng, offset);
                    const void *in = src0.data() + pxImagePixelSizeTable[src];
                    std::vector<uint8_t> fast(dstSize * (count + 2), 0xA5),
                        reference(dstSize * (count + 2), 0xA5);
                    LogCapture log;
                    ASSERT_EQ(pxImageConvertRow(in, count, src, dst, fast.data() + dstSize), 1u);
                    ASSERT_EQ(pxImageConvertRowReference(in, count, src, dst, reference.data() + dstSize),
                              1u);
                    EXPECT_TRUE(log.records().empty());
                    ASSERT_EQ(fast, reference) << src << " -> " << dst << " count " << count;
                    // Nothing is written before or after the row.
                    for (size_t k = 0; k < dstSize; ++k) {
                        EXPECT_EQ(fast[k], 0xA5);
                        EXPECT_EQ(fast[fast.size() - 1 - k], 0xA5);
                    }
                }
            }
        }
    }
    EXPECT_EQ(kinds, 25);
}

TEST(pxImageConvertRow, TableOfAllEightyOnePairs) {
    // One probe value per source type and what each target must hold.
    uint8_t ubyte = 200;
    uint16_t ushort = 0x12FF;
    int32_t integer = 70000;
    float single = 2.5f;
    double wide = -2.5;
    const void *probe[9] = {&ubyte, &ubyte, &ubyte, &ushort, &ushort, &integer, &single, &wide, &ushort};
    auto expected = [](int32_t src, int32_t dst) -> double {
        switch (src) {
        case UBYTE:
            return 200;
        case SHORT:
            return dst == UBYTE ? 0x12 : 0x12FF;
        case INT:
            return dst == UBYTE ? 255 : dst == SHORT ? 65535 : 70000;
        case FLOAT:
            return dst == FLOAT || dst == DOUBLE ? 2.5 : 3;
        default:
            return dst == FLOAT || dst == DOUBLE ? -2.5 : dst == INT ? -3 : 0;
        }
    };
    int converted = 0;
    for (int32_t src = 0; src <= 8; ++src) {
        for (int32_t dst = 0; dst <= 8; ++dst) {
            uint8_t out[8] = {};
            LogCapture log;
            const uint32_t result = pxImageConvertRow(probe[src], 1, src, dst, out);
            if (isConvertible(src) && isConvertible(dst)) {
                ++converted;
                EXPECT_EQ(result, 1u) << src << " -> " << dst;
                EXPECT_EQ(valueOf(out, dst), expected(src, dst)) << src << " -> " << dst;
                EXPECT_TRUE(log.records().empty());
            } else {
                EXPECT_EQ(result, 0u) << src << " -> " << dst;
                EXPECT_EQ(pxImageConvertRowReference(probe[src], 1, src, dst, out), 0u);
                expectErrorChain(log, "pxImage", "Invalid ConvertKind", 0);
                for (uint8_t b : out)
                    EXPECT_EQ(b, 0);
            }
        }
    }
    EXPECT_EQ(converted, 25);
}

TEST(pxImageConvertRow, TypesOutsideTheTableHaveNoConversion) {
    uint8_t in[8] = {}, out[8] = {};
    for (auto pair : {std::pair<int32_t, int32_t>{9, FLOAT}, {FLOAT, -1}, {INT32_MIN, INT32_MAX}}) {
        LogCapture log;
        EXPECT_EQ(pxImageConvertRow(in, 1, pair.first, pair.second, out), 0u);
        expectErrorChain(log, "pxImage", "Invalid ConvertKind", 0);
    }
}

TEST(pxImageConvertRow, ZeroPixelsIsSuccess) {
    for (int32_t src : kConvertible)
        for (int32_t dst : kConvertible)
            EXPECT_EQ(pxImageConvertRow(nullptr, 0, src, dst, nullptr), 1u);
}

namespace {

template <typename S, typename D> D convertOne(int32_t src, int32_t dst, S value) {
    D out{};
    EXPECT_EQ(pxImageConvertRow(&value, 1, src, dst, &out), 1u);
    D reference{};
    EXPECT_EQ(pxImageConvertRowReference(&value, 1, src, dst, &reference), 1u);
    EXPECT_EQ(std::memcmp(&out, &reference, sizeof(D)), 0);
    return out;
}

} // namespace

TEST(pxImageConvertRow, ShortToUbyteKeepsTheHighByteAndUbyteToShortKeepsTheValue) {
    EXPECT_EQ((convertOne<uint16_t, uint8_t>(SHORT, UBYTE, 0x12FF)), 0x12);
    EXPECT_EQ((convertOne<uint8_t, uint16_t>(UBYTE, SHORT, 0x12)), 0x0012);
}

TEST(pxImageConvertRow, DoubleRoundsHalfAwayFromZeroAndClamps) {
    EXPECT_EQ((convertOne<double, int32_t>(DOUBLE, INT, -2.5)), -3);
    EXPECT_EQ((convertOne<double, int32_t>(DOUBLE, INT, 2.5)), 3);
    EXPECT_EQ((convertOne<double, uint16_t>(DOUBLE, SHORT, 70000.4)), 65535);
    EXPECT_EQ((convertOne<double, uint16_t>(DOUBLE, SHORT, -0.4)), 0);
}

TEST(pxImageConvertRow, OutOfRangeGivesTheInvalidIntegerBeforeClamping) {
    EXPECT_EQ((convertOne<double, int32_t>(DOUBLE, INT, 3000000000.0)), INT32_MIN);
    EXPECT_EQ((convertOne<double, uint16_t>(DOUBLE, SHORT, 1e10)), 0);
    EXPECT_EQ((convertOne<double, uint8_t>(DOUBLE, UBYTE, 1e10)), 0);
    EXPECT_EQ((convertOne<double, int32_t>(DOUBLE, INT, std::nan(""))), INT32_MIN);
    EXPECT_EQ((convertOne<double, int32_t>(DOUBLE, INT, -HUGE_VAL)), INT32_MIN);
    EXPECT_EQ((convertOne<double, int32_t>(DOUBLE, INT, 2147483647.49)), INT32_MAX);
    EXPECT_EQ((convertOne<double, int32_t>(DOUBLE, INT, 2147483647.5)), INT32_MIN);
    EXPECT_EQ((convertOne<double, int32_t>(DOUBLE, INT, -2147483648.49)),
              INT32_MIN); // -2147483648.99 truncates in range
    EXPECT_EQ((convertOne<double, int32_t>(DOUBLE, INT, -2147483648.5)), INT32_MIN);
    EXPECT_EQ((convertOne<double, int32_t>(DOUBLE, INT, -2147483647.5)), -2147483647 - 1);
    EXPECT_EQ((convertOne<float, int32_t>(FLOAT, INT, 2147483648.0f)), INT32_MIN);
    EXPECT_EQ((convertOne<float, uint16_t>(FLOAT, SHORT, 1e10f)), 0);
    EXPECT_EQ((convertOne<float, uint8_t>(FLOAT, UBYTE, -1e10f)), 0);
}

TEST(pxImageConvertRow, FloatSourcesFormTheSumInDouble) {
    // 8388607.5f + 0.5 in float would round to 8388608 as well; 0.49999997f + 0.5f in float is 1.0f.
    EXPECT_EQ((convertOne<float, int32_t>(FLOAT, INT, 0.49999997f)), 0);
    EXPECT_EQ((convertOne<float, uint16_t>(FLOAT, SHORT, 0.49999997f)), 0);
    EXPECT_EQ((convertOne<float, uint8_t>(FLOAT, UBYTE, 0.49999997f)), 0);
    EXPECT_EQ((convertOne<float, int32_t>(FLOAT, INT, -0.0f)), 0);
    EXPECT_EQ((convertOne<float, uint8_t>(FLOAT, UBYTE, 254.5f)), 255);
    EXPECT_EQ((convertOne<float, uint8_t>(FLOAT, UBYTE, 255.5f)), 255);
}

TEST(pxImageConvertRow, IntClampsWithoutChangingIntegers) {
    EXPECT_EQ((convertOne<int32_t, uint16_t>(INT, SHORT, -5)), 0);
    EXPECT_EQ((convertOne<int32_t, uint16_t>(INT, SHORT, 65536)), 65535);
    EXPECT_EQ((convertOne<int32_t, uint16_t>(INT, SHORT, 1234)), 1234);
    EXPECT_EQ((convertOne<int32_t, uint8_t>(INT, UBYTE, 256)), 255);
    EXPECT_EQ((convertOne<int32_t, uint8_t>(INT, UBYTE, INT32_MIN)), 0);
    EXPECT_EQ((convertOne<int32_t, uint8_t>(INT, UBYTE, 0)), 0);
    EXPECT_EQ((convertOne<int32_t, float>(INT, FLOAT, 16777217)), 16777216.0f);
}

// ---- Scaled SHORT <-> FLOAT
// -----------------------------------------------------------------------------------

TEST(pxImageConvertRowScaled, MatchesThePerPixelRuleAtOddSizes) {
    const float scale = static_cast<float>(256.98823529411766);
    const float inverse = static_cast<float>(0.0038912287126899835);
    EXPECT_EQ(scale, 256.98822f);
    std::mt19937_64 rng(7);
    for (uint32_t count : kOddSizes) {
        std::vector<uint16_t> shorts(count);
        for (uint32_t i = 0; i < count; ++i)
            shorts[i] = i < 3 ? static_cast<uint16_t>(i == 0   ? 0
                                                      : i == 1 ? 65535
                                                               : 1)
                              : static_cast<uint16_t>(rng());
        std::vector<float> floats(count, -1.0f);
        pxImageConvertRowShortToFloatScaled(shorts.data(), count, floats.data());
        for (uint32_t i = 0; i < count; ++i) {
            const float expected = static_cast<float>(shorts[i]) * inverse;
            EXPECT_EQ(std::memcmp(&floats[i], &expected, sizeof(float)), 0);
        }
        std::vector<uint8_t> raw = makeRow(FLOAT, count, rng, count);
        std::vector<float> source(count), scaled(count);
        std::memcpy(source.data(), raw.data(), raw.size());
        for (uint32_t i = 0; i < count; ++i)
            scaled[i] = source[i] * scale;
        std::vector<uint16_t> fast(count), reference(count);
        pxImageConvertRowFloatToShortScaled(source.data(), count, fast.data());
        ASSERT_EQ(pxImageConvertRowReference(scaled.data(), count, FLOAT, SHORT, reference.data()), 1u);
        EXPECT_EQ(fast, reference) << count;
    }
}

// ---- Pixel-map copy
// --------------------------------------------------------------------------------------------

namespace {

// Owns an image for the length of a test.
struct Owned {
    tag_pxImage *image = nullptr;
    ~Owned() { pxImageDestruct(&image); }
};

// Gives every pixel of plane `plane`, margin included, the value base + 100 * y + x.
template <typename T> void fillRamp(tag_pxImage *image, int plane, double base) {
    const int b = image->border;
    for (int y = -b; y < image->height + b; ++y)
        for (int x = -b; x < image->width + b; ++x)
            rowsOf<T>(image, plane)[y][x] = static_cast<T>(base + 100 * y + x);
}

} // namespace

TEST(pxImagePixMapConvertCopy, SameTypeCopiesWidthPixelsFromTheLeftMargin) {
    Owned src, dst;
    ASSERT_EQ(pxImageConstruct(FLOAT, 10, 3, 2, 1, &src.image), 1u);
    ASSERT_EQ(pxImageConstruct(FLOAT, 10, 3, 2, 1, &dst.image), 1u);
    fillRamp<float>(src.image, 0, 1000.0);
    LogCapture log;
    ASSERT_EQ(pxImagePixMapConvertCopy(src.image->pixMap[0], 10, 3, FLOAT, 2, 2, 0, 0, &dst.image->pixMap[0]),
              1u);
    EXPECT_TRUE(log.records().empty());
    for (int y = -2; y < 5; ++y)
        for (int x = -2; x < 12; ++x) {
            const float expected = x <= 7 ? static_cast<float>(1000.0 + 100 * y + x) : 0.0f;
            EXPECT_EQ(rowsOf<float>(dst.image)[y][x], expected) << y << " " << x;
        }
}

TEST(pxImagePixMapConvertCopy, TheSmallerBorderIsCopied) {
    Owned src, dst;
    ASSERT_EQ(pxImageConstruct(SHORT, 4, 3, 3, 1, &src.image), 1u);
    ASSERT_EQ(pxImageConstruct(INT, 4, 3, 1, 1, &dst.image), 1u);
    fillRamp<uint16_t>(src.image, 0, 1000.0);
    ASSERT_EQ(
        pxImagePixMapConvertCopy(src.image->pixMap[0], 4, 3, SHORT, 3, 1, 1, INT, &dst.image->pixMap[0]), 1u);
    for (int y = -1; y < 4; ++y)
        for (int x = -1; x < 5; ++x)
            EXPECT_EQ(rowsOf<int32_t>(dst.image)[y][x], 1000 + 100 * y + x);
}

TEST(pxImagePixMapConvertCopy, FloatToShortWithTheTransform) {
    Owned src, dst;
    ASSERT_EQ(pxImageConstruct(FLOAT, 3, 2, 1, 1, &src.image), 1u);
    ASSERT_EQ(pxImageConstruct(SHORT, 3, 2, 1, 1, &dst.image), 1u);
    float one = 1.0f;
    pxImageSetValue(src.image, &one);
    rowsOf<float>(src.image)[0][1] = 255.0f;
    rowsOf<float>(src.image)[1][2] = 300.0f;
    rowsOf<float>(src.image)[-1][-1] = -1.0f;
    ASSERT_EQ(
        pxImagePixMapConvertCopy(src.image->pixMap[0], 3, 2, FLOAT, 1, 1, 1, SHORT, &dst.image->pixMap[0]),
        1u);
    EXPECT_EQ(rowsOf<uint16_t>(dst.image)[0][0], 257); // 1.0 x 256.98822, rounded
    EXPECT_EQ(rowsOf<uint16_t>(dst.image)[0][1], 65532);
    EXPECT_EQ(rowsOf<uint16_t>(dst.image)[1][2], 65535);
    EXPECT_EQ(rowsOf<uint16_t>(dst.image)[-1][-1], 0);
    EXPECT_EQ(rowsOf<uint16_t>(dst.image)[2][3], 0);
}

TEST(pxImagePixMapConvertCopy, TheTransformCoversTheWholeCopiedMargin) {
    // Source border 2, target border 1: rows -1..height and columns -1..width are scaled, nothing beyond.
    Owned shorts, floats, back;
    ASSERT_EQ(pxImageConstruct(SHORT, 3, 2, 2, 1, &shorts.image), 1u);
    ASSERT_EQ(pxImageConstruct(FLOAT, 3, 2, 1, 1, &floats.image), 1u);
    ASSERT_EQ(pxImageConstruct(SHORT, 3, 2, 1, 1, &back.image), 1u);
    fillRamp<uint16_t>(shorts.image, 0, 30000.0);
    ASSERT_EQ(pxImagePixMapConvertCopy(shorts.image->pixMap[0], 3, 2, SHORT, 2, 1, 1, FLOAT,
                                       &floats.image->pixMap[0]),
              1u);
    const float inverse = static_cast<float>(0.0038912287126899835);
    for (int y = -1; y < 3; ++y)
        for (int x = -1; x < 4; ++x)
            EXPECT_EQ(rowsOf<float>(floats.image)[y][x], static_cast<float>(30000 + 100 * y + x) * inverse)
                << y << " " << x;
    ASSERT_EQ(pxImagePixMapConvertCopy(floats.image->pixMap[0], 3, 2, FLOAT, 1, 1, 1, SHORT,
                                       &back.image->pixMap[0]),
              1u);
    // The round trip through single precision comes back to the value.
    for (int y = -1; y < 3; ++y)
        for (int x = -1; x < 4; ++x)
            EXPECT_EQ(rowsOf<uint16_t>(back.image)[y][x], 30000 + 100 * y + x) << y << " " << x;
}

TEST(pxImagePixMapConvertCopy, ShortToFloatWithTheTransform) {
    Owned src, dst;
    ASSERT_EQ(pxImageConstruct(SHORT, 2, 2, 0, 1, &src.image), 1u);
    ASSERT_EQ(pxImageConstruct(FLOAT, 2, 2, 0, 1, &dst.image), 1u);
    rowsOf<uint16_t>(src.image)[0][0] = 65535;
    rowsOf<uint16_t>(src.image)[1][1] = 257;
    ASSERT_EQ(
        pxImagePixMapConvertCopy(src.image->pixMap[0], 2, 2, SHORT, 0, 0, 1, FLOAT, &dst.image->pixMap[0]),
        1u);
    EXPECT_NEAR(rowsOf<float>(dst.image)[0][0], 255.0117, 1e-4);
    EXPECT_EQ(rowsOf<float>(dst.image)[0][0], 65535.0f * 0.0038912287126899835f);
    EXPECT_NEAR(rowsOf<float>(dst.image)[1][1], 1.0000457, 1e-6);
    EXPECT_EQ(rowsOf<float>(dst.image)[0][1], 0.0f);
}

TEST(pxImagePixMapConvertCopy, TheTransformIsIgnoredForOtherPairs) {
    Owned src, dst;
    ASSERT_EQ(pxImageConstruct(UBYTE, 2, 1, 0, 1, &src.image), 1u);
    ASSERT_EQ(pxImageConstruct(FLOAT, 2, 1, 0, 1, &dst.image), 1u);
    rowsOf<uint8_t>(src.image)[0][0] = 200;
    ASSERT_EQ(
        pxImagePixMapConvertCopy(src.image->pixMap[0], 2, 1, UBYTE, 0, 0, 1, FLOAT, &dst.image->pixMap[0]),
        1u);
    EXPECT_EQ(rowsOf<float>(dst.image)[0][0], 200.0f);
}

TEST(pxImagePixMapConvertCopy, TransformScratchRowAllocationFailureLeavesNothing) {
    Owned src, dst;
    ASSERT_EQ(pxImageConstruct(FLOAT, 5, 4, 1, 1, &src.image), 1u);
    ASSERT_EQ(pxImageConstruct(SHORT, 5, 4, 1, 1, &dst.image), 1u);
    float one = 1.0f;
    pxImageSetValue(src.image, &one);
    const int allocations = forEachAllocationFailure(
        [&] {
            return pxImagePixMapConvertCopy(src.image->pixMap[0], 5, 4, FLOAT, 1, 1, 1, SHORT,
                                            &dst.image->pixMap[0]) == 1;
        },
        [] {});
    EXPECT_EQ(allocations, 1);
    EXPECT_EQ(rowsOf<uint16_t>(dst.image)[3][4], 257);
    LogCapture log;
    {
        AllocFailure fail(1);
        EXPECT_EQ(pxImagePixMapConvertCopy(src.image->pixMap[0], 5, 4, FLOAT, 1, 1, 1, SHORT,
                                           &dst.image->pixMap[0]),
                  0u);
    }
    expectTracesOnly(log, "pxImage", 1);
}

TEST(pxImagePixMapConvertCopy, ChecksEachArgument) {
    Owned src;
    ASSERT_EQ(pxImageConstruct(FLOAT, 2, 2, 0, 1, &src.image), 1u);
    pxImagePixMap target = src.image->pixMap[0];
    struct Case {
        int32_t width, height, srcType, srcBorder, dstBorder, dstType;
        const char *text;
    };
    const Case cases[] = {{2, 2, 9, 0, 0, FLOAT, "Invalid image type"},
                          {2, 2, FLOAT, 0, 0, -3, "Invalid image type"},
                          {0, 2, FLOAT, 0, 0, FLOAT, "txt"},
                          {10000, 2, FLOAT, 0, 0, FLOAT, "txt"},
                          {2, 0, FLOAT, 0, 0, FLOAT, "txt"},
                          {2, 10000, FLOAT, 0, 0, FLOAT, "txt"},
                          {2, 2, FLOAT, 1000, 0, FLOAT, "txt"},
                          {2, 2, FLOAT, 0, -1, FLOAT, "txt"}};
    for (const Case &c : cases) {
        LogCapture log;
        EXPECT_EQ(pxImagePixMapConvertCopy(src.image->pixMap[0], c.width, c.height, c.srcType, c.srcBorder,
                                           c.dstBorder, 0, c.dstType, &target),
                  0u);
        expectErrorChain(log, "pxImage", c.text, 0);
    }
    // Either type is checked before the size and the borders.
    for (int32_t srcType : {int32_t{9}, int32_t{FLOAT}}) {
        LogCapture log;
        EXPECT_EQ(pxImagePixMapConvertCopy(src.image->pixMap[0], 0, 10000, srcType, 1000, -1, 0,
                                           srcType == 9 ? FLOAT : 9, &target),
                  0u);
        expectErrorChain(log, "pxImage", "Invalid image type", 0);
    }
}

TEST(pxImagePixMapConvertCopy, AFailingRowIsTracedAndEndsTheCopy) {
    Owned src, dst;
    ASSERT_EQ(pxImageConstruct(CSHORT, 2, 2, 0, 1, &src.image), 1u);
    ASSERT_EQ(pxImageConstruct(SHORT, 2, 2, 0, 1, &dst.image), 1u);
    LogCapture log;
    EXPECT_EQ(
        pxImagePixMapConvertCopy(src.image->pixMap[0], 2, 2, CSHORT, 0, 0, 0, SHORT, &dst.image->pixMap[0]),
        0u);
    expectErrorChain(log, "pxImage", "Invalid ConvertKind", 1);
}

TEST(pxImagePixMapConvertCopy, TypeZeroToTypeZeroCopiesNothing) {
    Owned src;
    ASSERT_EQ(pxImageConstruct(0, 2, 2, 0, 1, &src.image), 1u);
    pxImagePixMap target = src.image->pixMap[0];
    EXPECT_EQ(pxImagePixMapConvertCopy(src.image->pixMap[0], 2, 2, 0, 0, 0, 0, 0, &target), 1u);
}

// ---- Image copy
// ------------------------------------------------------------------------------------------------

TEST(pxImageConvertCopy, ConvertsEveryPlaneAndKeepsTheMetadata) {
    Owned src, copy;
    ASSERT_EQ(pxImageConstruct(DOUBLE, 5, 3, 1, 3, &src.image), 1u);
    for (int p = 0; p < 3; ++p)
        fillRamp<double>(src.image, p, 0.5 + 1000 * p);
    src.image->origType = SHORT12;
    src.image->auxInt = 42;
    src.image->temperature[1] = 21.5f;
    LogCapture log;
    ASSERT_EQ(pxImageConvertCopy(src.image, INT, -1, &copy.image), 1u);
    EXPECT_TRUE(log.records().empty());
    EXPECT_EQ(copy.image->type, INT);
    EXPECT_EQ(copy.image->border, 1);
    EXPECT_EQ(copy.image->planes, 3);
    EXPECT_EQ(copy.image->origType, SHORT12);
    EXPECT_EQ(src.image->origType, SHORT12);
    EXPECT_EQ(copy.image->auxInt, 42);
    EXPECT_EQ(copy.image->temperature[1], 21.5f);
    for (int p = 0; p < 3; ++p)
        for (int y = -1; y < 4; ++y)
            for (int x = -1; x < 6; ++x) {
                const double v = 0.5 + 1000 * p + 100 * y + x;
                EXPECT_EQ(rowsOf<int32_t>(copy.image, p)[y][x],
                          static_cast<int32_t>(v > 0 ? v + 0.5 : v - 0.5));
            }
}

TEST(pxImageConvertCopy, TypeZeroKeepsTheTypeAndANewBorderIsUsed) {
    Owned src, copy;
    ASSERT_EQ(pxImageConstruct(UBYTE, 4, 4, 2, 1, &src.image), 1u);
    fillRamp<uint8_t>(src.image, 0, 60.0);
    ASSERT_EQ(pxImageConvertCopy(src.image, 0, 0, &copy.image), 1u);
    EXPECT_EQ(copy.image->type, UBYTE);
    EXPECT_EQ(copy.image->border, 0);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(rowsOf<uint8_t>(copy.image)[y][x], static_cast<uint8_t>(60 + 100 * y + x));
}

TEST(pxImageConvertCopy, TargetBorderMinusOneKeepsTheSourceBorderAndThousandFails) {
    Owned src, copy;
    ASSERT_EQ(pxImageConstruct(FLOAT, 4, 4, 3, 1, &src.image), 1u);
    ASSERT_EQ(pxImageConvertCopy(src.image, SHORT, -1, &copy.image), 1u);
    EXPECT_EQ(copy.image->border, 3);
    pxImageDestruct(&copy.image);
    LogCapture log;
    EXPECT_EQ(pxImageConvertCopy(src.image, SHORT, 1000, &copy.image), 0u);
    EXPECT_EQ(copy.image, nullptr);
    // pxImageHeaderConvertCopy finds it; pxImageConvertWithTransformCopy and pxImageConvertCopy trace it.
    expectErrorChain(log, "pxImage", "txt", 2);
}

TEST(pxImageConvertCopy, FileEncodingsCannotBeConverted) {
    const long baseline = pxEnvLiveAllocations();
    for (int32_t encoding : {CSHORT, CBIT, SHORT12}) {
        for (bool fromEncoding : {true, false}) {
            Owned src;
            ASSERT_EQ(pxImageConstruct(fromEncoding ? encoding : FLOAT, 3, 2, 0, 2, &src.image), 1u);
            tag_pxImage *copy = nullptr;
            LogCapture log;
            EXPECT_EQ(pxImageConvertCopy(src.image, fromEncoding ? FLOAT : encoding, 0, &copy), 0u);
            EXPECT_EQ(copy, nullptr);
            // Row converter error, then pxImagePixMapConvertCopy, pxImageConvertWithTransformCopy and
            // pxImageConvertCopy trace it.
            expectErrorChain(log, "pxImage", "Invalid ConvertKind", 3);
        }
    }
    EXPECT_EQ(pxEnvLiveAllocations(), baseline);
}

TEST(pxImageConvertCopy, AFileEncodingIsCopiedAsItIsToItsOwnType) {
    // Equal types take the block copy, which needs no conversion kind.
    for (int32_t encoding : {int32_t{CSHORT}, int32_t{SHORT12}}) {
        Owned src, copy;
        ASSERT_EQ(pxImageConstruct(encoding, 3, 2, 0, 1, &src.image), 1u);
        rowsOf<uint16_t>(src.image)[1][2] = 0xBEEF;
        LogCapture log;
        ASSERT_EQ(pxImageConvertCopy(src.image, 0, -1, &copy.image), 1u);
        EXPECT_TRUE(log.records().empty());
        EXPECT_EQ(copy.image->type, encoding);
        EXPECT_EQ(rowsOf<uint16_t>(copy.image)[1][2], 0xBEEF);
    }
}

TEST(pxImageConvertCopy, InvalidNewTypeFails) {
    Owned src;
    ASSERT_EQ(pxImageConstruct(FLOAT, 3, 2, 0, 1, &src.image), 1u);
    tag_pxImage *copy = nullptr;
    LogCapture log;
    EXPECT_EQ(pxImageConvertCopy(src.image, 9, 0, &copy), 0u);
    EXPECT_EQ(copy, nullptr);
    expectErrorChain(log, "pxImage", "Invalid image type", 2);
}

TEST(pxImageConvertCopy, EveryAllocationFailureFreesWhatWasAllocated) {
    Owned src;
    ASSERT_EQ(pxImageConstruct(SHORT, 6, 5, 1, 2, &src.image), 1u);
    fillRamp<uint16_t>(src.image, 1, 7.0);
    tag_pxImage *copy = nullptr;
    const int allocations =
        forEachAllocationFailure([&] { return pxImageConvertCopy(src.image, DOUBLE, 2, &copy) == 1; },
                                 [&] { pxImageDestruct(&copy); });
    EXPECT_EQ(allocations, 5);
}

TEST(pxImageConvertWithTransformCopy, FloatToShortScratchFailureDestroysTheTarget) {
    Owned src;
    ASSERT_EQ(pxImageConstruct(FLOAT, 6, 5, 1, 2, &src.image), 1u);
    float one = 1.0f;
    pxImageSetValue(src.image, &one);
    tag_pxImage *copy = nullptr;
    const int allocations = forEachAllocationFailure(
        [&] { return pxImageConvertWithTransformCopy(src.image, SHORT, -1, 1, &copy) == 1; },
        [&] { pxImageDestruct(&copy); });
    EXPECT_EQ(allocations, 7); // record, two blocks per plane, one scratch row per plane
    ASSERT_EQ(pxImageConvertWithTransformCopy(src.image, SHORT, -1, 1, &copy), 1u);
    EXPECT_EQ(rowsOf<uint16_t>(copy)[4][5], 257);
    EXPECT_EQ(rowsOf<uint16_t>(copy, 1)[4][5], 0);
    pxImageDestruct(&copy);
    // A failing scratch row: pxImagePixMapConvertCopy, pxImageConvertWithTransformCopy trace it.
    LogCapture log;
    {
        AllocFailure fail(6);
        EXPECT_EQ(pxImageConvertWithTransformCopy(src.image, SHORT, -1, 1, &copy), 0u);
    }
    EXPECT_EQ(copy, nullptr);
    expectTracesOnly(log, "pxImage", 2);
}

TEST(pxImageConvertWithTransformCopy, ShortToFloatScales) {
    Owned src, copy;
    ASSERT_EQ(pxImageConstruct(SHORT, 2, 1, 0, 1, &src.image), 1u);
    rowsOf<uint16_t>(src.image)[0][1] = 65535;
    ASSERT_EQ(pxImageConvertWithTransformCopy(src.image, FLOAT, -1, 1, &copy.image), 1u);
    EXPECT_EQ(rowsOf<float>(copy.image)[0][0], 0.0f);
    EXPECT_NEAR(rowsOf<float>(copy.image)[0][1], 255.0117, 1e-4);
}
