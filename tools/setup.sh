#!/usr/bin/env bash
# Installs what Marquill needs to build, test and run, when it is missing, then configures and
# builds into build/ (or the folder given as MARQUILL_BUILD_DIR). Safe to run again.
#   tools/setup.sh [TARGET...]  builds only the targets named; everything when none is
#   MARQUILL_SANITIZE=ON        builds with AddressSanitizer and UndefinedBehaviorSanitizer
#   MARQUILL_FUZZ=ON            builds only the fuzz targets (and the sample site) with clang (tools/fuzz.sh)
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(build-essential cmake pkg-config qt6-base-dev qt6-base-dev-tools qt6-svg-dev libqt6opengl6-dev
          libxml2-dev libpugixml-dev curl xvfb xauth fonts-dejavu-core fonts-dejavu-extra fonts-wine
          dpkg-dev lintian desktop-file-utils appstream python3-html5lib bsdutils)
if [ "${MARQUILL_FUZZ:-OFF}" = ON ]; then packages+=(clang libclang-rt-14-dev); fi
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "setup: installing ${missing[*]}" >&2
    sudo_cmd=""
    [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
    export DEBIAN_FRONTEND=noninteractive
    $sudo_cmd apt-get update -qq
    $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

build_dir="${MARQUILL_BUILD_DIR:-build}"
if [ "${MARQUILL_FUZZ:-OFF}" = ON ]; then
    CXX=clang++ cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMARQUILL_FUZZ=ON \
          -DMARQUILL_TESTS=OFF -DMARQUILL_BENCH=OFF -DMARQUILL_WERROR="${MARQUILL_WERROR:-OFF}" >/dev/null
    cmake --build "$build_dir" -j"$(nproc)" --target fuzz marquill-sitesim
    exit 0
fi
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DMARQUILL_SANITIZE="${MARQUILL_SANITIZE:-OFF}" -DMARQUILL_WERROR="${MARQUILL_WERROR:-OFF}" >/dev/null
targets=()
for target in "$@"; do targets+=(--target "$target"); done
cmake --build "$build_dir" -j"$(nproc)" "${targets[@]}"
