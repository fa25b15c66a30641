#!/bin/bash
# One fair run of the benchmark program and its ratio table: rows randomly interleaved, REPETITIONS
# repetitions each (medians), OpenCV on one thread, every row pinned to one core (BENCH_CPU, default 1; the
# program pins itself row by row through PXIMAGE_BENCH_CPU). With PXIMAGE_BENCH_OPENCV_DEFAULT=1 the
# opencvN rows are added; they alone run on every core, as OpenCV's own threads need them. Extra arguments
# go to the benchmark program, e.g. --benchmark_filter=convert/ or --benchmark_min_time=0.05.
# Usage: bash bench/run.sh [BUILD_DIR] [benchmark arguments...]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
shift || true
out=${BENCH_JSON:-$build/bench/result.json}
PXIMAGE_BENCH_CPU=${BENCH_CPU:-1} "$build/bench/pxImageBench" --benchmark_enable_random_interleaving=true \
    --benchmark_repetitions="${REPETITIONS:-7}" --benchmark_report_aggregates_only=true \
    --benchmark_out="$out" --benchmark_out_format=json "$@" >/dev/null
/usr/bin/python3 bench/ratios.py "$out"
