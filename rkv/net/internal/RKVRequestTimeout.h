// The time-out a request runs under, shared by the transport and the session's waits.
#pragma once

#include <algorithm>

namespace rkv::internal {

// Seconds used for a request whose time-out is zero, negative or NaN.
inline constexpr double kDefaultRequestTimeoutSeconds = 60.0;
// Longest time-out honoured: a day, far below where milliseconds overflow a long.
inline constexpr double kMaximumRequestTimeoutSeconds = 86400.0;

// The request's time-out in seconds as the transport applies it.
inline double effectiveRequestTimeout(double seconds) {
  if (!(seconds > 0.0)) return kDefaultRequestTimeoutSeconds;  // zero, negative, NaN
  return std::min(seconds, kMaximumRequestTimeoutSeconds);
}

}  // namespace rkv::internal
