// Row conversion speed: our converter beside OpenCV's convertTo and beside memcpy of the same source
// bytes, for the conversions the file reader and writer use most.
#include <cstdlib>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include "image/pxImageInternal.h"

namespace {

// Image side: 2048, or 256 for a smoke run.
int side() {
    return std::getenv("PXIMAGE_BENCH_SMOKE") != nullptr ? 256 : 2048;
}

// The range factor of the SHORT <-> FLOAT transform.
constexpr double kScale = 256.98823529411766;

// A border-0 image whose plane is also seen as a cv::Mat over the same pixels.
struct BenchImage {
    tag_pxImage *image = nullptr;
    cv::Mat mat;

    BenchImage(int32_t type, int cvType) {
        if (!pxImageConstruct(type, side(), side(), 0, 1, &image))
            std::abort();
        mat = cv::Mat(side(), side(), cvType, image->pixMap[0][0]);
    }
    ~BenchImage() { pxImageDestruct(&image); }
    BenchImage(const BenchImage &) = delete;
    BenchImage &operator=(const BenchImage &) = delete;

    size_t bytes() const { return mat.total() * mat.elemSize(); }
};

// Source pixels: a spread of values over the type's useful range (floating types: -100..66000).
void fillSource(BenchImage &source) {
    cv::RNG rng(12345);
    if (source.mat.depth() == CV_32F || source.mat.depth() == CV_64F)
        rng.fill(source.mat, cv::RNG::UNIFORM, -100.0, 66000.0);
    else if (source.mat.depth() == CV_16U)
        rng.fill(source.mat, cv::RNG::UNIFORM, 0, 65536);
    else
        rng.fill(source.mat, cv::RNG::UNIFORM, 0, 256);
}

struct Pair {
    int32_t srcType, dstType;
    int srcCv, dstCv;
};

constexpr Pair kShortToFloat{SHORT, FLOAT, CV_16U, CV_32F};
constexpr Pair kFloatToShort{FLOAT, SHORT, CV_32F, CV_16U};
constexpr Pair kUbyteToFloat{UBYTE, FLOAT, CV_8U, CV_32F};
constexpr Pair kFloatToUbyte{FLOAT, UBYTE, CV_32F, CV_8U};
constexpr Pair kFloatToInt{FLOAT, INT, CV_32F, CV_32S};
constexpr Pair kDoubleToInt{DOUBLE, INT, CV_64F, CV_32S};
constexpr Pair kDoubleToShort{DOUBLE, SHORT, CV_64F, CV_16U};
constexpr Pair kDoubleToUbyte{DOUBLE, UBYTE, CV_64F, CV_8U};

// Our row converter, one call per row.
void oursRows(benchmark::State &state, Pair pair) {
    BenchImage src(pair.srcType, pair.srcCv), dst(pair.dstType, pair.dstCv);
    fillSource(src);
    for (auto _ : state) {
        for (int y = 0; y < side(); ++y)
            pxImageConvertRow(src.image->pixMap[0][y], static_cast<uint32_t>(side()), pair.srcType,
                              pair.dstType, dst.image->pixMap[0][y]);
        benchmark::DoNotOptimize(dst.image->pixMap[0][0]);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(src.bytes()));
}

// Our pixel-map copy with the SHORT <-> FLOAT transform.
void oursTransform(benchmark::State &state, Pair pair) {
    BenchImage src(pair.srcType, pair.srcCv), dst(pair.dstType, pair.dstCv);
    fillSource(src);
    if (pair.srcType == FLOAT)
        src.mat *= 1.0 / kScale;
    for (auto _ : state) {
        pxImagePixMapConvertCopy(src.image->pixMap[0], side(), side(), pair.srcType, 0, 0, 1, pair.dstType,
                                 &dst.image->pixMap[0]);
        benchmark::DoNotOptimize(dst.image->pixMap[0][0]);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(src.bytes()));
}

// OpenCV's convertTo into the same target pixels, with a scale factor alpha.
void openCv(benchmark::State &state, Pair pair, double alpha) {
    BenchImage src(pair.srcType, pair.srcCv), dst(pair.dstType, pair.dstCv);
    fillSource(src);
    for (auto _ : state) {
        src.mat.convertTo(dst.mat, pair.dstCv, alpha);
        benchmark::DoNotOptimize(dst.mat.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(src.bytes()));
}

// memcpy of the source bytes, the floor for any conversion.
void memcpyBytes(benchmark::State &state, Pair pair) {
    BenchImage src(pair.srcType, pair.srcCv);
    fillSource(src);
    std::vector<unsigned char> dst(src.bytes());
    for (auto _ : state) {
        std::memcpy(dst.data(), src.mat.data, src.bytes());
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(src.bytes()));
}

} // namespace

BENCHMARK_CAPTURE(oursRows, ShortToFloat, kShortToFloat);
BENCHMARK_CAPTURE(openCv, ShortToFloat, kShortToFloat, 1.0);
BENCHMARK_CAPTURE(memcpyBytes, ShortToFloat, kShortToFloat);

BENCHMARK_CAPTURE(oursRows, FloatToShort, kFloatToShort);
BENCHMARK_CAPTURE(openCv, FloatToShort, kFloatToShort, 1.0);
BENCHMARK_CAPTURE(memcpyBytes, FloatToShort, kFloatToShort);

BENCHMARK_CAPTURE(oursTransform, FloatToShortTransform, kFloatToShort);
BENCHMARK_CAPTURE(openCv, FloatToShortTransform, kFloatToShort, kScale);
BENCHMARK_CAPTURE(oursTransform, ShortToFloatTransform, kShortToFloat);
BENCHMARK_CAPTURE(openCv, ShortToFloatTransform, kShortToFloat, 1.0 / kScale);

BENCHMARK_CAPTURE(oursRows, UbyteToFloat, kUbyteToFloat);
BENCHMARK_CAPTURE(openCv, UbyteToFloat, kUbyteToFloat, 1.0);
BENCHMARK_CAPTURE(memcpyBytes, UbyteToFloat, kUbyteToFloat);

BENCHMARK_CAPTURE(oursRows, FloatToUbyte, kFloatToUbyte);
BENCHMARK_CAPTURE(openCv, FloatToUbyte, kFloatToUbyte, 1.0);
BENCHMARK_CAPTURE(oursRows, FloatToInt, kFloatToInt);
BENCHMARK_CAPTURE(openCv, FloatToInt, kFloatToInt, 1.0);

BENCHMARK_CAPTURE(oursRows, DoubleToInt, kDoubleToInt);
BENCHMARK_CAPTURE(openCv, DoubleToInt, kDoubleToInt, 1.0);
BENCHMARK_CAPTURE(oursRows, DoubleToShort, kDoubleToShort);
BENCHMARK_CAPTURE(openCv, DoubleToShort, kDoubleToShort, 1.0);
BENCHMARK_CAPTURE(oursRows, DoubleToUbyte, kDoubleToUbyte);
BENCHMARK_CAPTURE(openCv, DoubleToUbyte, kDoubleToUbyte, 1.0);
