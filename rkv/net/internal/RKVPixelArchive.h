// The pixel archive: a pixel as a JSON object {"id", "url", "expirationDate", "status"} and the
// pixel list as a JSON array of them. Writing is hand-made (the whole list is archived at every
// save, so it must cost far less than the save's fsync); reading goes through nlohmann::json
// once, at load. Stateless; thread-safe.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rkv/net/RKVPixel.h"

namespace rkv::internal {

// Appends the pixel's JSON object to `out`.
void appendPixelArchive(std::string& out, const RKVPixel& pixel);
// Appends `text` as a JSON string, quotes included.
void appendJSONString(std::string& out, std::string_view text);

// The pixel of one JSON object text; std::nullopt when it is not one.
std::optional<RKVPixel> decodePixel(std::string_view json);

// What reading a list archive gave.
struct RKVPixelListDecoding {
  // std::nullopt when the text is not a JSON array.
  std::optional<std::vector<RKVPixel>> pixels;
  // Entries of the array that are not a pixel's object (skipped).
  size_t skipped = 0;
};
RKVPixelListDecoding decodePixelList(std::string_view json);

}  // namespace rkv::internal
