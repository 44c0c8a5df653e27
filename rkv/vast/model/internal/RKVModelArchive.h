// Keyed archiving of the VAST model: an archive is a JSON object whose keys are the archive
// keys of the class. Objects write themselves with toJSON and read themselves back with the
// readers below, through the same initializer as construction. An absent (nil) property is not
// written; a URL is written as its absolute string. None of these throws.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "rkv/foundation/RKVURL.h"

namespace rkv::internal {

using RKVArchiveObject = nlohmann::ordered_json;

// The archive text of an object. Text that is not UTF-8 is written with U+FFFD in its place.
std::string toJSON(const RKVArchiveObject& object);
// The archived object, or nullopt when the text is not a JSON object.
std::optional<RKVArchiveObject> fromJSON(std::string_view text);

// Writes the text under the key when it is present.
void archiveString(RKVArchiveObject& object, const char* key,
                   const std::optional<std::string>& value);
// The string under the key, or nullopt when it is absent or not a string.
std::optional<std::string> unarchiveString(const RKVArchiveObject& object, const char* key);
// The number under the key, or nullopt when it is absent or not a number.
std::optional<double> unarchiveNumber(const RKVArchiveObject& object, const char* key);
// The boolean under the key, or nullopt when it is absent or not a boolean.
std::optional<bool> unarchiveBool(const RKVArchiveObject& object, const char* key);
// The URL parsed from the string under the key, or nullopt when it is absent or does not parse.
std::optional<RKVURL> unarchiveURL(const RKVArchiveObject& object, const char* key);

}  // namespace rkv::internal
