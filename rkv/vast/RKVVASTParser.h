// RKVVASTParser: VAST bytes to dictionary tree to RKVVASTModel, with the document-level checks
// (parse failure, version, presence of ads). Stateless; any thread; the handler is called on the
// calling thread before the call returns.
#pragma once

#include <optional>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/vast/RKVVASTParserResponse.h"
#include "rkv/vast/model/RKVVASTErrorHandler.h"

namespace rkv {

class RKV_EXPORT RKVVASTParser {
 public:
  // `isWrapper`: the bytes answer a wrapper's ad-tag URI (selects the wrapper forms of the
  // errors). nullopt bytes: VAST_VPAID_ERROR_FETCH and error 5032 "Unexpected response.".
  static RKVVASTParserResponse parseXMLAndGenerateVASTObjectModel(
      std::optional<std::string_view> bytes, bool isWrapper,
      const RKVVASTErrorHandler& errorHandler);
  static RKVVASTParserResponse parseXMLAndGenerateVASTObjectModel(
      std::optional<std::string_view> bytes);
};

}  // namespace rkv
