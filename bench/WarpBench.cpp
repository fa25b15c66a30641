// Warps, de-interlacing and lens-distortion resampling beside the closest OpenCV function and beside memcpy
// for the copies; rows named warp/<variant>/<case> (bench/BenchSupport.h). The OpenCV rows
// "...WithMapsReady" time the remap alone, with its maps computed once outside the loop. 2048 x 2048 FLOAT
// pixels, 256 x 256 in smoke mode (PXIMAGE_BENCH_SMOKE).
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>
#if defined(PXIMAGE_BENCH_HAVE_CALIB3D)
#include <opencv2/calib3d.hpp>
#endif
#include <opencv2/imgproc.hpp>

#include "BenchSupport.h"
#include "pxImage.h"

namespace {

int benchSize() {
    return pxbench::smoke() ? 256 : 2048;
}

// A FLOAT image of smooth contents with a border of 3 (the masked warp's minimum), and its OpenCV view.
class Frame {
  public:
    explicit Frame(int32_t type = FLOAT, int32_t height = benchSize()) {
        const int size = benchSize();
        pxImageConstruct(type, size, height, 3, 1, &image_);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < size; ++x) {
                const float v = 100.0f + 50.0f * std::sin(x * 0.05f) * std::cos(y * 0.03f);
                if (type == FLOAT)
                    static_cast<float *>(image_->pixMap[0][y])[x] = v;
                else
                    static_cast<uint8_t *>(image_->pixMap[0][y])[x] = static_cast<uint8_t>(v);
            }
    }
    ~Frame() { pxImageDestruct(&image_); }
    Frame(const Frame &) = delete;
    Frame &operator=(const Frame &) = delete;
    tag_pxImage *get() const { return image_; }
    cv::Mat mat() const {
        const size_t step = sizeof(float) * static_cast<size_t>(image_->width + 2 * image_->border);
        return cv::Mat(image_->height, image_->width, CV_32F, image_->pixMap[0][0], step);
    }
    size_t bytes() const { return sizeof(float) * static_cast<size_t>(image_->width) * image_->height; }

  private:
    tag_pxImage *image_ = nullptr;
};

void ms(benchmark::internal::Benchmark *b) {
    b->Unit(benchmark::kMillisecond);
}

// Registers an ours row, or the OpenCV rows (opencv1, and opencvN when asked for), with millisecond units.
bool ours(const char *name, void (*body)(benchmark::State &), int arg = -1) {
    benchmark::internal::Benchmark *b = pxbench::ours("warp", name, body)->Apply(ms);
    if (arg >= 0)
        b->Arg(arg);
    return true;
}
bool openCv(const char *name, void (*body)(benchmark::State &), int arg = -1) {
    pxbench::forEach(pxbench::openCv("warp", name, body), [arg](benchmark::internal::Benchmark *b) {
        b->Apply(ms);
        if (arg >= 0)
            b->Arg(arg);
    });
    return true;
}

void report(benchmark::State &state, size_t bytes) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

// A small rotation and shear with a shift: every interior pixel is sampled, the corners fall outside.
constexpr float kA[3] = {12.5f, 0.01f, -0.02f};
constexpr float kB[3] = {-7.25f, 0.015f, 0.005f};

void BM_PxAffineWarp(benchmark::State &state) {
    Frame source, target;
    tag_pxImage *t = target.get();
    for (auto _ : state) {
        float a[3] = {kA[0], kA[1], kA[2]}, b[3] = {kB[0], kB[1], kB[2]};
        benchmark::DoNotOptimize(pxImageAffineWarp(source.get(), a, b, 1.0f, &t));
        benchmark::ClobberMemory();
    }
    report(state, source.bytes());
}
const bool kAffineWarp = ours("AffineWarp", BM_PxAffineWarp);

void BM_CvWarpAffine(benchmark::State &state) {
    Frame source;
    cv::Mat out;
    const cv::Matx23f m(1.0f + kA[1], kA[2], kA[0], kB[1], 1.0f + kB[2], kB[0]);
    for (auto _ : state) {
        cv::warpAffine(source.mat(), out, m, source.mat().size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP);
        benchmark::DoNotOptimize(out.data);
    }
    report(state, source.bytes());
}
const bool kCvAffineWarp = openCv("AffineWarp", BM_CvWarpAffine);

// Displacement maps of a smooth flow of up to 3 pixels.
struct Flow {
    Frame first, second;
    cv::Mat mapX, mapY;
    Flow() {
        const int size = benchSize();
        mapX.create(size, size, CV_32F);
        mapY.create(size, size, CV_32F);
        for (int y = 0; y < size; ++y)
            for (int x = 0; x < size; ++x) {
                const float fx = 3.0f * std::sin(y * 0.01f), fy = 2.0f * std::cos(x * 0.013f);
                static_cast<float *>(first.get()->pixMap[0][y])[x] = fx;
                static_cast<float *>(second.get()->pixMap[0][y])[x] = fy;
                mapX.at<float>(y, x) = x + fx;
                mapY.at<float>(y, x) = y + fy;
            }
    }
};

void BM_PxBilinearWarp(benchmark::State &state) {
    Frame source, target;
    Flow flow;
    tag_pxImage *t = target.get();
    for (auto _ : state) {
        benchmark::DoNotOptimize(pxImageBilinearWarp(source.get(), flow.first.get(), flow.second.get(), &t));
        benchmark::ClobberMemory();
    }
    report(state, source.bytes());
}
const bool kBilinearWarp = ours("BilinearWarp", BM_PxBilinearWarp);

void BM_CvRemapLinear(benchmark::State &state) {
    Frame source;
    Flow flow;
    cv::Mat out;
    for (auto _ : state) {
        cv::remap(source.mat(), out, flow.mapX, flow.mapY, cv::INTER_LINEAR);
        benchmark::DoNotOptimize(out.data);
    }
    report(state, source.bytes());
}
const bool kCvBilinearWarp = openCv("BilinearWarp", BM_CvRemapLinear);

// ---- Lens distortion --------------------------------------------------------------------------------------

// A radial coefficient that moves the corners of the frame by about 1 % of the radius.
double lensK() {
    const double corner = benchSize() * 0.5 * std::sqrt(2.0);
    return 0.01 / (corner * corner);
}

void BM_PxFixAber(benchmark::State &state) {
    Frame image;
    for (auto _ : state) {
        // In place: the image is resampled again each round, which costs the same.
        benchmark::DoNotOptimize(pxImageFixAber(image.get(), lensK(), -1.0, -1.0));
        benchmark::ClobberMemory();
    }
    report(state, image.bytes());
}
const bool kFixAber = ours("FixAber", BM_PxFixAber);

#if defined(PXIMAGE_BENCH_HAVE_CALIB3D)
// The same model for OpenCV: unit focal length, so that normalised coordinates are pixels about the centre.
struct Camera {
    cv::Matx33d matrix;
    cv::Vec4d coefficients;
    Camera()
        : matrix(1, 0, benchSize() * 0.5, 0, 1, benchSize() * 0.5, 0, 0, 1), coefficients(lensK(), 0, 0, 0) {}
};

void BM_CvUndistort(benchmark::State &state) {
    Frame source;
    const Camera camera;
    cv::Mat out;
    for (auto _ : state) {
        cv::undistort(source.mat(), out, camera.matrix, camera.coefficients);
        benchmark::DoNotOptimize(out.data);
    }
    report(state, source.bytes());
}
const bool kCvFixAber = openCv("FixAber", BM_CvUndistort);

void BM_CvRemapPrecomputedUndistort(benchmark::State &state) {
    Frame source;
    const Camera camera;
    cv::Mat mapX, mapY, out;
    cv::initUndistortRectifyMap(camera.matrix, camera.coefficients, cv::Mat(), camera.matrix,
                                source.mat().size(), CV_32FC1, mapX, mapY);
    for (auto _ : state) {
        cv::remap(source.mat(), out, mapX, mapY, cv::INTER_LINEAR);
        benchmark::DoNotOptimize(out.data);
    }
    report(state, source.bytes());
}
const bool kCvFixAberMapsReady = openCv("FixAberWithMapsReady", BM_CvRemapPrecomputedUndistort);
#endif

void BM_PxAber(benchmark::State &state) {
    const int32_t n = static_cast<int32_t>(state.range(0));
    Frame image;
    for (auto _ : state) {
        benchmark::DoNotOptimize(pxImageAber(image.get(), lensK(), 0, 0, 0, 0, -1.0, -1.0, n));
        benchmark::ClobberMemory();
    }
    report(state, image.bytes());
}
const bool kAber1 = ours("Aber", BM_PxAber, 1);
const bool kAber2 = ours("Aber", BM_PxAber, 2);

void BM_CvRemapNearestDistort(benchmark::State &state) {
    Frame source;
    const int size = benchSize();
    const double c = size * 0.5, k = lensK();
    cv::Mat mapX(size, size, CV_32F), mapY(size, size, CV_32F), out;
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            const double dx = x - c, dy = y - c, f = 1.0 + k * (dx * dx + dy * dy);
            mapX.at<float>(y, x) = static_cast<float>(c + dx * f);
            mapY.at<float>(y, x) = static_cast<float>(c + dy * f);
        }
    for (auto _ : state) {
        cv::remap(source.mat(), out, mapX, mapY, cv::INTER_NEAREST);
        benchmark::DoNotOptimize(out.data);
    }
    report(state, source.bytes());
}
const bool kCvAberMapsReady = openCv("AberWithMapsReady", BM_CvRemapNearestDistort, 1);

#if defined(PXIMAGE_BENCH_HAVE_CALIB3D)
// The like-for-like of pxImageAber with n = 1: the maps of the forward model computed on every call (as
// pxImageAber computes its positions), then the nearest-pixel remap.
void BM_CvModelMapsAndRemapNearest(benchmark::State &state) {
    Frame source;
    const Camera camera;
    cv::Mat mapX, mapY, out;
    for (auto _ : state) {
        cv::initUndistortRectifyMap(camera.matrix, camera.coefficients, cv::Mat(), camera.matrix,
                                    source.mat().size(), CV_32FC1, mapX, mapY);
        cv::remap(source.mat(), out, mapX, mapY, cv::INTER_NEAREST);
        benchmark::DoNotOptimize(out.data);
    }
    report(state, source.bytes());
}
const bool kCvAber = openCv("Aber", BM_CvModelMapsAndRemapNearest, 1);
#endif

// ---- Copies
// ------------------------------------------------------------------------------------------------

void BM_PxTranslationWarpInt(benchmark::State &state) {
    Frame source;
    for (auto _ : state) {
        tag_pxImage *target = nullptr;
        benchmark::DoNotOptimize(pxImageTranslationWarpInt(source.get(), 3, -2, &target));
        pxImageDestruct(&target);
    }
    report(state, source.bytes());
}
const bool kTranslationWarpInt = ours("TranslationWarpInt", BM_PxTranslationWarpInt);

void BM_PxDeInterlace(benchmark::State &state) {
    Frame source, even(FLOAT, benchSize() / 2), odd(FLOAT, benchSize() / 2);
    for (auto _ : state) {
        benchmark::DoNotOptimize(pxImageDeInterlace(source.get(), even.get(), odd.get()));
        benchmark::ClobberMemory();
    }
    report(state, source.bytes());
}
const bool kDeInterlace = ours("DeInterlace", BM_PxDeInterlace);

void BM_MemcpyFrame(benchmark::State &state) {
    const size_t bytes = sizeof(float) * static_cast<size_t>(benchSize()) * benchSize();
    std::vector<char> from(bytes, 1), to(bytes);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), bytes);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    report(state, bytes);
}
const bool kMemcpy = pxbench::memcpyRow("warp", "", BM_MemcpyFrame)->Apply(ms) != nullptr;

} // namespace
