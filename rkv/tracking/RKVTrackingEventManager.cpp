#include "rkv/tracking/RKVTrackingEventManager.h"

#include <algorithm>
#include <utility>

#include "rkv/foundation/RKVMainThread.h"
#include "rkv/foundation/internal/RKVHostCall.h"
#include "rkv/log/RKVLog.h"
#include "rkv/net/RKVPixel.h"

namespace rkv {

namespace {

// Every non-overlapping occurrence of `pattern`, left to right; an empty pattern matches nothing.
std::string replaceAll(std::string_view text, std::string_view pattern, std::string_view value) {
  if (pattern.empty()) return std::string(text);
  std::string result;
  result.reserve(text.size());
  size_t from = 0;
  for (size_t at = text.find(pattern); at != std::string_view::npos;
       at = text.find(pattern, from)) {
    result.append(text.substr(from, at - from));
    result.append(value);
    from = at + pattern.size();
  }
  result.append(text.substr(from));
  return result;
}

// The pieces of `text` between the occurrences of `separator` (one piece when it has none).
std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  size_t from = 0;
  for (size_t at = text.find(separator); at != std::string_view::npos;
       at = text.find(separator, from)) {
    pieces.push_back(text.substr(from, at - from));
    from = at + 1;
  }
  pieces.push_back(text.substr(from));
  return pieces;
}

}  // namespace

RKVTrackingEventManager::RKVTrackingEventManager(
    const RKVTrackingEventFactory& factory, RKVTrackingMacros macros,
    std::weak_ptr<RKVTrackingEventManagerDelegate> delegate,
    std::shared_ptr<RKVPixelManager> pixelManager, std::shared_ptr<RKVMainLoop> mainLoop)
    : macros_(std::move(macros)),
      pixelManager_(pixelManager ? std::move(pixelManager) : RKVPixelManager::sharedInstance()),
      delegate_(std::move(delegate)),
      mainLoop_(mainLoop ? std::move(mainLoop) : RKVMainLoop::sharedInstance()) {
  for (auto& event : factory.trackingEvents())
    if (event != nullptr) events_.push_back(std::move(event));
}

bool RKVTrackingEventManager::trackEvent(const std::string& eventName,
                                         const RKVTrackingMacros& variables,
                                         const RKVTrackingMacros& additionalMacros) {
  if (!RKV_ASSERT_MAIN_THREAD(*mainLoop_, "RKVTrackingEventManager::trackEvent")) return false;
  Events selected;
  for (const auto& event : events_)
    if (event->eventName() == eventName) selected.push_back(event);
  if (selected.empty()) {
    callDelegate(eventName, 0);
    return false;
  }
  for (auto it = selected.rbegin(); it != selected.rend(); ++it)
    trackEventByReference(*it, variables, additionalMacros, false, false);
  pixelManager_->callPixels();
  callDelegate(eventName, selected.size());
  return true;
}

void RKVTrackingEventManager::trackEventByReference(const std::shared_ptr<RKVTrackingEvent>& event,
                                                    const RKVTrackingMacros& variables,
                                                    const RKVTrackingMacros& additionalMacros,
                                                    bool callPixelsImmediately) {
  trackEventByReference(event, variables, additionalMacros, callPixelsImmediately, true);
}

void RKVTrackingEventManager::trackEventByReference(
    const std::shared_ptr<RKVTrackingEvent>& eventRef, const RKVTrackingMacros& variables,
    const RKVTrackingMacros& additionalMacros, bool callPixelsImmediately,
    bool shouldCallDelegate) {
  if (!RKV_ASSERT_MAIN_THREAD(*mainLoop_, "RKVTrackingEventManager::trackEventByReference")) return;
  if (eventRef == nullptr) return;
  // Held here: the caller's pointer may be the very entry erased below.
  const std::shared_ptr<RKVTrackingEvent> event = eventRef;
  auto found = std::find_if(events_.begin(), events_.end(),
                            [&](const auto& candidate) { return candidate->isEqual(*event); });
  if (found == events_.end()) {
    RKVLog::sharedInstance()->logDebugWithFormat(
        "Event tracking cancelled because the event was not contained in the events array: "
        "'{}'!",
        event->eventURL().absoluteString());
    return;
  }
  pixelManager_->addPixel(
      RKVPixel(finalEventURLWithURL(event->eventURL(), variables, additionalMacros)));
  if (event->isEventConsumable()) events_.erase(found);
  if (callPixelsImmediately) pixelManager_->callPixels();
  if (shouldCallDelegate) callDelegate(event->eventName(), 1);
}

RKVURL RKVTrackingEventManager::finalEventURLWithURL(
    const RKVURL& templateURL, const RKVTrackingMacros& variables,
    const RKVTrackingMacros& additionalMacros) const {
  auto withMacros = eventURLWithMacrosReplacedFromTemplateURL(templateURL, additionalMacros);
  if (!withMacros) {
    RKVLog::sharedInstance()->logDebugWithFormat(
        "Replacing macros in URL '{}' has resulted in a invalid URL! Using the original URL "
        "instead.",
        templateURL.absoluteString());
    return templateURL;
  }
  auto withVariables = eventURLWithVireoVariablesReplacedFromTemplateURL(*withMacros, variables);
  if (!withVariables) {
    RKVLog::sharedInstance()->logDebugWithFormat(
        "Replacing variables in URL '{}' has resulted in a invalid URL! Using the original URL "
        "instead.",
        templateURL.absoluteString());
    return templateURL;
  }
  return *withVariables;
}

std::optional<RKVURL> RKVTrackingEventManager::eventURLWithMacrosReplacedFromTemplateURL(
    const RKVURL& templateURL, const RKVTrackingMacros& additionalMacros) const {
  std::string text = templateURL.absoluteString();
  for (const auto* macros : {&macros_, &additionalMacros})
    for (const auto& [key, value] : *macros)
      text = replaceAll(text, "%5B" + key + "%5D", value);
  return RKVURL::withString(text);
}

std::optional<RKVURL> RKVTrackingEventManager::eventURLWithVireoVariablesReplacedFromTemplateURL(
    const RKVURL& templateURL, const RKVTrackingMacros& variables) {
  if (variables.empty()) return templateURL;
  std::string text = templateURL.absoluteString();
  for (const auto& [key, value] : variables)
    text = string(text, key, value);
  return RKVURL::withString(text);
}

std::string RKVTrackingEventManager::string(std::string_view string,
                                            std::string_view byReplacingVariable,
                                            std::string_view withValue) {
  auto replaced = replacedVariable(byReplacingVariable, withValue);
  std::string plain = plainVariableFromVariable(byReplacingVariable);
  if (!replaced || plain.empty() || string.find(plain) == std::string_view::npos)
    return std::string(string);
  return replaceAll(string, plain, *replaced);
}

std::string RKVTrackingEventManager::plainVariableFromVariable(std::string_view variable) {
  std::string plain;
  plain.reserve(variable.size());
  for (char c : variable)
    if (c != '{' && c != '}') plain.push_back(c);
  return plain;
}

std::optional<std::string> RKVTrackingEventManager::replacedVariable(std::string_view variable,
                                                                     std::string_view withValue) {
  auto atOpen = split(variable, '{');
  if (atOpen.size() != 2) return std::nullopt;
  auto atClose = split(atOpen[1], '}');
  if (atClose.size() != 2) return std::nullopt;
  std::string result(atOpen[0]);
  result.append(withValue);
  result.append(atClose[1]);
  return result;
}

void RKVTrackingEventManager::callDelegate(const std::string& eventName, uint64_t count) {
  auto delegate = delegate_.lock();
  if (!delegate) return;
  internal::callHost("RKVTrackingEventManagerDelegate::trackingEventManager",
                     [&] { delegate->trackingEventManager(*this, eventName, count); });
}

}  // namespace rkv
