// The JSON form of VAST ads that the rkv tool prints (`rkv inspect --json`, `rkv resolve`).
//
// Keys come in a fixed order; absent values are null; URLs are their absolute strings; numbers
// are numbers (a float that overflowed to infinity prints as null, which JSON has no better
// word for). Stateless; any thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "rkv/foundation/RKVError.h"
#include "rkv/vast/model/RKVVASTAd.h"
#include "rkv/vast/model/RKVVASTURL.h"

namespace rkv::cli {

// One ad:
//   {"kind": "inline" | "wrapper", "id", "sequence", "hasSequence", "adSystem", "adTitle",
//    "valid", "wrapperDepth", "impressions", "errorPixels", "adTagURI", "viewabilityEvents",
//    "linear", "nonLinear", "companion", "adVerifications", "extensions"}
// The kind of an ad that is neither (the bare base class) is null.
nlohmann::ordered_json adJSON(const RKVVASTAd& ad);

// The pieces, for other renderings.
nlohmann::ordered_json urlJSON(const std::optional<RKVVASTURL>& url);
nlohmann::ordered_json urlsJSON(const std::vector<RKVVASTURL>& urls);
nlohmann::ordered_json textJSON(const std::optional<std::string>& text);
// An error record, as every subcommand writes one: {"domain", "code", "description"}; null when
// absent.
nlohmann::ordered_json errorJSON(const std::optional<RKVError>& error);

// Writes the value as the tool does: indented by `indent` spaces per level, starting at
// `level` levels (for a value nested in a document written piecewise), invalid UTF-8 replaced.
std::string dumpJSON(const nlohmann::ordered_json& value, int indent = 2, int level = 0);

}  // namespace rkv::cli
