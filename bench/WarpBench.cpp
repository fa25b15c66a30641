// Warps, de-interlacing and lens-distortion resampling beside the closest OpenCV function (one thread, and
// OpenCV's default threads as a second row: argument `threads` 1 or 0) and beside memcpy for the copies.
// 2048 x 2048 FLOAT pixels, 256 x 256 in smoke mode (PXIMAGE_BENCH_SMOKE).
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>
#if defined(PXIMAGE_BENCH_HAVE_CALIB3D)
#include <opencv2/calib3d.hpp>
#endif
#include <opencv2/imgproc.hpp>

#include "pxImage.h"

namespace {

int benchSize() {
    return std::getenv("PXIMAGE_BENCH_SMOKE") ? 256 : 2048;
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

// OpenCV with one thread (argument 1) or its default threads (argument 0).
void useThreads(const benchmark::State &state) {
    cv::setNumThreads(state.range(0) == 1 ? 1 : -1);
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
BENCHMARK(BM_PxAffineWarp)->Unit(benchmark::kMillisecond);

void BM_CvWarpAffine(benchmark::State &state) {
    useThreads(state);
    Frame source;
    cv::Mat out;
    const cv::Matx23f m(1.0f + kA[1], kA[2], kA[0], kB[1], 1.0f + kB[2], kB[0]);
    for (auto _ : state) {
        cv::warpAffine(source.mat(), out, m, source.mat().size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP);
        benchmark::DoNotOptimize(out.data);
    }
    report(state, source.bytes());
}
BENCHMARK(BM_CvWarpAffine)->ArgName("threads")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

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
BENCHMARK(BM_PxBilinearWarp)->Unit(benchmark::kMillisecond);

void BM_CvRemapLinear(benchmark::State &state) {
    useThreads(state);
    Frame source;
    Flow flow;
    cv::Mat out;
    for (auto _ : state) {
        cv::remap(source.mat(), out, flow.mapX, flow.mapY, cv::INTER_LINEAR);
        benchmark::DoNotOptimize(out.data);
    }
    report(state, source.bytes());
}
BENCHMARK(BM_CvRemapLinear)->ArgName("threads")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

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
BENCHMARK(BM_PxFixAber)->Unit(benchmark::kMillisecond);

#if defined(PXIMAGE_BENCH_HAVE_CALIB3D)
// The same model for OpenCV: unit focal length, so that normalised coordinates are pixels about the centre.
struct Camera {
    cv::Matx33d matrix;
    cv::Vec4d coefficients;
    Camera()
        : matrix(1, 0, benchSize() * 0.5, 0, 1, benchSize() * 0.5, 0, 0, 1), coefficients(lensK(), 0, 0, 0) {}
};

void BM_CvUndistort(benchmark::State &state) {
    useThreads(state);
    Frame source;
    const Camera camera;
    cv::Mat out;
    for (auto _ : state) {
        cv::undistort(source.mat(), out, camera.matrix, camera.coefficients);
        benchmark::DoNotOptimize(out.data);
    }
    report(state, source.bytes());
}
BENCHMARK(BM_CvUndistort)->ArgName("threads")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

void BM_CvRemapPrecomputedUndistort(benchmark::State &state) {
    useThreads(state);
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
BENCHMARK(BM_CvRemapPrecomputedUndistort)->ArgName("threads")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
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
BENCHMARK(BM_PxAber)->ArgName("n")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

void BM_CvRemapNearestDistort(benchmark::State &state) {
    useThreads(state);
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
BENCHMARK(BM_CvRemapNearestDistort)->ArgName("threads")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

#if defined(PXIMAGE_BENCH_HAVE_CALIB3D)
// The like-for-like of pxImageAber with n = 1: the maps of the forward model computed on every call (as
// pxImageAber computes its positions), then the nearest-pixel remap.
void BM_CvModelMapsAndRemapNearest(benchmark::State &state) {
    useThreads(state);
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
BENCHMARK(BM_CvModelMapsAndRemapNearest)->ArgName("threads")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
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
BENCHMARK(BM_PxTranslationWarpInt)->Unit(benchmark::kMillisecond);

void BM_PxDeInterlace(benchmark::State &state) {
    Frame source, even(FLOAT, benchSize() / 2), odd(FLOAT, benchSize() / 2);
    for (auto _ : state) {
        benchmark::DoNotOptimize(pxImageDeInterlace(source.get(), even.get(), odd.get()));
        benchmark::ClobberMemory();
    }
    report(state, source.bytes());
}
BENCHMARK(BM_PxDeInterlace)->Unit(benchmark::kMillisecond);

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
BENCHMARK(BM_MemcpyFrame)->Unit(benchmark::kMillisecond);

} // namespace
