// Character classes of RFC 3986 and the percent-encoding shared by RKVURL and RKVURLComponents.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "rkv/foundation/RKVURL.h"

namespace rkv::url_internal {

enum CharClass : uint8_t {
  kSchemeChar = 1 << 0,    // ALPHA DIGIT + - .
  kUserInfoChar = 1 << 1,  // unreserved sub-delims ":"
  kHostChar = 1 << 2,      // unreserved sub-delims (reg-name without escapes)
  kPathChar = 1 << 3,      // pchar "/" (without escapes)
  kQueryChar = 1 << 4,     // pchar "/" "?" (query and fragment, without escapes)
  kUnreserved = 1 << 5,    // ALPHA DIGIT - . _ ~
  kHexDigit = 1 << 6,
  kIPLiteralChar = 1 << 7,  // unreserved sub-delims ":" (IPvFuture body)
};

constexpr std::array<uint8_t, 256> makeCharClasses() {
  std::array<uint8_t, 256> t{};
  auto add = [&t](std::string_view chars, uint8_t cls) {
    for (char c : chars)
      t[static_cast<unsigned char>(c)] |= cls;
  };
  constexpr std::string_view alpha = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  constexpr std::string_view digit = "0123456789";
  constexpr std::string_view unreservedMarks = "-._~";
  constexpr std::string_view subDelims = "!$&'()*+,;=";
  for (std::string_view s : {alpha, digit, unreservedMarks}) {
    add(s, kUnreserved | kUserInfoChar | kHostChar | kPathChar | kQueryChar | kIPLiteralChar);
  }
  add(subDelims, kUserInfoChar | kHostChar | kPathChar | kQueryChar | kIPLiteralChar);
  add(":", kUserInfoChar | kPathChar | kQueryChar | kIPLiteralChar);
  add("@", kPathChar | kQueryChar);
  add("/", kPathChar | kQueryChar);
  add("?", kQueryChar);
  add(alpha, kSchemeChar);
  add(digit, kSchemeChar | kHexDigit);
  add("+-.", kSchemeChar);
  add("ABCDEFabcdef", kHexDigit);
  return t;
}

inline constexpr std::array<uint8_t, 256> kCharClasses = makeCharClasses();

inline bool hasClass(unsigned char c, uint8_t cls) {
  return (kCharClasses[c] & cls) != 0;
}
inline bool isHexDigit(char c) {
  return hasClass(static_cast<unsigned char>(c), kHexDigit);
}

inline int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// True when text[i] is "%" followed by two hexadecimal digits.
inline bool isEscapeAt(std::string_view text, size_t i) {
  return i + 2 < text.size() && text[i] == '%' && isHexDigit(text[i + 1]) &&
         isHexDigit(text[i + 2]);
}

inline void appendEscaped(std::string& out, unsigned char c) {
  constexpr char kHex[] = "0123456789ABCDEF";
  out.push_back('%');
  out.push_back(kHex[c >> 4]);
  out.push_back(kHex[c & 0xF]);
}

// Appends `text` to `out`, percent-encoding every byte outside `cls`. With keepEscapes, a valid
// %XX escape is copied as it is (a "%" that starts none is encoded as %25); without, every "%" is
// encoded. Copies runs of allowed bytes in one go.
inline void appendEncoded(std::string& out, std::string_view text, uint8_t cls, bool keepEscapes) {
  size_t runStart = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (hasClass(c, cls)) continue;
    if (keepEscapes && isEscapeAt(text, i)) {
      i += 2;
      continue;
    }
    out.append(text, runStart, i - runStart);
    appendEscaped(out, c);
    runStart = i + 1;
  }
  out.append(text, runStart, text.size() - runStart);
}

// Splits an encoded query into decoded items (the rules of RKVURL::queryItems).
std::vector<RKVURLQueryItem> decodeQueryItems(std::string_view query);

}  // namespace rkv::url_internal
