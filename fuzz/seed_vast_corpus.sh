#!/usr/bin/env bash
# Fills a work folder with seeds for rkv_fuzz_vast: every VAST document of the shared corpus and
# of examples/, copied (never committed), one file per document.
#
#   fuzz/seed_vast_corpus.sh WORK_DIR [CORPUS_DIR]      CORPUS_DIR defaults to ../shared/corpus
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
work=${1:?usage: seed_vast_corpus.sh WORK_DIR [CORPUS_DIR]}
corpus=${2:-$root/../shared/corpus}
[ -d "$corpus" ] || corpus=/work/shared/corpus
mkdir -p "$work"
n=0
while IFS= read -r -d '' file; do
  n=$((n + 1))
  cp "$file" "$work/seed-$n.xml"
done < <(find "$corpus" "$root/examples" -name '*.xml' -print0 | sort -z)
echo "seed_vast_corpus: $n seeds in $work" >&2
