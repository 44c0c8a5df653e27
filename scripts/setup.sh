#!/usr/bin/env bash
# Installs the Debian packages the build needs (only those missing), then configures and builds.
#
#   scripts/setup.sh [CMAKE_ARGS...]
#
# The build folder is $RKV_BUILD_DIR (default: build). Extra arguments go to CMake's configure
# step, e.g. -DRKV_SANITIZE=address. Set RKV_TARGETS to build only some targets.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${RKV_BUILD_DIR:-build}
case "$build_dir" in /*) ;; *) build_dir="$root/$build_dir" ;; esac

packages=(
  cmake ninja-build g++ clang clang-format pkg-config ccache
  libexpat1-dev libre2-dev libcurl4-openssl-dev libsqlite3-dev libssl-dev libasio-dev
  nlohmann-json3-dev libfmt-dev libcli11-dev libgtest-dev libgmock-dev libbenchmark-dev
  libcpp-httplib-dev python3
)
missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}" >&2
  sudo=()
  if [ "$(id -u)" -ne 0 ]; then sudo=(sudo); fi
  export DEBIAN_FRONTEND=noninteractive
  if ! "${sudo[@]}" apt-get install -y --no-install-recommends "${missing[@]}"; then
    "${sudo[@]}" apt-get update
    "${sudo[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
  fi
fi

# ccache keys on paths relative to the checkout, so a fresh clone elsewhere reuses the cache.
export CCACHE_BASEDIR="$root"
export CCACHE_NOHASHDIR=1

cmake -S "$root" -B "$build_dir" -G Ninja "$@" >/dev/null
jobs=$(nproc 2>/dev/null || echo 2)
if [ -n "${RKV_TARGETS:-}" ]; then
  # shellcheck disable=SC2086
  cmake --build "$build_dir" --parallel "$jobs" --target $RKV_TARGETS
else
  cmake --build "$build_dir" --parallel "$jobs"
fi
