// Reading the leading decimal number of a text, whatever the C locale says.
#pragma once

#include <string_view>

namespace rkv::internal {

// Skips leading white space (space, \t, \n, \v, \f, \r), then takes the longest leading decimal
// number: an optional sign, digits with an optional '.' fraction, and an optional exponent.
// Returns 0.0 when there is no number; +-HUGE_VAL when it overflows. Never "inf", "nan" or
// hexadecimal forms. Thread-safe.
double leadingDouble(std::string_view text);

}  // namespace rkv::internal
