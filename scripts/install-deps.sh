#!/usr/bin/env bash
# Installs every Debian package the project needs, when missing (run as root).
set -euo pipefail
PACKAGES=(build-essential cmake ninja-build libtbb-dev libboost-dev libhwy-dev googletest libgtest-dev
          libbenchmark-dev pybind11-dev python3-dev python3-numpy python3-scipy python3-pytest
          python3-matplotlib python3-pybind11 clang clang-format libclang-rt-14-dev
          python3-pip python3-setuptools python3-wheel mypy
          python3-sphinx python3-myst-parser python3-sphinx-rtd-theme
          python3-dask python3-distributed python3-xarray python3-hypothesis)
missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then echo "run as root to install packages" >&2; exit 1; fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
