#!/bin/bash
# One fair run of the benchmark program and its ratio table: rows randomly interleaved, REPETITIONS
# repetitions each (medians), the whole program pinned to one core (BENCH_CPU, default 1) with OpenCV on
# one thread. With PXIMAGE_BENCH_OPENCV_DEFAULT=1 the opencvN rows are added and the program is not pinned
# (OpenCV's own threads need the other cores). Extra arguments go to the benchmark program, e.g.
# --benchmark_filter=convert/ or --benchmark_min_time=0.05.
# Usage: bash bench/run.sh [BUILD_DIR] [benchmark arguments...]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
shift || true
out=${BENCH_JSON:-$build/bench/result.json}
pin=(taskset -c "${BENCH_CPU:-1}")
if [ -n "${PXIMAGE_BENCH_OPENCV_DEFAULT:-}" ]; then
    pin=()
fi
"${pin[@]}" "$build/bench/pxImageBench" --benchmark_enable_random_interleaving=true \
    --benchmark_repetitions="${REPETITIONS:-7}" --benchmark_report_aggregates_only=true \
    --benchmark_out="$out" --benchmark_out_format=json "$@" >/dev/null
/usr/bin/python3 bench/ratios.py "$out"
