#include "rkv/foundation/RKVQuaternion.h"

#include <cmath>
#include <limits>

namespace rkv {

namespace {

// A double beyond float's range becomes an infinity of its sign, as IEEE hardware would give,
// without the undefined conversion.
float toFloat(double value) {
  constexpr double kMax = std::numeric_limits<float>::max();
  if (value > kMax) return std::numeric_limits<float>::infinity();
  if (value < -kMax) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(value);
}

}  // namespace

RKVQuaternion RKVQuaternion::withAngle(double angle, double axisX, double axisY, double axisZ) {
  const double s = std::sin(angle / 2.0);
  return RKVQuaternion(std::cos(angle / 2.0), axisX * s, axisY * s, axisZ * s);
}

RKVQuaternion RKVQuaternion::withAngle(double angle, int64_t axis) {
  switch (axis) {
    case 0:
      return withAngle(angle, 1.0, 0.0, 0.0);
    case 1:
      return withAngle(angle, 0.0, 1.0, 0.0);
    case 2:
      return withAngle(angle, 0.0, 0.0, 1.0);
    default:
      return withAngle(angle, 0.0, 0.0, 0.0);
  }
}

RKVQuaternion RKVQuaternion::withXe(double xe, double ye, double ze) {
  const double c1 = std::cos(xe / 2.0);
  const double c2 = std::cos(ye / 2.0);
  const double c3 = std::cos(ze / 2.0);
  const double s1 = std::sin(xe / 2.0);
  const double s2 = std::sin(ye / 2.0);
  const double s3 = std::sin(ze / 2.0);
  return RKVQuaternion(c1 * c2 * c3 - s1 * s2 * s3, s1 * c2 * c3 + c1 * s2 * s3,
                       c1 * s2 * c3 - s1 * c2 * s3, c1 * c2 * s3 + s1 * s2 * c3);
}

RKVQuaternion RKVQuaternion::multipliedBy(const RKVQuaternion& o) const {
  return RKVQuaternion(
      w_ * o.w_ - x_ * o.x_ - y_ * o.y_ - z_ * o.z_, w_ * o.x_ + x_ * o.w_ + y_ * o.z_ - z_ * o.y_,
      w_ * o.y_ - x_ * o.z_ + y_ * o.w_ + z_ * o.x_, w_ * o.z_ + x_ * o.y_ - y_ * o.x_ + z_ * o.w_);
}

double RKVQuaternion::norm() const {
  return std::sqrt(std::pow(w_, 2) + std::pow(x_, 2) + std::pow(y_, 2) + std::pow(z_, 2));
}

RKVQuaternion RKVQuaternion::normalized() const {
  const double n = norm();
  return RKVQuaternion(w_ / n, x_ / n, y_ / n, z_ / n);
}

RKVQuaternion RKVQuaternion::inverted() const {
  const double squared = w_ * w_ + x_ * x_ + y_ * y_ + z_ * z_;
  return RKVQuaternion(w_ / squared, x_ / squared, y_ / squared, z_ / squared);
}

std::array<float, 4> RKVQuaternion::vector4() const {
  return {toFloat(x_), toFloat(y_), toFloat(z_), toFloat(w_)};
}

bool RKVQuaternion::isEqualToQuaternion(const RKVQuaternion& other) const {
  return compareD1(w_, other.w_) && compareD1(x_, other.x_) && compareD1(y_, other.y_) &&
         compareD1(z_, other.z_);
}

bool RKVQuaternion::compareD1(double d1, double d2) {
  return std::fabs(d1 - d2) < 1e-9;
}

}  // namespace rkv
