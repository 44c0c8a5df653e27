// RKVTextValues: the platform's numeric and boolean readings of a text, as the VAST model reads
// attributes and element texts. Every reading skips leading white space (space, \t, \n, \v, \f,
// \r), reads the longest leading form it accepts and ignores what follows; a text without one
// reads 0 or false. An absent text (null pointer) reads 0 or false too. Stateless; thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVTextValues {
 public:
  // The leading decimal number (sign, digits, optional fraction and exponent), whatever the
  // process locale; +-HUGE_VAL when it overflows. "inf", "nan" and hexadecimal forms read 0.
  static double doubleValue(std::string_view text);
  static double doubleValue(const std::string* text) { return text ? doubleValue(*text) : 0.0; }
  // doubleValue narrowed to single precision (+-infinity beyond its range).
  static float floatValue(std::string_view text);
  static float floatValue(const std::string* text) { return text ? floatValue(*text) : 0.0f; }
  // The leading integer (optional sign, then digits; "12.9" reads 12), clamped to the 32-bit
  // range.
  static int32_t intValue(std::string_view text);
  static int32_t intValue(const std::string* text) { return text ? intValue(*text) : 0; }
  // The same, clamped to the 64-bit range.
  static int64_t integerValue(std::string_view text);
  static int64_t integerValue(const std::string* text) { return text ? integerValue(*text) : 0; }
  // True when, after white space, an optional sign and any leading zeros, the text starts with
  // Y, y, T, t or a digit 1-9 ("yes", "true", "+007", "2x"); false otherwise ("0", "no", "",
  // "false").
  static bool boolValue(std::string_view text);
  static bool boolValue(const std::string* text) { return text ? boolValue(*text) : false; }
};

}  // namespace rkv
