// RKVVASTErrorCodes: the VAST error domain and the codes of the records that the VAST parser, the
// model generator and the VAST manager build themselves (those of the VAST error catalogue come
// from RKVVASTError::error()). Stateless; thread-safe.
#pragma once

#include <cstdint>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVError.h"

namespace rkv {

// Every record of the VAST layers has the domain "RKVVASTErrorDomain", the name callers compare.
class RKV_EXPORT RKVVASTErrorCodes {
 public:
  static constexpr std::string_view Domain = "RKVVASTErrorDomain";

  // Model generator: a time-out of zero or less.
  static constexpr int64_t ConnectionTimedOut = 5031;
  // Parser: no bytes to read.
  static constexpr int64_t UnexpectedResponse = 5032;
  // Manager: nextAdWithTimeout with a time-out of zero or less.
  static constexpr int64_t ManagerTimeout = 10001;
  // Model generator: neither XML nor a URL.
  static constexpr int64_t NoXMLInput = 10002;
  // Model generator: the download failed.
  static constexpr int64_t UnableToDownloadXML = 10003;
  // Manager: no root model.
  static constexpr int64_t UnableToCreateVASTModel = 10004;
  // Manager: the main ads are exhausted.
  static constexpr int64_t NoMoreAdsAvailable = 10005;
  // Manager: no passback ad while passback wrappers are still resolving.
  static constexpr int64_t PassbackResolutionIncomplete = 10006;
  // Manager: the passback ads are exhausted.
  static constexpr int64_t NoMorePassback = 10007;
  // Manager: resolveWrapper was given an ad that is not a wrapper.
  static constexpr int64_t NoAdAvailable = 10008;

  // The record of Domain with this code and its description (codes not listed above get no
  // description).
  static RKVError errorWithCode(int64_t code);
  // "Connection timed out.", "Unexpected response.", "VASTManager Timeout.", "No XML Input.",
  // "Unable to download XML.", "Unable to create VAST Model.", "No more ads available.",
  // "Passback resolution incomplete.", "No more Passback.", "No ad available."; empty for a code
  // not listed above.
  static std::string_view descriptionForCode(int64_t code);
  // The record is of Domain.
  static bool isInDomain(const RKVError& error) { return error.domain == Domain; }
};

}  // namespace rkv
