#!/usr/bin/env bash
# Fuzzes every target fuzz/<Name>Fuzzer.cpp with libFuzzer (clang, AddressSanitizer, UndefinedBehavior-
# Sanitizer) for FUZZ_SECONDS seconds each (default 60), starting from a copy of its committed corpus
# fuzz/corpus/<name>; fails when a fuzzer finds a crash, leak or timeout, and prints each target's
# executions. The library itself is instrumented for coverage. Tests must stay on in this configuration
# because the build adds fuzz/ only together with the tests; only the fuzzer targets are built.
# Usage: bash fuzz/run.sh [Name ...]   (default: every target)
set -euo pipefail
cd "$(dirname "$0")/.."
build=build-fuzz
seconds=${FUZZ_SECONDS:-60}
flags="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer -g"
CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPXIMAGE_BUILD_FUZZ=ON \
  -DPXIMAGE_BUILD_TESTS=ON -DPXIMAGE_BUILD_BENCH=OFF -DPXIMAGE_BUILD_TOOLS=OFF \
  -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
  -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined"

names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  for source in fuzz/*Fuzzer.cpp; do
    stem=$(basename "$source" .cpp)
    names+=("${stem%Fuzzer}")
  done
fi
targets=()
for name in "${names[@]}"; do targets+=("pxImage${name}Fuzzer"); done
cmake --build "$build" -j "$(nproc)" --target "${targets[@]}"

mkdir -p "$build/findings"
for name in "${names[@]}"; do
  corpusName=$(echo "$name" | sed -E 's/([a-z0-9])([A-Z])/\1_\2/g' | tr '[:upper:]' '[:lower:]')
  corpus="$build/corpus/$corpusName"
  rm -rf "$corpus" && mkdir -p "$corpus" && cp fuzz/corpus/"$corpusName"/* "$corpus"/
  echo "== fuzzing $name for $seconds s"
  status=0
  (cd "$build" && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ./fuzz/pxImage"${name}"Fuzzer -max_total_time="$seconds" -max_len=4096 -rss_limit_mb=4096 -timeout=30 \
    -artifact_prefix=findings/"$corpusName"- "corpus/$corpusName" >"findings/$corpusName.log" 2>&1) || status=$?
  if [ "$status" -ne 0 ]; then
    tail -60 "$build/findings/$corpusName.log"
    echo "fuzzing $name failed (status $status); the input is in $build/findings/"
    exit 1
  fi
  grep -E '^Done [0-9]+ runs' "$build/findings/$corpusName.log"
done
