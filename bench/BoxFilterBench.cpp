// Box sums, averages, morphology and windowed minimum beside the closest OpenCV function of the same type
// and window, and beside memcpy of the image as the memory-bound limit. 2048 x 2048 pixels, 256 x 256 in
// smoke mode (PXIMAGE_BENCH_SMOKE).
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include "BenchSupport.h"
#include "pxImage.h"

namespace {

int benchSize() {
    return pxbench::smoke() ? 256 : 2048;
}

int cvDepth(int32_t type) {
    switch (type) {
    case UBYTE:
        return CV_8U;
    case SHORT:
        return CV_16U;
    default:
        return CV_32F;
    }
}

// One image of random pixels (0/1 for morphology) and its OpenCV view.
class BenchImage {
  public:
    BenchImage(int32_t type, bool binary) {
        const int size = benchSize();
        pxImageConstruct(type, size, size, 0, 1, &image_);
        std::mt19937 rng(7);
        for (int y = 0; y < size; ++y)
            for (int x = 0; x < size; ++x) {
                void *row = image_->pixMap[0][y];
                const uint32_t r = rng();
                if (type == UBYTE)
                    static_cast<uint8_t *>(row)[x] = static_cast<uint8_t>(binary ? (r & 1u) : r);
                else if (type == SHORT)
                    static_cast<uint16_t *>(row)[x] = static_cast<uint16_t>(r & 0xFFu);
                else
                    static_cast<float *>(row)[x] = static_cast<float>(r % 1000u) * 0.25f;
            }
    }
    ~BenchImage() { pxImageDestruct(&image_); }
    BenchImage(const BenchImage &) = delete;
    BenchImage &operator=(const BenchImage &) = delete;

    tag_pxImage *get() const { return image_; }
    cv::Mat mat() const {
        return cv::Mat(image_->height, image_->width, cvDepth(image_->type), image_->pixMap[0][0]);
    }
    size_t bytes() const { return mat().total() * mat().elemSize(); }

  private:
    tag_pxImage *image_ = nullptr;
};

void report(benchmark::State &state, const BenchImage &image) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(image.bytes()));
}

void BM_Memcpy(benchmark::State &state, int32_t type) {
    BenchImage src(type, false);
    BenchImage dst(type, false);
    for (auto _ : state) {
        std::memcpy(dst.get()->pixMap[0][0], src.get()->pixMap[0][0], src.bytes());
        benchmark::ClobberMemory();
    }
    report(state, src);
}

void BM_PxBoxSums(benchmark::State &state) {
    BenchImage src(static_cast<int32_t>(state.range(0)), false);
    BenchImage dst(static_cast<int32_t>(state.range(0)), false);
    for (auto _ : state)
        benchmark::DoNotOptimize(pxImageBoxSums(src.get(), static_cast<int32_t>(state.range(1)), dst.get()));
    report(state, src);
}

void BM_CvBoxFilter(benchmark::State &state) {
    BenchImage src(static_cast<int32_t>(state.range(0)), false);
    const cv::Mat in = src.mat();
    cv::Mat out;
    const int n = static_cast<int>(state.range(1));
    for (auto _ : state)
        cv::boxFilter(in, out, -1, cv::Size(n, n), cv::Point(-1, -1), false, cv::BORDER_CONSTANT);
    report(state, src);
}

void BM_PxBoxAverage(benchmark::State &state) {
    BenchImage src(FLOAT, false);
    BenchImage dst(FLOAT, false);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            pxImageBoxAverage(src.get(), static_cast<int32_t>(state.range(0)), dst.get()));
    report(state, src);
}

void BM_CvBlur(benchmark::State &state) {
    BenchImage src(FLOAT, false);
    const cv::Mat in = src.mat();
    cv::Mat out;
    const int n = static_cast<int>(state.range(0));
    for (auto _ : state)
        cv::blur(in, out, cv::Size(n, n), cv::Point(-1, -1), cv::BORDER_CONSTANT);
    report(state, src);
}

void BM_PxDilate(benchmark::State &state) {
    BenchImage src(UBYTE, true);
    BenchImage dst(UBYTE, false);
    for (auto _ : state)
        benchmark::DoNotOptimize(pxImageDilate(src.get(), static_cast<int32_t>(state.range(0)), dst.get()));
    report(state, src);
}

void BM_PxErode(benchmark::State &state) {
    BenchImage src(UBYTE, true);
    BenchImage dst(UBYTE, false);
    for (auto _ : state)
        benchmark::DoNotOptimize(pxImageErode(src.get(), static_cast<int32_t>(state.range(0)), dst.get()));
    report(state, src);
}

cv::Mat square(int n) {
    return cv::getStructuringElement(cv::MORPH_RECT, cv::Size(n, n));
}

void BM_CvDilate(benchmark::State &state) {
    BenchImage src(UBYTE, true);
    const cv::Mat in = src.mat();
    const cv::Mat kernel = square(2 * static_cast<int>(state.range(0)) + 1);
    cv::Mat out;
    for (auto _ : state)
        cv::dilate(in, out, kernel, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT, cv::Scalar(0));
    report(state, src);
}

void BM_CvErode(benchmark::State &state) {
    BenchImage src(UBYTE, true);
    const cv::Mat in = src.mat();
    const cv::Mat kernel = square(2 * static_cast<int>(state.range(0)) + 1);
    cv::Mat out;
    for (auto _ : state)
        cv::erode(in, out, kernel, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT, cv::Scalar(0));
    report(state, src);
}

void BM_PxBoxMin(benchmark::State &state) {
    BenchImage src(FLOAT, false);
    BenchImage dst(FLOAT, false);
    for (auto _ : state)
        benchmark::DoNotOptimize(pxImageBoxMin(src.get(), static_cast<int32_t>(state.range(0)), dst.get()));
    report(state, src);
}

void BM_CvErodeFloat(benchmark::State &state) {
    BenchImage src(FLOAT, false);
    const cv::Mat in = src.mat();
    const cv::Mat kernel = square(static_cast<int>(state.range(0)));
    cv::Mat out;
    for (auto _ : state)
        cv::erode(in, out, kernel);
    report(state, src);
}

void sumArgs(benchmark::internal::Benchmark *b) {
    for (int type : {UBYTE, SHORT, FLOAT})
        for (int n : {3, 15, 63})
            b->Args({type, n});
}

// Pairs by case: box sums beside cv::boxFilter (type, window), the average beside cv::blur (window),
// morphology beside dilate and erode (radius), the windowed minimum beside the float erode (window). The
// memcpy row copies the FLOAT frame (UBYTE and SHORT rows move a quarter and half of its bytes).
void ms(benchmark::internal::Benchmark *b) {
    b->Unit(benchmark::kMillisecond);
}

const bool kRegistered = [] {
    using namespace pxbench;
    memcpyRow("box", "", [](benchmark::State &s) { BM_Memcpy(s, FLOAT); })->Apply(ms);
    ours("box", "BoxSums", BM_PxBoxSums)->Apply(sumArgs)->Apply(ms);
    forEach(openCv("box", "BoxSums", BM_CvBoxFilter), [](auto *b) { b->Apply(sumArgs)->Apply(ms); });
    ours("box", "BoxAverage", BM_PxBoxAverage)->Arg(3)->Arg(15)->Arg(63)->Apply(ms);
    forEach(openCv("box", "BoxAverage", BM_CvBlur), [](auto *b) { b->Arg(3)->Arg(15)->Arg(63)->Apply(ms); });
    ours("box", "Dilate", BM_PxDilate)->Arg(1)->Arg(7)->Apply(ms);
    forEach(openCv("box", "Dilate", BM_CvDilate), [](auto *b) { b->Arg(1)->Arg(7)->Apply(ms); });
    ours("box", "Erode", BM_PxErode)->Arg(1)->Arg(7)->Apply(ms);
    forEach(openCv("box", "Erode", BM_CvErode), [](auto *b) { b->Arg(1)->Arg(7)->Apply(ms); });
    ours("box", "BoxMin", BM_PxBoxMin)->Arg(3)->Arg(9)->Apply(ms);
    forEach(openCv("box", "BoxMin", BM_CvErodeFloat), [](auto *b) { b->Arg(3)->Arg(9)->Apply(ms); });
    return true;
}();

} // namespace
