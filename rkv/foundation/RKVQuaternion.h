// RKVQuaternion: a rotation as four doubles (w, x, y, z). Immutable; safe to share.
#pragma once

#include <array>
#include <cstdint>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVQuaternion {
 public:
  // The components, stored unchanged.
  RKVQuaternion(double w, double x, double y, double z) : w_(w), x_(x), y_(y), z_(z) {}

  // The rotation of `angle` radians about the (not normalised) axis:
  // (cos(angle/2), axisX sin(angle/2), axisY sin(angle/2), axisZ sin(angle/2)).
  static RKVQuaternion withAngle(double angle, double axisX, double axisY, double axisZ);
  // The rotation of `angle` radians about axis 0 (x), 1 (y) or 2 (z); any other code is the
  // zero axis, which leaves (cos(angle/2), 0, 0, 0).
  static RKVQuaternion withAngle(double angle, int64_t axis);
  // From Euler angles in radians about x, y and z.
  static RKVQuaternion withXe(double xe, double ye, double ze);

  double w() const { return w_; }
  double x() const { return x_; }
  double y() const { return y_; }
  double z() const { return z_; }

  // The Hamilton product this * other.
  RKVQuaternion multipliedBy(const RKVQuaternion& other) const;
  // sqrt(w^2 + x^2 + y^2 + z^2).
  double norm() const;
  // Each component divided by norm(); the zero quaternion gives NaNs.
  RKVQuaternion normalized() const;
  // Each component divided by w^2 + x^2 + y^2 + z^2, with no change of sign: a unit quaternion
  // is its own "inverse" here. This is the framework's definition, kept for the SDKs that rely
  // on it; it is not the conjugate-based inverse.
  RKVQuaternion inverted() const;
  // (x, y, z, w) in single precision.
  std::array<float, 4> vector4() const;

  // Every component within compareD1's tolerance.
  bool isEqualToQuaternion(const RKVQuaternion& other) const;
  // True when |d1 - d2| < 1e-9.
  static bool compareD1(double d1, double d2);

  // The same object, or isEqualToQuaternion (so not transitive).
  friend bool operator==(const RKVQuaternion& a, const RKVQuaternion& b) {
    return &a == &b || a.isEqualToQuaternion(b);
  }

 private:
  double w_;
  double x_;
  double y_;
  double z_;
};

}  // namespace rkv
