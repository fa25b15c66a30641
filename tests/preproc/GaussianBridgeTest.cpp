// The Gaussian blur bridge against cv::GaussianBlur called directly, bit for bit, on images whose rows lie
// back to back and on images with a margin; refusals and OpenCV's own errors.
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vector>

#include "PreprocTestUtil.h"
#include "support/LogCapture.h"

namespace pxtest {
namespace {

// cv::GaussianBlur on a contiguous copy of the image, with the bridge's arguments.
std::vector<float> openCvBlur(const Fimage &image, int size, double sigma) {
    cv::Mat copy(image.height(), image.width(), CV_32FC1);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            copy.at<float>(y, x) = image.at(x, y);
    cv::Mat blurred;
    cv::GaussianBlur(copy, blurred, cv::Size(size, size), sigma, 0.0, cv::BORDER_REFLECT_101);
    return std::vector<float>(blurred.begin<float>(), blurred.end<float>());
}

TEST(GaussianBridge, SameBitsAsOpenCvWithRowsBackToBack) {
    for (int size : {3, 7, 13})
        for (auto [w, h] : {std::pair{40, 30}, {17, 5}, {3, 19}}) {
            Fimage image(w, h, 0);
            fillTexture(image, static_cast<uint32_t>(size + w));
            const std::vector<float> expected = openCvBlur(image, size, 2.0);
            ASSERT_TRUE(BlurByGaussianFilterUsingOpenCv(image.f, size, 2.0));
            expectSameBits(expected, image.pixels());
        }
}

TEST(GaussianBridge, ImagesWithAMarginUseTheirRealRowStride) {
    for (int border : {1, 8}) {
        Fimage image(33, 21, border);
        fillTexture(image, 3);
        for (int y = -border; y < 21 + border; ++y)
            for (int x = -border; x < 33 + border; ++x)
                if (y < 0 || y >= 21 || x < 0 || x >= 33)
                    image.f->image[y][x] = -5.0f;
        const std::vector<float> expected = openCvBlur(image, 13, 3.0);
        ASSERT_TRUE(BlurByGaussianFilterUsingOpenCv(image.f, 13, 3.0));
        expectSameBits(expected, image.pixels());
        for (int y = -border; y < 21 + border; ++y)
            for (int x = -border; x < 33 + border; ++x)
                if (y < 0 || y >= 21 || x < 0 || x >= 33) {
                    ASSERT_EQ(-5.0f, image.f->image[y][x]) << x << "," << y;
                }
    }
}

TEST(GaussianBridge, OnePixelWideImageIsBlurredAlongItsColumnWithReflectedBorders) {
    Fimage image(1, 20, 0);
    for (int y = 0; y < 20; ++y)
        image.at(0, y) = static_cast<float>((y * 37) % 11);
    const std::vector<float> expected = openCvBlur(image, 13, 3.0);
    const std::vector<float> before = image.pixels();
    ASSERT_TRUE(BlurByGaussianFilterUsingOpenCv(image.f, 13, 3.0));
    expectSameBits(expected, image.pixels());
    // The column convolution with the sampled Gaussian, rows mirrored without repeating the edge row.
    const cv::Mat kernel = cv::getGaussianKernel(13, 3.0, CV_64F);
    for (int y = 0; y < 20; ++y) {
        double sum = 0.0;
        for (int i = -6; i <= 6; ++i) {
            int r = y + i;
            r = r < 0 ? -r : (r > 19 ? 38 - r : r);
            sum += kernel.at<double>(i + 6) * before[r];
        }
        EXPECT_NEAR(sum, image.at(0, y), 1e-4) << y;
    }
}

TEST(GaussianBridge, ConstantImageIsUnchanged) {
    Fimage image(25, 14);
    image.each([](int, int, float &p) { p = 100.0f; });
    ASSERT_TRUE(BlurByGaussianFilterUsingOpenCv(image.f, 13, 3.0));
    image.each([](int, int, float &p) { ASSERT_NEAR(100.0f, p, 1e-4f); });
}

TEST(GaussianBridge, RowsNotEvenlySpacedAreRefused) {
    Fimage image(10, 6, 0);
    fillTexture(image, 9);
    const std::vector<float> before = image.pixels();
    std::vector<float *> rows(image.f->image, image.f->image + 6);
    std::swap(rows[2], rows[3]);
    FIMAGE shuffled{rows.data(), 10, 6};
    LogCapture log;
    EXPECT_FALSE(BlurByGaussianFilterUsingOpenCv(&shuffled, 5, 1.0));
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImagePreproc",
                        "Gaussian blur: rows of the 10 x 6 image are not evenly spaced"));
    // Rows closer together than a row's width overlap.
    std::vector<float> block(100, 1.0f);
    std::vector<float *> overlapping{block.data(), block.data() + 5, block.data() + 10};
    FIMAGE overlap{overlapping.data(), 10, 3};
    EXPECT_FALSE(BlurByGaussianFilterUsingOpenCv(&overlap, 3, 1.0));
    EXPECT_FALSE(BlurByGaussianFilterUsingOpenCv(nullptr, 3, 1.0));
    EXPECT_TRUE(log.has(5, 0xC43D0003u, "pxImagePreproc", "Gaussian blur: no image"));
    EXPECT_EQ(before, image.pixels());
}

TEST(GaussianBridge, OpenCvErrorsReachTheCaller) {
    Fimage image(10, 6);
    EXPECT_THROW(BlurByGaussianFilterUsingOpenCv(image.f, 4, 1.0), cv::Exception);
    EXPECT_THROW(BlurByGaussianFilterUsingOpenCv(image.f, -3, 0.0), cv::Exception);
    // A size below 1 with a positive sigma lets OpenCV choose the size from sigma.
    EXPECT_TRUE(BlurByGaussianFilterUsingOpenCv(image.f, 0, 1.0));
}

} // namespace
} // namespace pxtest
