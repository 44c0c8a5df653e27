#!/usr/bin/env bash
# Builds everything (installing what is missing) and runs every test with CTest.
#
#   scripts/test.sh [CMAKE_ARGS...]      build folder: $RKV_BUILD_DIR (default: build)
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${RKV_BUILD_DIR:-build}
case "$build_dir" in /*) ;; *) build_dir="$root/$build_dir" ;; esac

"$root/scripts/setup.sh" "$@"
jobs=$(nproc 2>/dev/null || echo 2)
ctest --test-dir "$build_dir" --output-on-failure --parallel "$jobs" --no-tests=error
