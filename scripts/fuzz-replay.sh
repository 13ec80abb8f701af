#!/usr/bin/env bash
# Replays the seed corpus fuzz/corpus/TARGET/ of every fuzz target (or of the targets named)
# through the targets' replay drivers, which any compiler builds. BUILD_DIR (default
# build-asan) is configured like the asan preset with the fuzz targets on if it has no build
# yet; a build dir made by scripts/fuzz.sh (clang) works too. Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build-asan}
TARGETS=("$@")
[ ${#TARGETS[@]} -gt 0 ] || TARGETS=(interpolant gateways load)
if [ ! -f "$BUILD_DIR/build.ninja" ]; then
  cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMATHINTERP_WERROR=ON \
    -DMATHINTERP_SANITIZE="address;undefined" -DMATHINTERP_PYTHON=OFF -DMATHINTERP_BENCH=OFF \
    -DMATHINTERP_EXAMPLES=OFF -DMATHINTERP_FUZZ=ON >/dev/null
else
  cmake -S . -B "$BUILD_DIR" -DMATHINTERP_FUZZ=ON >/dev/null
fi
# shellcheck disable=SC2046
cmake --build "$BUILD_DIR" -j "$(nproc)" --target $(printf 'fuzz_%s_replay ' "${TARGETS[@]}")
export ASAN_OPTIONS=${ASAN_OPTIONS:-allocator_may_return_null=1:detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
for t in "${TARGETS[@]}"; do
  echo "fuzz-replay: $t"
  "$BUILD_DIR/fuzz/fuzz_${t}_replay" "fuzz/corpus/$t"
done
