#!/usr/bin/env bash
# Installs missing Debian packages (as root), builds if needed and runs the demo (the Python
# demo once the Python face is built).
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" -eq 0 ]; then bash scripts/install-deps.sh; fi
BUILD_DIR=${BUILD_DIR:-build}
[ -f "$BUILD_DIR/build.ninja" ] || bash scripts/build.sh
cmake --build "$BUILD_DIR" -j "$(nproc)" >/dev/null
if [ -f examples/demo.py ] && [ -d "$BUILD_DIR/python/mathinterp" ]; then
  PYTHONPATH="$PWD/$BUILD_DIR/python" exec /usr/bin/python3 examples/demo.py "$@"
fi
exec "$BUILD_DIR/examples/demo_1d"
