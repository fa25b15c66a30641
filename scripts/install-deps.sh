#!/usr/bin/env bash
# Installs the Debian packages that the project builds, tests and benchmarks with. Idempotent: it only
# calls apt-get when a package is missing.
set -euo pipefail
packages=(
  build-essential cmake pkg-config git clang libclang-rt-14-dev clang-format
  libopencv-core-dev libopencv-imgproc-dev libopencv-imgcodecs-dev libopencv-calib3d-dev
  libpugixml-dev libcli11-dev libgtest-dev libgmock-dev libbenchmark-dev gcovr
  python3-dev pybind11-dev python3-numpy python3-pytest python3-scipy
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
