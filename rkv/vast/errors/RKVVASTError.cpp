#include "rkv/vast/errors/RKVVASTError.h"

#include <memory>
#include <utility>

#include <fmt/format.h>

#include "rkv/foundation/RKVUtils.h"
#include "rkv/vast/errors/RKVVASTErrorCodes.h"

namespace rkv {

RKVVASTError::RKVVASTError(std::optional<std::string> errorName,
                           std::optional<std::string> errorDescription, int64_t VASTCode,
                           int64_t vireoCode)
    : errorName_(std::move(errorName)),
      errorDescription_(std::move(errorDescription)),
      VASTCode_(VASTCode),
      vireoCode_(vireoCode) {}

RKVError RKVVASTError::error() const {
  const int64_t code = VASTCode_ == -1 ? vireoCode_ : VASTCode_;
  if (!errorDescription_) return RKVError(std::string(RKVVASTErrorCodes::Domain), code);
  return RKVError(std::string(RKVVASTErrorCodes::Domain), code, errorDescription_,
                  std::make_shared<const RKVVASTError>(*this));
}

std::string RKVVASTError::description() const {
  return fmt::format("RKVVASTError(name={}, VASTCode={}, vireoCode={}, errorDescription={})",
                     RKVUtils::nullableDescription(errorName_), VASTCode_, vireoCode_,
                     RKVUtils::nullableDescription(errorDescription_));
}

std::vector<RKVVASTError> RKVVASTError::catalogue() {
  return {
      XML_PARSING_ERROR(),
      XML_PARSING_ERROR_WRAPPER(),
      VAST_VALIDATION_ERROR_MISSING_VERSION(),
      VAST_VALIDATION_ERROR_MISSING_IMPRESSION(),
      VAST_VALIDATION_ERROR_MISSING_INLINE_AND_WRAPPER(),
      VAST_VALIDATION_ERROR_MISSING_VASTADTAGURI(),
      VAST_VALIDATION_ERROR_MISSING_CREATIVES(),
      VAST_VALIDATION_ERROR_LINEAR_MISSING_MEDIAFILES(),
      VAST_VALIDATION_ERROR_NONLINEAR_MISSING_ATTRIBUTES(),
      VAST_VALIDATION_ERROR_NONLINEAR_MISSING_RESOURCE(),
      VAST_VERSION_ERROR_NOT_SUPPORTED(),
      VAST_VERSION_ERROR_NOT_SUPPORTED_WRAPPER(),
      VAST_CREATIVE_ERROR_MISMATCHED_AD_LINEARITY(),
      VAST_CREATIVE_ERROR_MISMATCHED_AD_DURATION(),
      VAST_WRAPPER_ERROR(),
      VAST_WRAPPER_ERROR_FETCH(),
      VAST_WRAPPER_ERROR_FETCH_CORS(),
      VAST_WRAPPER_ERROR_FETCH_TIMEOUT(),
      VAST_WRAPPER_ERROR_LIMIT_REACHED(),
      VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE(),
      VAST_WRAPPER_ERROR_INLINE_TIMEOUT(),
      VAST_LINEAR_ERROR_GENERAL(),
      VAST_LINEAR_ERROR_MEDIA_UNABLE_TO_LOAD(),
      VAST_LINEAR_ERROR_MEDIA_FETCH_TIMEOUT(),
      VAST_LINEAR_ERROR_MEDIA_NO_VALID_FORMAT(),
      VAST_LINEAR_ERROR_MEDIA_UNABLE_TO_DISPLAY(),
      VAST_LINEAR_ERROR_CONDITIONAL_AD_REJECTED(),
      VAST_LINEAR_ERROR_INTERACTIVE_FILE_NOT_EXECUTED(),
      VAST_NONLINEAR_ERROR_MISMATCHED_DIMENSIONS(),
      VAST_NONLINEAR_ERROR_FETCH(),
      VAST_NONLINEAR_ERROR_NO_VALID_FORMAT(),
      VAST_COMPANION_ERROR_GENERAL(),
      VAST_COMPANION_ERROR_FETCH(),
      VAST_COMPANION_ERROR_NO_VALID_FORMAT(),
      VAST_UNDEFINED_ERROR(),
      VAST_VPAID_ERROR(),
      VAST_VPAID_ERROR_FETCH(),
      VAST_VPAID_ERROR_PLAYBACK(),
      VAST_VALIDATION_ERROR_MISSING_ADSYSTEM(),
      VAST_VALIDATION_ERROR_MISSING_ADTITLE(),
      VAST_VALIDATION_ERROR_LINEAR_MISSING_DURATION(),
      VIREO_VAST_ERROR_ADCALL_FETCH(),
      VIREO_VAST_ERROR_ADCALL_FETCH_TIMEOUT(),
      VIREO_VAST_ERROR_TOTAL_TIMEOUT(),
      VIREO_VAST_ERROR_UNIVERSAL_AD_ID_REJECTED(),
  };
}

bool RKVVASTError::isEqualToVASTError(const RKVVASTError& other) const {
  // The receiver's own texts decide: an absent text answers "not equal" whatever it is compared
  // with.
  if (!errorName_ || !other.errorName_ || *errorName_ != *other.errorName_) return false;
  if (!errorDescription_ || !other.errorDescription_ ||
      *errorDescription_ != *other.errorDescription_) {
    return false;
  }
  return VASTCode_ == other.VASTCode_ && vireoCode_ == other.vireoCode_;
}

bool RKVVASTError::isEqual(const RKVVASTError* other) const {
  if (other == this) return true;
  if (other == nullptr) return false;
  return isEqualToVASTError(*other);
}

RKVVASTError RKVVASTError::XML_PARSING_ERROR() {
  return RKVVASTError("XML_PARSING_ERROR",
                      "A malformed or invalid XML document is retrieved from an AdCall.", 100,
                      100001);
}

RKVVASTError RKVVASTError::XML_PARSING_ERROR_WRAPPER() {
  return RKVVASTError("XML_PARSING_ERROR_WRAPPER",
                      "A malformed or invalid XML document is retrieved from a wrapper resolution.",
                      303, 100002);
}

RKVVASTError RKVVASTError::VAST_VALIDATION_ERROR_MISSING_VERSION() {
  return RKVVASTError("VAST_VALIDATION_ERROR_MISSING_VERSION",
                      "The 'version' attribute is missing in the VAST response.", 101, 101001);
}

RKVVASTError RKVVASTError::VAST_VALIDATION_ERROR_MISSING_IMPRESSION() {
  return RKVVASTError("VAST_VALIDATION_ERROR_MISSING_IMPRESSION",
                      "The <Impression> tag is missing in the VAST response.", 101, 101004);
}

RKVVASTError RKVVASTError::VAST_VALIDATION_ERROR_MISSING_INLINE_AND_WRAPPER() {
  return RKVVASTError("VAST_VALIDATION_ERROR_MISSING_INLINE_AND_WRAPPER",
                      "The <Inline> and <Wrapper> tags are missing in the VAST response.", 101,
                      101005);
}

RKVVASTError RKVVASTError::VAST_VALIDATION_ERROR_MISSING_VASTADTAGURI() {
  return RKVVASTError("VAST_VALIDATION_ERROR_MISSING_VASTADTAGURI",
                      "The <VASTAdTagURI> tag is missing in the VAST response.", 301, 101006);
}

RKVVASTError RKVVASTError::VAST_VALIDATION_ERROR_MISSING_CREATIVES() {
  return RKVVASTError(
      "VAST_VALIDATION_ERROR_MISSING_CREATIVES",
      "The <Creatives> or <Creative> tags are missing or malformed in the VAST response.", 101,
      101007);
}

RKVVASTError RKVVASTError::VAST_VALIDATION_ERROR_LINEAR_MISSING_MEDIAFILES() {
  return RKVVASTError(
      "VAST_VALIDATION_ERROR_LINEAR_MISSING_MEDIAFILES",
      "The <Mediafiles> tag of a Linear creative is missing or empty in the VAST response.", 401,
      101402);
}

RKVVASTError RKVVASTError::VAST_VALIDATION_ERROR_NONLINEAR_MISSING_ATTRIBUTES() {
  return RKVVASTError("VAST_VALIDATION_ERROR_NONLINEAR_MISSING_ATTRIBUTES",
                      "Some NonLinear creative attributes are missing in the VAST response.", 101,
                      101501);
}

RKVVASTError RKVVASTError::VAST_VALIDATION_ERROR_NONLINEAR_MISSING_RESOURCE() {
  return RKVVASTError(
      "VAST_VALIDATION_ERROR_NONLINEAR_MISSING_RESOURCE",
      "The <StaticResource> tag of a NonLinear creative is missing or empty in the VAST response.",
      101, 101502);
}

RKVVASTError RKVVASTError::VAST_VERSION_ERROR_NOT_SUPPORTED() {
  return RKVVASTError("VAST_VERSION_ERROR_NOT_SUPPORTED",
                      "The version attribute of a VAST file is not supported.", 102, 102001);
}

RKVVASTError RKVVASTError::VAST_VERSION_ERROR_NOT_SUPPORTED_WRAPPER() {
  return RKVVASTError("VAST_VERSION_ERROR_NOT_SUPPORTED_WRAPPER",
                      "The version attribute of a revolved wrapper is not supported.", 102, 102002);
}

RKVVASTError RKVVASTError::VAST_CREATIVE_ERROR_MISMATCHED_AD_LINEARITY() {
  return RKVVASTError("VAST_CREATIVE_ERROR_MISMATCHED_AD_LINEARITY",
                      "The client-side component receive a linear creative when expecting a non "
                      "linear… or the other way around.",
                      201, 201001);
}

RKVVASTError RKVVASTError::VAST_CREATIVE_ERROR_MISMATCHED_AD_DURATION() {
  return RKVVASTError("VAST_CREATIVE_ERROR_MISMATCHED_AD_DURATION",
                      "The client-side component cannot play because the ad duration is bigger "
                      "than allowed duration.",
                      202, 202001);
}

RKVVASTError RKVVASTError::VAST_WRAPPER_ERROR() {
  return RKVVASTError("VAST_WRAPPER_ERROR", "Fatal error during wrapper resolution.", 300, 300001);
}

RKVVASTError RKVVASTError::VAST_WRAPPER_ERROR_FETCH() {
  return RKVVASTError(
      "VAST_WRAPPER_ERROR_FETCH",
      "The resolution of a wrapper URI has failed because of a HTTP error (40x, 50x).", 301,
      301001);
}

RKVVASTError RKVVASTError::VAST_WRAPPER_ERROR_FETCH_CORS() {
  return RKVVASTError("VAST_WRAPPER_ERROR_FETCH",
                      "The resolution of a wrapper URI has failed because of a CORS error.", 301,
                      301002);
}

RKVVASTError RKVVASTError::VAST_WRAPPER_ERROR_FETCH_TIMEOUT() {
  return RKVVASTError("VAST_WRAPPER_ERROR_FETCH_TIMEOUT",
                      "The resolution of a wrapper URI has failed because of timeout.", 301,
                      301003);
}

RKVVASTError RKVVASTError::VAST_WRAPPER_ERROR_LIMIT_REACHED() {
  return RKVVASTError(
      "VAST_WRAPPER_ERROR_LIMIT_REACHED",
      "The maximum number of wrapper resolution defined by the configuration has been reached.",
      302, 302001);
}

RKVVASTError RKVVASTError::VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE() {
  return RKVVASTError("VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE",
                      "The resolution of wrapper finished with a response that is not a VAST file.",
                      303, 303001);
}

RKVVASTError RKVVASTError::VAST_WRAPPER_ERROR_INLINE_TIMEOUT() {
  return RKVVASTError("VAST_WRAPPER_ERROR_INLINE_TIMEOUT",
                      "Inline response returned after a wrapper resolution failed to result in ad "
                      "display within the defined timeout.",
                      304, 304001);
}

RKVVASTError RKVVASTError::VAST_LINEAR_ERROR_GENERAL() {
  return RKVVASTError("VAST_LINEAR_ERROR_GENERAL",
                      "Media player is unable to display the Linear Ad.", 400, 400001);
}

RKVVASTError RKVVASTError::VAST_LINEAR_ERROR_MEDIA_UNABLE_TO_LOAD() {
  return RKVVASTError("VAST_LINEAR_ERROR_MEDIA_UNABLE_TO_LOAD",
                      "The client-side component was unable to load the Linear ad mediafiles.", 401,
                      401001);
}

RKVVASTError RKVVASTError::VAST_LINEAR_ERROR_MEDIA_FETCH_TIMEOUT() {
  return RKVVASTError("VAST_LINEAR_ERROR_MEDIA_FETCH_TIMEOUT",
                      "The client-side component was unable to load the Linear selected mediafile "
                      "because of a timeout.",
                      402, 402001);
}

RKVVASTError RKVVASTError::VAST_LINEAR_ERROR_MEDIA_NO_VALID_FORMAT() {
  return RKVVASTError("VAST_LINEAR_ERROR_MEDIA_NO_VALID_FORMAT",
                      "No suitable media files were found for the media player.", 403, 403001);
}

RKVVASTError RKVVASTError::VAST_LINEAR_ERROR_MEDIA_UNABLE_TO_DISPLAY() {
  return RKVVASTError("VAST_LINEAR_ERROR_MEDIA_UNABLE_TO_DISPLAY",
                      "There was a problem when trying to display the Linear ad mediafile.", 405,
                      405001);
}

RKVVASTError RKVVASTError::VAST_LINEAR_ERROR_CONDITIONAL_AD_REJECTED() {
  return RKVVASTError(
      "VAST_LINEAR_ERROR_CONDITIONAL_AD_REJECTED",
      "A conditional ad was received but the “Allow conditional ad” option was set to false.", 408,
      408001);
}

RKVVASTError RKVVASTError::VAST_LINEAR_ERROR_INTERACTIVE_FILE_NOT_EXECUTED() {
  return RKVVASTError("VAST_LINEAR_ERROR_INTERACTIVE_FILE_NOT_EXECUTED",
                      "The Interactive unit in the <InteractiveCreativeFile> node was not executed "
                      "by the media player.",
                      409, 409001);
}

RKVVASTError RKVVASTError::VAST_NONLINEAR_ERROR_MISMATCHED_DIMENSIONS() {
  return RKVVASTError(
      "VAST_NONLINEAR_ERROR_MISMATCHED_DIMENSIONS",
      "The size (width/height) of the non linear creative is bigger than player size. The plugin "
      "will resize the creative to make it fit while maintaining its aspect ratio.",
      501, 501001);
}

RKVVASTError RKVVASTError::VAST_NONLINEAR_ERROR_FETCH() {
  return RKVVASTError("VAST_NONLINEAR_ERROR_FETCH",
                      "The non linear creative can't be loaded because of an HTTP Error.", 502,
                      502001);
}

RKVVASTError RKVVASTError::VAST_NONLINEAR_ERROR_NO_VALID_FORMAT() {
  return RKVVASTError("VAST_NONLINEAR_ERROR_NO_VALID_FORMAT",
                      "No suitable format for the NonLinear creative resources.", 503, 503001);
}

RKVVASTError RKVVASTError::VAST_COMPANION_ERROR_GENERAL() {
  return RKVVASTError("VAST_COMPANION_ERROR_GENERAL",
                      "Some parameters are missing for the companion.", 600, 600001);
}

RKVVASTError RKVVASTError::VAST_COMPANION_ERROR_FETCH() {
  return RKVVASTError("VAST_COMPANION_ERROR_FETCH",
                      "The companion creative can't be loaded because of an HTTP Error.", 603,
                      603001);
}

RKVVASTError RKVVASTError::VAST_COMPANION_ERROR_NO_VALID_FORMAT() {
  return RKVVASTError("VAST_COMPANION_ERROR_NO_VALID_FORMAT",
                      "No suitable format for the companion creative resources.", 604, 604001);
}

RKVVASTError RKVVASTError::VAST_UNDEFINED_ERROR() {
  return RKVVASTError("VAST_UNDEFINED_ERROR", "An undefined VAST error occurred.", 900, 900001);
}

RKVVASTError RKVVASTError::VAST_VPAID_ERROR() {
  return RKVVASTError("VAST_VPAID_ERROR", "An undefined VPAID error occurred.", 901, 901001);
}

RKVVASTError RKVVASTError::VAST_VPAID_ERROR_FETCH() {
  return RKVVASTError("VAST_VPAID_ERROR_FETCH", "An error occured while fetching a VPAID creative.",
                      901, 901002);
}

RKVVASTError RKVVASTError::VAST_VPAID_ERROR_PLAYBACK() {
  return RKVVASTError("VAST_VPAID_ERROR_PLAYBACK",
                      "An error occured while playing a VPAID creative.", 901, 901003);
}

RKVVASTError RKVVASTError::VAST_VALIDATION_ERROR_MISSING_ADSYSTEM() {
  return RKVVASTError("VAST_VALIDATION_ERROR_MISSING_ADSYSTEM",
                      "The <AdSystem> tag is missing in the VAST response.", -1, 101002);
}

RKVVASTError RKVVASTError::VAST_VALIDATION_ERROR_MISSING_ADTITLE() {
  return RKVVASTError("VAST_VALIDATION_ERROR_MISSING_ADTITLE",
                      "The <AdTitle> tag is missing in the VAST response.", -1, 101003);
}

RKVVASTError RKVVASTError::VAST_VALIDATION_ERROR_LINEAR_MISSING_DURATION() {
  return RKVVASTError(
      "VAST_VALIDATION_ERROR_LINEAR_MISSING_DURATION",
      "The <Duration> tag of a linear creative is missing or empty in the VAST response.", -1,
      101401);
}

RKVVASTError RKVVASTError::VIREO_VAST_ERROR_ADCALL_FETCH() {
  return RKVVASTError("VIREO_VAST_ERROR_ADCALL_FETCH",
                      "HTTP error code returned when fetching first VAST (40x, 50x).", -1,
                      10000001);
}

RKVVASTError RKVVASTError::VIREO_VAST_ERROR_ADCALL_FETCH_TIMEOUT() {
  return RKVVASTError("VIREO_VAST_ERROR_ADCALL_FETCH_TIMEOUT",
                      "Timeout when performing the first VAST Ad Call.", -1, 10000002);
}

RKVVASTError RKVVASTError::VIREO_VAST_ERROR_TOTAL_TIMEOUT() {
  return RKVVASTError("VIREO_VAST_ERROR_TOTAL_TIMEOUT",
                      "Total timeout reached before any wrapper resolution led to an InlineAd.", -1,
                      10000101);
}

RKVVASTError RKVVASTError::VIREO_VAST_ERROR_UNIVERSAL_AD_ID_REJECTED() {
  return RKVVASTError("VIREO_VAST_ERROR_UNIVERSAL_AD_ID_REJECTED",
                      "Ad rejected client-side because of missing UniversalAdId or a creative with "
                      "the same id was played already in the same ad break.",
                      -1, 10000301);
}

}  // namespace rkv
