// RKVError: the library's error record (domain, code, optional localized description and the VAST
// error it was made from). An immutable value; safe to copy between threads.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "rkv/RKVExport.h"

namespace rkv {

class RKVVASTError;

struct RKV_EXPORT RKVError {
  std::string domain;
  int64_t code = 0;
  // The record's user information holds the localized description and, for records made from a
  // VAST error, that error under "VASTError". A record without a description has no user
  // information at all (and so no VAST error either).
  std::optional<std::string> localizedDescription;
  std::shared_ptr<const RKVVASTError> vastError;

  RKVError() = default;
  RKVError(std::string domain, int64_t code, std::optional<std::string> description = std::nullopt,
           std::shared_ptr<const RKVVASTError> vastError = nullptr);

  bool hasUserInfo() const { return localizedDescription.has_value(); }

  // "Error Domain=<domain> Code=<code> \"<description>\"", for logs and the command-line tool.
  std::string description() const;

  // Domain, code and description are compared; the VAST error it came from is not.
  friend RKV_EXPORT bool operator==(const RKVError& a, const RKVError& b);
};

}  // namespace rkv
