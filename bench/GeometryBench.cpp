// Reduction by two beside OpenCV's pyrDown (one thread, and OpenCV's default threads), and the cut
// beside memcpy of the same bytes. 2048 x 2048 FLOAT, 256 x 256 in smoke mode (PXIMAGE_BENCH_SMOKE).
#include <cstdlib>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "BenchSupport.h"
#include "pxImage.h"

namespace {

const float kBinomial[3] = {0.375f, 0.25f, 0.0625f};

int benchSize() {
    return std::getenv("PXIMAGE_BENCH_SMOKE") ? 256 : 2048;
}

// A FLOAT image of deterministic pixels.
class BenchImage {
  public:
    BenchImage(int width, int height) {
        if (!pxImageConstruct(FLOAT, width, height, 0, 1, &image_))
            return;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                static_cast<float *>(image_->pixMap[0][y])[x] = float((x * 7 + y * 13) % 251);
    }
    ~BenchImage() { pxImageDestruct(&image_); }
    BenchImage(const BenchImage &) = delete;
    BenchImage &operator=(const BenchImage &) = delete;
    tag_pxImage *get() const { return image_; }

  private:
    tag_pxImage *image_ = nullptr;
};

void BM_pxImageReduce(benchmark::State &state) {
    const int size = benchSize();
    BenchImage source(size, size), target((size + 1) / 2, (size + 1) / 2);
    tag_pxImage *t = target.get();
    for (auto _ : state) {
        benchmark::DoNotOptimize(pxImageReduce(source.get(), &t, kBinomial));
        benchmark::ClobberMemory();
    }
}

void BM_cvPyrDown(benchmark::State &state) {
    const int size = benchSize();
    BenchImage source(size, size);
    const cv::Mat in(size, size, CV_32F, source.get()->pixMap[0][0]);
    cv::Mat out;
    for (auto _ : state) {
        cv::pyrDown(in, out);
        benchmark::DoNotOptimize(out.data);
        benchmark::ClobberMemory();
    }
}

// A size x size cut at (16, 16) of a larger image, same type; and the cut into SHORT with the transform.
void BM_pxImageCut(benchmark::State &state, bool toShort) {
    const int size = benchSize();
    BenchImage source(size + 32, size + 32);
    tag_pxImage *target = nullptr;
    pxImageConstruct(toShort ? SHORT : FLOAT, size, size, 0, 1, &target);
    for (auto _ : state) {
        benchmark::DoNotOptimize(pxImageCutWithTransform(source.get(), 16, 16, 1, target));
        benchmark::ClobberMemory();
    }
    pxImageDestruct(&target);
}

void BM_memcpyCutBytes(benchmark::State &state) {
    const size_t bytes = sizeof(float) * size_t(benchSize()) * size_t(benchSize());
    std::vector<char> from(bytes, 1), to(bytes);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), bytes);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
}

// Pairs by case: the reduction beside pyrDown; the cuts stand alone. memcpy copies the FLOAT frame.
void ms(benchmark::internal::Benchmark *b) {
    b->Unit(benchmark::kMillisecond);
}

const bool kRegistered = [] {
    using namespace pxbench;
    ours("geometry", "Reduce", BM_pxImageReduce)->Apply(ms);
    forEach(openCv("geometry", "Reduce", BM_cvPyrDown), ms);
    ours("geometry", "Cut", [](benchmark::State &s) { BM_pxImageCut(s, false); })->Apply(ms);
    ours("geometry", "CutToShort", [](benchmark::State &s) { BM_pxImageCut(s, true); })->Apply(ms);
    memcpyRow("geometry", "", BM_memcpyCutBytes)->Apply(ms);
    return true;
}();

} // namespace
