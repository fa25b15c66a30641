// Module pxImagePreproc: photometric normalisation of camera images for correspondence search. Each mode
// compares every pixel with a local mean (and most with a local standard deviation) over a square window
// and rescales the result. The four modes here work in place on img_4_px float images; the two record
// modes are in pxImagePreprocRecord.cpp.
#include <cmath>
#include <cstdint>

#include <opencv2/core.hpp>

#include "pxImage.h"
#include "image/pxImageLog.h"
#include "pxImagePreprocInternal.h"

namespace {

constexpr const char *kModule = "pxImagePreproc";

// Settings of the adaptive log mode, read on its first call.
struct AdaptiveLogSettings {
    bool read = false;
    int32_t useGaussianBlur = 0;
    int32_t gaussianSize = 13;
    double gaussianSigma = 3.0;
};
AdaptiveLogSettings adaptiveLogSettings;

// Settings of the bounded mode, read on its first call.
struct BoundedSettings {
    bool read = false;
    int32_t gaussianSize = 0;
    double gaussianSigma = 2.0;
};
BoundedSettings boundedSettings;

void readAdaptiveLogSettings() {
    if (adaptiveLogSettings.read)
        return;
    pxEnvGetParam2int("useGaussianBlur", 0, &adaptiveLogSettings.useGaussianBlur);
    pxEnvGetParam2int("corresPrepInitialFilterWinSize", 13, &adaptiveLogSettings.gaussianSize);
    pxEnvGetParam2double("corresPrepInitialSigma", 3.0, &adaptiveLogSettings.gaussianSigma);
    adaptiveLogSettings.read = true;
}

void readBoundedSettings() {
    if (boundedSettings.read)
        return;
    pxEnvGetParam2int("corresPrepFilterWinSize", 0, &boundedSettings.gaussianSize);
    pxEnvGetParam2double("corresPrepSigma", 2.0, &boundedSettings.gaussianSigma);
    boundedSettings.read = true;
}

bool rowsPresent(const FIMAGE *image) {
    if (!image || !image->image || image->width < 1 || image->height < 1)
        return false;
    for (int32_t y = 0; y < image->height; ++y)
        if (!image->image[y])
            return false;
    return true;
}

// A usable image, and a second one of the same size when given.
bool checkImages(const FIMAGE *image, const FIMAGE *second, bool needSecond) {
    if (!rowsPresent(image) || (needSecond && !rowsPresent(second))) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "missing image or image row");
        return false;
    }
    if (needSecond && (second->width != image->width || second->height != image->height)) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "images of %d x %d and %d x %d differ in size",
                 image->width, image->height, second->width, second->height);
        return false;
    }
    return true;
}

bool checkWindow(int32_t window) {
    if (window < 1) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "window %d below 1", window);
        return false;
    }
    return true;
}

// The Gaussian bridge with OpenCV's refusals (even or negative kernel size from the settings) reported
// here, so that no exception crosses the C interface.
bool gaussianMean(FIMAGE *image, int32_t size, double sigma) {
    try {
        return BlurByGaussianFilterUsingOpenCv(image, size, sigma);
    } catch (const cv::Exception &e) {
        PX_ERROR(kModule, PX_ERR_INVALID_ARGUMENT, "Gaussian blur of size %d, sigma %g refused: %s", size,
                 sigma, e.err.c_str());
        return false;
    }
}

// Applies `rule(image pixel, scratch pixel)` to every pixel of two images of the same size.
template <class Rule> void forEachPixelPair(FIMAGE *image, FIMAGE *scratch, Rule rule) {
    const int32_t width = image->width;
    const int32_t height = image->height;
    for (int32_t y = 0; y < height; ++y) {
        float *a = image->image[y];
        float *b = scratch->image[y];
        for (int32_t x = 0; x < width; ++x)
            rule(a[x], b[x]);
    }
}

// image := d = image - mean, scratch := d^2.
void centre(FIMAGE *image, FIMAGE *scratch) {
    forEachPixelPair(image, scratch, [](float &p, float &s) {
        const float d = p - s;
        p = d;
        s = d * d;
    });
}

// Local mean of the bounded mode into scratch: box or Gaussian as the settings say.
bool boundedMean(FIMAGE *scratch, int32_t window) {
    if (boundedSettings.gaussianSize == 0)
        return blur(*scratch, window) != 0;
    return gaussianMean(scratch, boundedSettings.gaussianSize, boundedSettings.gaussianSigma);
}

uint32_t boundedPlain(FIMAGE *image, FIMAGE *scratch, int32_t window, float bound, float minSigma, float k) {
    if (!boundedMean(scratch, window)) {
        PX_TRACE(kModule);
        return 0;
    }
    centre(image, scratch);
    if (!boundedMean(scratch, window)) {
        PX_TRACE(kModule);
        return 0;
    }
    const float floor = minSigma * minSigma;
    forEachPixelPair(image, scratch, [=](float &p, float &v) {
        float z = p / std::sqrt(v < floor ? floor : v);
        z = z < bound ? z : bound;
        z = z > -bound ? z : -bound;
        p = z * k;
    });
    return 1;
}

uint32_t boundedSaturated(FIMAGE *image, FIMAGE *scratch, int32_t window, float bound, float minSigma,
                          float k, float level) {
    if (!blurIgnoreSaturation(*scratch, window, level, 0, 0, 0, 0)) {
        PX_TRACE(kModule);
        return 0;
    }
    forEachPixelPair(image, scratch, [=](float &p, float &s) {
        const bool saturated = p >= level;
        const float d = p - s;
        p = saturated ? level : d;
        s = saturated ? level : d * d;
    });
    if (!blurIgnoreSaturation(*scratch, window, level, 0, 0, 0, 0)) {
        PX_TRACE(kModule);
        return 0;
    }
    const float floor = minSigma * minSigma;
    // Both quotients are formed and one is selected, so that the loop has no branch and vectorises.
    forEachPixelPair(image, scratch, [=](float &p, float &v) {
        const float flat = p / minSigma;
        const float scaled = p / (v * pxpre::fastReciprocalSqrt(v));
        float z = v <= floor ? flat : scaled;
        z = z < bound ? z : bound;
        z = z > -bound ? z : -bound;
        p = p < level ? z * k : 255.0f;
    });
    return 1;
}

} // namespace

void pxpre::forgetSettings() {
    adaptiveLogSettings = AdaptiveLogSettings();
    boundedSettings = BoundedSettings();
}

uint32_t pxImagePreproc(FIMAGE *image, int32_t window, float offset, float gain, float minSigma) {
    if (!checkImages(image, nullptr, false) || !checkWindow(window)) {
        PX_TRACE(kModule);
        return 0;
    }
    FIMAGE *scratch = alloc_image(image->width, image->height, 4, Image_border);
    if (!scratch) {
        PX_SEND_ERROR(kModule, PX_ERR_SCRATCH_ALLOC);
        return 0;
    }
    fcopy_img(*image, *scratch);
    // A failing blur returns without releasing the scratch image, as the mode always has.
    if (!blur(*scratch, window)) {
        PX_TRACE(kModule);
        return 0;
    }
    centre(image, scratch);
    if (!blur(*scratch, window)) {
        PX_TRACE(kModule);
        return 0;
    }
    const float floor = minSigma * minSigma;
    // Both quotients are formed and one is selected, so that the loop has no branch and vectorises.
    forEachPixelPair(image, scratch, [=](float &p, float &v) {
        const float scaled = p / (v * pxpre::fastReciprocalSqrt(v));
        const float flat = p / minSigma;
        p = gain * (v > floor ? scaled : flat) + offset;
    });
    free_image(scratch);
    return 1;
}

uint32_t pxImagePreprocAdaptiveLog(FIMAGE *image, FIMAGE *scratch, int32_t window, int32_t ignoreSaturation,
                                   float saturationLevel) {
    readAdaptiveLogSettings();
    if (!checkImages(image, scratch, true)) {
        PX_TRACE(kModule);
        return 0;
    }
    fcopy_img(*image, *scratch);
    bool meanMade;
    if (ignoreSaturation)
        meanMade = blurIgnoreSaturation(*scratch, window, saturationLevel, 0, 0, 0, 0) != 0;
    else if (adaptiveLogSettings.useGaussianBlur)
        meanMade = gaussianMean(scratch, adaptiveLogSettings.gaussianSize, adaptiveLogSettings.gaussianSigma);
    else
        meanMade = blur(*scratch, window) != 0;
    if (!meanMade) {
        PX_TRACE(kModule);
        return 0;
    }
    if (ignoreSaturation)
        forEachPixelPair(image, scratch, [=](float &p, float &m) {
            if (p < saturationLevel)
                p = std::log(p / m);
        });
    else
        forEachPixelPair(image, scratch, [](float &p, float &m) { p = std::log(p / m); });
    return 1;
}

uint32_t pxImagePreprocBounded(FIMAGE *image, FIMAGE *scratch, int32_t window, float bound, float minSigma,
                               int32_t ignoreSaturation, float saturationLevel) {
    readBoundedSettings();
    if (!(bound >= 1.0f) || !checkImages(image, scratch, true)) {
        PX_TRACE(kModule);
        return 0;
    }
    const float k = static_cast<float>(127.5 / static_cast<double>(bound));
    fcopy_img(*image, *scratch);
    const uint32_t done = ignoreSaturation
                              ? boundedSaturated(image, scratch, window, bound, minSigma, k, saturationLevel)
                              : boundedPlain(image, scratch, window, bound, minSigma, k);
    if (!done)
        PX_TRACE(kModule);
    return done;
}

void pxImagePreprocWidenSaturation(FIMAGE *image, FIMAGE *reference, float saturationLevel,
                                   int32_t copyFirst) {
    if (!checkImages(image, reference, true)) {
        PX_TRACE(kModule);
        return;
    }
    if (copyFirst)
        fcopy_img(*image, *reference);
    float *const *out = image->image;
    const float *const *ref = reference->image;
    for (int32_t y = 1; y < image->height - 1; ++y) {
        for (int32_t x = 1; x < image->width - 1; ++x) {
            if (ref[y][x] >= saturationLevel) {
                out[y + 1][x] = saturationLevel;
                out[y - 1][x] = saturationLevel;
                out[y][x + 1] = saturationLevel;
                out[y][x - 1] = saturationLevel;
            }
        }
    }
}
