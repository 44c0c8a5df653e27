#include "rkv/foundation/RKVRandom.h"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <random>

#include <sys/random.h>

#include "rkv/RKVBuildInfo.h"
#include "rkv/foundation/internal/RKVErrorReport.h"

namespace rkv {

namespace {

// A uniform random bit generator over getrandom(2), for std::uniform_int_distribution (which
// rejects the draws that would bias the range).
struct KernelRandom {
  using result_type = uint32_t;
  static constexpr result_type min() { return 0; }
  static constexpr result_type max() { return std::numeric_limits<result_type>::max(); }
  result_type operator()() {
    result_type value = 0;
    RKVRandom::randomBytes(&value, sizeof value);
    return value;
  }
};

}  // namespace

void RKVRandom::randomBytes(void* out, std::size_t count) {
  auto* bytes = static_cast<unsigned char*>(out);
  while (count > 0) {
    ssize_t got = getrandom(bytes, count, 0);
    if (got < 0) {
      if (errno == EINTR) continue;
      // No kernel source at all (a kernel before 3.17): the library's identifiers need not be
      // secret, only spread, so fall back to the standard library's device.
      std::random_device device;
      for (; count > 0; --count)
        *bytes++ = static_cast<unsigned char>(device());
      return;
    }
    bytes += got;
    count -= static_cast<std::size_t>(got);
  }
}

uint32_t RKVRandom::randomUnsignedIntWithMin(uint32_t min, uint32_t max) {
  if (min >= max) {
    internal::reportError("'min' must be smaller than 'max'!");
    if (build::kBuiltInDebug) std::abort();
    return min;
  }
  KernelRandom source;
  std::uniform_int_distribution<uint32_t> distribution(min, max - 1);
  return distribution(source);
}

uint32_t RKVRandom::randomUnsignedInt() {
  return randomUnsignedIntWithMin(0, std::numeric_limits<uint32_t>::max());
}

}  // namespace rkv
