#!/usr/bin/env bash
# Builds the rkv tool (installing what is missing) and runs its demo.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${RKV_BUILD_DIR:-build}
case "$build_dir" in /*) ;; *) build_dir="$root/$build_dir" ;; esac

RKV_TARGETS=rkv "$root/scripts/setup.sh" "$@"
rkv="$build_dir/tools/rkv/rkv"
"$rkv" --version
# A small ad pod written for the demo: two sequenced inline ads and a wrapper as fallback.
"$rkv" inspect "$root/examples/demo-pod.xml"
