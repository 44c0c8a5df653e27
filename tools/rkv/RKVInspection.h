// What `rkv inspect` finds in one VAST answer, and its two renderings (an outline for people,
// one JSON object for programs). Shared by the subcommand and the fuzz target. Not
// synchronised: one inspection per thread.
#pragma once

#include <iosfwd>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "rkv/foundation/RKVURL.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/vast/RKVVASTParserResponse.h"
#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTURL.h"

namespace rkv::cli {

// One call of the error handler.
struct RKVReportedError {
  RKVVASTError error;
  std::vector<RKVVASTURL> errorURLs;
};

struct RKVInspection {
  RKVVASTParserResponse response{nullptr, std::nullopt};
  std::vector<RKVReportedError> reported;  // in the order they came
};

// Reads the bytes as RKVVASTModelGenerator does (time-out <= 0 is refused like there).
RKVInspection inspectBytes(std::string_view bytes, bool isWrapper, double timeout = 5);
// Downloads and reads the URL through the generator's download path on `session` (null: the
// shared session), blocking up to `timeout` seconds.
RKVInspection inspectURL(const RKVURL& url, bool isWrapper, double timeout,
                         std::shared_ptr<RKVURLSession> session = nullptr);

// Exactly one JSON object, written ad by ad (no tree of the whole document is built):
//   {"ok", "error", "reported", "version", "errorPixels", "isAdPod", "mainAds", "passbackAds",
//    "ads"}
// "ok" says whether the response holds a model; "mainAds" and "passbackAds" are indices into
// "ads"; each ad is cli::adJSON. Ends with a line break.
void writeInspectionJSON(std::ostream& out, const RKVInspection& inspection);
// A readable outline: the document, each ad with its creatives, media files and tracking, then
// every reported error with its codes and URLs, and the response's error.
void writeInspectionOutline(std::ostream& out, const RKVInspection& inspection);

}  // namespace rkv::cli
