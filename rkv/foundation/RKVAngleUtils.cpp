#include "rkv/foundation/RKVAngleUtils.h"

#include <numbers>

namespace rkv {

double RKVAngleUtils::radiansFromDegrees(double degrees) {
  return degrees * std::numbers::pi / 180.0;
}

double RKVAngleUtils::degreesFromRadians(double radians) {
  return radians * 180.0 / std::numbers::pi;
}

}  // namespace rkv
