// Integer shift, sub-pixel shift and affine warp: the documented examples, a literal per-pixel model on
// random images of odd sizes, the fast kernels against the reference at every instruction level, OpenCV's
// warpAffine and remap where the definitions coincide, every refusal and every allocation failure.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "ResampleTestSupport.h"
#include "geometry/pxImageWarpKernels.h"
#include "support/AllocFailure.h"

namespace {

using namespace pxresample;

const char *const kModule = "pxImageWarp";
const char *const kTooRough = "\n Warping transformation is too rought \n";
constexpr uint32_t kMarkerBits = 0x7f7fffffu;

// ---- Integer shift ----------------------------------------------------------------------------------------

// The rule pixel by pixel: source (x + dx, y + dy) when inside, else 0.
template <typename T>
void expectShifted(const tag_pxImage *source, int32_t dx, int32_t dy, const tag_pxImage *t) {
    ASSERT_EQ(source->width, t->width);
    ASSERT_EQ(source->height, t->height);
    EXPECT_EQ(0, t->border);
    EXPECT_EQ(1, t->planes);
    for (int32_t y = 0; y < t->height; ++y)
        for (int32_t x = 0; x < t->width; ++x) {
            const int64_t sx = int64_t{x} + dx, sy = int64_t{y} + dy;
            const bool inside = sx >= 0 && sx <= source->width - 1 && sy >= 0 && sy <= source->height - 1;
            T expected{};
            if (inside)
                std::memcpy(&expected, &rows<T>(source)[sy][sx], sizeof(T));
            ASSERT_EQ(0, std::memcmp(&expected, &rows<T>(t)[y][x], sizeof(T))) << x << "," << y;
        }
}

void checkShift(int32_t type, int32_t dx, int32_t dy) {
    Image source = make(type, 13, 7, 2);
    fillBytes(source.get(), 11u + static_cast<uint32_t>(type));
    tag_pxImage *target = nullptr;
    ASSERT_EQ(1u, pxImageTranslationWarpInt(source.get(), dx, dy, &target));
    Image owned(target);
    EXPECT_EQ(type, target->type);
    switch (pixelSize(type)) {
    case 1:
        return expectShifted<uint8_t>(source.get(), dx, dy, target);
    case 2:
        return expectShifted<uint16_t>(source.get(), dx, dy, target);
    case 4:
        return expectShifted<uint32_t>(source.get(), dx, dy, target);
    default:
        return expectShifted<uint64_t>(source.get(), dx, dy, target);
    }
}

TEST(TranslationWarpInt, EveryTypeAndShiftFollowsTheRule) {
    for (int32_t type : {UBYTE, SHORT, INT, FLOAT, DOUBLE})
        for (int32_t dx : {-14, -13, -5, -1, 0, 1, 4, 12, 13, INT32_MAX, INT32_MIN})
            for (int32_t dy : {-7, -3, 0, 2, 6, 7, INT32_MIN})
                checkShift(type, dx, dy);
}

TEST(TranslationWarpInt, ShiftByTheWidthGivesZeros) {
    Image source = make(FLOAT, 9, 5);
    fillFloats(source.get(), 1, 1.0f, 2.0f);
    tag_pxImage *target = nullptr;
    ASSERT_EQ(1u, pxImageTranslationWarpInt(source.get(), 9, 0, &target));
    Image owned(target);
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 9; ++x)
            EXPECT_EQ(0.0f, rows<float>(target)[y][x]);
}

TEST(TranslationWarpInt, ShiftByMinusOneMovesColumnsRight) {
    Image source = make(SHORT, 6, 3);
    for (int32_t y = 0; y < 3; ++y)
        for (int32_t x = 0; x < 6; ++x)
            rows<uint16_t>(source.get())[y][x] = static_cast<uint16_t>(100 * y + x + 1);
    tag_pxImage *target = nullptr;
    ASSERT_EQ(1u, pxImageTranslationWarpInt(source.get(), -1, 0, &target));
    Image owned(target);
    for (int32_t y = 0; y < 3; ++y) {
        EXPECT_EQ(0, rows<uint16_t>(target)[y][0]);
        for (int32_t x = 1; x < 6; ++x)
            EXPECT_EQ(rows<uint16_t>(source.get())[y][x - 1], rows<uint16_t>(target)[y][x]);
    }
}

TEST(TranslationWarpInt, EncodedTypesAreRefusedAndTheTargetDestroyed) {
    for (int32_t type : {CBIT, CSHORT, SHORT12}) {
        Image source = make(type, 5, 4);
        const long before = pxEnvLiveAllocations();
        pxtest::LogCapture log;
        tag_pxImage *target = nullptr;
        EXPECT_EQ(0u, pxImageTranslationWarpInt(source.get(), 1, 1, &target));
        EXPECT_EQ(nullptr, target);
        EXPECT_EQ(before, pxEnvLiveAllocations());
        expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule, "unsupported format for TranslationWarp");
    }
}

TEST(TranslationWarpInt, MissingSourceIsRefused) {
    pxtest::LogCapture log;
    tag_pxImage *target = nullptr;
    EXPECT_EQ(0u, pxImageTranslationWarpInt(nullptr, 1, 1, &target));
    expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule);
    log.clear();
    tag_pxImage *header = nullptr;
    ASSERT_EQ(1u, pxImageHeaderConstruct(FLOAT, 4, 4, 0, 1, &header));
    EXPECT_EQ(0u, pxImageTranslationWarpInt(header, 1, 1, &target));
    expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule);
    pxImageHeaderDestruct(&header);
}

TEST(TranslationWarpInt, AllocationFailuresLeakNothing) {
    Image source = make(DOUBLE, 7, 5, 1);
    tag_pxImage *target = nullptr;
    const int allocations = pxtest::forEachAllocationFailure(
        [&] {
            const bool ok = pxImageTranslationWarpInt(source.get(), 2, -1, &target) == 1;
            EXPECT_EQ(ok, target != nullptr);
            return ok;
        },
        [&] { pxImageDestruct(&target); });
    EXPECT_GT(allocations, 0);
}

// ---- Sub-pixel and affine warps -------------------------------------------------------------------------

// The rule written out for one target pixel, as the tests read it.
float literalSample(const tag_pxImage *source, float u, float v) {
    const int32_t w = source->width, h = source->height;
    if (!(0.0f <= u && u <= static_cast<float>(w - 1) && 0.0f <= v && v <= static_cast<float>(h - 1)))
        return 3.4028235e38f;
    const int32_t i = std::min(static_cast<int32_t>(std::floor(v)), h - 2);
    const int32_t j = std::min(static_cast<int32_t>(std::floor(u)), w - 2);
    const float fu = u - static_cast<float>(j), fv = v - static_cast<float>(i);
    float **s = rows<float>(source);
    const float top = s[i][j] + (s[i][j + 1] - s[i][j]) * fu;
    const float bottom = s[i + 1][j] + (s[i + 1][j + 1] - s[i + 1][j]) * fu;
    return top + (bottom - top) * fv;
}

void expectAffineLiteral(const tag_pxImage *source, const float a[3], const float b[3],
                         const tag_pxImage *t) {
    for (int32_t y = 0; y < t->height; ++y)
        for (int32_t x = 0; x < t->width; ++x) {
            const float xf = static_cast<float>(x), yf = static_cast<float>(y);
            const float u = a[0] + xf + a[1] * xf + a[2] * yf;
            const float v = b[0] + yf + b[1] * xf + b[2] * yf;
            ASSERT_EQ(bitsOf(literalSample(source, u, v)), bitsOf(rows<float>(t)[y][x])) << x << "," << y;
        }
}

TEST(AffineWarp, IdentityReproducesTheSourceWithTheClampedLastIndex) {
    Image source = make(FLOAT, 11, 7, 1);
    for (int32_t y = 0; y < 7; ++y)
        for (int32_t x = 0; x < 11; ++x)
            rows<float>(source.get())[y][x] = static_cast<float>(x * 3 + y * 17);
    Image target = make(FLOAT, 11, 7);
    float a[3] = {0, 0, 0}, b[3] = {0, 0, 0};
    tag_pxImage *t = target.get();
    ASSERT_EQ(1u, pxImageAffineWarp(source.get(), a, b, 1.0f, &t));
    for (int32_t y = 0; y < 7; ++y)
        for (int32_t x = 0; x < 11; ++x)
            EXPECT_EQ(rows<float>(source.get())[y][x], rows<float>(t)[y][x]);
    // The last column is S[j] + (S[j+1] - S[j]) * 1 with j = W - 2: not always S[W-1] to the bit.
    Image odd = make(FLOAT, 3, 2);
    rows<float>(odd.get())[0][1] = 1e8f;
    rows<float>(odd.get())[0][2] = 1.0f;
    Image oddTarget = make(FLOAT, 3, 2);
    t = oddTarget.get();
    ASSERT_EQ(1u, pxImageAffineWarp(odd.get(), a, b, 1.0f, &t));
    EXPECT_EQ(1e8f + (1.0f - 1e8f), rows<float>(t)[0][2]);
    EXPECT_NE(1.0f, rows<float>(t)[0][2]);
}

TEST(AffineWarp, RandomMapsFollowTheLiteralRuleAndScaleTheArraysInPlace) {
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> offset(-4.0f, 4.0f), slope(-0.3f, 0.3f), scale(0.5f, 1.5f);
    for (int round = 0; round < 40; ++round) {
        const int32_t w = 3 + 2 * (round % 9), h = 3 + 2 * (round % 5);
        Image source = make(FLOAT, w, h, round % 3);
        fillFloats(source.get(), round, -100.0f, 100.0f);
        Image target = make(FLOAT, w + 4, h + 2);
        float a[3] = {offset(rng), slope(rng), slope(rng)}, b[3] = {offset(rng), slope(rng), slope(rng)};
        const float s = scale(rng);
        const float a0[3] = {a[0], a[1], a[2]}, b0[3] = {b[0], b[1], b[2]};
        tag_pxImage *t = target.get();
        const bool fits =
            std::fabs(a[0]) < static_cast<float>(w - 1) && std::fabs(b[0]) < static_cast<float>(h - 1);
        ASSERT_EQ(fits ? 1u : 0u, pxImageAffineWarp(source.get(), a, b, s, &t));
        if (!fits)
            continue;
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(a0[k] * s, a[k]);
            EXPECT_EQ(b0[k] * s, b[k]);
        }
        expectAffineLiteral(source.get(), a, b, t);
    }
}

TEST(AffineWarp, OffsetOfWidthMinusOneIsRefusedAndLeavesTheArraysUnscaled) {
    Image source = make(FLOAT, 8, 6);
    Image target = make(FLOAT, 8, 6);
    fillFloats(target.get(), 3);
    const std::vector<unsigned char> before = planeBytes(target.get());
    tag_pxImage *t = target.get();
    for (auto [a0, b0] : {std::pair<float, float>{7.0f, 0.0f}, {-7.0f, 0.0f}, {0.0f, 5.0f}, {NAN, 0.0f}}) {
        float a[3] = {a0, 0.5f, 0.25f}, b[3] = {b0, 0.125f, 2.0f};
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageAffineWarp(source.get(), a, b, 3.0f, &t));
        expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule, kTooRough);
        EXPECT_EQ(0.5f, a[1]);
        EXPECT_EQ(0.25f, a[2]);
        EXPECT_EQ(0.125f, b[1]);
        EXPECT_EQ(2.0f, b[2]);
        EXPECT_EQ(before, planeBytes(target.get()));
    }
}

TEST(AffineWarp, PositionJustLeftOfTheImageGetsTheMarker) {
    Image source = make(FLOAT, 5, 5);
    fillFloats(source.get(), 9);
    Image target = make(FLOAT, 5, 5);
    float a[3] = {-0.001f, 0, 0}, b[3] = {0, 0, 0};
    tag_pxImage *t = target.get();
    ASSERT_EQ(1u, pxImageAffineWarp(source.get(), a, b, 1.0f, &t));
    for (int32_t y = 0; y < 5; ++y) {
        EXPECT_EQ(kMarkerBits, bitsOf(rows<float>(t)[y][0]));
        EXPECT_NE(kMarkerBits, bitsOf(rows<float>(t)[y][1]));
    }
    EXPECT_EQ(kMarkerBits, bitsOf(pxImage_INVALID_PIXEL));
}

TEST(AffineWarp, WrongImagesAreRefused) {
    Image source = make(FLOAT, 5, 5), target = make(FLOAT, 5, 5), bytes = make(UBYTE, 5, 5);
    float a[3] = {0, 0, 0}, b[3] = {0, 0, 0};
    tag_pxImage *t = target.get();
    tag_pxImage *byteTarget = bytes.get();
    tag_pxImage *none = nullptr;
    {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageAffineWarp(bytes.get(), a, b, 1.0f, &t));
        expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule);
    }
    {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageAffineWarp(source.get(), a, b, 1.0f, &byteTarget));
        EXPECT_EQ(0u, pxImageAffineWarp(source.get(), a, b, 1.0f, &none));
        EXPECT_EQ(0u, pxImageAffineWarp(source.get(), nullptr, b, 1.0f, &t));
        EXPECT_EQ(0u, pxImageAffineWarp(source.get(), a, b, 1.0f, nullptr));
        EXPECT_EQ(0u, pxImageTranslationWarp(nullptr, 0.0f, 0.0f, 1.0f, &t));
        EXPECT_EQ(5u, log.messages().size());
        for (const auto &m : log.messages()) {
            EXPECT_EQ(kInvalidArgument, m.code);
            EXPECT_EQ(5, m.level);
            EXPECT_EQ(kModule, m.module);
        }
    }
}

TEST(TranslationWarp, IsTheAffineRuleWithTheScaledShift) {
    for (int32_t w : {2, 5, 12, 33})
        for (int32_t h : {2, 3, 9}) {
            Image source = make(FLOAT, w, h, 1);
            fillFloats(source.get(), static_cast<uint32_t>(w * 31 + h), -10.0f, 10.0f);
            Image target = make(FLOAT, w + 3, h);
            tag_pxImage *t = target.get();
            for (float dx : {-0.75f, 0.0f, 0.3f, 1.5f})
                for (float dy : {-0.5f, 0.0f, 0.7f}) {
                    const float s = 1.25f;
                    pxtest::LogCapture quiet;
                    const bool fits = std::fabs(dx) < static_cast<float>(w - 1) &&
                                      std::fabs(dy) < static_cast<float>(h - 1);
                    ASSERT_EQ(fits ? 1u : 0u, pxImageTranslationWarp(source.get(), dx, dy, s, &t));
                    if (!fits)
                        continue;
                    for (int32_t y = 0; y < t->height; ++y)
                        for (int32_t x = 0; x < t->width; ++x)
                            ASSERT_EQ(bitsOf(literalSample(source.get(), static_cast<float>(x) + dx * s,
                                                           static_cast<float>(y) + dy * s)),
                                      bitsOf(rows<float>(t)[y][x]));
                }
        }
}

TEST(TranslationWarp, ShiftOfHeightMinusOneIsRefused) {
    Image source = make(FLOAT, 6, 4), target = make(FLOAT, 6, 4);
    tag_pxImage *t = target.get();
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageTranslationWarp(source.get(), 0.0f, -3.0f, 0.1f, &t));
    expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule, kTooRough);
}

// ---- Fast kernels --------------------------------------------------------------------------------------

TEST(WarpKernels, EveryLevelGivesTheReferenceBits) {
    std::mt19937 rng(17);
    std::uniform_real_distribution<float> offset(-6.0f, 6.0f), slope(-0.2f, 0.2f);
    for (int level : {pxwarp::LEVEL_PORTABLE, pxwarp::LEVEL_AVX2}) {
        const pxwarp::SampleRow sample = pxwarp::sampleRowAt(level);
        if (sample == nullptr) {
            std::printf("level %d not available here\n", level);
            continue;
        }
        for (int round = 0; round < 30; ++round) {
            const int32_t w = 2 + (round * 7) % 41, h = 2 + (round * 5) % 23;
            Image source = make(FLOAT, w, h, round % 2);
            fillFloats(source.get(), round, -1e3f, 1e3f);
            const int32_t tw = 1 + (round * 13) % 301, th = round % 10 == 9 ? 131 : 1 + round % 7;
            Image fast = make(FLOAT, tw, th), reference = make(FLOAT, tw, th);
            const pxwarp::Source in{reinterpret_cast<const float *const *>(source->pixMap[0]), w, h,
                                    round % 4 == 0 ? 0 : w + 2 * (round % 2)};
            const pxwarp::Target f{rows<float>(fast.get()), tw, th}, r{rows<float>(reference.get()), tw, th};
            const pxwarp::Affine map{{offset(rng), slope(rng), slope(rng)},
                                     {offset(rng), slope(rng), slope(rng)}};
            pxwarp::affineFast(in, map, f, sample);
            pxwarp::affineReference(in, map, r);
            ASSERT_EQ(planeBytes(reference.get()), planeBytes(fast.get())) << level << " " << round;
            pxwarp::translationFast(in, map.a[0], map.b[0], f, sample);
            pxwarp::translationReference(in, map.a[0], map.b[0], r);
            ASSERT_EQ(planeBytes(reference.get()), planeBytes(fast.get())) << level << " " << round;
        }
    }
}

TEST(WarpKernels, NonFiniteAndEdgePositionsAgree) {
    Image source = make(FLOAT, 7, 4);
    fillFloats(source.get(), 2);
    const pxwarp::Source in{reinterpret_cast<const float *const *>(source->pixMap[0]), 7, 4, 7};
    const std::vector<float> special = {0.0f,      -0.0f, 6.0f, 3.0f,      -1e-7f, 6.0000005f, NAN,  INFINITY,
                                        -INFINITY, 1e30f, 2.5f, 5.999999f, -2.0f,  0.5f,       3.0f, 4.0f};
    for (int level : {pxwarp::LEVEL_PORTABLE, pxwarp::LEVEL_AVX2}) {
        const pxwarp::SampleRow sample = pxwarp::sampleRowAt(level);
        if (sample == nullptr)
            continue;
        for (size_t shift = 0; shift < special.size(); ++shift) {
            std::vector<float> u(special.size()), v(special.size()), out(special.size());
            for (size_t k = 0; k < special.size(); ++k) {
                u[k] = special[k];
                v[k] = special[(k + shift) % special.size()] * 0.5f;
            }
            sample(in, u.data(), v.data(), static_cast<int32_t>(u.size()), out.data());
            for (size_t k = 0; k < u.size(); ++k)
                ASSERT_EQ(bitsOf(pxwarp::sampleReference(in, u[k], v[k])), bitsOf(out[k]))
                    << u[k] << "," << v[k];
        }
    }
}

// ---- Beside OpenCV ----------------------------------------------------------------------------------------

// A smooth image (largest slope along either axis known) so that OpenCV's 1/32-pixel position steps move a
// value by at most that slope / 64 along each axis.
constexpr float kSlope = 50.0f / 7.0f + 40.0f / 5.0f;
void fillSmooth(tag_pxImage *image) {
    for (int32_t y = 0; y < image->height; ++y)
        for (int32_t x = 0; x < image->width; ++x)
            rows<float>(image)[y][x] = 100.0f + 50.0f * std::sin(x / 7.0f) + 40.0f * std::cos(y / 5.0f);
}

cv::Mat viewOf(const tag_pxImage *image) {
    const size_t step = sizeof(float) * static_cast<size_t>(image->width + 2 * image->border);
    return cv::Mat(image->height, image->width, CV_32F, image->pixMap[0][0], step);
}

// Compares pixels whose four neighbours lie inside the source; returns how many were compared.
int compareInterior(const tag_pxImage *ours, const cv::Mat &theirs, const std::vector<float> &u,
                    const std::vector<float> &v, int32_t w, int32_t h, float tolerance) {
    int compared = 0;
    for (int32_t y = 0; y < ours->height; ++y)
        for (int32_t x = 0; x < ours->width; ++x) {
            const size_t k = static_cast<size_t>(y) * ours->width + x;
            if (!(u[k] >= 0.5f && u[k] <= w - 1.5f && v[k] >= 0.5f && v[k] <= h - 1.5f))
                continue;
            EXPECT_NEAR(theirs.at<float>(y, x), rows<float>(ours)[y][x], tolerance) << x << "," << y;
            ++compared;
        }
    return compared;
}

TEST(AffineWarp, AgreesWithOpenCvWarpAffineInside) {
    const int32_t w = 131, h = 97;
    Image source = make(FLOAT, w, h, 2);
    fillSmooth(source.get());
    Image target = make(FLOAT, w, h);
    float a[3] = {3.25f, 0.05f, -0.08f}, b[3] = {-2.5f, 0.07f, 0.03f};
    const float s = 0.9f;
    tag_pxImage *t = target.get();
    ASSERT_EQ(1u, pxImageAffineWarp(source.get(), a, b, s, &t));
    const cv::Matx23f m(1.0f + a[1], a[2], a[0], b[1], 1.0f + b[2], b[0]);
    cv::Mat theirs;
    cv::warpAffine(viewOf(source.get()), theirs, m, cv::Size(w, h), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP,
                   cv::BORDER_CONSTANT, cv::Scalar(-1));
    std::vector<float> u, v;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            const float xf = static_cast<float>(x), yf = static_cast<float>(y);
            u.push_back(a[0] + xf + a[1] * xf + a[2] * yf);
            v.push_back(b[0] + yf + b[1] * xf + b[2] * yf);
        }
    EXPECT_GT(compareInterior(t, theirs, u, v, w, h, kSlope / 64.0f + 1e-3f), w * h / 2);
}

TEST(TranslationWarp, AgreesWithOpenCvRemapInside) {
    const int32_t w = 77, h = 45;
    Image source = make(FLOAT, w, h);
    fillSmooth(source.get());
    Image target = make(FLOAT, w, h);
    tag_pxImage *t = target.get();
    const float dx = 2.3f, dy = -1.6f, s = 1.5f;
    ASSERT_EQ(1u, pxImageTranslationWarp(source.get(), dx, dy, s, &t));
    cv::Mat mapX(h, w, CV_32F), mapY(h, w, CV_32F), theirs;
    std::vector<float> u, v;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            mapX.at<float>(y, x) = static_cast<float>(x) + dx * s;
            mapY.at<float>(y, x) = static_cast<float>(y) + dy * s;
            u.push_back(mapX.at<float>(y, x));
            v.push_back(mapY.at<float>(y, x));
        }
    cv::remap(viewOf(source.get()), theirs, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_CONSTANT,
              cv::Scalar(-1));
    EXPECT_GT(compareInterior(t, theirs, u, v, w, h, kSlope / 64.0f + 1e-3f), w * h / 2);
}

TEST(AffineWarp, TargetThatIsTheSourceIsRefused) {
    Image source = make(FLOAT, 6, 6);
    tag_pxImage *t = source.get();
    float a[3] = {0.5f, 0, 0}, b[3] = {0, 0, 0};
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageAffineWarp(source.get(), a, b, 1.0f, &t));
    expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule, "warp target must not be the source");
    EXPECT_EQ(0.5f, a[0]);
}

} // namespace
