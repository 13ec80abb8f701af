#!/usr/bin/env bash
# Runs one fuzz target for a given time: builds fuzz_TARGET with clang (libFuzzer, ASan,
# UBSan) in build-fuzz/ if needed, then fuzzes at low priority starting from the seed corpus
# fuzz/corpus/TARGET/. New inputs go to build-fuzz/corpus/TARGET/ (not committed; fold the
# useful ones into the seed corpus with -merge=1), crashes to build-fuzz/artifacts/.
# Usage: scripts/fuzz.sh TARGET SECONDS [libFuzzer flags...]   (targets: interpolant,
# gateways, load). Prints libFuzzer's final statistics, including the execution count.
# Several targets may run at once (each a process of its own) once they are built.
set -euo pipefail
TARGET=${1:?usage: scripts/fuzz.sh TARGET SECONDS [libFuzzer flags...]}
DURATION=${2:?usage: scripts/fuzz.sh TARGET SECONDS [libFuzzer flags...]}
shift 2
cd "$(dirname "$0")/.."
BUILD_DIR=${FUZZ_BUILD_DIR:-build-fuzz}
if [ ! -f "$BUILD_DIR/build.ninja" ]; then
  cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMATHINTERP_FUZZ=ON \
    -DMATHINTERP_SANITIZE="address;undefined" -DMATHINTERP_TESTS=OFF \
    -DMATHINTERP_PYTHON=OFF -DMATHINTERP_BENCH=OFF -DMATHINTERP_EXAMPLES=OFF >/dev/null
fi
# FUZZ_NO_BUILD=1 fuzzes the binary as it is (e.g. while other targets run in this build dir).
[ -n "${FUZZ_NO_BUILD:-}" ] || nice -n 19 ninja -C "$BUILD_DIR" -j "${JOBS:-2}" "fuzz_$TARGET"
mkdir -p "$BUILD_DIR/corpus/$TARGET" "$BUILD_DIR/artifacts"
# Out-of-memory is an outcome the module reports as an error: a failing malloc returns null.
export ASAN_OPTIONS=${ASAN_OPTIONS:-allocator_may_return_null=1:detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
exec nice -n 19 "$BUILD_DIR/fuzz/fuzz_$TARGET" -max_total_time="$DURATION" -max_len=4096 \
  -timeout=60 -rss_limit_mb=2560 -print_final_stats=1 \
  -artifact_prefix="$BUILD_DIR/artifacts/$TARGET-" "$@" \
  "$BUILD_DIR/corpus/$TARGET" "fuzz/corpus/$TARGET"
