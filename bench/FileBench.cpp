// Image file speed: writing and reading a 16-bit camera frame in each of our encodings (plain, CSHORT,
// SHORT12) and as plain FLOAT, from and to the page cache, beside memcpy of the same image bytes and beside
// OpenCV's uncompressed TIFF and PNG of the same image; and the CSHORT compressor alone. Every rate is in
// MB/s (10^6 bytes) of image bytes in memory; "file/image" is the file's size over the image bytes.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "BenchSupport.h"
#include "file/pxImageFileInternal.h"

namespace {

// Image side: 2048, or 256 for a smoke run.
int frameSide() {
    return pxbench::smoke() ? 256 : 2048;
}

// Files live in the page cache: /dev/shm when there is one, else /tmp.
std::string benchFile(const std::string &name) {
    const std::string dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    return dir + "/pxImageBench-" + std::to_string(getpid()) + "-" + name;
}

// A 16-bit camera frame as a cv::Mat: 100 DN dark offset, bright textured discs and rectangles covering
// about an eighth of the frame (2000..40000 DN), shot noise (1.5 DN per electron) and 4 DN read noise,
// digitised by a 12-bit converter into the high bits, as cameras deliver it.
cv::Mat makeFrame(int side) {
    cv::RNG rng(20240611);
    cv::Mat1f signal(side, side, 0.0f);
    const int objects = std::max(1, int(std::lround(10.0 * side * side / (1024.0 * 768.0))));
    for (int i = 0; i < objects; ++i) {
        const int r = int(side * rng.uniform(0.035, 0.1) * 0.75);
        const cv::Point centre(rng.uniform(r, side - r), rng.uniform(r, side - r));
        const double level = 2000.0 * std::pow(20.0, rng.uniform(0.0, 1.0));
        if (i % 2 == 0)
            cv::circle(signal, centre, r, cv::Scalar(level), cv::FILLED);
        else
            cv::rectangle(signal, cv::Rect(centre.x - r, centre.y - r / 2, 2 * r, r), cv::Scalar(level),
                          cv::FILLED);
    }
    cv::Mat1w frame(side, side);
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            const double s = signal(y, x) * (1.0 + 0.15 * std::sin(x * 1.3 + y * 0.6));
            const double value = 100.0 + s + rng.gaussian(std::sqrt(1.5 * s + 16.0));
            frame(y, x) = static_cast<uint16_t>(std::clamp(16.0 * std::round(value / 16.0), 0.0, 65520.0));
        }
    }
    return frame;
}

// The frame, built once per run.
const cv::Mat &frame() {
    static const cv::Mat mat = makeFrame(frameSide());
    return mat;
}

// An image record holding the frame, converted to `type` (SHORT or FLOAT).
struct FrameImage {
    tag_pxImage *image = nullptr;
    explicit FrameImage(int32_t type) {
        const cv::Mat &f = frame();
        if (!pxImageConstruct(type, f.cols, f.rows, 0, 1, &image))
            std::abort();
        cv::Mat target(f.rows, f.cols, type == FLOAT ? CV_32F : CV_16U, image->pixMap[0][0]);
        f.convertTo(target, target.type());
    }
    ~FrameImage() { pxImageDestruct(&image); }
    FrameImage(const FrameImage &) = delete;
    FrameImage &operator=(const FrameImage &) = delete;

    size_t bytes() const { return size_t(image->width) * image->height * (image->type == FLOAT ? 4 : 2); }
    // Puts the frame's pixels back (the CSHORT compressor changes the pixels it is given).
    void restore() const {
        cv::Mat target(frame().size(), image->type == FLOAT ? CV_32F : CV_16U, image->pixMap[0][0]);
        frame().convertTo(target, target.type());
    }
};

// A file name as the null-terminated 16-bit string the library takes (names here are ASCII).
std::vector<uint16_t> wide(const std::string &name) {
    std::vector<uint16_t> out(name.begin(), name.end());
    out.push_back(0);
    return out;
}

// Size of a file in bytes.
double fileBytes(const std::string &name) {
    FILE *file = std::fopen(name.c_str(), "rb");
    if (file == nullptr)
        return 0.0;
    std::fseek(file, 0, SEEK_END);
    const double size = double(std::ftell(file));
    std::fclose(file);
    return size;
}

// The counters every benchmark reports: MB/s of image bytes, and the file's size over the image bytes.
void report(benchmark::State &state, size_t imageBytes, double fileSize) {
    const double processed = double(state.iterations()) * double(imageBytes);
    state.SetBytesProcessed(static_cast<int64_t>(processed));
    state.counters["MB/s"] = benchmark::Counter(processed / 1e6, benchmark::Counter::kIsRate);
    if (fileSize > 0.0)
        state.counters["file/image"] = fileSize / double(imageBytes);
}

// Writing our format: plain (fileType 0) or encoded; encoded writes start from the frame's pixels each time.
void oursWrite(benchmark::State &state, int32_t imageType, int32_t fileType) {
    FrameImage source(imageType);
    const std::string name = benchFile("write.pxi");
    const std::vector<uint16_t> path = wide(name);
    for (auto _ : state) {
        if (fileType != 0) {
            state.PauseTiming();
            source.restore();
            state.ResumeTiming();
        }
        if (!pxImageWrite(path.data(), fileType, source.image))
            state.SkipWithError("pxImageWrite failed");
    }
    report(state, source.bytes(), fileBytes(name));
    std::remove(name.c_str());
}

// Reading our format back into a new record (construction and destruction included).
void oursRead(benchmark::State &state, int32_t imageType, int32_t fileType) {
    FrameImage source(imageType);
    const std::string name = benchFile("read.pxi");
    const std::vector<uint16_t> path = wide(name);
    if (!pxImageWrite(path.data(), fileType, source.image))
        std::abort();
    for (auto _ : state) {
        tag_pxImage *image = nullptr;
        if (!pxImageRead(path.data(), 0, 0, &image))
            state.SkipWithError("pxImageRead failed");
        benchmark::DoNotOptimize(image);
        pxImageDestruct(&image);
    }
    report(state, source.bytes(), fileBytes(name));
    std::remove(name.c_str());
}

// OpenCV's writer of the same 16-bit image: uncompressed TIFF or PNG (default settings).
void openCvWrite(benchmark::State &state, const char *extension) {
    const std::string name = benchFile(std::string("write") + extension);
    const std::vector<int> parameters = std::string(extension) == ".tif"
                                            ? std::vector<int>{cv::IMWRITE_TIFF_COMPRESSION, 1}
                                            : std::vector<int>{};
    for (auto _ : state) {
        if (!cv::imwrite(name, frame(), parameters))
            state.SkipWithError("cv::imwrite failed");
    }
    report(state, frame().total() * 2, fileBytes(name));
    std::remove(name.c_str());
}

// OpenCV's reader of the same files.
void openCvRead(benchmark::State &state, const char *extension) {
    const std::string name = benchFile(std::string("read") + extension);
    const std::vector<int> parameters = std::string(extension) == ".tif"
                                            ? std::vector<int>{cv::IMWRITE_TIFF_COMPRESSION, 1}
                                            : std::vector<int>{};
    if (!cv::imwrite(name, frame(), parameters))
        std::abort();
    for (auto _ : state) {
        cv::Mat image = cv::imread(name, cv::IMREAD_UNCHANGED);
        benchmark::DoNotOptimize(image.data);
    }
    report(state, frame().total() * 2, fileBytes(name));
    std::remove(name.c_str());
}

// memcpy of the 16-bit image bytes (or of the FLOAT image's bytes): the floor for any write or read.
void memcpyBytes(benchmark::State &state, int32_t imageType) {
    FrameImage source(imageType);
    std::vector<unsigned char> target(source.bytes());
    for (auto _ : state) {
        std::memcpy(target.data(), source.image->pixMap[0][0], source.bytes());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    report(state, source.bytes(), 0.0);
}

// The CSHORT compressor alone, in memory, from the frame's pixels each time.
void cshortCompress(benchmark::State &state) {
    FrameImage source(SHORT);
    uint32_t count = 0;
    for (auto _ : state) {
        state.PauseTiming();
        source.restore();
        state.ResumeTiming();
        uint16_t *words = nullptr;
        if (!pxImageCompressShort(static_cast<uint16_t *>(source.image->pixMap[0][0]), source.image->width,
                                  source.image->height, &words, &count))
            state.SkipWithError("pxImageCompressShort refused the frame");
        benchmark::DoNotOptimize(words);
        pxMallocFree(reinterpret_cast<void **>(&words));
    }
    report(state, source.bytes(), 512.0 + 2.0 * count);
}

// Pairs by case: our plain SHORT write and read beside OpenCV's uncompressed TIFF of the same 16-bit frame;
// PNG rows (OpenCV only) and the encodings (ours only) stand alone. memcpy copies the 16-bit frame's bytes
// (the FLOAT image's for the FLOAT rows).
void ms(benchmark::internal::Benchmark *b) {
    b->Unit(benchmark::kMillisecond);
}

const bool kRegistered = [] {
    using namespace pxbench;
    memcpyRow("file", "", [](benchmark::State &s) { memcpyBytes(s, SHORT); })->Apply(ms);
    memcpyRow("file", "WriteFloat", [](benchmark::State &s) { memcpyBytes(s, FLOAT); })->Apply(ms);
    memcpyRow("file", "ReadFloat", [](benchmark::State &s) { memcpyBytes(s, FLOAT); })->Apply(ms);
    const struct {
        const char *name;
        int32_t imageType, fileType;
    } encodings[] = {
        {"Short", SHORT, 0}, {"Cshort", SHORT, CSHORT}, {"Short12", SHORT, SHORT12}, {"Float", FLOAT, 0}};
    for (const auto &e : encodings) {
        ours("file", std::string("Write") + e.name, [e](benchmark::State &s) {
            oursWrite(s, e.imageType, e.fileType);
        })->Apply(ms);
        ours("file", std::string("Read") + e.name, [e](benchmark::State &s) {
            oursRead(s, e.imageType, e.fileType);
        })->Apply(ms);
    }
    ours("file", "CompressCshort", cshortCompress)->Apply(ms);
    forEach(openCv("file", "WriteShort", [](benchmark::State &s) { openCvWrite(s, ".tif"); }), ms);
    forEach(openCv("file", "ReadShort", [](benchmark::State &s) { openCvRead(s, ".tif"); }), ms);
    forEach(openCv("file", "WritePng", [](benchmark::State &s) { openCvWrite(s, ".png"); }), ms);
    forEach(openCv("file", "ReadPng", [](benchmark::State &s) { openCvRead(s, ".png"); }), ms);
    return true;
}();

} // namespace
