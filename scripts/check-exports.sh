#!/usr/bin/env bash
# Checks the symbols that the shared library exports: nothing of rkv::internal, and the public
# API (a class of each layer, and the type information that dynamic_cast across the library's
# boundary needs).
#
#   scripts/check-exports.sh [build/rkv/librkvcore.so]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
library=${1:-$root/build/rkv/librkvcore.so}
[ -f "$library" ] || { echo "check-exports: no library at $library" >&2; exit 1; }

exported=$(nm -D --defined-only "$library" | c++filt)
status=0
internal=$(grep 'rkv::internal' <<<"$exported" || true)
if [ -n "$internal" ]; then
  echo "check-exports: $library exports internal symbols:" >&2
  echo "$internal" >&2
  status=1
fi
for expected in 'rkv::RKVURL::' 'rkv::RKVLog::' 'rkv::RKVXMLDictionary::' \
  'rkv::RKVURLSession::' 'rkv::RKVVASTError::' 'rkv::RKVVASTAd::' 'rkv::RKVVASTManager::' \
  'typeinfo for rkv::RKVVASTManagerProtocol' 'vtable for rkv::RKVVASTManager' \
  'rkv::RKVUserDefaults::' 'rkv::RKVIdentity::' 'rkv::RKVPixelManager::' 'rkv::RKVTimer::' \
  'rkv::RKVTrackingEventManager::' 'rkv::RKVViewabilityManager::' \
  'vtable for rkv::RKVPixelManager' 'typeinfo for rkv::RKVViewabilityTrackingEvent'; do
  if ! grep -qF "$expected" <<<"$exported"; then
    echo "check-exports: $library does not export $expected" >&2
    status=1
  fi
done
if [ "$status" -eq 0 ]; then
  echo "check-exports: $(wc -l <<<"$exported") symbols exported, none of rkv::internal"
fi
exit "$status"
