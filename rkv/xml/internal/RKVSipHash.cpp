#include "rkv/xml/internal/RKVSipHash.h"

#include <cerrno>
#include <cstring>
#include <random>

#include <sys/random.h>

namespace rkv::internal {

namespace {

constexpr uint64_t rotl(uint64_t x, int b) {
  return (x << b) | (x >> (64 - b));
}

inline uint64_t load64(const char* p) {
  uint64_t v;
  std::memcpy(&v, p, sizeof(v));
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  v = __builtin_bswap64(v);
#endif
  return v;
}

struct State {
  uint64_t v0, v1, v2, v3;

  void round() {
    v0 += v1;
    v1 = rotl(v1, 13);
    v1 ^= v0;
    v0 = rotl(v0, 32);
    v2 += v3;
    v3 = rotl(v3, 16);
    v3 ^= v2;
    v0 += v3;
    v3 = rotl(v3, 21);
    v3 ^= v0;
    v2 += v1;
    v1 = rotl(v1, 17);
    v1 ^= v2;
    v2 = rotl(v2, 32);
  }
};

// 16 bytes from the kernel without waiting for its entropy pool (an early-boot device must not
// hang in its first parse); std::random_device when getrandom is unavailable or would block.
RKVSipHashKey drawKey() {
  unsigned char bytes[16];
  size_t filled = 0;
  while (filled < sizeof(bytes)) {
    ssize_t n = getrandom(bytes + filled, sizeof(bytes) - filled, GRND_NONBLOCK);
    if (n > 0) {
      filled += static_cast<size_t>(n);
    } else if (n < 0 && errno != EINTR) {
      break;
    }
  }
  if (filled < sizeof(bytes)) {
    std::random_device entropy;
    for (unsigned char& byte : bytes)
      byte = static_cast<unsigned char>(entropy());
  }
  RKVSipHashKey key;
  std::memcpy(&key.k0, bytes, 8);
  std::memcpy(&key.k1, bytes + 8, 8);
  return key;
}

}  // namespace

template <int CompressionRounds, int FinalizationRounds>
uint64_t sipHash(const RKVSipHashKey& key, std::string_view bytes) {
  State s{key.k0 ^ 0x736f6d6570736575ULL, key.k1 ^ 0x646f72616e646f6dULL,
          key.k0 ^ 0x6c7967656e657261ULL, key.k1 ^ 0x7465646279746573ULL};
  const char* p = bytes.data();
  const size_t size = bytes.size();
  const char* end = p + (size & ~size_t{7});
  for (; p != end; p += 8) {
    uint64_t m = load64(p);
    s.v3 ^= m;
    for (int i = 0; i < CompressionRounds; ++i)
      s.round();
    s.v0 ^= m;
  }
  uint64_t last = static_cast<uint64_t>(size & 0xff) << 56;
  for (size_t i = 0; i < (size & 7); ++i)
    last |= static_cast<uint64_t>(static_cast<unsigned char>(p[i])) << (8 * i);
  s.v3 ^= last;
  for (int i = 0; i < CompressionRounds; ++i)
    s.round();
  s.v0 ^= last;
  s.v2 ^= 0xff;
  for (int i = 0; i < FinalizationRounds; ++i)
    s.round();
  return s.v0 ^ s.v1 ^ s.v2 ^ s.v3;
}

template uint64_t sipHash<1, 3>(const RKVSipHashKey&, std::string_view);
template uint64_t sipHash<2, 4>(const RKVSipHashKey&, std::string_view);

const RKVSipHashKey& processHashKey() {
  static const RKVSipHashKey key = drawKey();
  return key;
}

}  // namespace rkv::internal
