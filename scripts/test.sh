#!/usr/bin/env bash
# Runs every test: installs missing packages, builds, runs the C++ tests (CTest) and the
# Python tests (pytest with Debian's /usr/bin/python3).
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" -eq 0 ]; then bash scripts/install-deps.sh; fi
bash scripts/build.sh
BUILD_DIR=${BUILD_DIR:-build}
ctest --test-dir "$BUILD_DIR" --output-on-failure -j "$(nproc)"
if [ -d "$BUILD_DIR/python/mathinterp" ] && ls tests/python/test_*.py >/dev/null 2>&1; then
  PYTHONPATH="$PWD/$BUILD_DIR/python" /usr/bin/python3 -m pytest -q tests/python
fi
