// Shared by the pixel tests: pixels printed by their description, and the IDs of a list.
#pragma once

#include <cstdint>
#include <ostream>
#include <vector>

#include "rkv/net/RKVPixel.h"

namespace rkv {

inline void PrintTo(const RKVPixel& pixel, std::ostream* out) {
  *out << pixel.description();
}

namespace test {

inline std::vector<uint32_t> ids(const std::vector<RKVPixel>& pixels) {
  std::vector<uint32_t> result;
  for (const RKVPixel& pixel : pixels)
    result.push_back(pixel.ID());
  return result;
}

}  // namespace test
}  // namespace rkv
