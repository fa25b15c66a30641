#!/usr/bin/env bash
# Installs what the project needs, builds the pximg tool (Release, in build/, shared with scripts/test.sh) and
# runs `pximg demo` on a synthetic camera frame. Usage: bash scripts/demo.sh [output-folder]
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j "$(nproc)" --target pximg
build/tools/pximg demo "$@"
