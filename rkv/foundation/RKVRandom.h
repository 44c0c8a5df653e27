// RKVRandom: unbiased random unsigned integers from the kernel's random source. Thread-safe.
#pragma once

#include <cstdint>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVRandom {
 public:
  // Uniform in [min, max): min included, max excluded. When min is not below max this is a
  // programming error: it logs "'min' must be smaller than 'max'!" at error level (and aborts in
  // a debug build of the library) and answers min.
  static uint32_t randomUnsignedIntWithMin(uint32_t min, uint32_t max);
  // randomUnsignedIntWithMin(0, 4294967295): the largest value drawn is 4,294,967,294.
  static uint32_t randomUnsignedInt();
  // `count` random bytes written to `out`.
  static void randomBytes(void* out, std::size_t count);
};

}  // namespace rkv
