// ASCII and UTF-8 helpers: the one place for case folding, trimming, UTF-8 validation and HTTP
// token checks. Locale-independent (a host's setlocale changes nothing). Thread-safe: pure
// functions.
#pragma once

#include <string>
#include <string_view>

namespace rkv::internal {

constexpr char asciiLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
constexpr bool isASCIIAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool isASCIIDigit(char c) {
  return c >= '0' && c <= '9';
}

// A copy with A-Z turned into a-z; every other byte (non-ASCII included) unchanged.
std::string asciiLowercased(std::string_view text);
// Equal when A-Z and a-z are taken as the same; other bytes must match exactly.
bool asciiEqualsIgnoringCase(std::string_view a, std::string_view b);
bool asciiStartsWithIgnoringCase(std::string_view text, std::string_view prefix);
bool asciiEndsWithIgnoringCase(std::string_view text, std::string_view suffix);

// The characters trimmed by default: space, tab, LF, VT, FF, CR.
inline constexpr std::string_view kASCIIWhiteSpace = " \t\n\v\f\r";
// `text` without leading and trailing bytes found in `characters` (a view into `text`).
std::string_view trimmed(std::string_view text, std::string_view characters = kASCIIWhiteSpace);
// The same in place.
void trimInPlace(std::string& text, std::string_view characters = kASCIIWhiteSpace);

// Well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF. Runs of ASCII are
// skipped eight bytes at a time.
bool isValidUTF8(std::string_view bytes);

// An RFC 9110 token: one or more of ALPHA, DIGIT and !#$%&'*+-.^_`|~ (no separators such as
// "(),/:;<=>?@[\]{}, no white space, no control or non-ASCII byte).
bool isHTTPToken(std::string_view text);

}  // namespace rkv::internal
