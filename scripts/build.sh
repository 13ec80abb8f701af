#!/usr/bin/env bash
# Configures and builds into build/ (Release, warnings as errors). Extra args go to cmake.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build}
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=Release -DMATHINTERP_WERROR=ON "$@" >/dev/null
cmake --build "$BUILD_DIR" -j "$(nproc)"
