#include "rkv/foundation/RKVUtils.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <fmt/format.h>

#include "rkv/foundation/RKVStringTables.h"
#include "rkv/foundation/internal/RKVText.h"

namespace rkv {

namespace {

// Length in bytes of the white-space character at `i`, 0 when there is none. Covers tab and the
// Unicode space separators; line breaks are not white space here.
size_t whiteSpaceLengthAt(std::string_view s, size_t i) {
  const auto byte = [&](size_t k) {
    return i + k < s.size() ? static_cast<unsigned char>(s[i + k]) : 0u;
  };
  const unsigned b0 = byte(0);
  if (b0 == 0x09 || b0 == 0x20) return 1;
  if (b0 == 0xC2 && byte(1) == 0xA0) return 2;                     // U+00A0
  if (b0 == 0xE1 && byte(1) == 0x9A && byte(2) == 0x80) return 3;  // U+1680
  if (b0 == 0xE2 && byte(1) == 0x80 && (byte(2) <= 0x8A || byte(2) == 0xAF) && byte(2) >= 0x80) {
    return 3;  // U+2000 to U+200A, U+202F
  }
  if (b0 == 0xE2 && byte(1) == 0x81 && byte(2) == 0x9F) return 3;  // U+205F
  if (b0 == 0xE3 && byte(1) == 0x80 && byte(2) == 0x80) return 3;  // U+3000
  return 0;
}

bool isHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

unsigned hexValue(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
  return static_cast<unsigned>(c - 'A' + 10);
}

// Component * 255 rounded in single precision, as the unsigned text of a long.
std::string hexComponent(double component) {
  const double scaled = component * 255.0;
  long value = 0;
  if (std::isfinite(scaled) && std::fabs(scaled) <= 1e15) {
    value = std::lroundf(static_cast<float>(scaled));
  }
  return fmt::format("{:02X}", static_cast<unsigned long>(value));
}

}  // namespace

bool RKVUtils::stringIsEmptyOrWhiteSpace(std::optional<std::string_view> string) {
  if (!string) return true;
  size_t i = 0;
  while (i < string->size()) {
    const size_t n = whiteSpaceLengthAt(*string, i);
    if (n == 0) return false;
    i += n;
  }
  return true;
}

std::string RKVUtils::stringByRemovingWhiteSpace(std::string_view string) {
  std::string result;
  result.reserve(string.size());
  size_t i = 0;
  while (i < string.size()) {
    const size_t n = whiteSpaceLengthAt(string, i);
    if (n > 0) {
      i += n;
    } else {
      result.push_back(string[i++]);
    }
  }
  return result;
}

std::string RKVUtils::localizedStringForKey(std::optional<std::string_view> key,
                                            std::optional<std::string_view> stringFile,
                                            std::string_view bundle) {
  // The look-up's fallback value is "": an absent key answers it, and a key that is not found
  // answers itself (the platform's rule for an empty fallback).
  if (!key) return std::string();
  if (auto text =
          RKVStringTables::textForKey(*key, stringFile.value_or(std::string_view()), bundle)) {
    return std::move(*text);
  }
  return std::string(*key);
}

bool RKVUtils::isValidGDPRConsentString(std::optional<std::string_view> string) {
  if (!string || string->empty()) return false;
  for (size_t i = 0; i < string->size(); ++i) {
    const char c = (*string)[i];
    if (internal::isASCIIAlpha(c) || internal::isASCIIDigit(c) || c == '-' || c == '_' ||
        c == '.') {
      continue;
    }
    // The Kelvin sign (U+212A) is the one non-ASCII character whose lower case is an allowed
    // letter ("k").
    if (string->substr(i, 3) == "\xE2\x84\xAA") {
      i += 2;
      continue;
    }
    return false;
  }
  return true;
}

bool RKVUtils::stringIsDigitsOnly(std::optional<std::string_view> string) {
  if (!string || string->empty()) return false;
  return std::all_of(string->begin(), string->end(), internal::isASCIIDigit);
}

std::optional<RKVColor> RKVUtils::colorFromString(std::optional<std::string_view> string) {
  return colorFromString(string, "#", false);
}

std::optional<RKVColor> RKVUtils::colorFromString(std::optional<std::string_view> string,
                                                  std::string_view withPrefix) {
  return colorFromString(string, withPrefix, false);
}

std::optional<RKVColor> RKVUtils::colorFromString(std::optional<std::string_view> string,
                                                  std::string_view withPrefix,
                                                  bool optionalPrefix) {
  if (!string) return std::nullopt;
  if (!optionalPrefix && !withPrefix.empty() && !string->starts_with(withPrefix)) {
    return std::nullopt;
  }
  // Every occurrence of the prefix goes, not only the leading one: "##FFF" reads as "FFF".
  std::string hex;
  hex.reserve(string->size());
  for (size_t i = 0; i < string->size();) {
    if (!withPrefix.empty() && string->substr(i).starts_with(withPrefix)) {
      i += withPrefix.size();
    } else {
      hex.push_back((*string)[i++]);
    }
  }
  if (hex.empty()) return std::nullopt;
  for (char& c : hex) {
    if (!isHexDigit(c)) return std::nullopt;
    if (c >= 'a' && c <= 'f') c = static_cast<char>(c - 'a' + 'A');
  }
  RKVColor color;
  switch (hex.size()) {
    case 3:
      color.red = colorComponentFrom(hex, 0, 1);
      color.green = colorComponentFrom(hex, 1, 1);
      color.blue = colorComponentFrom(hex, 2, 1);
      color.alpha = 1.0;
      return color;
    case 4:  // ARGB: alpha first, like the formatter's AARRGGBB
      color.alpha = colorComponentFrom(hex, 0, 1);
      color.red = colorComponentFrom(hex, 1, 1);
      color.green = colorComponentFrom(hex, 2, 1);
      color.blue = colorComponentFrom(hex, 3, 1);
      return color;
    case 6:
      color.red = colorComponentFrom(hex, 0, 2);
      color.green = colorComponentFrom(hex, 2, 2);
      color.blue = colorComponentFrom(hex, 4, 2);
      color.alpha = 1.0;
      return color;
    case 8:
      color.alpha = colorComponentFrom(hex, 0, 2);
      color.red = colorComponentFrom(hex, 2, 2);
      color.green = colorComponentFrom(hex, 4, 2);
      color.blue = colorComponentFrom(hex, 6, 2);
      return color;
    default:
      return std::nullopt;
  }
}

double RKVUtils::colorComponentFrom(std::string_view string, size_t start, size_t length) {
  if (start > string.size() || length > string.size() - start) return 0.0;
  std::string digits(string.substr(start, length));
  if (length == 1) digits += digits;
  // Leading hexadecimal digits, saturating like a 32-bit scanner.
  uint64_t value = 0;
  for (char c : digits) {
    if (!isHexDigit(c)) break;
    value = value * 16 + hexValue(c);
    if (value > std::numeric_limits<uint32_t>::max()) {
      value = std::numeric_limits<uint32_t>::max();
      break;
    }
  }
  return static_cast<double>(value) / 255.0;
}

std::string RKVUtils::colorStringFromColor(const RKVColor& color, bool includeAlpha) {
  return colorStringFromColor(color, "#", includeAlpha);
}

std::string RKVUtils::colorStringFromColor(const RKVColor& color, std::string_view withPrefix,
                                           bool includeAlpha) {
  if (includeAlpha) {
    return fmt::format("{}{}{}{}{}", withPrefix, hexComponent(color.alpha), hexComponent(color.red),
                       hexComponent(color.green), hexComponent(color.blue));
  }
  return fmt::format("{}{}{}{}", withPrefix, hexComponent(color.red), hexComponent(color.green),
                     hexComponent(color.blue));
}

RKVError RKVUtils::errorWithDomain(std::string domain, int64_t code,
                                   std::optional<std::string> description) {
  return RKVError(std::move(domain), code, std::move(description));
}

std::string_view RKVUtils::nullableDescription(const std::optional<std::string>& text) {
  return text ? std::string_view(*text) : std::string_view("(null)");
}

}  // namespace rkv
