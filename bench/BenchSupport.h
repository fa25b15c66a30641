// Rows of the benchmark program and their names. Every row is named "<family>/<variant>/<case>", where the
// variant is one of
//   ours      a function of the library
//   opencv1   the closest OpenCV function, with OpenCV on one thread (the library has no threads of its own,
//             so this is the like-for-like comparison)
//   opencvN   the same OpenCV function with OpenCV's default thread count; registered only when the
//             environment variable PXIMAGE_BENCH_OPENCV_DEFAULT is set
//   memcpy    memcpy of the bytes the case moves: the memory-bound floor
// and the case names the operation and its arguments (Google Benchmark appends "/<arg>" for each argument).
// bench/ratios.py divides each ours row by the rows of the same family and case: opencv1, opencvN and
// memcpy (a memcpy row named "<family>/memcpy" without a case serves every case of its family).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace pxbench {

using Body = std::function<void(benchmark::State &)>;

// Registers a row "<family>/ours/<name>". O(1).
benchmark::internal::Benchmark *ours(const std::string &family, const std::string &name, Body body);

// Registers a row "<family>/memcpy/<name>" ("<family>/memcpy" when name is empty). O(1).
benchmark::internal::Benchmark *memcpyRow(const std::string &family, const std::string &name, Body body);

// Registers an OpenCV row "<family>/opencv1/<name>", run with cv::setNumThreads(1), and, when
// PXIMAGE_BENCH_OPENCV_DEFAULT is set, "<family>/opencvN/<name>", run with OpenCV's default thread count.
// Returns the rows registered, so that the caller gives each the same arguments. O(1).
std::vector<benchmark::internal::Benchmark *> openCv(const std::string &family, const std::string &name,
                                                     Body body);

// Applies the same arguments to every row of openCv. O(rows).
void forEach(const std::vector<benchmark::internal::Benchmark *> &rows,
             const std::function<void(benchmark::internal::Benchmark *)> &apply);

// True in the short smoke run of the test suite (PXIMAGE_BENCH_SMOKE set): benchmarks use small images.
// O(1): the environment is read on the first call.
bool smoke();

} // namespace pxbench
