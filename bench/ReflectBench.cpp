// Border reflection of a float image beside OpenCV's copyMakeBorder with the matching border type and
// beside a plain memcpy of the image. Reflection writes only the border frame in place, whereas
// copyMakeBorder copies the whole image into a larger one; memcpy is the cost of touching every pixel once.
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include "BenchSupport.h"
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

void BM_pxImageReflect(benchmark::State &state, int mode) {
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

// Border types of copyMakeBorder that fill as modes 1 (mirror), 3 (replicate), 5 (zero) and 6 (wrap) do.
void BM_cvCopyMakeBorder(benchmark::State &state, int cvBorder) {
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

// Pairs by case: modes 1 (mirror), 3 (replicate), 5 (zero) and 6 (wrap) beside the border types of
// copyMakeBorder that fill alike; modes 2 and 4 stand alone. memcpy copies the image's pixels.
const bool kRegistered = [] {
    using namespace pxbench;
    for (int mode = 1; mode <= 6; ++mode)
        ours("reflect", "Mode" + std::to_string(mode),
             [mode](benchmark::State &s) { BM_pxImageReflect(s, mode); });
    const std::pair<int, int> borders[] = {{1, cv::BORDER_REFLECT_101},
                                           {3, cv::BORDER_REPLICATE},
                                           {5, cv::BORDER_CONSTANT},
                                           {6, cv::BORDER_WRAP}};
    for (const auto &[mode, border] : borders)
        openCv("reflect", "Mode" + std::to_string(mode),
               [border = border](benchmark::State &s) { BM_cvCopyMakeBorder(s, border); });
    memcpyRow("reflect", "", BM_memcpyImage);
    return true;
}();

} // namespace
