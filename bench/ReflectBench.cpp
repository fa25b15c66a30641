// Border reflection of a float image beside OpenCV's copyMakeBorder with the matching border type and
// beside a plain memcpy of the image. Reflection writes only the border frame in place, whereas
// copyMakeBorder copies the whole image into a larger one; memcpy is the cost of touching every pixel once.
#include <cstdlib>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include "pxImage.h"

namespace {

constexpr int kFill = 16;

int benchSize() {
    return std::getenv("PXIMAGE_BENCH_SMOKE") != nullptr ? 256 : 2048;
}

// A FLOAT image with a border of kFill pixels and deterministic contents.
struct BenchImage {
    tag_pxImage *image = nullptr;
    explicit BenchImage(int size) {
        if (pxImageConstruct(FLOAT, size, size, kFill, 1, &image) == 0) {
            return;
        }
        float **rows = reinterpret_cast<float **>(image->pixMap[0]);
        for (int y = 0; y < size; ++y) {
            for (int x = 0; x < size; ++x) {
                rows[y][x] = static_cast<float>((x * 7 + y * 13) % 251);
            }
        }
    }
    ~BenchImage() { pxImageDestruct(&image); }
    BenchImage(const BenchImage &) = delete;
    BenchImage &operator=(const BenchImage &) = delete;
    cv::Mat view() const {
        const size_t step = sizeof(float) * static_cast<size_t>(image->width + 2 * image->border);
        return cv::Mat(image->height, image->width, CV_32F, image->pixMap[0][0], step);
    }
};

void BM_pxImageReflect(benchmark::State &state) {
    const int mode = static_cast<int>(state.range(0));
    BenchImage img(benchSize());
    if (img.image == nullptr) {
        state.SkipWithError("image construction failed");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(pxImageReflect(img.image, kFill, mode));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_pxImageReflect)->ArgName("mode")->DenseRange(1, 6);

// Border types of copyMakeBorder that fill as modes 1 (mirror), 3 (replicate), 5 (zero) and 6 (wrap) do.
void BM_cvCopyMakeBorder(benchmark::State &state) {
    const int cvBorder = static_cast<int>(state.range(0));
    BenchImage img(benchSize());
    if (img.image == nullptr) {
        state.SkipWithError("image construction failed");
        return;
    }
    const cv::Mat source = img.view();
    cv::Mat extended;
    for (auto _ : state) {
        cv::copyMakeBorder(source, extended, kFill, kFill, kFill, kFill, cvBorder, cv::Scalar(0));
        benchmark::DoNotOptimize(extended.data);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_cvCopyMakeBorder)
    ->ArgName("cvBorder")
    ->Arg(cv::BORDER_REFLECT_101)
    ->Arg(cv::BORDER_REPLICATE)
    ->Arg(cv::BORDER_CONSTANT)
    ->Arg(cv::BORDER_WRAP);

void BM_memcpyImage(benchmark::State &state) {
    const size_t bytes = sizeof(float) * static_cast<size_t>(benchSize()) * static_cast<size_t>(benchSize());
    std::vector<char> from(bytes, 1), to(bytes);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), bytes);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}
BENCHMARK(BM_memcpyImage);

} // namespace
