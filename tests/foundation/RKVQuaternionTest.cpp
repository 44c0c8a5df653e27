#include <cmath>
#include <limits>
#include <numbers>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVAngleUtils.h"
#include "rkv/foundation/RKVQuaternion.h"

namespace rkv {
namespace {

using std::numbers::pi;

void expectComponents(const RKVQuaternion& q, double w, double x, double y, double z) {
  EXPECT_NEAR(q.w(), w, 1e-12);
  EXPECT_NEAR(q.x(), x, 1e-12);
  EXPECT_NEAR(q.y(), y, 1e-12);
  EXPECT_NEAR(q.z(), z, 1e-12);
}

TEST(RKVQuaternionTest, Construction) {
  expectComponents(RKVQuaternion::withAngle(pi, 2), 0.0, 0.0, 0.0, 1.0);
  expectComponents(RKVQuaternion::withAngle(pi, 0), 0.0, 1.0, 0.0, 0.0);
  expectComponents(RKVQuaternion::withAngle(pi / 2, 1), std::sqrt(0.5), 0.0, std::sqrt(0.5), 0.0);
  // Unknown axis codes give the zero axis.
  expectComponents(RKVQuaternion::withAngle(pi, 3), 0.0, 0.0, 0.0, 0.0);
  expectComponents(RKVQuaternion::withAngle(pi / 3, -1), std::cos(pi / 6), 0.0, 0.0, 0.0);
  // The axis is not normalised.
  expectComponents(RKVQuaternion::withAngle(pi, 2.0, 0.0, 0.0), 0.0, 2.0, 0.0, 0.0);

  expectComponents(RKVQuaternion::withXe(0, 0, 0), 1.0, 0.0, 0.0, 0.0);
  // A single Euler angle is the rotation about that axis.
  EXPECT_EQ(RKVQuaternion::withXe(0.7, 0, 0), RKVQuaternion::withAngle(0.7, 0));
  EXPECT_EQ(RKVQuaternion::withXe(0, 0.7, 0), RKVQuaternion::withAngle(0.7, 1));
  EXPECT_EQ(RKVQuaternion::withXe(0, 0, 0.7), RKVQuaternion::withAngle(0.7, 2));
  // Mixed angles follow the x-y-z composition of the formulas.
  const RKVQuaternion mixed = RKVQuaternion::withXe(0.3, -0.4, 1.1);
  EXPECT_NEAR(mixed.norm(), 1.0, 1e-12);
  EXPECT_EQ(mixed, RKVQuaternion::withAngle(0.3, 0)
                       .multipliedBy(RKVQuaternion::withAngle(-0.4, 1))
                       .multipliedBy(RKVQuaternion::withAngle(1.1, 2)));
}

TEST(RKVQuaternionTest, ProductNormAndInversion) {
  const RKVQuaternion identity(1, 0, 0, 0);
  const RKVQuaternion q(0.5, -1.5, 2.0, 3.25);
  EXPECT_EQ(identity.multipliedBy(q), q);
  EXPECT_EQ(q.multipliedBy(identity), q);
  // i * j = k, j * i = -k: the order matters.
  const RKVQuaternion i(0, 1, 0, 0), j(0, 0, 1, 0);
  expectComponents(i.multipliedBy(j), 0, 0, 0, 1);
  expectComponents(j.multipliedBy(i), 0, 0, 0, -1);
  expectComponents(i.multipliedBy(i), -1, 0, 0, 0);

  EXPECT_DOUBLE_EQ(RKVQuaternion(1, 2, 3, 4).norm(), std::sqrt(30.0));
  EXPECT_NEAR(q.normalized().norm(), 1.0, 1e-15);
  const RKVQuaternion zero = RKVQuaternion(0, 0, 0, 0).normalized();
  EXPECT_TRUE(std::isnan(zero.w()) && std::isnan(zero.z()));

  // No sign change: a unit quaternion is returned as it is.
  expectComponents(RKVQuaternion(0, 1, 0, 0).inverted(), 0, 1, 0, 0);
  expectComponents(RKVQuaternion(2, 0, 0, 0).inverted(), 0.5, 0, 0, 0);
  expectComponents(RKVQuaternion(1, 1, 1, 1).inverted(), 0.25, 0.25, 0.25, 0.25);
}

TEST(RKVQuaternionTest, VectorAndTolerantEquality) {
  EXPECT_EQ(RKVQuaternion(1, 2, 3, 4).vector4(), (std::array<float, 4>{2, 3, 4, 1}));
  const auto huge = RKVQuaternion(1e300, -1e300, 0, 0).vector4();
  EXPECT_EQ(huge[0], -std::numeric_limits<float>::infinity());
  EXPECT_EQ(huge[3], std::numeric_limits<float>::infinity());

  const RKVQuaternion q(0.1, 0.2, 0.3, 0.4);
  EXPECT_EQ(q, RKVQuaternion(0.1 + 5e-10, 0.2, 0.3, 0.4 - 5e-10));
  EXPECT_FALSE(q == RKVQuaternion(0.1, 0.2 + 2e-9, 0.3, 0.4));
  EXPECT_FALSE(q == RKVQuaternion(0.1, 0.2, 0.3, 0.4 + 2e-9));
  EXPECT_TRUE(RKVQuaternion::compareD1(1.0, 1.0 + 9e-10));
  EXPECT_FALSE(RKVQuaternion::compareD1(1.0, 1.0 + 1.1e-9));
  // NaN components equal nothing but the very same object.
  const RKVQuaternion nan(std::numeric_limits<double>::quiet_NaN(), 0, 0, 0);
  EXPECT_TRUE(nan == nan);
  EXPECT_FALSE(nan.isEqualToQuaternion(nan));
  EXPECT_FALSE(nan == RKVQuaternion(nan));
}

TEST(RKVQuaternionTest, AngleConversions) {
  EXPECT_DOUBLE_EQ(RKVAngleUtils::radiansFromDegrees(180.0), pi);
  EXPECT_DOUBLE_EQ(RKVAngleUtils::radiansFromDegrees(-90.0), -pi / 2);
  EXPECT_DOUBLE_EQ(RKVAngleUtils::degreesFromRadians(pi / 4), 45.0);
  EXPECT_DOUBLE_EQ(RKVAngleUtils::degreesFromRadians(RKVAngleUtils::radiansFromDegrees(33.3)),
                   33.3);
}

}  // namespace
}  // namespace rkv
