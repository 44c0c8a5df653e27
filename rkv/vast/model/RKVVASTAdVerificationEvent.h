// RKVVASTAdVerificationEvent: the one tracking event a verification carries, the URL to call
// when the verification could not be run ("verificationNotExecuted"). Immutable; safe to share
// between threads once built.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/vast/model/RKVTrackingEvent.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv {

class RKV_EXPORT RKVVASTAdVerificationEvent : public RKVTrackingEvent {
 public:
  // The event, or null unless the name is "verificationNotExecuted". isEventConsumable is
  // isEventConsumableFromName(name), worked out (and logged for an unknown name) before the name
  // is checked.
  static std::shared_ptr<RKVVASTAdVerificationEvent> withName(std::string name, RKVURL url);
  // A Tracking element: the name is "_event", the URL the element's text; null when either is
  // missing, the text does not parse as a URL, or withName refuses the name.
  static std::shared_ptr<RKVVASTAdVerificationEvent> withDictionary(
      const RKVXMLDictionary& element);
  // True for "verificationNotExecuted". Every other name is logged at debug level as neither
  // consumable nor non-consumable and answers false.
  static bool isEventConsumableFromName(std::string_view name);

  const std::string& name() const { return name_; }
  const RKVURL& url() const { return url_; }

  // RKVTrackingEvent.
  const std::string& eventName() const override { return name_; }
  const RKVURL& eventURL() const override { return url_; }
  bool isEventConsumable() const override { return consumable_; }
  bool isEqual(const RKVTrackingEvent& other) const override;

  // Name and URL equal.
  bool isEqualToVerificationEvent(const RKVVASTAdVerificationEvent& other) const;
  friend bool operator==(const RKVVASTAdVerificationEvent& a, const RKVVASTAdVerificationEvent& b) {
    return a.isEqualToVerificationEvent(b);
  }

  std::shared_ptr<RKVVASTAdVerificationEvent> copy() const;

  // Keys "name" and "url" (its absolute string); isEventConsumable is not archived.
  std::string archive() const;
  // Read back through withName: null when the text is not a JSON object, when "name" or "url"
  // is missing or the URL does not parse, and for any name but "verificationNotExecuted".
  static std::shared_ptr<RKVVASTAdVerificationEvent> unarchive(std::string_view json);

 private:
  RKVVASTAdVerificationEvent(std::string name, RKVURL url, bool consumable);

  std::string name_;
  RKVURL url_;
  bool consumable_;
};

}  // namespace rkv
