// Registration of the benchmark rows under their conventional names, and OpenCV's thread count per row.
#include "BenchSupport.h"

#include <cstdlib>

#include <sched.h>

#include <opencv2/core.hpp>

namespace pxbench {

namespace {

// OpenCV's thread count while a row runs: one, or OpenCV's default (restored to one afterwards, so that a
// row registered without this wrapper also sees one thread).
class OpenCvThreads {
  public:
    explicit OpenCvThreads(bool defaultThreads) { cv::setNumThreads(defaultThreads ? -1 : 1); }
    ~OpenCvThreads() { cv::setNumThreads(1); }
    OpenCvThreads(const OpenCvThreads &) = delete;
    OpenCvThreads &operator=(const OpenCvThreads &) = delete;
};

// One OpenCV thread from the start of the program, whatever the row.
const bool kOneThread = [] {
    cv::setNumThreads(1);
    return true;
}();

// The processors the program may run on when it starts.
const cpu_set_t kStartCpus = [] {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    sched_getaffinity(0, sizeof cpus, &cpus);
    return cpus;
}();

// Pins the calling thread for a row: to the processor PXIMAGE_BENCH_CPU names when the row runs on one
// thread, back to every processor of the start for OpenCV's default threads (its worker threads, made when
// it first runs on several, inherit this). Without PXIMAGE_BENCH_CPU nothing is pinned.
void pinForRow(bool oneThread) {
    const char *cpu = std::getenv("PXIMAGE_BENCH_CPU");
    if (cpu == nullptr || *cpu == '\0')
        return;
    cpu_set_t cpus = kStartCpus;
    if (oneThread) {
        CPU_ZERO(&cpus);
        CPU_SET(std::atoi(cpu), &cpus);
    }
    sched_setaffinity(0, sizeof cpus, &cpus);
}

benchmark::internal::Benchmark *row(const std::string &name, Body body) {
    return benchmark::RegisterBenchmark(name.c_str(), [body](benchmark::State &state) {
        pinForRow(true);
        body(state);
    });
}

benchmark::internal::Benchmark *openCvRow(const std::string &name, Body body, bool defaultThreads) {
    return benchmark::RegisterBenchmark(name.c_str(), [body, defaultThreads](benchmark::State &state) {
        pinForRow(!defaultThreads);
        OpenCvThreads threads(defaultThreads);
        body(state);
        state.counters["cvThreads"] = cv::getNumThreads();
    });
}

} // namespace

benchmark::internal::Benchmark *ours(const std::string &family, const std::string &name, Body body) {
    return row(family + "/ours/" + name, std::move(body));
}

benchmark::internal::Benchmark *memcpyRow(const std::string &family, const std::string &name, Body body) {
    return row(family + "/memcpy" + (name.empty() ? "" : "/" + name), std::move(body));
}

std::vector<benchmark::internal::Benchmark *> openCv(const std::string &family, const std::string &name,
                                                     Body body) {
    std::vector<benchmark::internal::Benchmark *> rows{openCvRow(family + "/opencv1/" + name, body, false)};
    if (std::getenv("PXIMAGE_BENCH_OPENCV_DEFAULT"))
        rows.push_back(openCvRow(family + "/opencvN/" + name, body, true));
    return rows;
}

void forEach(const std::vector<benchmark::internal::Benchmark *> &rows,
             const std::function<void(benchmark::internal::Benchmark *)> &apply) {
    for (benchmark::internal::Benchmark *r : rows)
        apply(r);
}

bool smoke() {
    // Read once: benchmarks ask inside their timed loops, where a scan of the environment per call would be
    // counted as the operation's time.
    static const bool value = std::getenv("PXIMAGE_BENCH_SMOKE") != nullptr;
    return value;
}

} // namespace pxbench
