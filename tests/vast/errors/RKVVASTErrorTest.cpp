#include <tuple>

#include <gtest/gtest.h>

#include "rkv/vast/errors/RKVVASTError.h"

namespace rkv {
namespace {

// Name, VAST code, vendor code and description: the whole catalogue, in its listing order, texts
// exactly as callers and pixels see them.
// clang-format off
const std::tuple<const char*, int64_t, int64_t, const char*> kCatalogue[] = {
    {"XML_PARSING_ERROR", 100, 100001, "A malformed or invalid XML document is retrieved from an AdCall."},
    {"XML_PARSING_ERROR_WRAPPER", 303, 100002, "A malformed or invalid XML document is retrieved from a wrapper resolution."},
    {"VAST_VALIDATION_ERROR_MISSING_VERSION", 101, 101001, "The 'version' attribute is missing in the VAST response."},
    {"VAST_VALIDATION_ERROR_MISSING_IMPRESSION", 101, 101004, "The <Impression> tag is missing in the VAST response."},
    {"VAST_VALIDATION_ERROR_MISSING_INLINE_AND_WRAPPER", 101, 101005, "The <Inline> and <Wrapper> tags are missing in the VAST response."},
    {"VAST_VALIDATION_ERROR_MISSING_VASTADTAGURI", 301, 101006, "The <VASTAdTagURI> tag is missing in the VAST response."},
    {"VAST_VALIDATION_ERROR_MISSING_CREATIVES", 101, 101007, "The <Creatives> or <Creative> tags are missing or malformed in the VAST response."},
    {"VAST_VALIDATION_ERROR_LINEAR_MISSING_MEDIAFILES", 401, 101402, "The <Mediafiles> tag of a Linear creative is missing or empty in the VAST response."},
    {"VAST_VALIDATION_ERROR_NONLINEAR_MISSING_ATTRIBUTES", 101, 101501, "Some NonLinear creative attributes are missing in the VAST response."},
    {"VAST_VALIDATION_ERROR_NONLINEAR_MISSING_RESOURCE", 101, 101502, "The <StaticResource> tag of a NonLinear creative is missing or empty in the VAST response."},
    {"VAST_VERSION_ERROR_NOT_SUPPORTED", 102, 102001, "The version attribute of a VAST file is not supported."},
    {"VAST_VERSION_ERROR_NOT_SUPPORTED_WRAPPER", 102, 102002, "The version attribute of a revolved wrapper is not supported."},
    {"VAST_CREATIVE_ERROR_MISMATCHED_AD_LINEARITY", 201, 201001, "The client-side component receive a linear creative when expecting a non linear… or the other way around."},
    {"VAST_CREATIVE_ERROR_MISMATCHED_AD_DURATION", 202, 202001, "The client-side component cannot play because the ad duration is bigger than allowed duration."},
    {"VAST_WRAPPER_ERROR", 300, 300001, "Fatal error during wrapper resolution."},
    {"VAST_WRAPPER_ERROR_FETCH", 301, 301001, "The resolution of a wrapper URI has failed because of a HTTP error (40x, 50x)."},
    {"VAST_WRAPPER_ERROR_FETCH", 301, 301002, "The resolution of a wrapper URI has failed because of a CORS error."},
    {"VAST_WRAPPER_ERROR_FETCH_TIMEOUT", 301, 301003, "The resolution of a wrapper URI has failed because of timeout."},
    {"VAST_WRAPPER_ERROR_LIMIT_REACHED", 302, 302001, "The maximum number of wrapper resolution defined by the configuration has been reached."},
    {"VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE", 303, 303001, "The resolution of wrapper finished with a response that is not a VAST file."},
    {"VAST_WRAPPER_ERROR_INLINE_TIMEOUT", 304, 304001, "Inline response returned after a wrapper resolution failed to result in ad display within the defined timeout."},
    {"VAST_LINEAR_ERROR_GENERAL", 400, 400001, "Media player is unable to display the Linear Ad."},
    {"VAST_LINEAR_ERROR_MEDIA_UNABLE_TO_LOAD", 401, 401001, "The client-side component was unable to load the Linear ad mediafiles."},
    {"VAST_LINEAR_ERROR_MEDIA_FETCH_TIMEOUT", 402, 402001, "The client-side component was unable to load the Linear selected mediafile because of a timeout."},
    {"VAST_LINEAR_ERROR_MEDIA_NO_VALID_FORMAT", 403, 403001, "No suitable media files were found for the media player."},
    {"VAST_LINEAR_ERROR_MEDIA_UNABLE_TO_DISPLAY", 405, 405001, "There was a problem when trying to display the Linear ad mediafile."},
    {"VAST_LINEAR_ERROR_CONDITIONAL_AD_REJECTED", 408, 408001, "A conditional ad was received but the “Allow conditional ad” option was set to false."},
    {"VAST_LINEAR_ERROR_INTERACTIVE_FILE_NOT_EXECUTED", 409, 409001, "The Interactive unit in the <InteractiveCreativeFile> node was not executed by the media player."},
    {"VAST_NONLINEAR_ERROR_MISMATCHED_DIMENSIONS", 501, 501001, "The size (width/height) of the non linear creative is bigger than player size. The plugin will resize the creative to make it fit while maintaining its aspect ratio."},
    {"VAST_NONLINEAR_ERROR_FETCH", 502, 502001, "The non linear creative can't be loaded because of an HTTP Error."},
    {"VAST_NONLINEAR_ERROR_NO_VALID_FORMAT", 503, 503001, "No suitable format for the NonLinear creative resources."},
    {"VAST_COMPANION_ERROR_GENERAL", 600, 600001, "Some parameters are missing for the companion."},
    {"VAST_COMPANION_ERROR_FETCH", 603, 603001, "The companion creative can't be loaded because of an HTTP Error."},
    {"VAST_COMPANION_ERROR_NO_VALID_FORMAT", 604, 604001, "No suitable format for the companion creative resources."},
    {"VAST_UNDEFINED_ERROR", 900, 900001, "An undefined VAST error occurred."},
    {"VAST_VPAID_ERROR", 901, 901001, "An undefined VPAID error occurred."},
    {"VAST_VPAID_ERROR_FETCH", 901, 901002, "An error occured while fetching a VPAID creative."},
    {"VAST_VPAID_ERROR_PLAYBACK", 901, 901003, "An error occured while playing a VPAID creative."},
    {"VAST_VALIDATION_ERROR_MISSING_ADSYSTEM", -1, 101002, "The <AdSystem> tag is missing in the VAST response."},
    {"VAST_VALIDATION_ERROR_MISSING_ADTITLE", -1, 101003, "The <AdTitle> tag is missing in the VAST response."},
    {"VAST_VALIDATION_ERROR_LINEAR_MISSING_DURATION", -1, 101401, "The <Duration> tag of a linear creative is missing or empty in the VAST response."},
    {"VIREO_VAST_ERROR_ADCALL_FETCH", -1, 10000001, "HTTP error code returned when fetching first VAST (40x, 50x)."},
    {"VIREO_VAST_ERROR_ADCALL_FETCH_TIMEOUT", -1, 10000002, "Timeout when performing the first VAST Ad Call."},
    {"VIREO_VAST_ERROR_TOTAL_TIMEOUT", -1, 10000101, "Total timeout reached before any wrapper resolution led to an InlineAd."},
    {"VIREO_VAST_ERROR_UNIVERSAL_AD_ID_REJECTED", -1, 10000301, "Ad rejected client-side because of missing UniversalAdId or a creative with the same id was played already in the same ad break."},
};
// clang-format on

TEST(RKVVASTErrorTest, CatalogueTextsAndCodesAreExact) {
  const auto catalogue = RKVVASTError::catalogue();
  ASSERT_EQ(catalogue.size(), std::size(kCatalogue));
  for (size_t i = 0; i < catalogue.size(); ++i) {
    const auto& [name, VASTCode, vireoCode, description] = kCatalogue[i];
    EXPECT_EQ(catalogue[i].errorName(), name);
    EXPECT_EQ(catalogue[i].errorDescription(), description) << name;
    EXPECT_EQ(catalogue[i].VASTCode(), VASTCode) << name;
    EXPECT_EQ(catalogue[i].vireoCode(), vireoCode) << name;
  }
}

TEST(RKVVASTErrorTest, ErrorRecordDescriptionAndEquality) {
  // Without a VAST code the vendor code stands in.
  EXPECT_EQ(
      RKVVASTError::VAST_VALIDATION_ERROR_MISSING_ADTITLE().error(),
      RKVError("RKVVASTErrorDomain", 101003, "The <AdTitle> tag is missing in the VAST response."));
  // The record holds a copy of the value: changing the value afterwards does not change it.
  RKVVASTError timeout = RKVVASTError::VAST_WRAPPER_ERROR_FETCH_TIMEOUT();
  const RKVError record = timeout.error();
  timeout.setVASTCode(-1);
  EXPECT_EQ(record.code, 301);
  EXPECT_EQ(*record.vastError, RKVVASTError::VAST_WRAPPER_ERROR_FETCH_TIMEOUT());
  // Without a description the record has no user information, and so no VAST error either.
  const RKVError bare = RKVVASTError(std::string("CUSTOM"), std::nullopt, -1, 42).error();
  EXPECT_FALSE(bare.hasUserInfo() || bare.vastError);

  // Same name, different vendor code and description; a value missing its name or description
  // equals only itself, not its own copy.
  const RKVVASTError fetch = RKVVASTError::VAST_WRAPPER_ERROR_FETCH();
  EXPECT_FALSE(fetch == RKVVASTError::VAST_WRAPPER_ERROR_FETCH_CORS());
  EXPECT_TRUE(fetch == RKVVASTError::VAST_WRAPPER_ERROR_FETCH());
  RKVVASTError nameless = fetch;
  nameless.setErrorName(std::nullopt);
  const RKVVASTError namelessCopy = nameless;
  EXPECT_TRUE(nameless == nameless);
  EXPECT_FALSE(nameless == namelessCopy);
}

}  // namespace
}  // namespace rkv
