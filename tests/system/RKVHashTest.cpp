#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/RKVBuildInfo.h"
#include "rkv/foundation/RKVRandom.h"
#include "rkv/system/RKVHash.h"

#include "tests/support/RKVLogCapture.h"

namespace rkv {
namespace {

TEST(RKVHashTest, MD5MatchesTheStandardVectors) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"The quick brown fox jumps over the lazy dog", "9e107d9d372bb6826bd81d3542a419d6"},
      {std::string("\0", 1), "93b885adfe0da089cdf634904fd59f71"},  // bytes, not a C string
      {"", ""},
  };
  for (const auto& [text, digest] : rows)
    EXPECT_EQ(RKVHash::md5(text), digest) << text;
}

TEST(RKVRandomTest, DrawsStayInTheHalfOpenRange) {
  std::set<uint32_t> seen;
  for (int i = 0; i < 300; ++i) {
    const uint32_t value = RKVRandom::randomUnsignedIntWithMin(10, 13);
    ASSERT_GE(value, 10u);
    ASSERT_LT(value, 13u);
    seen.insert(value);
  }
  EXPECT_EQ(seen.size(), 3u);  // missing one of three in 300 draws: about 1 in 10^52
  EXPECT_EQ(RKVRandom::randomUnsignedIntWithMin(7, 8), 7u);
  EXPECT_LT(RKVRandom::randomUnsignedInt(), 4294967295u);
}

TEST(RKVRandomTest, AnEmptyRangeIsReported) {
  if (build::kBuiltInDebug) {
    EXPECT_DEATH(RKVRandom::randomUnsignedIntWithMin(5, 5), "'min' must be smaller than 'max'!");
    return;
  }
  test::RKVLogCapture capture;
  EXPECT_EQ(RKVRandom::randomUnsignedIntWithMin(5, 5), 5u);
  EXPECT_EQ(RKVRandom::randomUnsignedIntWithMin(9, 2), 9u);
  EXPECT_EQ(capture.errorMessages(),
            (std::vector<std::string>{"'min' must be smaller than 'max'!",
                                      "'min' must be smaller than 'max'!"}));
}

}  // namespace
}  // namespace rkv
