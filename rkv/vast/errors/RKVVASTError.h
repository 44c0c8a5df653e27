// RKVVASTError: one failure of fetching, parsing, validating or resolving a VAST document, from
// a fixed catalogue. A plain value (copyable, no shared state); safe to use from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVError.h"

namespace rkv {

class RKV_EXPORT RKVVASTError {
 public:
  // Stores the four values as given; nothing is validated. A VAST code of -1 means that the
  // failure has no IAB code (the record then carries the vendor code, and no error pixel is
  // fired for it).
  RKVVASTError(std::optional<std::string> errorName, std::optional<std::string> errorDescription,
               int64_t VASTCode, int64_t vireoCode);

  // The catalogue: each call returns a new value. The constructor's name is the error's name,
  // except VAST_WRAPPER_ERROR_FETCH_CORS, whose name is "VAST_WRAPPER_ERROR_FETCH" (the two
  // differ in vendor code and description only).
  static RKVVASTError XML_PARSING_ERROR();
  static RKVVASTError XML_PARSING_ERROR_WRAPPER();
  static RKVVASTError VAST_VALIDATION_ERROR_MISSING_VERSION();
  static RKVVASTError VAST_VALIDATION_ERROR_MISSING_IMPRESSION();
  static RKVVASTError VAST_VALIDATION_ERROR_MISSING_INLINE_AND_WRAPPER();
  static RKVVASTError VAST_VALIDATION_ERROR_MISSING_VASTADTAGURI();
  static RKVVASTError VAST_VALIDATION_ERROR_MISSING_CREATIVES();
  static RKVVASTError VAST_VALIDATION_ERROR_LINEAR_MISSING_MEDIAFILES();
  static RKVVASTError VAST_VALIDATION_ERROR_NONLINEAR_MISSING_ATTRIBUTES();
  static RKVVASTError VAST_VALIDATION_ERROR_NONLINEAR_MISSING_RESOURCE();
  static RKVVASTError VAST_VERSION_ERROR_NOT_SUPPORTED();
  static RKVVASTError VAST_VERSION_ERROR_NOT_SUPPORTED_WRAPPER();
  static RKVVASTError VAST_CREATIVE_ERROR_MISMATCHED_AD_LINEARITY();
  static RKVVASTError VAST_CREATIVE_ERROR_MISMATCHED_AD_DURATION();
  static RKVVASTError VAST_WRAPPER_ERROR();
  static RKVVASTError VAST_WRAPPER_ERROR_FETCH();
  static RKVVASTError VAST_WRAPPER_ERROR_FETCH_CORS();
  static RKVVASTError VAST_WRAPPER_ERROR_FETCH_TIMEOUT();
  static RKVVASTError VAST_WRAPPER_ERROR_LIMIT_REACHED();
  static RKVVASTError VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE();
  static RKVVASTError VAST_WRAPPER_ERROR_INLINE_TIMEOUT();
  static RKVVASTError VAST_LINEAR_ERROR_GENERAL();
  static RKVVASTError VAST_LINEAR_ERROR_MEDIA_UNABLE_TO_LOAD();
  static RKVVASTError VAST_LINEAR_ERROR_MEDIA_FETCH_TIMEOUT();
  static RKVVASTError VAST_LINEAR_ERROR_MEDIA_NO_VALID_FORMAT();
  static RKVVASTError VAST_LINEAR_ERROR_MEDIA_UNABLE_TO_DISPLAY();
  static RKVVASTError VAST_LINEAR_ERROR_CONDITIONAL_AD_REJECTED();
  static RKVVASTError VAST_LINEAR_ERROR_INTERACTIVE_FILE_NOT_EXECUTED();
  static RKVVASTError VAST_NONLINEAR_ERROR_MISMATCHED_DIMENSIONS();
  static RKVVASTError VAST_NONLINEAR_ERROR_FETCH();
  static RKVVASTError VAST_NONLINEAR_ERROR_NO_VALID_FORMAT();
  static RKVVASTError VAST_COMPANION_ERROR_GENERAL();
  static RKVVASTError VAST_COMPANION_ERROR_FETCH();
  static RKVVASTError VAST_COMPANION_ERROR_NO_VALID_FORMAT();
  static RKVVASTError VAST_UNDEFINED_ERROR();
  static RKVVASTError VAST_VPAID_ERROR();
  static RKVVASTError VAST_VPAID_ERROR_FETCH();
  static RKVVASTError VAST_VPAID_ERROR_PLAYBACK();
  static RKVVASTError VAST_VALIDATION_ERROR_MISSING_ADSYSTEM();
  static RKVVASTError VAST_VALIDATION_ERROR_MISSING_ADTITLE();
  static RKVVASTError VAST_VALIDATION_ERROR_LINEAR_MISSING_DURATION();
  static RKVVASTError VIREO_VAST_ERROR_ADCALL_FETCH();
  static RKVVASTError VIREO_VAST_ERROR_ADCALL_FETCH_TIMEOUT();
  static RKVVASTError VIREO_VAST_ERROR_TOTAL_TIMEOUT();
  static RKVVASTError VIREO_VAST_ERROR_UNIVERSAL_AD_ID_REJECTED();

  // Every error of the catalogue, one new value each, in the order above.
  static std::vector<RKVVASTError> catalogue();

  const std::optional<std::string>& errorName() const { return errorName_; }
  void setErrorName(std::optional<std::string> errorName) { errorName_ = std::move(errorName); }
  const std::optional<std::string>& errorDescription() const { return errorDescription_; }
  void setErrorDescription(std::optional<std::string> errorDescription) {
    errorDescription_ = std::move(errorDescription);
  }
  int64_t VASTCode() const { return VASTCode_; }
  void setVASTCode(int64_t VASTCode) { VASTCode_ = VASTCode; }
  int64_t vireoCode() const { return vireoCode_; }
  void setVireoCode(int64_t vireoCode) { vireoCode_ = vireoCode; }

  // The record of domain RKVVASTErrorCodes::Domain with the VAST code (the vendor code when the
  // VAST code is -1). Only when a description is present does it carry user information: the
  // description and a copy of this value (RKVError::vastError); otherwise both are absent.
  RKVError error() const;

  // "RKVVASTError(name=..., VASTCode=..., vireoCode=..., errorDescription=...)"; an absent text
  // reads "(null)".
  std::string description() const;

  // Names, descriptions, VAST codes and vendor codes all equal. A value whose own name or
  // description is absent equals nothing, not even a value missing the same text.
  bool isEqualToVASTError(const RKVVASTError& other) const;
  // True for this very value; false for nullptr; otherwise isEqualToVASTError.
  bool isEqual(const RKVVASTError* other) const;
  // isEqual: a value is equal to itself even when it equals no copy of itself.
  friend bool operator==(const RKVVASTError& a, const RKVVASTError& b) { return a.isEqual(&b); }

 private:
  std::optional<std::string> errorName_;
  std::optional<std::string> errorDescription_;
  int64_t VASTCode_;
  int64_t vireoCode_;
};

}  // namespace rkv
