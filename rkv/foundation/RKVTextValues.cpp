#include "rkv/foundation/RKVTextValues.h"

#include <limits>

#include "rkv/foundation/internal/RKVLeadingNumber.h"

namespace rkv {

namespace {

bool isWhiteSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// Index of the first character after leading white space.
size_t skipWhiteSpace(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && isWhiteSpace(text[i]))
    ++i;
  return i;
}

// The leading integer clamped to [minimum, maximum]. The magnitude is accumulated as a negative
// number so that the most negative value needs no special case.
int64_t leadingInteger(std::string_view text, int64_t minimum, int64_t maximum) {
  size_t i = skipWhiteSpace(text);
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  int64_t value = 0;  // <= 0
  bool overflow = false;
  for (; i < text.size() && isDigit(text[i]); ++i) {
    const int digit = text[i] - '0';
    if (value < (std::numeric_limits<int64_t>::min() + digit) / 10) {
      overflow = true;  // keep consuming digits; the result is clamped below
      continue;
    }
    value = value * 10 - digit;
  }
  if (negative) return overflow || value < minimum ? minimum : value;
  if (overflow || value < -maximum) return maximum;
  return -value;
}

}  // namespace

double RKVTextValues::doubleValue(std::string_view text) {
  return internal::leadingDouble(text);
}

float RKVTextValues::floatValue(std::string_view text) {
  const double value = doubleValue(text);
  // From half an ulp above float's maximum on, the value rounds to infinity; the cast alone would
  // be undefined behaviour there.
  constexpr double kOverflow = static_cast<double>(std::numeric_limits<float>::max()) + 0x1p103;
  if (value >= kOverflow) return std::numeric_limits<float>::infinity();
  if (value <= -kOverflow) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(value);
}

int32_t RKVTextValues::intValue(std::string_view text) {
  return static_cast<int32_t>(leadingInteger(text, std::numeric_limits<int32_t>::min(),
                                             std::numeric_limits<int32_t>::max()));
}

int64_t RKVTextValues::integerValue(std::string_view text) {
  return leadingInteger(text, std::numeric_limits<int64_t>::min(),
                        std::numeric_limits<int64_t>::max());
}

bool RKVTextValues::boolValue(std::string_view text) {
  size_t i = skipWhiteSpace(text);
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  while (i < text.size() && text[i] == '0')
    ++i;
  if (i == text.size()) return false;
  const char c = text[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

}  // namespace rkv
