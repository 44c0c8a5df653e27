// RKVAngleUtils: degrees to radians and back. Stateless; thread-safe.
#pragma once

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVAngleUtils {
 public:
  // degrees * pi / 180.
  static double radiansFromDegrees(double degrees);
  // radians * 180 / pi.
  static double degreesFromRadians(double radians);
};

}  // namespace rkv
