// RKVVASTTrackingEvent: one Tracking element of a VAST document (an event name, the URL to call
// and an optional offset), or a viewcount metric of an ad extension. Built on one thread and
// then read; only eventOffset changes afterwards, set once before the event is handed to a
// tracking manager.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/vast/model/RKVTrackingEvent.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv {

class RKV_EXPORT RKVVASTTrackingEvent : public RKVVideoTrackingEvent {
 public:
  // isEventConsumable is isEventConsumableFromName(name); eventOffset -1.0 when not given.
  RKVVASTTrackingEvent(std::string name, std::optional<std::string> offset, RKVURL url,
                       double eventOffset = -1.0);

  // A Tracking element: needs an "_event" attribute that is one of the 22 names accepted from a
  // Tracking element (case-sensitive; "viewcount" is not one) and a "__text" that parses as a
  // URL; "_offset" is kept when present. eventOffset is -1.0. Null otherwise.
  static std::shared_ptr<RKVVASTTrackingEvent> withDictionary(const RKVXMLDictionary& element);
  // A metric element of an ad extension: needs "_name" equal to "viewcount" and a "__text" that
  // parses as a URL; "_offset" is kept when present. Null otherwise.
  static std::shared_ptr<RKVVASTTrackingEvent> withExtensionDictionary(
      const RKVXMLDictionary& element);
  // The events of the Tracking list of the element's first TrackingEvents child, made with
  // withDictionary, in order; entries that give no event are skipped. nullopt when there is no
  // TrackingEvents child or no event was made (never an empty list).
  static std::optional<std::vector<std::shared_ptr<RKVVASTTrackingEvent>>> findTrackingEvents(
      const RKVXMLDictionary& element);
  // "viewcount" for "viewcount", nullopt for anything else.
  static std::optional<std::string> convertExtensionNameToVASTTrackingName(std::string_view name);
  // True for "viewcount", "creativeView", "start", "firstSecond", "firstQuartile", "midpoint",
  // "thirdQuartile", "complete", "progress" and "loaded"; false for the thirteen player-action
  // names. Any other name is logged at debug level and answers false: an unknown event may fire
  // every time it happens.
  static bool isEventConsumableFromName(std::string_view name);

  const std::string& name() const { return name_; }
  // The offset attribute as written (a clock text or a percentage), or nullopt.
  const std::optional<std::string>& offset() const { return offset_; }
  const RKVURL& url() const { return url_; }
  void setEventOffset(double eventOffset) { eventOffset_ = eventOffset; }

  // RKVVideoTrackingEvent.
  const std::string& eventName() const override { return name_; }
  const RKVURL& eventURL() const override { return url_; }
  bool isEventConsumable() const override { return consumable_; }
  double eventOffset() const override { return eventOffset_; }
  bool isEqual(const RKVTrackingEvent& other) const override;

  // Name, offset, URL and eventOffset all equal.
  bool isEqualToTrackingEvent(const RKVVASTTrackingEvent& other) const;
  friend bool operator==(const RKVVASTTrackingEvent& a, const RKVVASTTrackingEvent& b) {
    return a.isEqualToTrackingEvent(b);
  }

  std::shared_ptr<RKVVASTTrackingEvent> copy() const;

  // Keys "name", "offset" (omitted when absent), "url", "eventOffset".
  std::string archive() const;
  // Null when the text is not a JSON object, or "name" or "url" is missing or "url" does not
  // parse. A missing "eventOffset" reads -1.0.
  static std::shared_ptr<RKVVASTTrackingEvent> unarchive(std::string_view json);

 private:
  std::string name_;
  std::optional<std::string> offset_;
  RKVURL url_;
  double eventOffset_;
  bool consumable_;
};

}  // namespace rkv
