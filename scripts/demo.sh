#!/usr/bin/env bash
# Builds the rkv tool (installing what is missing) and runs its demo: an outline of an ad pod,
# then an ad played in simulated time against a loopback ad server that receives its pixels.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${RKV_BUILD_DIR:-build}
case "$build_dir" in /*) ;; *) build_dir="$root/$build_dir" ;; esac

RKV_TARGETS=rkv "$root/scripts/setup.sh" "$@"
rkv="$build_dir/tools/rkv/rkv"
"$rkv" --version
# A small ad pod written for the demo: two sequenced inline ads and a wrapper as fallback.
"$rkv" inspect "$root/examples/demo-pod.xml"

# Playing an ad: a wrapper and its inline ad served by a loopback ad server that also receives
# the pixels, played 4x faster than real time with a pause, through a demo data folder.
data_dir=$(mktemp -d)
coproc server { exec python3 -u "$root/scripts/demo-server.py" "$root/examples"; }
trap 'kill "$server_PID" 2>/dev/null; rm -rf "$data_dir"' EXIT
read -r port <&"${server[0]}"
echo
echo "rkv play http://127.0.0.1:$port/vast/demo-wrapper.xml --speed 4 --pause-at 4 --pause-for 1"
"$rkv" --data-dir "$data_dir" play --speed 4 --pause-at 4 --pause-for 1 \
  "http://127.0.0.1:$port/vast/demo-wrapper.xml"
