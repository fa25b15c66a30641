// Windowed sums along rows, along columns and in two dimensions: against brute-force sums of every clipped
// window, the fast kernels against their step-by-step references, OpenCV's unnormalised box filter on 0/1
// images, the wrap-around of byte and 16-bit sums, the pixel beyond the region that an even window reads,
// every refusal with its trace and every allocation failure.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "filter/BoxTestSupport.h"
#include "filter/pxImageBoxFilterInternal.h"
#include "support/AllocFailure.h"

namespace {

using boxtest::TestImage;

const char *const kBox = "pxImageBoxFilter";

// The value a sum pass reads at region offset k of row (or column) `line` of the source: inside the region
// the pixel itself; one step past its end the next stored pixel of the contiguous plane, or 0 past the
// whole plane.
double readAlongX(const TestImage &src, int y, int k) {
    const int x = src->roiminX + k;
    if (x < src->roimaxX) {
        return boxtest::pixelValue(src.get(), y, x);
    }
    const int b = src->border;
    const int stride = src->width + 2 * b;
    const long index = static_cast<long>(y + b) * stride + (x + b);
    if (index >= static_cast<long>(stride) * (src->height + 2 * b)) {
        return 0.0;
    }
    return boxtest::pixelValue(src.get(), static_cast<int>(index / stride) - b,
                               static_cast<int>(index % stride) - b);
}

double readAlongY(const TestImage &src, int x, int k) {
    const int y = src->roiminY + k;
    if (y < src->roimaxY || y < src->height + src->border) {
        return boxtest::pixelValue(src.get(), y, x);
    }
    return 0.0;
}

// Sum of the window around region offset i of a line of `size` pixels: offsets max(0, i - half) up to
// min(size - 1, i + half), or up to `size` itself when the window is one wider than the line.
template <class Read> double windowSum(int i, int size, int n, Read read) {
    const int half = n / 2;
    const int last = std::min(size - 1 + (2 * half + 1 > size ? 1 : 0), i + half);
    double sum = 0.0;
    for (int k = std::max(0, i - half); k <= last; ++k) {
        sum += read(k);
    }
    return sum;
}

// Stores a brute-force sum the way the pixel type keeps it (integer types wrap).
double asStored(int32_t type, double sum) {
    switch (type) {
    case UBYTE:
        return static_cast<uint8_t>(static_cast<int64_t>(sum));
    case SHORT:
        return static_cast<uint16_t>(static_cast<int64_t>(sum));
    case FLOAT:
        return static_cast<float>(sum);
    default:
        return sum;
    }
}

// Checks the destination region against brute-force sums and every other stored pixel against a copy.
void expectPass(bool alongX, const TestImage &src, int n, const TestImage &dst,
                const std::vector<uint8_t> &before) {
    const int w = src->roimaxX - src->roiminX;
    const int h = src->roimaxY - src->roiminY;
    for (int j = 0; j < h; ++j) {
        for (int i = 0; i < w; ++i) {
            const double sum =
                alongX ? windowSum(i, w, n, [&](int k) { return readAlongX(src, src->roiminY + j, k); })
                       : windowSum(j, h, n, [&](int k) { return readAlongY(src, src->roiminX + i, k); });
            ASSERT_EQ(asStored(src->type, sum),
                      boxtest::pixelValue(dst.get(), dst->roiminY + j, dst->roiminX + i))
                << "type " << src->type << " n " << n << " at " << i << "," << j;
        }
    }
    // Outside the region nothing changed: restore the region from the result and compare whole planes.
    std::vector<uint8_t> after = dst.storage();
    uint32_t size = 0;
    pxImagePixelSize(dst->type, &size);
    const int stride = (dst->width + 2 * dst->border) * static_cast<int>(size);
    for (int y = dst->roiminY; y < dst->roimaxY; ++y) {
        const size_t at = static_cast<size_t>(y + dst->border) * stride + (dst->roiminX + dst->border) * size;
        std::memcpy(after.data() + at, before.data() + at, static_cast<size_t>(w) * size);
    }
    EXPECT_EQ(before, after) << "pixels outside the destination region changed";
}

const int32_t kTypes[] = {UBYTE, SHORT, FLOAT, DOUBLE};

TEST(BoxSumPass, RowsAndColumnsMatchBruteForceForEveryTypeAndWindow) {
    uint32_t seed = 1;
    for (int32_t type : kTypes) {
        for (int border : {0, 2}) {
            for (int n : {1, 2, 3, 4, 5, 8, 9, 15}) {
                for (bool alongX : {true, false}) {
                    TestImage src(type, 37, 23, border);
                    TestImage dst(type, 31, 27, 1);
                    boxtest::fillRandom(src, seed++, true);
                    boxtest::fillRandom(dst, seed++, true);
                    src.setRegion(3, 2, 25, 17);
                    dst.setRegion(1, 5, 25, 17);
                    const std::vector<uint8_t> before = dst.storage();
                    pxtest::LogCapture log;
                    const uint32_t ok = alongX ? pxImageBlockSumX(src.get(), n, dst.get())
                                               : pxImageBlockSumY(src.get(), n, dst.get());
                    ASSERT_EQ(1u, ok);
                    EXPECT_TRUE(log.records().empty());
                    expectPass(alongX, src, n, dst, before);
                }
            }
        }
    }
}

// An even window as wide as the region reads one pixel past its end: inside the image, in the margin,
// in the next stored row, and past the plane (0).
TEST(BoxSumPass, EvenWindowAsWideAsTheRegionReadsOnePixelBeyond) {
    struct Case {
        int border;
        int slack; // pixels of the image right of (below) the region
    };
    uint32_t seed = 100;
    for (int32_t type : kTypes) {
        for (const Case c : {Case{0, 2}, Case{1, 0}, Case{0, 0}}) {
            for (int n : {2, 4, 6}) {
                for (bool alongX : {true, false}) {
                    const int length = 1 + n + c.slack;
                    TestImage src(type, alongX ? length : 9, alongX ? 9 : length, c.border);
                    TestImage dst(type, 12, 12, 0);
                    boxtest::fillRandom(src, seed++, true);
                    if (alongX) {
                        src.setRegion(1, 1, n, 8);
                        dst.setRegion(2, 1, n, 8);
                    } else {
                        src.setRegion(1, 1, 8, n);
                        dst.setRegion(1, 2, 8, n);
                    }
                    const std::vector<uint8_t> before = dst.storage();
                    ASSERT_EQ(1u, alongX ? pxImageBlockSumX(src.get(), n, dst.get())
                                         : pxImageBlockSumY(src.get(), n, dst.get()));
                    expectPass(alongX, src, n, dst, before);
                }
            }
        }
    }
}

TEST(BoxSumPass, EvenWindowAtTheLastStoredRowAddsZero) {
    TestImage src(UBYTE, 4, 3, 0);
    TestImage dst(UBYTE, 4, 3, 0);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x)
            src.at<uint8_t>(y, x) = static_cast<uint8_t>(10 * y + x + 1);
    ASSERT_EQ(1u, pxImageBlockSumX(src.get(), 4, dst.get()));
    // Row 0: half 2, window 5 over 4 pixels; the fifth read is row 1's first pixel (11).
    EXPECT_EQ(1 + 2 + 3, dst.at<uint8_t>(0, 0));
    EXPECT_EQ(1 + 2 + 3 + 4, dst.at<uint8_t>(0, 1));
    EXPECT_EQ(1 + 2 + 3 + 4 + 11, dst.at<uint8_t>(0, 2));
    EXPECT_EQ(2 + 3 + 4 + 11, dst.at<uint8_t>(0, 3));
    // Last row: past the plane the read gives 0.
    EXPECT_EQ(21 + 22 + 23 + 24, dst.at<uint8_t>(2, 2));
    EXPECT_EQ(22 + 23 + 24, dst.at<uint8_t>(2, 3));
}

// Values on which the order of float additions shows: small and large magnitudes side by side, signed
// zeros, and with `specials` infinities and NaN.
template <typename T> void fillHard(const TestImage &image, uint32_t seed, bool specials) {
    std::mt19937 rng(seed);
    const T picks[] = {T(1e30), T(-1e30), T(16777216), T(-0.0), T(0.0), T(0.1), T(-3e7), T(1)};
    const int b = image->border;
    for (int y = -b; y < image->height + b; ++y)
        for (int x = -b; x < image->width + b; ++x) {
            T v = rng() % 2 ? std::uniform_real_distribution<T>(-1.0, 1.0)(rng) * T(rng() % 3 ? 1 : 1e9)
                            : picks[rng() % 8];
            if (specials && rng() % 40 == 0)
                v = rng() % 2 ? std::numeric_limits<T>::quiet_NaN() : -std::numeric_limits<T>::infinity();
            image.at<T>(y, x) = v;
        }
}

// Same bits, or NaN in both (the payload of a NaN is not a result).
template <typename T>::testing::AssertionResult samePlanes(const TestImage &a, const TestImage &b) {
    const int bd = a->border;
    for (int y = -bd; y < a->height + bd; ++y)
        for (int x = -bd; x < a->width + bd; ++x) {
            const T u = a.at<T>(y, x);
            const T v = b.at<T>(y, x);
            if (!boxtest::sameBits(u, v) && !(std::isnan(u) && std::isnan(v)))
                return ::testing::AssertionFailure() << "at " << x << "," << y << ": " << u << " vs " << v;
        }
    return ::testing::AssertionSuccess();
}

// The row pass as its definition states it: s = 0, `half` additions, half + 1 growing outputs, then
// s += (in - out) while pixels come in, then s -= out up to the end of the destination region.
template <typename T> void modelSumX(const TestImage &src, int n, const TestImage &dst) {
    const int half = n / 2;
    for (int y = src->roiminY; y < src->roimaxY; ++y) {
        const int row = dst->roiminY + (y - src->roiminY);
        int p = src->roiminX;
        int q = src->roiminX;
        int w = dst->roiminX;
        T s = 0;
        for (int k = 0; k < half; ++k)
            s += src.at<T>(y, p++);
        for (int k = 0; k <= half; ++k) {
            s += src.at<T>(y, p++);
            dst.at<T>(row, w++) = s;
        }
        while (p < src->roimaxX) {
            s += src.at<T>(y, p++) - src.at<T>(y, q++);
            dst.at<T>(row, w++) = s;
        }
        while (w < dst->roimaxX) {
            s -= src.at<T>(y, q++);
            dst.at<T>(row, w++) = s;
        }
    }
}

// The column pass as stated: the first row cleared and given rows 0..half, then every row from the one
// above: out[j - 1] + in (growing), out[j - 1] + in - old (full), out[j - 1] - old (shrinking).
template <typename T> void modelSumY(const TestImage &src, int n, const TestImage &dst) {
    const int half = n / 2;
    const int width = src->roimaxX - src->roiminX;
    auto in = [&](int r, int x) { return src.at<T>(src->roiminY + r, src->roiminX + x); };
    auto out = [&](int j, int x) -> T & { return dst.at<T>(dst->roiminY + j, dst->roiminX + x); };
    for (int x = 0; x < width; ++x)
        out(0, x) = 0;
    for (int r = 0; r <= half; ++r)
        for (int x = 0; x < width; ++x)
            out(0, x) += in(r, x);
    int j = 1;
    int next = half + 1;
    int old = 0;
    for (int k = 0; k < half; ++k, ++j, ++next)
        for (int x = 0; x < width; ++x)
            out(j, x) = out(j - 1, x) + in(next, x);
    for (; src->roiminY + next < src->roimaxY; ++j, ++next, ++old)
        for (int x = 0; x < width; ++x)
            out(j, x) = out(j - 1, x) + in(next, x) - in(old, x);
    for (; dst->roiminY + j < dst->roimaxY; ++j, ++old)
        for (int x = 0; x < width; ++x)
            out(j, x) = out(j - 1, x) - in(old, x);
}

// The exported passes give the bits of the stated order of additions, with values where any other order
// rounds differently; the even window reads the margin pixel right of (below) the region.
template <typename T> void expectStatedOrder(int32_t type) {
    uint32_t seed = 500;
    for (int n : {1, 2, 3, 4, 5, 7, 8, 11, 12}) {
        for (bool specials : {false, true}) {
            for (bool alongX : {true, false}) {
                TestImage src(type, 21, 19, 1);
                TestImage dst(type, 25, 23, 1);
                TestImage model(type, 25, 23, 1);
                fillHard<T>(src, seed++, specials);
                fillHard<T>(dst, seed, specials);
                fillHard<T>(model, seed++, specials);
                const int w = alongX ? std::max(n, 12) : 13;
                const int h = alongX ? 11 : std::max(n, 12);
                src.setRegion(21 - w, 19 - h, w, h); // up to the image's edge: the margin is read
                dst.setRegion(2, 3, w, h);
                model.setRegion(2, 3, w, h);
                ASSERT_EQ(1u, alongX ? pxImageBlockSumX(src.get(), n, dst.get())
                                     : pxImageBlockSumY(src.get(), n, dst.get()));
                alongX ? modelSumX<T>(src, n, model) : modelSumY<T>(src, n, model);
                ASSERT_TRUE(samePlanes<T>(model, dst))
                    << "n " << n << " x " << alongX << " specials " << specials;
            }
        }
    }
}

TEST(BoxSumPass, FloatSumsFollowTheStatedOrderOfAdditions) {
    expectStatedOrder<float>(FLOAT);
    expectStatedOrder<double>(DOUBLE);
}

// The fast kernels and their references agree bit for bit at odd sizes: on random values, and for the
// float types also on values where the order of additions shows, with NaN and infinities; with regions
// inside the image, ending at its edge with a margin beyond, and ending at the edge of a plane without
// margin (the even window then reads the next stored row, or 0 past the last one).
template <typename T> void fillForKernels(const TestImage &image, uint32_t seed, bool hard) {
    if constexpr (std::is_floating_point_v<T>) {
        if (hard) {
            fillHard<T>(image, seed, true);
            return;
        }
    }
    boxtest::fillRandom(image, seed);
}

template <typename T> void expectKernelsAgree(int32_t type) {
    uint32_t seed = 7;
    const bool real = type == FLOAT || type == DOUBLE;
    for (int width : {1, 2, 7, 13, 31}) {
        for (int height : {1, 3, 9, 17, 21}) {
            for (int n : {1, 2, 3, 4, 5, 6, 7, 9, 13, 30, 31}) {
                for (bool alongX : {true, false}) {
                    for (int edge : {0, 1, 2}) {
                        for (bool hard : {false, true}) {
                            if ((alongX ? width : height) < n || (hard && !real)) {
                                continue;
                            }
                            TestImage src(type, width + 3, height + 2, edge == 2 ? 0 : 1);
                            TestImage fast(type, width + 1, height + 4, 2);
                            TestImage reference(type, width + 1, height + 4, 2);
                            fillForKernels<T>(src, seed++, hard);
                            fillForKernels<T>(fast, seed, hard);
                            fillForKernels<T>(reference, seed++, hard);
                            const int srcX = edge == 0 ? 2 : 3;
                            const int srcY = edge == 0 ? 1 : 2;
                            const pxbox::SumPass pass{
                                {src->pixMap[0], src->width, src->height, src->border},
                                srcX,
                                srcY,
                                {fast->pixMap[0], fast->width, fast->height, fast->border},
                                1,
                                3,
                                width,
                                height,
                                n / 2};
                            pxbox::SumPass ref = pass;
                            ref.dst.map = reference->pixMap[0];
                            if (alongX) {
                                pxbox::blockSumXFast<T>(pass);
                                pxbox::blockSumXReference<T>(ref);
                            } else {
                                pxbox::blockSumYFast<T>(pass);
                                pxbox::blockSumYReference<T>(ref);
                            }
                            ASSERT_TRUE(samePlanes<T>(reference, fast))
                                << "type " << type << " " << width << "x" << height << " n " << n << " x "
                                << alongX << " edge " << edge << " hard " << hard;
                        }
                    }
                }
            }
        }
    }
}

TEST(BoxSumKernels, FastEqualsReferenceBitForBit) {
    expectKernelsAgree<uint8_t>(UBYTE);
    expectKernelsAgree<uint16_t>(SHORT);
    expectKernelsAgree<float>(FLOAT);
    expectKernelsAgree<double>(DOUBLE);
}

// Integer sums on rows wide enough for many vector steps: full-range random pixels (so the sums wrap), odd
// and even windows up to the row width (an even window as wide as the row reads the pixel beyond it),
// regions at several places of storage with and without margins.
template <typename T> void expectWideRowsAgree(int32_t type) {
    uint32_t seed = 11;
    for (int width : {16, 17, 40, 100, 257, 1031}) {
        for (int n : {1, 2, 3, 4, 5, 8, 15, 16, 17, 31, 32, 33, 47, 63, 64, 65, 100, 257, 1031}) {
            for (int place : {0, 1, 2}) {
                if (n > width) {
                    continue;
                }
                const int border = place == 1 ? 3 : 0;
                TestImage src(type, width + 2 * place, 5, border);
                TestImage fast(type, width + 5, 6, 1);
                TestImage reference(type, width + 5, 6, 1);
                boxtest::fillRandom(src, seed++);
                boxtest::fillRandom(fast, seed);
                boxtest::fillRandom(reference, seed++);
                const pxbox::SumPass pass{{src->pixMap[0], src->width, src->height, src->border},
                                          place,
                                          place == 2 ? 1 : 0,
                                          {fast->pixMap[0], fast->width, fast->height, fast->border},
                                          5 - place,
                                          1,
                                          width,
                                          4,
                                          n / 2};
                pxbox::SumPass ref = pass;
                ref.dst.map = reference->pixMap[0];
                pxbox::blockSumXFast<T>(pass);
                pxbox::blockSumXReference<T>(ref);
                ASSERT_TRUE(samePlanes<T>(reference, fast))
                    << "type " << type << " width " << width << " n " << n << " place " << place;
            }
        }
    }
}

TEST(BoxSumKernels, WrappingRowSumsEqualReferenceOnWideRows) {
    expectWideRowsAgree<uint8_t>(UBYTE);
    expectWideRowsAgree<uint16_t>(SHORT);
}

// In place (one plane for source and destination) the step-by-step order is kept.
TEST(BoxSumKernels, InPlacePassFollowsTheReferenceOrder) {
    for (bool alongX : {true, false}) {
        TestImage image(FLOAT, 19, 17, 0);
        TestImage copy(FLOAT, 19, 17, 0);
        boxtest::fillRandom(image, 3);
        boxtest::fillRandom(copy, 3);
        ASSERT_EQ(1u, alongX ? pxImageBlockSumX(image.get(), 5, image.get())
                             : pxImageBlockSumY(image.get(), 5, image.get()));
        const pxbox::SumPass pass{
            {copy->pixMap[0], 19, 17, 0}, 0, 0, {copy->pixMap[0], 19, 17, 0}, 0, 0, 19, 17, 2};
        alongX ? pxbox::blockSumXReference<float>(pass) : pxbox::blockSumYReference<float>(pass);
        EXPECT_EQ(copy.storage(), image.storage());
    }
}

// Direct sum of the clipped two-dimensional window.
double boxSum(const TestImage &src, int i, int j, int n) {
    const int half = n / 2;
    const int w = src->roimaxX - src->roiminX;
    const int h = src->roimaxY - src->roiminY;
    double sum = 0.0;
    for (int y = std::max(0, j - half); y <= std::min(h - 1, j + half); ++y)
        for (int x = std::max(0, i - half); x <= std::min(w - 1, i + half); ++x)
            sum += boxtest::pixelValue(src.get(), src->roiminY + y, src->roiminX + x);
    return sum;
}

TEST(BoxSums, MatchBruteForceWindowSumsForEveryType) {
    uint32_t seed = 11;
    for (int32_t type : kTypes) {
        for (int n : {1, 3, 5, 7, 11}) {
            TestImage src(type, 29, 25, 1);
            TestImage dst(type, 33, 21, 0);
            boxtest::fillRandom(src, seed++, true);
            boxtest::fillRandom(dst, seed++, true);
            src.setRegion(2, 4, 23, 15);
            dst.setRegion(7, 3, 23, 15);
            const std::vector<uint8_t> before = dst.storage();
            pxtest::LogCapture log;
            ASSERT_EQ(1u, pxImageBoxSums(src.get(), n, dst.get()));
            EXPECT_TRUE(log.records().empty());
            for (int j = 0; j < 15; ++j)
                for (int i = 0; i < 23; ++i)
                    ASSERT_EQ(asStored(type, boxSum(src, i, j, n)),
                              boxtest::pixelValue(dst.get(), 3 + j, 7 + i))
                        << "type " << type << " n " << n << " at " << i << "," << j;
            std::vector<uint8_t> after = dst.storage();
            uint32_t size = 0;
            pxImagePixelSize(type, &size);
            for (int y = 3; y < 18; ++y)
                std::memcpy(after.data() + (y * 33 + 7) * size, before.data() + (y * 33 + 7) * size,
                            23 * size);
            EXPECT_EQ(before, after);
        }
    }
}

TEST(BoxSums, OneWideWindowCopiesTheRegion) {
    for (int32_t type : kTypes) {
        TestImage src(type, 9, 7, 0);
        TestImage dst(type, 9, 7, 0);
        boxtest::fillRandom(src, 5, true); // integral values: the running sum of floats does not drift
        ASSERT_EQ(1u, pxImageBoxSums(src.get(), 1, dst.get()));
        EXPECT_EQ(src.storage(), dst.storage());
    }
}

// The running sums start from +0, so the one-pixel "copy" turns a negative zero into a positive one.
TEST(BoxSums, OneWideWindowStartsFromPositiveZero) {
    TestImage src(FLOAT, 3, 2, 0);
    TestImage dst(FLOAT, 3, 2, 0);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            src.at<float>(y, x) = -0.0f;
    ASSERT_EQ(1u, pxImageBoxSums(src.get(), 1, dst.get()));
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            EXPECT_TRUE(boxtest::sameBits(0.0f, dst.at<float>(y, x))) << x << "," << y;
}

TEST(BoxSums, ByteSumsWrap) {
    TestImage src(UBYTE, 3, 3, 0);
    TestImage dst(UBYTE, 3, 3, 0);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x)
            src.at<uint8_t>(y, x) = 255;
    ASSERT_EQ(1u, pxImageBoxSums(src.get(), 3, dst.get()));
    EXPECT_EQ(247, dst.at<uint8_t>(1, 1)); // 9 * 255 mod 256
    EXPECT_EQ(252, dst.at<uint8_t>(0, 0)); // 4 * 255 mod 256
}

TEST(BoxSums, ShortSumsWrap) {
    TestImage src(SHORT, 3, 3, 0);
    TestImage dst(SHORT, 3, 3, 0);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x)
            src.at<uint16_t>(y, x) = 60000;
    ASSERT_EQ(1u, pxImageBoxSums(src.get(), 3, dst.get()));
    EXPECT_EQ((9 * 60000) % 65536, dst.at<uint16_t>(1, 1));
}

TEST(BoxSums, RegionExactlyOneWindowWide) {
    TestImage src(SHORT, 5, 1, 0);
    TestImage dst(SHORT, 5, 1, 0);
    for (int x = 0; x < 5; ++x)
        src.at<uint16_t>(0, x) = static_cast<uint16_t>(1 << x);
    ASSERT_EQ(1u, pxImageBlockSumX(src.get(), 5, dst.get()));
    const uint16_t expected[5] = {1 + 2 + 4, 1 + 2 + 4 + 8, 31, 2 + 4 + 8 + 16, 4 + 8 + 16};
    for (int x = 0; x < 5; ++x)
        EXPECT_EQ(expected[x], dst.at<uint16_t>(0, x));
}

TEST(BoxSums, ZeroOneImagesMatchOpenCvUnnormalisedBoxFilter) {
    for (int n : {3, 5, 15}) {
        TestImage src(UBYTE, 67, 45, 3);
        TestImage dst(UBYTE, 67, 45, 0);
        boxtest::fillBinary(src, static_cast<uint32_t>(n), 0.4);
        ASSERT_EQ(1u, pxImageBoxSums(src.get(), n, dst.get()));
        cv::Mat in(45, 67, CV_8U);
        for (int y = 0; y < 45; ++y)
            for (int x = 0; x < 67; ++x)
                in.at<uint8_t>(y, x) = src.at<uint8_t>(y, x);
        cv::Mat out;
        cv::boxFilter(in, out, -1, cv::Size(n, n), cv::Point(-1, -1), false, cv::BORDER_CONSTANT);
        for (int y = 0; y < 45; ++y)
            for (int x = 0; x < 67; ++x)
                ASSERT_EQ(out.at<uint8_t>(y, x), dst.at<uint8_t>(y, x)) << n << " at " << x << "," << y;
    }
}

// ---- Refusals -------------------------------------------------------------------------------------------

TEST(BoxSumRefusals, RowPassChecksWindowAndRegionSizes) {
    TestImage src(FLOAT, 10, 8, 0);
    TestImage dst(FLOAT, 10, 8, 0);
    boxtest::fillRandom(src, 1);
    const std::vector<uint8_t> before = dst.storage();
    {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageBlockSumX(src.get(), 11, dst.get()));
        EXPECT_TRUE(boxtest::onlyTraces(log, {kBox}));
    }
    dst.setRegion(0, 0, 9, 8);
    {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageBlockSumX(src.get(), 3, dst.get()));
        EXPECT_TRUE(boxtest::onlyTraces(log, {kBox}));
    }
    dst.setRegion(0, 0, 10, 7);
    {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageBlockSumX(src.get(), 3, dst.get()));
        EXPECT_TRUE(boxtest::onlyTraces(log, {kBox}));
    }
    EXPECT_EQ(before, dst.storage());
}

TEST(BoxSumRefusals, ColumnPassChecksWindowAndRegionSizes) {
    TestImage src(UBYTE, 10, 8, 0);
    TestImage dst(UBYTE, 10, 8, 0);
    {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageBlockSumY(src.get(), 9, dst.get()));
        EXPECT_TRUE(boxtest::onlyTraces(log, {kBox}));
    }
    dst.setRegion(1, 0, 9, 8);
    {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageBlockSumY(src.get(), 3, dst.get()));
        EXPECT_TRUE(boxtest::onlyTraces(log, {kBox}));
    }
    dst.setRegion(0, 1, 10, 7);
    {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageBlockSumY(src.get(), 3, dst.get()));
        EXPECT_TRUE(boxtest::onlyTraces(log, {kBox}));
    }
}

TEST(BoxSumRefusals, PassesLeaveOtherTypesAloneAndSucceed) {
    for (int32_t type : {INT, CBIT, CSHORT, SHORT12}) {
        TestImage src(type, 6, 6, 0);
        TestImage dst(type, 6, 6, 0);
        boxtest::fillRandom(src, 2);
        const std::vector<uint8_t> before = dst.storage();
        pxtest::LogCapture log;
        EXPECT_EQ(1u, pxImageBlockSumX(src.get(), 3, dst.get()));
        EXPECT_EQ(1u, pxImageBlockSumY(src.get(), 3, dst.get()));
        EXPECT_TRUE(log.records().empty());
        EXPECT_EQ(before, dst.storage());
        // Nothing is read or written, so neither a region outside the image nor a negative window matters.
        src.setRegion(3, 3, 6, 6);
        EXPECT_EQ(1u, pxImageBlockSumX(src.get(), -5, dst.get()));
        EXPECT_EQ(1u, pxImageBlockSumY(src.get(), -5, dst.get()));
        EXPECT_TRUE(log.records().empty());
        EXPECT_EQ(before, dst.storage());
    }
}

// Inputs that would reach outside a plane are refused: a region outside its image, a negative half-width,
// a destination of another type, a record without pixels.
TEST(BoxSumRefusals, InputsThatWouldLeaveThePlaneAreRefused) {
    TestImage src(UBYTE, 8, 8, 0);
    TestImage dst(UBYTE, 8, 8, 0);
    TestImage other(SHORT, 8, 8, 0);
    tag_pxImage *empty = nullptr;
    ASSERT_EQ(1u, pxImageCreateEmpty(&empty));
    for (bool alongX : {true, false}) {
        auto run = [&](const tag_pxImage *s, int n, tag_pxImage *d) {
            return alongX ? pxImageBlockSumX(s, n, d) : pxImageBlockSumY(s, n, d);
        };
        pxtest::LogCapture log;
        EXPECT_EQ(0u, run(src.get(), -2, dst.get()));
        EXPECT_EQ(0u, run(src.get(), 3, other.get()));
        EXPECT_EQ(0u, run(src.get(), 3, empty));
        EXPECT_EQ(0u, run(nullptr, 3, dst.get()));
        src.setRegion(4, 4, 8, 8);
        dst.setRegion(0, 0, 8, 8);
        EXPECT_EQ(0u, run(src.get(), 3, dst.get()));
        src.setRegion(0, 0, 8, 8);
        EXPECT_TRUE(boxtest::onlyTraces(log, {kBox, kBox, kBox, kBox, kBox}));
    }
    pxImageDestruct(&empty);
}

TEST(BoxSumRefusals, BoxSumsChecksTypes) {
    TestImage src(FLOAT, 6, 6, 0);
    TestImage dst(DOUBLE, 6, 6, 0);
    TestImage intSrc(INT, 6, 6, 0);
    TestImage intDst(INT, 6, 6, 0);
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageBoxSums(src.get(), 3, dst.get()));
    EXPECT_EQ(0u, pxImageBoxSums(intSrc.get(), 3, intDst.get()));
    EXPECT_TRUE(boxtest::onlyTraces(log, {kBox, kBox}));
}

// A region narrower than the window fails the row pass, which the box sums do not examine: the column pass
// sums the zeroed scratch image.
TEST(BoxSumRefusals, NarrowRegionLeavesSumsOfTheZeroedScratch) {
    TestImage src(FLOAT, 4, 9, 0);
    TestImage dst(FLOAT, 4, 9, 0);
    boxtest::fillRandom(src, 1);
    boxtest::fillRandom(dst, 2);
    pxtest::LogCapture log;
    EXPECT_EQ(1u, pxImageBoxSums(src.get(), 5, dst.get()));
    EXPECT_TRUE(boxtest::onlyTraces(log, {kBox}));
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 4; ++x)
            ASSERT_EQ(0.0f, dst.at<float>(y, x));
}

TEST(BoxSumRefusals, ScratchAllocationFailureLeaksNothing) {
    TestImage src(SHORT, 12, 10, 1);
    TestImage dst(SHORT, 12, 10, 0);
    boxtest::fillRandom(src, 9);
    const int allocations = pxtest::forEachAllocationFailure(
        [&] {
            pxtest::LogCapture log;
            const bool ok = pxImageBoxSums(src.get(), 3, dst.get()) == 1;
            if (!ok) {
                EXPECT_TRUE(boxtest::endsWithTraces(log, {"pxImage", kBox}));
            }
            return ok;
        },
        [] {});
    EXPECT_GT(allocations, 0);
}

} // namespace
