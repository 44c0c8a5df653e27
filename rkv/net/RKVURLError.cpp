#include "rkv/net/RKVURLError.h"

#include <string>
#include <utility>

namespace rkv {

std::string_view RKVURLError::descriptionForCode(int64_t code) {
  switch (code) {
    case Cancelled:
      return "cancelled";
    case BadURL:
      return "bad URL";
    case TimedOut:
      return "The request timed out.";
    case UnsupportedURL:
      return "unsupported URL";
    case CannotFindHost:
      return "A server with the specified hostname could not be found.";
    case CannotConnectToHost:
      return "Could not connect to the server.";
    case NetworkConnectionLost:
      return "The network connection was lost.";
    case HTTPTooManyRedirects:
      return "too many HTTP redirects";
    case ResourceUnavailable:
      return "resource unavailable";
    case NotConnectedToInternet:
      return "The Internet connection appears to be offline.";
    case BadServerResponse:
      return "bad server response";
    case CannotDecodeContentData:
      return "cannot decode raw data";
    case DataLengthExceedsMaximum:
      return "resource exceeds maximum size";
    case SecureConnectionFailed:
      return "An SSL error has occurred and a secure connection to the server cannot be made.";
    case ServerCertificateUntrusted:
      return "The certificate for this server is invalid.";
    default:
      return "unknown error";
  }
}

RKVError RKVURLError::errorWithCode(int64_t code) {
  return RKVError(std::string(Domain), code, std::string(descriptionForCode(code)));
}

RKVError RKVURLError::sessionErrorWithCode(int64_t code) {
  std::string description;
  switch (code) {
    case SynchronousRequestOnCompletionThread:
      description = "A synchronous request cannot be made on the thread that delivers completions.";
      break;
    case NoResponse:
      description = "The request ended without a response.";
      break;
    default:
      description = "unknown error";
      break;
  }
  return RKVError(std::string(SessionDomain), code, std::move(description));
}

}  // namespace rkv
