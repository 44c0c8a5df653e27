#include "rkv/vast/errors/RKVVASTErrorCodes.h"

#include <string>

#include "rkv/foundation/RKVUtils.h"

namespace rkv {

std::string_view RKVVASTErrorCodes::descriptionForCode(int64_t code) {
  switch (code) {
    case ConnectionTimedOut:
      return "Connection timed out.";
    case UnexpectedResponse:
      return "Unexpected response.";
    case ManagerTimeout:
      return "VASTManager Timeout.";
    case NoXMLInput:
      return "No XML Input.";
    case UnableToDownloadXML:
      return "Unable to download XML.";
    case UnableToCreateVASTModel:
      return "Unable to create VAST Model.";
    case NoMoreAdsAvailable:
      return "No more ads available.";
    case PassbackResolutionIncomplete:
      return "Passback resolution incomplete.";
    case NoMorePassback:
      return "No more Passback.";
    case NoAdAvailable:
      return "No ad available.";
    default:
      return {};
  }
}

RKVError RKVVASTErrorCodes::errorWithCode(int64_t code) {
  // Built by the general error operation, as every record of a domain is.
  const std::string_view description = descriptionForCode(code);
  if (description.empty()) return RKVUtils::errorWithDomain(std::string(Domain), code);
  return RKVUtils::errorWithDomain(std::string(Domain), code, std::string(description));
}

}  // namespace rkv
