// The dense warps: the checks and codes of the library, the forwarding to img_4_px (the result is what the
// platform's rule gives, the origType is copied), beside OpenCV's remap inside the image, and the masked
// form's third image and mask.
#include <cmath>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "ResampleTestSupport.h"

namespace {

using namespace pxresample;

const char *const kModule = "pxImageWarp";
constexpr uint32_t kType = 0xC41A0018u, kSize = 0xC41A0019u, kMaskedType = 0xC41A001Au, kBorder = 0xC41A001Bu;

// The platform's sample, written out: clamped right and lower neighbours, fill outside.
float platformSample(const tag_pxImage *s, float sx, float sy, float fill) {
    if (!(sx >= 0.0f && sx <= s->width - 1 && sy >= 0.0f && sy <= s->height - 1))
        return fill;
    const int32_t j = static_cast<int32_t>(std::floor(sx)), i = static_cast<int32_t>(std::floor(sy));
    const int32_t j1 = std::min(j + 1, s->width - 1), i1 = std::min(i + 1, s->height - 1);
    const float fu = sx - j, fv = sy - i;
    float **p = rows<float>(s);
    const float top = p[i][j] + (p[i][j1] - p[i][j]) * fu;
    const float bottom = p[i1][j] + (p[i1][j1] - p[i1][j]) * fu;
    return top + (bottom - top) * fv;
}

struct DenseCase {
    Image source, first, second, target;
    DenseCase(int32_t w, int32_t h, int32_t mw, int32_t mh, int32_t border = 3)
        : source(make(FLOAT, w, h, border)), first(make(FLOAT, mw, mh)), second(make(FLOAT, mw, mh)),
          target(make(FLOAT, mw + 2, mh + 1, border)) {
        fillFloats(source.get(), 1, -50.0f, 50.0f);
        fillFloats(first.get(), 2, -3.0f, 3.0f);
        fillFloats(second.get(), 3, -3.0f, 3.0f);
        fillFloats(target.get(), 4, 1000.0f, 2000.0f);
        source->origType = SHORT;
    }
};

TEST(BilinearWarp, WritesThePlatformSampleOverTheMapsAndCopiesOrigType) {
    DenseCase c(23, 17, 19, 13);
    const std::vector<unsigned char> before = planeBytes(c.target.get());
    tag_pxImage *t = c.target.get();
    ASSERT_EQ(1u, pxImageBilinearWarp(c.source.get(), c.first.get(), c.second.get(), &t));
    EXPECT_EQ(SHORT, t->origType);
    for (int32_t y = 0; y < t->height; ++y)
        for (int32_t x = 0; x < t->width; ++x) {
            if (x >= 19 || y >= 13) {
                // Beyond the maps: untouched.
                const size_t stride = static_cast<size_t>(t->width + 2 * t->border) * sizeof(float);
                const size_t at = (y + t->border) * stride + (x + t->border) * sizeof(float);
                float old;
                std::memcpy(&old, &before[at], sizeof old);
                ASSERT_EQ(bitsOf(old), bitsOf(rows<float>(t)[y][x]));
                continue;
            }
            const float expected = platformSample(c.source.get(), x + rows<float>(c.first.get())[y][x],
                                                  y + rows<float>(c.second.get())[y][x], -1.0f);
            ASSERT_EQ(bitsOf(expected), bitsOf(rows<float>(t)[y][x])) << x << "," << y;
        }
}

TEST(BilinearWarp, AgreesWithOpenCvRemapInside) {
    const int32_t w = 61, h = 43;
    Image source = make(FLOAT, w, h), first = make(FLOAT, w, h), second = make(FLOAT, w, h),
          target = make(FLOAT, w, h);
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            rows<float>(source.get())[y][x] = 80.0f + 30.0f * std::sin(x / 6.0f) * std::cos(y / 4.0f);
            rows<float>(first.get())[y][x] = 2.0f * std::sin(y / 9.0f) + 0.37f;
            rows<float>(second.get())[y][x] = 1.5f * std::cos(x / 11.0f) - 0.61f;
        }
    tag_pxImage *t = target.get();
    ASSERT_EQ(1u, pxImageBilinearWarp(source.get(), first.get(), second.get(), &t));
    cv::Mat mapX(h, w, CV_32F), mapY(h, w, CV_32F), theirs;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            mapX.at<float>(y, x) = x + rows<float>(first.get())[y][x];
            mapY.at<float>(y, x) = y + rows<float>(second.get())[y][x];
        }
    const cv::Mat view(h, w, CV_32F, source->pixMap[0][0]);
    cv::remap(view, theirs, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar(-1));
    // OpenCV rounds positions to 1/32 pixel: a value moves by at most the slope (30/6 + 30/4) / 64.
    const float tolerance = (30.0f / 6.0f + 30.0f / 4.0f) / 64.0f + 1e-3f;
    int compared = 0;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            const float u = mapX.at<float>(y, x), v = mapY.at<float>(y, x);
            if (u < 0.5f || u > w - 1.5f || v < 0.5f || v > h - 1.5f) {
                if (u < 0.0f || u > w - 1 || v < 0.0f || v > h - 1) {
                    EXPECT_EQ(-1.0f, rows<float>(t)[y][x]);
                }
                continue;
            }
            EXPECT_NEAR(theirs.at<float>(y, x), rows<float>(t)[y][x], tolerance) << x << "," << y;
            ++compared;
        }
    EXPECT_GT(compared, w * h / 2);
}

TEST(BilinearWarp, RefusesTypesAndSizesWithTheirCodes) {
    DenseCase c(9, 9, 7, 7);
    Image bytes = make(UBYTE, 7, 7), small = make(FLOAT, 6, 7), tall = make(FLOAT, 7, 8);
    tag_pxImage *t = c.target.get();
    tag_pxImage *byteTarget = bytes.get();
    tag_pxImage *smallTarget = small.get();
    const std::vector<unsigned char> before = planeBytes(t);
    const auto expectCode = [&](uint32_t result, uint32_t code) {
        EXPECT_EQ(0u, result);
        EXPECT_EQ(before, planeBytes(t));
        return code;
    };
    struct Call {
        uint32_t code;
        std::function<uint32_t()> run;
    };
    const std::vector<Call> calls = {
        {kType, [&] { return pxImageBilinearWarp(bytes.get(), c.first.get(), c.second.get(), &t); }},
        {kType, [&] { return pxImageBilinearWarp(c.source.get(), bytes.get(), c.second.get(), &t); }},
        {kType, [&] { return pxImageBilinearWarp(c.source.get(), c.first.get(), bytes.get(), &t); }},
        {kType,
         [&] { return pxImageBilinearWarp(c.source.get(), c.first.get(), c.second.get(), &byteTarget); }},
        {kSize, [&] { return pxImageBilinearWarp(c.source.get(), c.first.get(), tall.get(), &t); }},
        {kSize, [&] { return pxImageBilinearWarp(c.source.get(), small.get(), c.second.get(), &t); }},
        {kSize,
         [&] { return pxImageBilinearWarp(c.source.get(), c.first.get(), c.second.get(), &smallTarget); }},
    };
    for (const Call &call : calls) {
        pxtest::LogCapture log;
        expectCode(call.run(), call.code);
        expectRefusal(log, PXENV_LOG_ERROR, call.code, kModule);
    }
}

TEST(BilinearWarp, MissingImagesAreRefusedAsInvalidArguments) {
    DenseCase c(9, 9, 7, 7);
    tag_pxImage *t = c.target.get();
    tag_pxImage *none = nullptr;
    tag_pxImage *header = nullptr;
    ASSERT_EQ(1u, pxImageHeaderConstruct(FLOAT, 7, 7, 0, 1, &header));
    for (auto run : std::vector<std::function<uint32_t()>>{
             [&] { return pxImageBilinearWarp(nullptr, c.first.get(), c.second.get(), &t); },
             [&] { return pxImageBilinearWarp(c.source.get(), header, c.second.get(), &t); },
             [&] { return pxImageBilinearWarp(c.source.get(), c.first.get(), c.second.get(), &none); },
             [&] { return pxImageBilinearWarp(c.source.get(), c.first.get(), c.second.get(), nullptr); },
         }) {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, run());
        expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule);
    }
    pxImageHeaderDestruct(&header);
}

// ---- Masked form ----------------------------------------------------------------------------------------

struct MaskedCase : DenseCase {
    Image third, mask;
    MaskedCase(int32_t w, int32_t h, int32_t mw, int32_t mh, int32_t border = 3)
        : DenseCase(w, h, mw, mh, border), third(make(FLOAT, mw, mh)), mask(make(UBYTE, mw, mh)) {
        fillFloats(third.get(), 5, 500.0f, 600.0f);
        fillBytes(mask.get(), 6);
        for (int32_t y = 0; y < mh; ++y)
            for (int32_t x = 0; x < mw; ++x)
                rows<uint8_t>(mask.get())[y][x] &= (x + y) % 3 == 0 ? 0 : 0xFF;
    }
    uint32_t run(tag_pxImage **target) {
        return pxImageBilinearWarpMasked(source.get(), first.get(), second.get(), third.get(), mask.get(),
                                         target);
    }
};

TEST(BilinearWarpMasked, SamplesWhereTheMaskIsSetAndKeepsTheThirdImageElsewhere) {
    MaskedCase c(21, 15, 17, 11);
    tag_pxImage *t = c.target.get();
    ASSERT_EQ(1u, c.run(&t));
    EXPECT_EQ(SHORT, t->origType);
    int sampled = 0, kept = 0;
    for (int32_t y = 0; y < 11; ++y)
        for (int32_t x = 0; x < 17; ++x) {
            const float keep = rows<float>(c.third.get())[y][x];
            float expected = keep;
            if (rows<uint8_t>(c.mask.get())[y][x] != 0)
                expected = platformSample(c.source.get(), x + rows<float>(c.first.get())[y][x],
                                          y + rows<float>(c.second.get())[y][x], keep);
            (expected == keep ? kept : sampled) += 1;
            ASSERT_EQ(bitsOf(expected), bitsOf(rows<float>(t)[y][x])) << x << "," << y;
        }
    EXPECT_GT(sampled, 0);
    EXPECT_GT(kept, 0);
}

TEST(BilinearWarpMasked, SourceBorderOfTwoIsRefused) {
    MaskedCase c(9, 9, 7, 7, 2);
    tag_pxImage *t = c.target.get();
    pxtest::LogCapture log;
    EXPECT_EQ(0u, c.run(&t));
    expectRefusal(log, PXENV_LOG_ERROR, kBorder, kModule, "dense warp: border below 3");
}

TEST(BilinearWarpMasked, RefusesTypesSizesBordersAndSmallCompanions) {
    MaskedCase c(9, 9, 7, 7);
    Image floatMask = make(FLOAT, 7, 7), byteThird = make(UBYTE, 7, 7), thinTarget = make(FLOAT, 7, 7, 2);
    Image smallThird = make(FLOAT, 6, 7), smallMask = make(UBYTE, 7, 6), wide = make(FLOAT, 8, 7);
    tag_pxImage *t = c.target.get();
    tag_pxImage *thin = thinTarget.get();
    const std::vector<unsigned char> before = planeBytes(t);
    struct Call {
        int kind;
        uint32_t code;
        std::function<uint32_t()> run;
    };
    MaskedCase &m = c;
    const std::vector<Call> calls = {
        {PXENV_LOG_ERROR, kMaskedType,
         [&] {
             return pxImageBilinearWarpMasked(m.source.get(), m.first.get(), m.second.get(), m.third.get(),
                                              floatMask.get(), &t);
         }},
        {PXENV_LOG_ERROR, kMaskedType,
         [&] {
             return pxImageBilinearWarpMasked(m.source.get(), m.first.get(), m.second.get(), byteThird.get(),
                                              m.mask.get(), &t);
         }},
        {PXENV_LOG_ERROR, kSize,
         [&] {
             return pxImageBilinearWarpMasked(m.source.get(), wide.get(), m.second.get(), m.third.get(),
                                              m.mask.get(), &t);
         }},
        {PXENV_LOG_ERROR, kBorder,
         [&] {
             return pxImageBilinearWarpMasked(m.source.get(), m.first.get(), m.second.get(), m.third.get(),
                                              m.mask.get(), &thin);
         }},
        {PXENV_LOG_I, kInvalidArgument,
         [&] {
             return pxImageBilinearWarpMasked(m.source.get(), m.first.get(), m.second.get(), smallThird.get(),
                                              m.mask.get(), &t);
         }},
        {PXENV_LOG_I, kInvalidArgument,
         [&] {
             return pxImageBilinearWarpMasked(m.source.get(), m.first.get(), m.second.get(), m.third.get(),
                                              smallMask.get(), &t);
         }},
        {PXENV_LOG_I, kInvalidArgument,
         [&] {
             return pxImageBilinearWarpMasked(m.source.get(), m.first.get(), m.second.get(), nullptr,
                                              m.mask.get(), &t);
         }},
    };
    for (const Call &call : calls) {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, call.run());
        expectRefusal(log, call.kind, call.code, kModule);
        EXPECT_EQ(before, planeBytes(t));
    }
}

TEST(BilinearWarp, TargetSharingPixelsWithWhatItReadsIsRefused) {
    DenseCase c(7, 7, 7, 7);
    tag_pxImage *source = c.source.get();
    tag_pxImage *first = c.first.get();
    for (tag_pxImage **target : {&source, &first}) {
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageBilinearWarp(c.source.get(), c.first.get(), c.second.get(), target));
        expectRefusal(log, PXENV_LOG_I, kInvalidArgument, kModule,
                      "dense warp target must not be the source or a map");
    }
    // The masked form may write into its third image.
    MaskedCase m(9, 9, 7, 7);
    m.third = make(FLOAT, 7, 7, 3);
    fillFloats(m.third.get(), 8);
    tag_pxImage *third = m.third.get();
    EXPECT_EQ(1u, m.run(&third));
}

} // namespace
