// RKVTrackingEventManager: the tracking events of one ad. Tracks events by name or by reference:
// fills the event's URL template with macros and variables, queues the pixel on the pixel
// manager, tells the delegate. Consumable events leave the list when tracked, so they fire at
// most once. Main-loop only: the tracking operations assert the main thread of the manager's
// loop and do nothing elsewhere.
//
// Macros: for each key K, every "%5BK%5D" of the URL's text (the form a parsed URL gives
// "[K]") is replaced by the value, the manager's macros first, then the additional macros, so
// a key in both takes the manager's value. A plain "[K]" is left alone.
//
// Variables: a key is a template prefix "{" name "}" suffix, such as "pos={pos}"; every
// occurrence of the key without its braces ("pos=pos") becomes prefix value suffix ("pos=12").
// A key without exactly one "{" and one "}" after it changes nothing.
//
// Values are inserted as they are, without encoding: a caller whose values hold characters that
// are not allowed in a URL encodes them first (RKVIABMacros does for the IAB macros). When a
// replacement gives a text that does not parse, the template URL is used unchanged.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/net/RKVPixelManager.h"
#include "rkv/tracking/RKVTrackingEventManagerDelegate.h"
#include "rkv/vast/model/RKVTrackingEvent.h"
#include "rkv/vast/model/RKVTrackingEventFactory.h"

namespace rkv {

// Macro or variable name to value. Keys are applied in the map's (byte-wise) order.
using RKVTrackingMacros = std::map<std::string, std::string>;

class RKV_EXPORT RKVTrackingEventManager {
 public:
  using Events = std::vector<std::shared_ptr<RKVTrackingEvent>>;

  // Copies the factory's events (the factory is not kept; null events are dropped). A null
  // pixel manager means RKVPixelManager::sharedInstance(); a null loop means
  // RKVMainLoop::sharedInstance(), whose thread is then the one tracking must run on.
  RKVTrackingEventManager(const RKVTrackingEventFactory& factory, RKVTrackingMacros macros,
                          std::weak_ptr<RKVTrackingEventManagerDelegate> delegate,
                          std::shared_ptr<RKVPixelManager> pixelManager = nullptr,
                          std::shared_ptr<RKVMainLoop> mainLoop = nullptr);
  virtual ~RKVTrackingEventManager() = default;

  RKVTrackingEventManager(const RKVTrackingEventManager&) = delete;
  RKVTrackingEventManager& operator=(const RKVTrackingEventManager&) = delete;

  // Tracks every event named `eventName` (exact match), last to first, then asks the pixel
  // manager for one sending round and tells the delegate the count. With no such event, tells
  // the delegate count 0 and answers false. False also off the main thread (nothing happens).
  bool trackEvent(const std::string& eventName, const RKVTrackingMacros& variables,
                  const RKVTrackingMacros& additionalMacros = {});

  // Tracks one event, shouldCallDelegate true. Subclasses extend this one.
  virtual void trackEventByReference(const std::shared_ptr<RKVTrackingEvent>& event,
                                     const RKVTrackingMacros& variables,
                                     const RKVTrackingMacros& additionalMacros,
                                     bool callPixelsImmediately);
  // Tracks one event: unless it is (still) in events(), logs a debug line and does nothing.
  // Otherwise queues the pixel of its final URL, removes it from events() when consumable, asks
  // for a sending round when callPixelsImmediately, and tells the delegate count 1 when
  // shouldCallDelegate.
  void trackEventByReference(const std::shared_ptr<RKVTrackingEvent>& event,
                             const RKVTrackingMacros& variables,
                             const RKVTrackingMacros& additionalMacros, bool callPixelsImmediately,
                             bool shouldCallDelegate);

  // The URL a pixel is sent to: macros, then variables, replaced in the template; the template
  // itself when either step gives a text that does not parse (with one debug line).
  RKVURL finalEventURLWithURL(const RKVURL& templateURL, const RKVTrackingMacros& variables,
                              const RKVTrackingMacros& additionalMacros) const;
  // The template with the macros replaced; nullopt when the text no longer parses.
  std::optional<RKVURL> eventURLWithMacrosReplacedFromTemplateURL(
      const RKVURL& templateURL, const RKVTrackingMacros& additionalMacros) const;
  // The URL with the variables replaced (the URL itself, unparsed, when there are none);
  // nullopt when the text no longer parses.
  static std::optional<RKVURL> eventURLWithVireoVariablesReplacedFromTemplateURL(
      const RKVURL& templateURL, const RKVTrackingMacros& variables);

  // `string` with every occurrence of plainVariableFromVariable(variable) replaced by
  // replacedVariable(variable, value); unchanged when that is absent or does not occur.
  static std::string string(std::string_view string, std::string_view byReplacingVariable,
                            std::string_view withValue);
  // The key without any "{" or "}".
  static std::string plainVariableFromVariable(std::string_view variable);
  // prefix value suffix for a key prefix "{" name "}" suffix; nullopt unless the key splits at
  // "{" into exactly two pieces and the second at "}" into exactly two.
  static std::optional<std::string> replacedVariable(std::string_view variable,
                                                     std::string_view withValue);

  // The events still to track, in the factory's order.
  const Events& events() const { return events_; }
  const RKVTrackingMacros& macros() const { return macros_; }
  // Replaces the manager's macros for later tracking (for values that change, such as
  // RKVIABMacros' cache buster and time stamp).
  void setMacros(RKVTrackingMacros macros) { macros_ = std::move(macros); }
  const std::shared_ptr<RKVPixelManager>& pixelManager() const { return pixelManager_; }
  std::weak_ptr<RKVTrackingEventManagerDelegate> delegate() const { return delegate_; }
  void setDelegate(std::weak_ptr<RKVTrackingEventManagerDelegate> delegate) {
    delegate_ = std::move(delegate);
  }
  const std::shared_ptr<RKVMainLoop>& mainLoop() const { return mainLoop_; }

 protected:
  // Tells the delegate, when there is one; a delegate that throws is reported and ignored.
  void callDelegate(const std::string& eventName, uint64_t count);

 private:
  Events events_;
  RKVTrackingMacros macros_;
  std::shared_ptr<RKVPixelManager> pixelManager_;
  std::weak_ptr<RKVTrackingEventManagerDelegate> delegate_;
  std::shared_ptr<RKVMainLoop> mainLoop_;
};

}  // namespace rkv
