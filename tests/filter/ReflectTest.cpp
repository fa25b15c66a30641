// Border reflection of float images: the six modes against a plain per-pixel reference over the whole plane,
// against OpenCV's border types where they coincide, the documented examples and every refusal.
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "pxEnv.h"
#include "pxImage.h"
#include "support/LogCapture.h"

namespace {

constexpr uint32_t kInvalidArgument = 0xC43D0003u;
constexpr uint32_t kUnknownMode = 0xC41A0017u;

// Owns a test image.
struct ReflectImage {
    tag_pxImage *image = nullptr;
    ReflectImage(int32_t type, int32_t width, int32_t height, int32_t border) {
        EXPECT_EQ(1u, pxImageConstruct(type, width, height, border, 1, &image));
    }
    ~ReflectImage() { pxImageDestruct(&image); }
    ReflectImage(const ReflectImage &) = delete;
    ReflectImage &operator=(const ReflectImage &) = delete;

    int32_t stride() const { return image->width + 2 * image->border; }
    size_t planeSize() const { return static_cast<size_t>(stride()) * (image->height + 2 * image->border); }
    float **rows() const { return reinterpret_cast<float **>(image->pixMap[0]); }
    // The whole plane, margin included, is one contiguous block starting at row -border, column -border.
    float *plane() const { return rows()[-image->border] - image->border; }
    std::vector<float> copyPlane() const { return std::vector<float>(plane(), plane() + planeSize()); }
    // The plane as bytes, for any pixel type.
    size_t pixelSize() const {
        uint32_t size = 0;
        pxImagePixelSize(image->type, &size);
        return size;
    }
    unsigned char *planeBytes() const {
        return static_cast<unsigned char *>(image->pixMap[0][-image->border]) - image->border * pixelSize();
    }
    std::vector<unsigned char> copyBytes() const {
        return std::vector<unsigned char>(planeBytes(), planeBytes() + planeSize() * pixelSize());
    }
    float at(int y, int x) const { return rows()[y][x]; }
    void setRow(int y, std::initializer_list<float> values) {
        int x = 0;
        for (float v : values)
            rows()[y][x++] = v;
    }
};

// A plain model of the operation over a copy of the plane, written pixel by pixel from the rules.
class ReflectReference {
  public:
    ReflectReference(std::vector<float> plane, int w, int h, int b)
        : p_(std::move(plane)), w_(w), h_(h), b_(b) {}

    void run(int n, int mode) {
        for (int y = 0; y < h_; ++y) {
            for (int k = 1; k <= n; ++k) {
                at(y, -k) = value(mode, k, w_ - 1, true, [&](int i) { return at(y, i); });
                at(y, w_ - 1 + k) = value(mode, k, w_ - 1, false, [&](int i) { return at(y, i); });
            }
            if (mode == 2) {
                const float m = 0.5f * (at(y, 0) + at(y, w_ - 1));
                at(y, 0) = m;
                at(y, w_ - 1) = m;
            }
        }
        for (int k = 1; k <= n; ++k) {
            for (int x = -n; x < w_ + n; ++x) {
                at(-k, x) = value(mode, k, h_ - 1, true, [&](int i) { return at(i, x); });
                at(h_ - 1 + k, x) = value(mode, k, h_ - 1, false, [&](int i) { return at(i, x); });
            }
            if (mode == 2) {
                const float m = 0.5f * (at(0, w_ + n) + at(h_ - 1, w_ + n));
                at(0, w_ + n) = m;
                at(h_ - 1, w_ + n) = m;
            }
        }
    }
    const std::vector<float> &plane() const { return p_; }

  private:
    // Flat addressing: a column past the margin runs on into the next stored row, as in the record.
    float &at(int y, int x) { return p_.at(static_cast<size_t>((y + b_) * (w_ + 2 * b_) + x + b_)); }

    template <typename Get> static float value(int mode, int k, int last, bool before, Get get) {
        auto clamp = [last](int i) { return i < 0 ? 0 : (i > last ? last : i); };
        switch (mode) {
        case 1:
            return before ? get(clamp(k)) : get(clamp(last - k));
        case 2:
            return before ? get(clamp(last - k)) : get(clamp(k));
        case 3:
            return before ? get(0) : get(last);
        case 4:
            return before ? static_cast<float>(2.0 * get(0) - get(clamp(k)))
                          : static_cast<float>(2.0 * get(last) - get(clamp(last - k)));
        case 6:
            return before ? get(clamp(last + 1 - k)) : get(clamp(k - 1));
        default:
            return 0.0f;
        }
    }

    std::vector<float> p_;
    int w_, h_, b_;
};

void fillRandom(ReflectImage &img, std::mt19937 &rng) {
    std::uniform_real_distribution<float> dist(-1000.0f, 1000.0f);
    float *p = img.plane();
    for (size_t i = 0; i < img.planeSize(); ++i)
        p[i] = dist(rng);
}

bool samePlane(const std::vector<float> &a, const float *b) {
    return std::memcmp(a.data(), b, a.size() * sizeof(float)) == 0;
}

TEST(ReflectReferenceTest, EveryModeMatchesThePlainModelOverTheWholePlane) {
    std::mt19937 rng(17);
    const int sizes[][2] = {{1, 1}, {1, 5}, {4, 1}, {3, 7}, {13, 9}, {2, 2}, {31, 17}};
    for (const auto &size : sizes) {
        for (int border : {0, 1, 3, 6}) {
            for (int n = -1; n <= border; ++n) {
                for (int mode = 1; mode <= 6; ++mode) {
                    ReflectImage img(FLOAT, size[0], size[1], border);
                    fillRandom(img, rng);
                    ReflectReference ref(img.copyPlane(), size[0], size[1], border);
                    ref.run(n, mode);
                    ASSERT_EQ(1u, pxImageReflect(img.image, n, mode));
                    ASSERT_TRUE(samePlane(ref.plane(), img.plane()))
                        << size[0] << "x" << size[1] << " border " << border << " n " << n << " mode "
                        << mode;
                }
            }
        }
    }
}

// The matching OpenCV border type, for modes that have one, compared bit for bit.
void expectLikeCopyMakeBorder(int mode, int cvBorder, int w, int h, int n) {
    std::mt19937 rng(static_cast<unsigned>(mode * 1000 + w * 10 + n));
    ReflectImage img(FLOAT, w, h, n + 2);
    fillRandom(img, rng);
    const size_t step = sizeof(float) * static_cast<size_t>(img.stride());
    cv::Mat source(h, w, CV_32F, img.rows()[0], step);
    cv::Mat expected;
    cv::copyMakeBorder(source, expected, n, n, n, n, cvBorder, cv::Scalar(0));
    ASSERT_EQ(1u, pxImageReflect(img.image, n, mode));
    for (int y = 0; y < h + 2 * n; ++y) {
        ASSERT_EQ(0, std::memcmp(expected.ptr<float>(y), &img.rows()[y - n][-n], sizeof(float) * (w + 2 * n)))
            << "mode " << mode << " size " << w << "x" << h << " n " << n << " row " << y;
    }
}

TEST(ReflectOpenCvTest, MirrorIsReflect101) {
    for (int n : {1, 2, 4})
        expectLikeCopyMakeBorder(1, cv::BORDER_REFLECT_101, 9, 5, n);
    expectLikeCopyMakeBorder(1, cv::BORDER_REFLECT_101, 37, 21, 7);
}

TEST(ReflectOpenCvTest, ReplicateIsReplicate) {
    for (int n : {1, 3, 8})
        expectLikeCopyMakeBorder(3, cv::BORDER_REPLICATE, 5, 3, n);
}

TEST(ReflectOpenCvTest, ZeroIsConstantZero) {
    for (int n : {1, 3, 8})
        expectLikeCopyMakeBorder(5, cv::BORDER_CONSTANT, 5, 3, n);
}

TEST(ReflectOpenCvTest, PlainWrapIsWrap) {
    for (int n : {1, 3, 5})
        expectLikeCopyMakeBorder(6, cv::BORDER_WRAP, 5, 5, n);
    expectLikeCopyMakeBorder(6, cv::BORDER_WRAP, 33, 19, 7);
}

// One row 1 2 3 4 with border 3 (so the column w + n of the shared-edge averaging lies inside the row).
std::vector<float> extendedRow(int mode) {
    ReflectImage img(FLOAT, 4, 1, 3);
    img.setRow(0, {1, 2, 3, 4});
    EXPECT_EQ(1u, pxImageReflect(img.image, 2, mode));
    std::vector<float> row;
    for (int x = -2; x < 6; ++x)
        row.push_back(img.at(0, x));
    return row;
}

TEST(ReflectEdgeTest, MirrorDoesNotRepeatTheEdge) {
    EXPECT_EQ((std::vector<float>{3, 2, 1, 2, 3, 4, 3, 2}), extendedRow(1));
}

TEST(ReflectEdgeTest, PointMirror) {
    EXPECT_EQ((std::vector<float>{-1, 0, 1, 2, 3, 4, 5, 6}), extendedRow(4));
}

TEST(ReflectEdgeTest, PlainWrap) {
    EXPECT_EQ((std::vector<float>{3, 4, 1, 2, 3, 4, 1, 2}), extendedRow(6));
}

TEST(ReflectEdgeTest, SharedEdgeWrapFillsBeforeAveraging) {
    EXPECT_EQ((std::vector<float>{2, 3, 2.5f, 2, 3, 2.5f, 2, 3}), extendedRow(2));
}

TEST(ReflectEdgeTest, ReplicateAndZero) {
    EXPECT_EQ((std::vector<float>{1, 1, 1, 2, 3, 4, 4, 4}), extendedRow(3));
    EXPECT_EQ((std::vector<float>{0, 0, 1, 2, 3, 4, 0, 0}), extendedRow(5));
}

TEST(ReflectEdgeTest, CornersComeFromTheExtendedRows) {
    ReflectImage img(FLOAT, 3, 3, 1);
    img.setRow(0, {1, 2, 3});
    img.setRow(1, {4, 5, 6});
    img.setRow(2, {7, 8, 9});
    ASSERT_EQ(1u, pxImageReflect(img.image, 1, 1));
    // Rows -1 and 3 are both the extended row 1: 5 | 4 5 6 | 5.
    for (int y : {-1, 3}) {
        const float expected[] = {5, 4, 5, 6, 5};
        for (int x = -1; x <= 3; ++x)
            EXPECT_EQ(expected[x + 1], img.at(y, x)) << y << "," << x;
    }
}

TEST(ReflectEdgeTest, NarrowerThanTheFillWidthRepeatsByClamping) {
    ReflectImage img(FLOAT, 1, 3, 4);
    img.setRow(0, {7});
    img.setRow(1, {8});
    img.setRow(2, {9});
    ASSERT_EQ(1u, pxImageReflect(img.image, 4, 1));
    for (int k = 1; k <= 4; ++k) {
        EXPECT_EQ(7.0f, img.at(0, -k));
        EXPECT_EQ(7.0f, img.at(0, k));
        EXPECT_EQ(8.0f, img.at(1, -k));
        EXPECT_EQ(9.0f, img.at(2, k));
    }
    // Rows: clamp(k) of a 3-row image is row 1 then row 2.
    EXPECT_EQ(8.0f, img.at(-1, 0));
    EXPECT_EQ(9.0f, img.at(-2, -3));
    EXPECT_EQ(9.0f, img.at(-4, 2));
    EXPECT_EQ(8.0f, img.at(3, 0));
    EXPECT_EQ(7.0f, img.at(6, -4));
}

TEST(ReflectEdgeTest, SharedEdgeAveragesOnlyColumnWPlusNOfTheEdgeRows) {
    ReflectImage img(FLOAT, 3, 3, 3);
    float *p = img.plane();
    for (size_t i = 0; i < img.planeSize(); ++i)
        p[i] = 100.0f + static_cast<float>(i);
    const float top = img.at(0, 5), bottom = img.at(2, 5), topNext = img.at(0, 4);
    ASSERT_EQ(1u, pxImageReflect(img.image, 2, 2));
    EXPECT_EQ(0.5f * (top + bottom), img.at(0, 5));
    EXPECT_EQ(0.5f * (top + bottom), img.at(2, 5));
    EXPECT_NE(topNext, img.at(0, 4)); // filled by the horizontal pass
    EXPECT_EQ(img.at(1, 5), 100.0f + static_cast<float>((1 + 3) * 9 + 5 + 3)); // middle row untouched there
}

TEST(ReflectEdgeTest, FillWidthBelowOneFillsNothingButStillAveragesSharedEdges) {
    for (int n : {0, -3}) {
        ReflectImage img(FLOAT, 3, 2, 2);
        std::mt19937 rng(5);
        fillRandom(img, rng);
        std::vector<float> before = img.copyPlane();
        ASSERT_EQ(1u, pxImageReflect(img.image, n, 1));
        EXPECT_TRUE(samePlane(before, img.plane()));
        const float m0 = 0.5f * (img.at(0, 0) + img.at(0, 2));
        const float m1 = 0.5f * (img.at(1, 0) + img.at(1, 2));
        ASSERT_EQ(1u, pxImageReflect(img.image, n, 2));
        EXPECT_EQ(m0, img.at(0, 0));
        EXPECT_EQ(m0, img.at(0, 2));
        EXPECT_EQ(m1, img.at(1, 0));
        EXPECT_EQ(m1, img.at(1, 2));
        EXPECT_EQ(before[0], img.plane()[0]);
    }
}

// A refused call reports one record and leaves the plane as it was.
void expectRefused(ReflectImage &img, int n, int mode, int kind, uint32_t code, const std::string &text) {
    const std::vector<unsigned char> before = img.copyBytes();
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageReflect(img.image, n, mode));
    ASSERT_EQ(1u, log.records().size());
    const pxtest::LogRecord &r = log.records()[0];
    EXPECT_EQ(kind, r.kind);
    EXPECT_EQ(5, r.level);
    EXPECT_EQ(code, r.code);
    EXPECT_EQ("pxImageReflect", r.module);
    EXPECT_EQ(text, r.text);
    EXPECT_EQ(before, img.copyBytes());
}

TEST(ReflectRefusalTest, ByteImageIsRefusedBeforeAnythingElse) {
    ReflectImage img(UBYTE, 4, 4, 1);
    expectRefused(img, 1, 1, PXENV_LOG_I, kInvalidArgument, "pxImageReflect works only on float images");
    expectRefused(img, 5, 7, PXENV_LOG_I, kInvalidArgument, "pxImageReflect works only on float images");
}

TEST(ReflectRefusalTest, OtherNonFloatTypesAreRefused) {
    for (int32_t type : {SHORT, INT, DOUBLE}) {
        tag_pxImage *image = nullptr;
        ASSERT_EQ(1u, pxImageConstruct(type, 3, 3, 1, 1, &image));
        pxtest::LogCapture log;
        EXPECT_EQ(0u, pxImageReflect(image, 1, 1));
        EXPECT_TRUE(
            log.has(5, kInvalidArgument, "pxImageReflect", "pxImageReflect works only on float images"));
        pxImageDestruct(&image);
    }
}

TEST(ReflectRefusalTest, FillWiderThanTheBorderIsRefusedBeforeTheMode) {
    ReflectImage img(FLOAT, 4, 4, 2);
    std::mt19937 rng(3);
    fillRandom(img, rng);
    expectRefused(img, 3, 1, PXENV_LOG_I, kInvalidArgument, "t");
    expectRefused(img, 3, 9, PXENV_LOG_I, kInvalidArgument, "t");
}

TEST(ReflectRefusalTest, UnknownModeIsSentAsError) {
    ReflectImage img(FLOAT, 4, 4, 2);
    std::mt19937 rng(4);
    fillRandom(img, rng);
    for (int mode : {7, 0, -1, 100}) {
        expectRefused(img, 2, mode, PXENV_LOG_ERROR, kUnknownMode,
                      "unknown reflection mode " + std::to_string(mode));
    }
}

TEST(ReflectRefusalTest, MissingImageOrPixelsIsRefused) {
    pxtest::LogCapture log;
    EXPECT_EQ(0u, pxImageReflect(nullptr, 1, 1));
    tag_pxImage *header = nullptr;
    ASSERT_EQ(1u, pxImageHeaderConstruct(FLOAT, 3, 3, 1, 1, &header));
    EXPECT_EQ(0u, pxImageReflect(header, 1, 1));
    pxImageHeaderDestruct(&header);
    ASSERT_EQ(2u, log.records().size());
    for (const pxtest::LogRecord &r : log.records()) {
        EXPECT_EQ(PXENV_LOG_I, r.kind);
        EXPECT_EQ(5, r.level);
        EXPECT_EQ(kInvalidArgument, r.code);
        EXPECT_EQ("pxImageReflect needs an image with pixels", r.text);
    }
}

TEST(ReflectAllocationTest, AllocatesNothing) {
    ReflectImage img(FLOAT, 8, 8, 3);
    const long live = pxEnvLiveAllocations();
    pxEnvFailAllocationAfter(1);
    for (int mode = 1; mode <= 6; ++mode)
        EXPECT_EQ(1u, pxImageReflect(img.image, 3, mode));
    pxEnvFailAllocationAfter(0);
    EXPECT_EQ(live, pxEnvLiveAllocations());
}

} // namespace
