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

TEST(RKVSipHashTest, TheProcessKeyIsRandomAndStable) {
  const RKVSipHashKey& key = processHashKey();
  EXPECT_EQ(&processHashKey(), &key);
  EXPECT_FALSE(key.k0 == 0 && key.k1 == 0);
  EXPECT_EQ(keyedHash("VAST"), (sipHash<1, 3>(key, "VAST")));
  // The fewer rounds make a different function; every byte and the length count.
  EXPECT_NE((sipHash<1, 3>(key, "VAST")), (sipHash<2, 4>(key, "VAST")));
  std::set<uint64_t> hashes;
  const std::string texts[] = {"",  std::string(1, '\0'), std::string(2, '\0'), "a", "b", "ab",
                               "ba"};
  for (const std::string& text : texts)
    hashes.insert(keyedHash(text));
  EXPECT_EQ(hashes.size(), 7u);
}

}  // namespace
}  // namespace rkv::internal
