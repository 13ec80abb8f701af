#!/usr/bin/env bash
# Builds the documentation site into build/docs/html: makes the Python package if needed
# (its docstrings are the Python reference), draws the gallery and performance figures, then
# runs Sphinx with warnings as errors. Needs python3-sphinx, python3-myst-parser,
# python3-sphinx-rtd-theme and python3-matplotlib (installed when missing, as root).
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" -eq 0 ]; then bash scripts/install-deps.sh; fi
BUILD_DIR=${BUILD_DIR:-build}
[ -f "$BUILD_DIR/build.ninja" ] || bash scripts/build.sh
cmake --build "$BUILD_DIR" -j "$(nproc)" --target _core >/dev/null
export PYTHONPATH="$PWD/$BUILD_DIR/python"
/usr/bin/python3 docs/gallery/make_figures.py
/usr/bin/python3 -m sphinx -W --keep-going -q -b html -d "$BUILD_DIR/docs/doctrees" docs \
  "$BUILD_DIR/docs/html"
echo "docs: $BUILD_DIR/docs/html/index.html"
