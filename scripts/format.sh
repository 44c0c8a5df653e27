#!/usr/bin/env bash
# Formats the project's C++ files with .clang-format; with --check, fails instead when a file
# would change.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
command -v clang-format >/dev/null || { echo "format: clang-format is not installed" >&2; exit 1; }
mapfile -t files < <(git ls-files -- '*.h' '*.cpp' '*.h.in')
((${#files[@]})) || exit 0
if [ "${1:-}" = "--check" ]; then
  clang-format --dry-run --Werror "${files[@]}"
else
  clang-format -i "${files[@]}"
fi
