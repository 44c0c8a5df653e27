// RKVVASTAdVerification: one outside measurement script of an ad (a Verification element): its
// vendor, the resources to load, the URL to call when it could not be run, and the parameters
// handed to the script. Immutable; safe to share between threads once built.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/vast/model/RKVVASTAdVerificationEvent.h"
#include "rkv/vast/model/RKVVASTAdVerificationResource.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv {

class RKV_EXPORT RKVVASTAdVerification {
 public:
  using Resources = std::vector<std::shared_ptr<RKVVASTAdVerificationResource>>;
  using Events = std::vector<std::shared_ptr<RKVVASTAdVerificationEvent>>;

  // Stores the fields; null entries of the lists are dropped.
  RKVVASTAdVerification(std::optional<std::string> vendor, Resources resources,
                        Events trackingEvents, std::optional<std::string> verificationParameters);

  // A Verification element: vendor "_vendor", parameters the text of the first
  // VerificationParameters child, tracking events from the Tracking children of the first
  // TrackingEvents child (those that make no event are dropped), resources from every
  // JavaScriptResource child, then every JavascriptResource child, then every
  // ExecutableResource child (those that make no resource are dropped). Null when no resource
  // is left.
  static std::shared_ptr<RKVVASTAdVerification> withDictionary(const RKVXMLDictionary& element);
  // One resource of type 0 with the URL, apiFramework "omid", browserOptional true and no
  // executable type; no tracking events. Never null.
  static std::shared_ptr<RKVVASTAdVerification> withOMIDJavascriptResourceURL(
      RKVURL url, std::optional<std::string> vendor,
      std::optional<std::string> verificationParameters);

  const std::optional<std::string>& vendor() const { return vendor_; }
  // Never empty when built from XML.
  const Resources& resources() const { return resources_; }
  const Events& trackingEvents() const { return trackingEvents_; }
  // Opaque text handed to the script.
  const std::optional<std::string>& verificationParameters() const {
    return verificationParameters_;
  }

  // Vendor, resources and tracking events (element by element, in order) and parameters equal.
  bool isEqualToAdVerification(const RKVVASTAdVerification& other) const;
  friend bool operator==(const RKVVASTAdVerification& a, const RKVVASTAdVerification& b) {
    return a.isEqualToAdVerification(b);
  }

  // A new verification with the same fields (the resources and events, being immutable, are
  // shared).
  std::shared_ptr<RKVVASTAdVerification> copy() const;

  // Keys "vendor", "resources", "trackingEvents", "verificationParameters"; the lists hold the
  // archives of their entries as JSON objects; absent fields are left out.
  std::string archive() const;
  // Null only when the text is not a JSON object. Entries that read back as null (an event not
  // named "verificationNotExecuted", a resource without a URL) are dropped.
  static std::shared_ptr<RKVVASTAdVerification> unarchive(std::string_view json);

 private:
  std::optional<std::string> vendor_;
  Resources resources_;
  Events trackingEvents_;
  std::optional<std::string> verificationParameters_;
};

}  // namespace rkv
