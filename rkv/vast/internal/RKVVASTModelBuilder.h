// Builds an RKVVASTModel from a document's root element, reading its Ad elements either from the
// finished tree or one at a time while the tree is being built (so that a long document is never
// held whole). Both ways report the same things in the same order: the ads' reports are held
// back until the root is finished, and dropped with the ads when the document turns out to have
// no version. One document per builder; not thread-safe.
#pragma once

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "rkv/foundation/RKVError.h"
#include "rkv/vast/RKVVASTModel.h"
#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTErrorHandler.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv::internal {

class RKVVASTModelBuilder {
 public:
  // `error` (may be null) and `errorHandler` must outlive the builder.
  RKVVASTModelBuilder(std::optional<RKVError>* error, const RKVVASTInnerErrorHandler& errorHandler)
      : error_(error), errorHandler_(errorHandler) {}

  // Whether an Ad element may be read ahead, the root being still under construction: only
  // while the root has its version attribute (a document without one yields no ads at all).
  static bool acceptsAdsAhead(const RKVXMLDictionary& root);
  // Reads one entry of the root's Ad list, in document order (an element that is neither an
  // inline ad nor a wrapper is skipped silently). Its reports are held back until finish.
  void addAd(const RKVXMLDictionary& adElement);

  // Reads the finished root: its error URLs (only without Ad elements) and its version, then the
  // entries of its Ad list still in the tree, after those read ahead; then hands the held-back
  // reports to the handler. Without a version: the ads read ahead and their reports are dropped,
  // the missing version is logged and reported, and the answer is null.
  std::shared_ptr<RKVVASTModel> finish(const RKVXMLDictionary& root);

 private:
  void hold(const RKVVASTError& error, std::vector<RKVVASTURL>& errorURLs);

  std::optional<RKVError>* error_;
  const RKVVASTInnerErrorHandler& errorHandler_;
  RKVVASTModel::Ads ads_;
  std::vector<std::pair<RKVVASTError, std::vector<RKVVASTURL>>> heldReports_;
};

}  // namespace rkv::internal
