#include "rkv/foundation/internal/RKVLeadingNumber.h"

#include <charconv>
#include <string>
#include <system_error>

#include <locale.h>
#include <stdlib.h>

namespace rkv::internal {

namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// The "C" locale, created once and never freed: strtod_l reads '.' as the decimal point
// whatever the process locale is.
locale_t cLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  return locale;
}

}  // namespace

double leadingDouble(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r')))
    ++i;
  const size_t start = i;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  size_t digits = 0;
  while (i < text.size() && isDigit(text[i])) {
    ++i;
    ++digits;
  }
  if (i < text.size() && text[i] == '.') {
    ++i;
    while (i < text.size() && isDigit(text[i])) {
      ++i;
      ++digits;
    }
  }
  if (digits == 0) return 0.0;
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    size_t j = i + 1;
    if (j < text.size() && (text[j] == '+' || text[j] == '-')) ++j;
    if (j < text.size() && isDigit(text[j])) {
      while (j < text.size() && isDigit(text[j]))
        ++j;
      i = j;
    }
  }
  // Only the validated span is converted, so no other form (inf, nan, hex) can be read.
  // from_chars rounds correctly without allocating; it refuses a leading '+' and leaves
  // overflow and underflow to strtod_l, which gives their platform results (+-HUGE_VAL, 0).
  const size_t begin = text[start] == '+' ? start + 1 : start;
  double value = 0;
  const auto [end, error] = std::from_chars(text.data() + begin, text.data() + i, value);
  if (error == std::errc() && end == text.data() + i) return value;
  const std::string number(text.substr(start, i - start));
  const locale_t locale = cLocale();
  if (locale == static_cast<locale_t>(nullptr)) return strtod(number.c_str(), nullptr);
  return strtod_l(number.c_str(), nullptr, locale);
}

}  // namespace rkv::internal
