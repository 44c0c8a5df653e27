// RKVUtils: stateless string, consent-string, colour and error-record helpers. Thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVColor.h"
#include "rkv/foundation/RKVError.h"

namespace rkv {

class RKV_EXPORT RKVUtils {
 public:
  // White space is the horizontal set: tab and the Unicode space separators (U+0020, U+00A0,
  // U+1680, U+2000 to U+200A, U+202F, U+205F, U+3000), never line breaks. Texts are UTF-8.

  // True for an absent text and for one that is empty once white space is trimmed.
  static bool stringIsEmptyOrWhiteSpace(std::optional<std::string_view> string);
  // The text with every white-space character removed.
  static std::string stringByRemovingWhiteSpace(std::string_view string);

  // The text registered for key in the table `stringFile` of `bundle` (RKVStringTables; an
  // absent or empty table name means "Localizable"). A key that is not found yields the key
  // itself; an absent key yields "".
  static std::string localizedStringForKey(std::optional<std::string_view> key,
                                           std::optional<std::string_view> stringFile,
                                           std::string_view bundle);

  // True when the text is present, not empty, and every character, lower-cased, is one of
  // a-z, 0-9, '-', '_' and '.'.
  static bool isValidGDPRConsentString(std::optional<std::string_view> string);
  // True when the text is present, not empty, and made of the ASCII digits 0-9 only.
  static bool stringIsDigitsOnly(std::optional<std::string_view> string);

  // colorFromString(string, "#").
  static std::optional<RKVColor> colorFromString(std::optional<std::string_view> string);
  // colorFromString(string, withPrefix, false): the prefix is required.
  static std::optional<RKVColor> colorFromString(std::optional<std::string_view> string,
                                                 std::string_view withPrefix);
  // Hexadecimal colour: every occurrence of the prefix is removed (a non-empty prefix that is
  // not optional must lead the text), and the rest must be 3 (RGB), 4 (ARGB), 6 (RRGGBB) or
  // 8 (AARRGGBB) hexadecimal digits, alpha first in the 4- and 8-digit forms. Absent otherwise.
  static std::optional<RKVColor> colorFromString(std::optional<std::string_view> string,
                                                 std::string_view withPrefix, bool optionalPrefix);
  // The `length` characters of `string` from `start` read as hexadecimal and divided by 255; a
  // single digit counts twice ("F" is "FF"). A range outside the text, or no hexadecimal digit,
  // reads 0.
  static double colorComponentFrom(std::string_view string, size_t start, size_t length);

  // colorStringFromColor(color, "#", includeAlpha).
  static std::string colorStringFromColor(const RKVColor& color, bool includeAlpha);
  // The prefix then AARRGGBB (with alpha) or RRGGBB: each component times 255, rounded in single
  // precision, as two or more upper-case hexadecimal digits. A non-finite component, or one
  // whose product exceeds 10^15, prints as 00.
  static std::string colorStringFromColor(const RKVColor& color, std::string_view withPrefix,
                                          bool includeAlpha);

  // An error record; with a description the record carries it as its localized description,
  // otherwise it has no user information.
  static RKVError errorWithDomain(std::string domain, int64_t code,
                                  std::optional<std::string> description = std::nullopt);

  // How formatted texts render an optional text: its value, or "(null)" when absent. The view
  // borrows from `text`.
  static std::string_view nullableDescription(const std::optional<std::string>& text);
};

}  // namespace rkv
