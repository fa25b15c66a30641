// The Gaussian blur bridge: the one place where the library hands pixels to OpenCV. An img_4_px float image
// is wrapped, without copying, in a matrix header whose step is the image's real row stride, and blurred in
// place with reflect-101 borders.
#include <cstddef>
#include <cstdint>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "pxImage.h"
#include "image/pxImageLog.h"

namespace {

constexpr const char *kModule = "pxImagePreproc";

// Byte distance from one row to the next when every row follows the previous one at the same distance, at
// least a row's width of floats further on; 0 otherwise. A single row counts as back to back.
std::ptrdiff_t evenRowStride(const FIMAGE &image) {
    const std::ptrdiff_t rowBytes =
        static_cast<std::ptrdiff_t>(image.width) * static_cast<std::ptrdiff_t>(sizeof(float));
    if (image.height == 1)
        return image.image[0] ? rowBytes : 0;
    const char *first = reinterpret_cast<const char *>(image.image[0]);
    const char *second = reinterpret_cast<const char *>(image.image[1]);
    if (!first || !second)
        return 0;
    const std::ptrdiff_t stride = second - first;
    if (stride < rowBytes || stride % static_cast<std::ptrdiff_t>(sizeof(float)) != 0)
        return 0;
    for (int32_t y = 2; y < image.height; ++y)
        if (reinterpret_cast<const char *>(image.image[y]) -
                reinterpret_cast<const char *>(image.image[y - 1]) !=
            stride)
            return 0;
    return stride;
}

// Drops the header's hold on the pixels. The header was built over foreign pixels without a reference
// counter, so nothing of them is freed; data pointers and sizes are cleared.
void releaseHeader(cv::Mat &header) {
    header.release();
}

} // namespace

bool BlurByGaussianFilterUsingOpenCv(FIMAGE *image, int kernelSize, double sigma) {
    if (!image || !image->image || image->width < 1 || image->height < 1) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Gaussian blur: no image");
        return false;
    }
    const std::ptrdiff_t stride = evenRowStride(*image);
    if (stride == 0) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT,
                 "Gaussian blur: rows of the %d x %d image are not evenly spaced", image->width,
                 image->height);
        return false;
    }
    cv::Mat pixels(image->height, image->width, CV_32FC1, image->image[0], static_cast<size_t>(stride));
    cv::GaussianBlur(pixels, pixels, cv::Size(kernelSize, kernelSize), sigma, 0.0, cv::BORDER_REFLECT_101);
    releaseHeader(pixels);
    return true;
}
