// Row conversion speed: our converter beside OpenCV's convertTo and beside memcpy of the same source
// bytes, for the conversions the file reader and writer use most.
#include <cstdlib>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include "BenchSupport.h"
#include "image/pxImageInternal.h"

namespace {

// Image side: 2048, or 256 for a smoke run.
int side() {
    return pxbench::smoke() ? 256 : 2048;
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
void openCvConvert(benchmark::State &state, Pair pair, double alpha) {
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

const bool kRegistered = [] {
    using namespace pxbench;
    ours("convert", "ShortToFloat", [](benchmark::State &s) { oursRows(s, kShortToFloat); });
    openCv("convert", "ShortToFloat", [](benchmark::State &s) { openCvConvert(s, kShortToFloat, 1.0); });
    memcpyRow("convert", "ShortToFloat", [](benchmark::State &s) { memcpyBytes(s, kShortToFloat); });

    ours("convert", "FloatToShort", [](benchmark::State &s) { oursRows(s, kFloatToShort); });
    openCv("convert", "FloatToShort", [](benchmark::State &s) { openCvConvert(s, kFloatToShort, 1.0); });
    memcpyRow("convert", "FloatToShort", [](benchmark::State &s) { memcpyBytes(s, kFloatToShort); });

    ours("convert", "FloatToShortTransform", [](benchmark::State &s) { oursTransform(s, kFloatToShort); });
    openCv("convert", "FloatToShortTransform",
           [](benchmark::State &s) { openCvConvert(s, kFloatToShort, kScale); });
    ours("convert", "ShortToFloatTransform", [](benchmark::State &s) { oursTransform(s, kShortToFloat); });
    openCv("convert", "ShortToFloatTransform",
           [](benchmark::State &s) { openCvConvert(s, kShortToFloat, 1.0 / kScale); });

    ours("convert", "UbyteToFloat", [](benchmark::State &s) { oursRows(s, kUbyteToFloat); });
    openCv("convert", "UbyteToFloat", [](benchmark::State &s) { openCvConvert(s, kUbyteToFloat, 1.0); });
    memcpyRow("convert", "UbyteToFloat", [](benchmark::State &s) { memcpyBytes(s, kUbyteToFloat); });

    ours("convert", "FloatToUbyte", [](benchmark::State &s) { oursRows(s, kFloatToUbyte); });
    openCv("convert", "FloatToUbyte", [](benchmark::State &s) { openCvConvert(s, kFloatToUbyte, 1.0); });
    ours("convert", "FloatToInt", [](benchmark::State &s) { oursRows(s, kFloatToInt); });
    openCv("convert", "FloatToInt", [](benchmark::State &s) { openCvConvert(s, kFloatToInt, 1.0); });

    ours("convert", "DoubleToInt", [](benchmark::State &s) { oursRows(s, kDoubleToInt); });
    openCv("convert", "DoubleToInt", [](benchmark::State &s) { openCvConvert(s, kDoubleToInt, 1.0); });
    ours("convert", "DoubleToShort", [](benchmark::State &s) { oursRows(s, kDoubleToShort); });
    openCv("convert", "DoubleToShort", [](benchmark::State &s) { openCvConvert(s, kDoubleToShort, 1.0); });
    ours("convert", "DoubleToUbyte", [](benchmark::State &s) { oursRows(s, kDoubleToUbyte); });
    openCv("convert", "DoubleToUbyte", [](benchmark::State &s) { openCvConvert(s, kDoubleToUbyte, 1.0); });
    return true;
}();
