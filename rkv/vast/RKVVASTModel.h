// RKVVASTModel: one parsed VAST document: its version, its usable ads in document order and the
// error URLs of a document without ads, with the queries that decide which ads play first and
// which are fallbacks. Built once, then read (the ads' own mutable state aside).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVError.h"
#include "rkv/vast/model/RKVVASTAd.h"
#include "rkv/vast/model/RKVVASTErrorHandler.h"
#include "rkv/vast/model/RKVVASTURL.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv {

class RKV_EXPORT RKVVASTModel {
 public:
  using Ads = std::vector<std::shared_ptr<RKVVASTAd>>;

  RKVVASTModel(std::string version, Ads ads, std::vector<RKVVASTURL> errorPixels);

  // Reads the root element. Null when it has no version attribute (after logging, filling the
  // error place with VAST_VALIDATION_ERROR_MISSING_VERSION's record and reporting it with the
  // root error URLs). Ads that cannot be made are dropped; each ad reports through a handler
  // that fills the list with the ad's error URLs as the document reader does.
  static std::shared_ptr<RKVVASTModel> withDictionary(const RKVXMLDictionary& root,
                                                      std::optional<RKVError>* error,
                                                      const RKVVASTInnerErrorHandler& errorHandler);
  static std::shared_ptr<RKVVASTModel> withDictionary(const RKVXMLDictionary& root);

  // The version attribute exactly as written.
  const std::string& version() const { return version_; }
  const Ads& ads() const { return ads_; }
  // The Error URLs of the root, read only from a document without Ad elements.
  const std::vector<RKVVASTURL>& errorPixels() const { return errorPixels_; }

  // version is one of "2.0", "3.0", "4.0", "4.1", "4.2" (whole-string comparison).
  bool versionIsSupported() const;
  int64_t sequencedAdsCount() const;
  int64_t wrapperCount() const;
  // At least one ad has a sequence (one is enough).
  bool isAdPod() const;
  std::shared_ptr<RKVVASTAd> firstAd() const;
  // The ad is one of this document's ads (the same object).
  bool isOwnerOf(const RKVVASTAd* ad) const;
  // The ad after the given one; the first ad for null; null after the last or for a stranger.
  std::shared_ptr<RKVVASTAd> adAfter(const RKVVASTAd* ad) const;
  // A pod: the sequenced ads by sequence number (stable); otherwise the first inline ad, else
  // the first ad. Empty without ads.
  Ads mainAds() const;
  // A pod: the ads without sequence; otherwise every ad but the first. Empty for fewer than two.
  Ads passbackAds() const;

 private:
  std::string version_;
  Ads ads_;
  std::vector<RKVVASTURL> errorPixels_;
};

}  // namespace rkv
