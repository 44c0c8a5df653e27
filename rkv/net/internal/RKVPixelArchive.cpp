#include "rkv/net/internal/RKVPixelArchive.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <limits>

#include <nlohmann/json.hpp>

namespace rkv::internal {

namespace {

using Json = nlohmann::json;

// Bytes that a JSON string cannot hold as they are: the quote, the backslash and the controls.
constexpr std::array<bool, 256> kNeedsEscape = [] {
  std::array<bool, 256> table{};
  for (int c = 0; c < 0x20; ++c)
    table[c] = true;
  table['"'] = true;
  table['\\'] = true;
  return table;
}();

template <typename Integer>
void appendInteger(std::string& out, Integer value) {
  char buffer[24];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, result.ptr);
}

int64_t nanosecondsSince1970(RKVPixel::Date date) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(date.time_since_epoch()).count();
}

std::optional<RKVPixel> pixelFromObject(const Json& object) {
  if (!object.is_object()) return std::nullopt;
  const auto id = object.find("id");
  const auto url = object.find("url");
  const auto date = object.find("expirationDate");
  const auto status = object.find("status");
  if (id == object.end() || url == object.end() || date == object.end() || status == object.end())
    return std::nullopt;
  // Parsed non-negative integers are unsigned; anything else (negative, fractional) is refused.
  if (!id->is_number_unsigned() || id->get<uint64_t>() > std::numeric_limits<uint32_t>::max())
    return std::nullopt;
  if (!url->is_string()) return std::nullopt;
  if (!date->is_number_integer() || !status->is_number_integer()) return std::nullopt;
  // An unsigned value above the signed range is not a date nor a status this library wrote.
  if (date->is_number_unsigned() &&
      date->get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
    return std::nullopt;
  if (status->is_number_unsigned() &&
      status->get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
    return std::nullopt;
  std::optional<RKVURL> parsed = RKVURL::withString(url->get_ref<const std::string&>());
  if (!parsed) return std::nullopt;
  const auto since1970 = std::chrono::nanoseconds(date->get<int64_t>());
  return RKVPixel(static_cast<uint32_t>(id->get<uint64_t>()), std::move(*parsed),
                  RKVPixel::Date(std::chrono::duration_cast<RKVPixel::Date::duration>(since1970)),
                  RKVPixel::statusFromInt(status->get<int64_t>()));
}

Json parse(std::string_view json) {
  // No exceptions: a text that is not JSON gives a discarded value.
  return Json::parse(json.begin(), json.end(), nullptr, false);
}

// True when some byte needs an escape. A URL almost never holds one and the whole list is
// archived at every save, so eight bytes are looked at a time: a byte of the word is below 0x20,
// or equal to the quote or the backslash, exactly when the matching mask below is not zero.
bool needsEscape(std::string_view text) {
  constexpr uint64_t kOnes = 0x0101010101010101ULL;
  constexpr uint64_t kHighs = 0x8080808080808080ULL;
  const auto hasZeroByte = [](uint64_t word) { return (word - kOnes) & ~word & kHighs; };
  size_t i = 0;
  for (; i + 8 <= text.size(); i += 8) {
    uint64_t word;
    std::memcpy(&word, text.data() + i, 8);
    const uint64_t control = (word - kOnes * 0x20) & ~word & kHighs;
    if (control | hasZeroByte(word ^ (kOnes * '"')) | hasZeroByte(word ^ (kOnes * '\\')))
      return true;
  }
  for (; i < text.size(); ++i)
    if (kNeedsEscape[static_cast<unsigned char>(text[i])]) return true;
  return false;
}

}  // namespace

void appendJSONString(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  out.push_back('"');
  if (!needsEscape(text)) {
    out.append(text);
    out.push_back('"');
    return;
  }
  size_t run = 0;  // start of the bytes not yet copied
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (!kNeedsEscape[byte]) continue;
    out.append(text.data() + run, i - run);
    run = i + 1;
    switch (byte) {
      case '"':
        out.append("\\\"");
        break;
      case '\\':
        out.append("\\\\");
        break;
      case '\n':
        out.append("\\n");
        break;
      case '\r':
        out.append("\\r");
        break;
      case '\t':
        out.append("\\t");
        break;
      default:
        out.append("\\u00");
        out.push_back(kHex[byte >> 4]);
        out.push_back(kHex[byte & 0xf]);
    }
  }
  out.append(text.data() + run, text.size() - run);
  out.push_back('"');
}

void appendPixelArchive(std::string& out, const RKVPixel& pixel) {
  out.append("{\"id\":");
  appendInteger(out, pixel.ID());
  out.append(",\"url\":");
  appendJSONString(out, pixel.url().absoluteString());
  out.append(",\"expirationDate\":");
  appendInteger(out, nanosecondsSince1970(pixel.expirationDate()));
  out.append(",\"status\":");
  appendInteger(out, RKVPixel::intFromStatus(pixel.status()));
  out.push_back('}');
}

std::optional<RKVPixel> decodePixel(std::string_view json) {
  return pixelFromObject(parse(json));
}

RKVPixelListDecoding decodePixelList(std::string_view json) {
  RKVPixelListDecoding result;
  const Json list = parse(json);
  if (!list.is_array()) return result;
  std::vector<RKVPixel> pixels;
  pixels.reserve(list.size());
  for (const Json& entry : list) {
    if (std::optional<RKVPixel> pixel = pixelFromObject(entry))
      pixels.push_back(std::move(*pixel));
    else
      ++result.skipped;
  }
  result.pixels = std::move(pixels);
  return result;
}

}  // namespace rkv::internal
