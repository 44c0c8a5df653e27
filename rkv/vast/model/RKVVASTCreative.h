// RKVVASTCreative: what every creative of a VAST ad carries (tracking events, click URLs,
// universal ad ids); the base of the linear, non-linear, companion and icon creatives.
//
// Creatives are built on one thread and then read; the ad's merge appends to their lists on the
// thread that resolves the ad. Lists are exposed as const references and, for appending, as
// mutable references (non-const overloads of the same accessors).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVError.h"
#include "rkv/vast/model/RKVVASTErrorHandler.h"
#include "rkv/vast/model/RKVVASTTrackingEvent.h"
#include "rkv/vast/model/RKVVASTURL.h"
#include "rkv/vast/model/RKVVASTUniversalAdId.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv {

using RKVVASTTrackingEventList = std::vector<std::shared_ptr<RKVVASTTrackingEvent>>;

class RKV_EXPORT RKVVASTCreative {
 public:
  // An empty creative: empty lists, no click-through.
  RKVVASTCreative() = default;
  virtual ~RKVVASTCreative() = default;
  RKVVASTCreative(const RKVVASTCreative&) = delete;
  RKVVASTCreative& operator=(const RKVVASTCreative&) = delete;

  // The base reading of a creative element: an empty creative. The arguments are those the
  // subclasses hand down; the base reads and reports nothing. Never null.
  static std::shared_ptr<RKVVASTCreative> withDictionary(
      const RKVXMLDictionary& element, std::optional<RKVError>* error,
      const RKVVASTInnerErrorHandler& errorHandler, bool isWrapper);
  // withDictionary with no error place, a handler that does nothing, and not a wrapper.
  static std::shared_ptr<RKVVASTCreative> withDictionary(const RKVXMLDictionary& element);
  // An empty creative (the ad's merge gives one to an ad that lacks a creative of a kind).
  static std::shared_ptr<RKVVASTCreative> initEmptyCreative();

  const RKVVASTTrackingEventList& trackingEvents() const { return trackingEvents_; }
  RKVVASTTrackingEventList& trackingEvents() { return trackingEvents_; }
  // The landing page, or nullopt.
  const std::optional<RKVVASTURL>& clickThrough() const { return clickThrough_; }
  void setClickThrough(std::optional<RKVVASTURL> clickThrough);
  const std::vector<RKVVASTURL>& clickTracking() const { return clickTracking_; }
  std::vector<RKVVASTURL>& clickTracking() { return clickTracking_; }
  // The UniversalAdId values of the enclosing Creative element, each distinct value once.
  const std::vector<RKVVASTUniversalAdId>& universalAdIds() const { return universalAdIds_; }

  // Appends every event, in order.
  void addTrackingEvents(const RKVVASTTrackingEventList& events);
  // Appends each id that is not already present (by equality), in order.
  void addUniversalAdIds(const std::vector<RKVVASTUniversalAdId>& ids);

  // Whether the ad keeps the creative; false on the base class.
  virtual bool isValidForWrapper(bool isWrapper) const;

 protected:
  // Adds the events of the element's TrackingEvents child (RKVVASTTrackingEvent::
  // findTrackingEvents), if any.
  void readTrackingEvents(const RKVXMLDictionary& element);
  // Sets the click-through from the text when it gives a URL; otherwise leaves it as it is.
  void readClickThrough(const std::string* text);
  // Appends the URL of each entry (RKVVASTURL::fromXML) that gives one, in order. A null list
  // changes nothing.
  void readClickTracking(const RKVXMLArray* entries);

 private:
  RKVVASTTrackingEventList trackingEvents_;
  std::optional<RKVVASTURL> clickThrough_;
  std::vector<RKVVASTURL> clickTracking_;
  std::vector<RKVVASTUniversalAdId> universalAdIds_;
};

}  // namespace rkv
