#!/usr/bin/env bash
# Fuzzes the image file reader for 60 seconds with libFuzzer (clang, AddressSanitizer, UndefinedBehavior-
# Sanitizer) on a copy of the committed corpus; fails when the fuzzer finds a crash, leak or timeout.
# The library itself is instrumented for coverage. Tests must stay on in this configuration because the
# build adds fuzz/ only together with the tests; only the fuzzer target is built.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build-fuzz
flags="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer -g"
CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPXIMAGE_BUILD_FUZZ=ON \
  -DPXIMAGE_BUILD_TESTS=ON -DPXIMAGE_BUILD_BENCH=OFF -DPXIMAGE_BUILD_TOOLS=OFF \
  -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
  -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined"
cmake --build "$build" -j "$(nproc)" --target pxImageReadImageFuzzer
corpus="$build/corpus/read_image"
rm -rf "$corpus" && mkdir -p "$corpus" && cp fuzz/corpus/read_image/* "$corpus"/
mkdir -p "$build/findings"
cd "$build"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ./fuzz/pxImageReadImageFuzzer -max_total_time=60 -max_len=4096 -rss_limit_mb=4096 -timeout=30 \
  -artifact_prefix=findings/ corpus/read_image
