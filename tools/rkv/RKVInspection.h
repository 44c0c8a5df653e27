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
#include "rkv/net/RKVURLSessionProviderProtocol.h"
#include "rkv/vast/RKVVASTParserResponse.h"
#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTURL.h"
#include "rkv/xml/RKVXMLPushParser.h"

#include "tools/rkv/RKVTransportLog.h"

namespace rkv::cli {

// One call of the error handler.
struct RKVReportedError {
  RKVVASTError error;
  std::vector<RKVVASTURL> errorURLs;
};

struct RKVInspection {
  RKVVASTParserResponse response{nullptr, std::nullopt};
  std::vector<RKVReportedError> reported;  // in the order they came
  // Why the bytes are not XML, when the reading reported an XML parsing error for that reason
  // (the expat error of the same bytes read again).
  std::optional<RKVXMLParseError> xmlError;
  // The transfers that failed, with the transport's error records (URL inputs).
  std::vector<RKVTransportLog::Failure> transportFailures;
};

// Reads the bytes as RKVVASTModelGenerator does (time-out <= 0 is refused like there).
RKVInspection inspectBytes(std::string_view bytes, bool isWrapper, double timeout = 5);
// Downloads and reads the URL through the generator's download path, over `provider` (null: the
// shared provider), blocking up to `timeout` seconds.
RKVInspection inspectURL(const RKVURL& url, bool isWrapper, double timeout,
                         std::shared_ptr<RKVURLSessionProviderProtocol> provider = nullptr);

// Exactly one JSON object, written ad by ad (no tree of the whole document is built):
//   {"ok", "error", "reported", "version", "errorPixels", "isAdPod", "mainAds", "passbackAds",
//    "ads"}
// "ok" says whether the response holds a model; "mainAds" and "passbackAds" are indices into
// "ads"; each ad is cli::adJSON. Ends with a line break.
void writeInspectionJSON(std::ostream& out, const RKVInspection& inspection);
// A readable outline: the document, each ad with its creatives, media files and tracking, then
// every reported error with its codes and URLs, and the response's error. Document text is
// shown on one line (shownText).
void writeInspectionOutline(std::ostream& out, const RKVInspection& inspection);
// Why `bytes` are not XML as the VAST parser reads them (the shared reader options, the depth
// limit among them): expat's error, or nullopt when they read.
std::optional<RKVXMLParseError> xmlParseError(std::string_view bytes);
// One line: `prefix`, `what` ("not well-formed XML"), " at line L, column C: " and expat's message
// (the column counted from 1).
void writeXMLParseError(std::ostream& err, std::string_view prefix, std::string_view what,
                        const RKVXMLParseError& error);

// The reasons the outputs above leave out, one line each after `prefix` ("rkv inspect: "): each
// failed transfer's error record, and the XML error with its line and column (counted from 1).
// Nothing when there is none.
void writeInspectionDiagnostics(std::ostream& err, const RKVInspection& inspection,
                                std::string_view prefix);

}  // namespace rkv::cli
