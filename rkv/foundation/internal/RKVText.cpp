#include "rkv/foundation/internal/RKVText.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace rkv::internal {

std::string asciiLowercased(std::string_view text) {
  std::string lowered(text);
  for (char& c : lowered)
    c = asciiLower(c);
  return lowered;
}

bool asciiEqualsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return asciiLower(x) == asciiLower(y);
         });
}

bool asciiStartsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         asciiEqualsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

bool asciiEndsWithIgnoringCase(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() &&
         asciiEqualsIgnoringCase(text.substr(text.size() - suffix.size()), suffix);
}

std::string_view trimmed(std::string_view text, std::string_view characters) {
  const size_t begin = text.find_first_not_of(characters);
  if (begin == std::string_view::npos) return text.substr(text.size());
  const size_t end = text.find_last_not_of(characters);
  return text.substr(begin, end - begin + 1);
}

void trimInPlace(std::string& text, std::string_view characters) {
  const size_t end = text.find_last_not_of(characters);
  if (end == std::string::npos) {
    text.clear();
    return;
  }
  text.erase(end + 1);
  text.erase(0, text.find_first_not_of(characters));
}

bool isValidUTF8(std::string_view bytes) {
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  const auto* end = p + bytes.size();
  while (p < end) {
    // Documents are mostly ASCII: skip it eight bytes at a time.
    uint64_t word;
    while (end - p >= 8 && (std::memcpy(&word, p, 8), (word & 0x8080808080808080ULL) == 0))
      p += 8;
    if (p == end) break;
    const unsigned char c = *p;
    if (c < 0x80) {
      ++p;
      continue;
    }
    size_t length;
    unsigned char low = 0x80, high = 0xBF;  // the bounds of the second byte
    if (c >= 0xC2 && c <= 0xDF) {
      length = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      length = 3;
      if (c == 0xE0) low = 0xA0;
      if (c == 0xED) high = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      length = 4;
      if (c == 0xF0) low = 0x90;
      if (c == 0xF4) high = 0x8F;
    } else {
      return false;
    }
    if (static_cast<size_t>(end - p) < length) return false;
    if (p[1] < low || p[1] > high) return false;
    for (size_t i = 2; i < length; ++i) {
      if ((p[i] & 0xC0) != 0x80) return false;
    }
    p += length;
  }
  return true;
}

bool isHTTPToken(std::string_view text) {
  if (text.empty()) return false;
  return std::all_of(text.begin(), text.end(), [](char c) {
    return isASCIIAlpha(c) || isASCIIDigit(c) ||
           (c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos);
  });
}

}  // namespace rkv::internal
