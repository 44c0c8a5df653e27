#include <cstdint>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "rkv/xml/internal/RKVSipHash.h"

namespace rkv::internal {
namespace {

// The reference vectors of SipHash-2-4 (key 00 01 .. 0f, message 00 01 .. of each length),
// covering the empty message, a partial last block, a full block and a full block with a tail.
TEST(RKVSipHashTest, MatchesTheReferenceVectors) {
  const RKVSipHashKey key{0x0706050403020100ULL, 0x0f0e0d0c0b0a0908ULL};
  const std::pair<size_t, uint64_t> vectors[] = {
      {0, 0x726fdb47dd0e0e31ULL}, {1, 0x74f839c593dc67fdULL},  {7, 0xab0200f58b01d137ULL},
      {8, 0x93f5f5799a932462ULL}, {15, 0xa129ca6149be45e5ULL},
  };
  std::string message;
  for (char c = 0; c < 15; ++c)
    message += c;
  for (const auto& [length, tag] : vectors)
    EXPECT_EQ((sipHash<2, 4>(key, std::string_view(message).substr(0, length))), tag) << length;
}

}  // namespace
}  // namespace rkv::internal
