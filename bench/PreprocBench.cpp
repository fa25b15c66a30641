// The preprocessing modes beside the same computation written with OpenCV (cv::blur, cv::sqrBoxFilter,
// cv::log, cv::pow), OpenCV at one thread (argument 1) and at its default (argument -1); the Gaussian bridge
// beside cv::GaussianBlur; img_4_px's blur beside cv::blur. 2048 x 2048 FLOAT, window 15, 256 x 256 in smoke
// mode (PXIMAGE_BENCH_SMOKE).
#include <cmath>
#include <cstdlib>
#include <random>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "BenchSupport.h"
#include "pxImage.h"

namespace {

constexpr int kWindow = 15;

int benchSize() {
    return std::getenv("PXIMAGE_BENCH_SMOKE") != nullptr ? 256 : 2048;
}

// A camera-like float image (values 20..230) as an img_4_px image with its margin, with a fresh copy for
// every run of an in-place mode.
class BenchFimage {
  public:
    BenchFimage() : source_(make()), work_(make()) {
        std::mt19937 rng(3);
        for (int y = 0; y < source_->height; ++y)
            for (int x = 0; x < source_->width; ++x)
                source_->image[y][x] = 20.0f + static_cast<float>(rng() % 2100u) * 0.1f;
    }
    ~BenchFimage() {
        free_image(source_);
        free_image(work_);
    }
    BenchFimage(const BenchFimage &) = delete;
    BenchFimage &operator=(const BenchFimage &) = delete;
    FIMAGE *fresh() {
        fcopy_img(*source_, *work_);
        return work_;
    }
    FIMAGE *source() const { return source_; }
    cv::Mat mat() const {
        const size_t stride = static_cast<size_t>(source_->image[1] - source_->image[0]) * sizeof(float);
        return cv::Mat(source_->height, source_->width, CV_32FC1, source_->image[0], stride).clone();
    }

  private:
    static FIMAGE *make() { return alloc_image(benchSize(), benchSize(), 4, Image_border); }
    FIMAGE *source_;
    FIMAGE *work_;
};

// The same pixels as a FLOAT record.
tag_pxImage *recordOf(const BenchFimage &image) {
    tag_pxImage *record = nullptr;
    pxImageConstruct(FLOAT, image.source()->width, image.source()->height, 0, 1, &record);
    for (int y = 0; y < record->height; ++y)
        for (int x = 0; x < record->width; ++x)
            static_cast<float *>(record->pixMap[0][y])[x] = image.source()->image[y][x];
    return record;
}

void report(benchmark::State &state) {
    const int64_t size = benchSize();
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * size * size);
}

// Local mean and deviation of d = src - mean with OpenCV: the core of several modes.
void cvMeanAndVariance(const cv::Mat &src, cv::Mat &d, cv::Mat &v) {
    cv::Mat mean;
    cv::blur(src, mean, cv::Size(kWindow, kWindow));
    cv::subtract(src, mean, d);
    cv::sqrBoxFilter(d, v, CV_32F, cv::Size(kWindow, kWindow));
}

// ---- pxImagePreproc
// ----------------------------------------------------------------------------------------

void BM_PxPreproc(benchmark::State &state) {
    BenchFimage image;
    for (auto _ : state) {
        FIMAGE *f = image.fresh();
        benchmark::DoNotOptimize(pxImagePreproc(f, kWindow, 128.0f, 20.0f, 1.0f));
    }
    report(state);
}

void BM_CvPreproc(benchmark::State &state) {
    BenchFimage image;
    const cv::Mat src = image.mat();
    cv::Mat d, v, s, out;
    for (auto _ : state) {
        cvMeanAndVariance(src, d, v);
        cv::pow(v, 0.5, s);
        cv::max(s, 1.0, s);
        cv::divide(d, s, out, 20.0);
        out += 128.0;
        benchmark::DoNotOptimize(out.data);
    }
    report(state);
}

// ---- pxImagePreprocAdaptiveLog
// -------------------------------------------------------------------------------

void BM_PxAdaptiveLog(benchmark::State &state) {
    BenchFimage image;
    FIMAGE *scratch = alloc_image(benchSize(), benchSize(), 4, Image_border);
    for (auto _ : state) {
        FIMAGE *f = image.fresh();
        benchmark::DoNotOptimize(pxImagePreprocAdaptiveLog(f, scratch, kWindow, 0, 0.0f));
    }
    free_image(scratch);
    report(state);
}

void BM_CvAdaptiveLog(benchmark::State &state) {
    BenchFimage image;
    const cv::Mat src = image.mat();
    cv::Mat mean, ratio, out;
    for (auto _ : state) {
        cv::blur(src, mean, cv::Size(kWindow, kWindow));
        cv::divide(src, mean, ratio);
        cv::log(ratio, out);
        benchmark::DoNotOptimize(out.data);
    }
    report(state);
}

// ---- pxImagePreprocBounded
// -----------------------------------------------------------------------------------

void BM_PxBounded(benchmark::State &state) {
    BenchFimage image;
    FIMAGE *scratch = alloc_image(benchSize(), benchSize(), 4, Image_border);
    for (auto _ : state) {
        FIMAGE *f = image.fresh();
        benchmark::DoNotOptimize(pxImagePreprocBounded(f, scratch, kWindow, 3.0f, 1.0f, 0, 0.0f));
    }
    free_image(scratch);
    report(state);
}

void BM_CvBounded(benchmark::State &state) {
    BenchFimage image;
    const cv::Mat src = image.mat();
    cv::Mat d, v, s, z;
    for (auto _ : state) {
        cvMeanAndVariance(src, d, v);
        cv::max(v, 1.0, v);
        cv::pow(v, 0.5, s);
        cv::divide(d, s, z);
        cv::min(z, 3.0, z);
        cv::max(z, -3.0, z);
        z *= 127.5 / 3.0;
        benchmark::DoNotOptimize(z.data);
    }
    report(state);
}

// ---- pxImagePreprocLog
// ---------------------------------------------------------------------------------------

void BM_PxLog(benchmark::State &state) {
    BenchFimage image;
    tag_pxImage *record = recordOf(image);
    for (auto _ : state) {
        tag_pxImage *out = pxImagePreprocLog(record, 1.0f);
        benchmark::DoNotOptimize(out);
        pxImageDestruct(&out);
    }
    pxImageDestruct(&record);
    report(state);
}

void BM_CvLog(benchmark::State &state) {
    BenchFimage image;
    const cv::Mat src = image.mat();
    cv::Mat shifted, out;
    for (auto _ : state) {
        double lo, hi;
        cv::minMaxLoc(src, &lo, &hi);
        cv::subtract(src, lo - 1.0, shifted);
        cv::log(shifted, out);
        out *= 255.0 / std::log(hi - lo + 1.0);
        benchmark::DoNotOptimize(out.data);
    }
    report(state);
}

// ---- pxImagePreprocStandard
// ----------------------------------------------------------------------------------

void BM_PxStandard(benchmark::State &state) {
    BenchFimage image;
    tag_pxImage *record = recordOf(image);
    for (auto _ : state) {
        tag_pxImage *out = pxImagePreprocStandard(record, kWindow, 0.0f, 20.0f, 0.5f, 0);
        benchmark::DoNotOptimize(out);
        pxImageDestruct(&out);
    }
    pxImageDestruct(&record);
    report(state);
}

void BM_PxStandardIgnoringSaturation(benchmark::State &state) {
    BenchFimage image;
    tag_pxImage *record = recordOf(image);
    for (auto _ : state) {
        tag_pxImage *out = pxImagePreprocStandard(record, kWindow, 0.0f, 20.0f, 0.5f, 1);
        benchmark::DoNotOptimize(out);
        pxImageDestruct(&out);
    }
    pxImageDestruct(&record);
    report(state);
}

void BM_CvStandard(benchmark::State &state) {
    BenchFimage image;
    const cv::Mat src = image.mat();
    cv::Mat mean, d, v, s, out;
    for (auto _ : state) {
        cv::blur(src, mean, cv::Size(kWindow, kWindow));
        double lo;
        cv::minMaxLoc(mean, &lo);
        cv::subtract(src, mean, d);
        cv::sqrBoxFilter(d, v, CV_32F, cv::Size(kWindow, kWindow));
        cv::pow(v, 0.5, s);
        cv::divide(d, s, out, 20.0);
        cv::scaleAdd(mean - lo, 0.5, out, out);
        benchmark::DoNotOptimize(out.data);
    }
    report(state);
}

// ---- Gaussian bridge and box mean
// ----------------------------------------------------------------------------

void BM_PxGaussianBridge(benchmark::State &state) {
    BenchFimage image;
    for (auto _ : state) {
        FIMAGE *f = image.fresh();
        benchmark::DoNotOptimize(BlurByGaussianFilterUsingOpenCv(f, 13, 3.0));
    }
    report(state);
}

void BM_CvGaussianBlur(benchmark::State &state) {
    BenchFimage image;
    const cv::Mat src = image.mat();
    cv::Mat work;
    for (auto _ : state) {
        src.copyTo(work);
        cv::GaussianBlur(work, work, cv::Size(13, 13), 3.0, 0.0, cv::BORDER_REFLECT_101);
        benchmark::DoNotOptimize(work.data);
    }
    report(state);
}

void BM_PxBlur(benchmark::State &state) {
    BenchFimage image;
    for (auto _ : state) {
        FIMAGE *f = image.fresh();
        benchmark::DoNotOptimize(blur(*f, kWindow));
    }
    report(state);
}

void BM_CvBlur(benchmark::State &state) {
    BenchFimage image;
    const cv::Mat src = image.mat();
    cv::Mat work;
    for (auto _ : state) {
        src.copyTo(work);
        cv::blur(work, work, cv::Size(kWindow, kWindow));
        benchmark::DoNotOptimize(work.data);
    }
    report(state);
}

// Pairs by case; OpenCV's thread count is set by the opencv1 and opencvN rows (bench/BenchSupport.h), and
// the Gaussian bridge, ours but running OpenCV inside, has the one thread every row starts with.
void ms(benchmark::internal::Benchmark *b) {
    b->Unit(benchmark::kMillisecond);
}

const bool kRegistered = [] {
    using namespace pxbench;
    const struct {
        const char *name;
        void (*ours)(benchmark::State &);
        void (*openCv)(benchmark::State &);
    } rows[] = {{"Preproc", BM_PxPreproc, BM_CvPreproc},
                {"AdaptiveLog", BM_PxAdaptiveLog, BM_CvAdaptiveLog},
                {"Bounded", BM_PxBounded, BM_CvBounded},
                {"Log", BM_PxLog, BM_CvLog},
                {"Standard", BM_PxStandard, BM_CvStandard},
                {"StandardIgnoringSaturation", BM_PxStandardIgnoringSaturation, nullptr},
                {"GaussianBlur", BM_PxGaussianBridge, BM_CvGaussianBlur},
                {"Blur", BM_PxBlur, BM_CvBlur}};
    for (const auto &r : rows) {
        ours("preproc", r.name, r.ours)->Apply(ms);
        if (r.openCv)
            forEach(openCv("preproc", r.name, r.openCv), ms);
    }
    return true;
}();

} // namespace
