#include <gtest/gtest.h>

#include "rkv/foundation/RKVError.h"

namespace rkv {
namespace {

TEST(RKVErrorTest, DescriptionAndEquality) {
  RKVError withText("RKVVASTErrorDomain", 10001, "VASTManager Timeout.");
  RKVError bare("RKVFutureError", 1000);
  EXPECT_TRUE(withText.hasUserInfo());
  EXPECT_FALSE(bare.hasUserInfo());
  EXPECT_EQ(withText.description(),
            "Error Domain=RKVVASTErrorDomain Code=10001 \"VASTManager Timeout.\"");
  EXPECT_EQ(bare.description(), "Error Domain=RKVFutureError Code=1000");
  EXPECT_EQ(withText, RKVError("RKVVASTErrorDomain", 10001, "VASTManager Timeout."));
  EXPECT_NE(withText, RKVError("RKVVASTErrorDomain", 10001));
  EXPECT_NE(bare, RKVError("RKVFutureError", 1001));
}

}  // namespace
}  // namespace rkv
