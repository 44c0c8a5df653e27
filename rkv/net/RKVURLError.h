// RKVURLError: the transport error records of the HTTP session layer (domain, codes and their
// texts). Stateless; thread-safe.
#pragma once

#include <cstdint>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVError.h"

namespace rkv {

// Every transport failure reaches callers as an RKVError of domain "NSURLErrorDomain", the name
// callers compare, with one of the platform's URL loading codes below. Which transport failure
// gives which code is decided in one table (see docs/ARCHITECTURE.md, "HTTP session").
class RKV_EXPORT RKVURLError {
 public:
  static constexpr std::string_view Domain = "NSURLErrorDomain";

  static constexpr int64_t Unknown = -1;
  static constexpr int64_t Cancelled = -999;
  static constexpr int64_t BadURL = -1000;
  static constexpr int64_t TimedOut = -1001;
  static constexpr int64_t UnsupportedURL = -1002;
  static constexpr int64_t CannotFindHost = -1003;
  static constexpr int64_t CannotConnectToHost = -1004;
  static constexpr int64_t NetworkConnectionLost = -1005;
  static constexpr int64_t HTTPTooManyRedirects = -1007;
  static constexpr int64_t ResourceUnavailable = -1008;
  static constexpr int64_t NotConnectedToInternet = -1009;
  static constexpr int64_t BadServerResponse = -1011;
  static constexpr int64_t CannotDecodeContentData = -1015;
  static constexpr int64_t DataLengthExceedsMaximum = -1103;
  static constexpr int64_t SecureConnectionFailed = -1200;
  static constexpr int64_t ServerCertificateUntrusted = -1202;

  // Requests the session refuses without loading anything carry this domain instead.
  static constexpr std::string_view SessionDomain = "RKVURLSessionErrorDomain";
  // A synchronous request made on the thread that delivers the provider's completions, which
  // would wait for itself forever.
  static constexpr int64_t SynchronousRequestOnCompletionThread = 1;
  // The session has no provider, or the provider dropped the completion without calling it.
  static constexpr int64_t NoResponse = 2;

  // The record for a code of Domain, with the platform's description of that code (codes not
  // listed above get the description of Unknown).
  static RKVError errorWithCode(int64_t code);
  // The record for a code of SessionDomain, with its description.
  static RKVError sessionErrorWithCode(int64_t code);
  // The description errorWithCode gives.
  static std::string_view descriptionForCode(int64_t code);
};

}  // namespace rkv
