// SipHash, a keyed hash that an attacker who does not know the key cannot steer into collisions.
// The tree's key index hashes element names with it under a secret key drawn once per process,
// so that a document of crafted names cannot turn the index into one long chain. Thread-safe:
// pure functions; the process key is made once under the language's guard of local statics.
#pragma once

#include <cstdint>
#include <string_view>

namespace rkv::internal {

struct RKVSipHashKey {
  uint64_t k0 = 0;
  uint64_t k1 = 0;
};

// SipHash-c-d of `bytes` under `key` (c compression rounds per 8-byte block, d finalisation
// rounds), as in Aumasson and Bernstein's reference. SipHash-2-4 is the original; SipHash-1-3 is
// the faster variant that hash tables commonly use.
template <int CompressionRounds, int FinalizationRounds>
uint64_t sipHash(const RKVSipHashKey& key, std::string_view bytes);

extern template uint64_t sipHash<1, 3>(const RKVSipHashKey&, std::string_view);
extern template uint64_t sipHash<2, 4>(const RKVSipHashKey&, std::string_view);

// 128 random bits drawn from the kernel on first use, the same for the rest of the process.
const RKVSipHashKey& processHashKey();

// SipHash-1-3 under the process key: the hash of the tree's key index.
inline uint64_t keyedHash(std::string_view bytes) {
  return sipHash<1, 3>(processHashKey(), bytes);
}

}  // namespace rkv::internal
