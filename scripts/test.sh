#!/usr/bin/env bash
# Installs what the project needs, builds it and runs every test. Usage: bash scripts/test.sh [build-dir]
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
build=${1:-build}
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release
cmake --build "$build" -j "$(nproc)"
ctest --test-dir "$build" --output-on-failure -j "$(nproc)"
