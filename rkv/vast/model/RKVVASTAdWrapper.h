// RKVVASTAdWrapper: an ad that points to another VAST document through its ad-tag URI (an Ad
// element with a Wrapper child). Thread-safety as RKVVASTAd.
#pragma once

#include <memory>
#include <optional>

#include "rkv/RKVExport.h"
#include "rkv/vast/model/RKVVASTAd.h"

namespace rkv {

class RKV_EXPORT RKVVASTAdWrapper : public RKVVASTAd {
 public:
  // Reads the Ad element. Without a Wrapper child: as RKVVASTAdInline but with
  // XML_PARSING_ERROR_WRAPPER, and null.
  static std::shared_ptr<RKVVASTAdWrapper> withDictionary(
      const RKVXMLDictionary& adElement, std::optional<RKVError>* error,
      const RKVVASTInnerErrorHandler& errorHandler);
  static std::shared_ptr<RKVVASTAdWrapper> withDictionary(const RKVXMLDictionary& adElement);

  // The URL of the first VASTAdTagURI child; nullopt when absent, empty or not a URL (which does
  // not make the wrapper invalid).
  const std::optional<RKVVASTURL>& adTagURL() const { return adTagURL_; }
  void findVASTAdTagURI(const RKVXMLDictionary& content);

  std::optional<RKVURL> nextActionURL() const override;
  bool isValid() const override;
  bool isWrapper() const override { return true; }

 private:
  std::optional<RKVVASTURL> adTagURL_;
};

}  // namespace rkv
