#include "tools/rkv/RKVShownText.h"

namespace rkv::cli {

namespace {

constexpr char kHex[] = "0123456789ABCDEF";

void appendHex(std::string& out, const char* prefix, unsigned char value) {
  out += prefix;
  out += kHex[value >> 4];
  out += kHex[value & 0xF];
}

}  // namespace

std::string shownText(std::string_view text) {
  std::string shown;
  shown.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '\n') {
      shown += "\\n";
    } else if (c == '\r') {
      shown += "\\r";
    } else if (c == '\t') {
      shown += "\\t";
    } else if (c < 0x20 || c == 0x7F) {
      appendHex(shown, "\\x", c);
    } else if (c == 0xC2 && i + 1 < text.size() &&
               static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
               static_cast<unsigned char>(text[i + 1]) <= 0x9F) {
      appendHex(shown, "\\u00", static_cast<unsigned char>(text[++i]));
    } else {
      shown += static_cast<char>(c);
    }
  }
  return shown;
}

}  // namespace rkv::cli
