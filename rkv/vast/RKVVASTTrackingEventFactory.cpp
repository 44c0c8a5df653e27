#include "rkv/vast/RKVVASTTrackingEventFactory.h"

#include <array>
#include <string_view>
#include <utility>

#include "rkv/foundation/RKVTimeUtils.h"

namespace rkv {

namespace {

constexpr std::array<std::pair<std::string_view, double>, 5> kQuartiles = {{
    {"start", 0},
    {"firstQuartile", 25},
    {"midpoint", 50},
    {"thirdQuartile", 75},
    {"complete", 100},
}};

double offsetOf(const RKVVASTTrackingEvent& event, double contentTotalTime) {
  double offset = -1.0;
  for (const auto& [name, percentage] : kQuartiles) {
    if (event.name() == name) {
      offset = RKVTimeUtils::timeIntervalFromPercentage(percentage, contentTotalTime);
      break;
    }
  }
  // An explicit offset wins over the one the name implies.
  if (const std::optional<std::string>& text = event.offset()) {
    switch (RKVTimeUtils::offsetTypeFromString(*text)) {
      case RKVVASTOffsetTypeTime:
        offset = RKVTimeUtils::timeIntervalFromVASTDuration(*text);
        break;
      case RKVVASTOffsetTypePercentage:
        offset = RKVTimeUtils::timeIntervalFromPercentVASTDuration(*text, contentTotalTime);
        break;
      default:
        break;
    }
  }
  return offset;
}

}  // namespace

RKVVASTTrackingEventFactory::RKVVASTTrackingEventFactory(
    const std::vector<std::shared_ptr<RKVVASTTrackingEvent>>& events, double contentTotalTime)
    : events_(trackingEventsFromVASTTrackingEvents(events, contentTotalTime)) {}

std::vector<std::shared_ptr<RKVTrackingEvent>> RKVVASTTrackingEventFactory::trackingEvents() const {
  return {events_.begin(), events_.end()};
}

std::vector<std::shared_ptr<RKVVASTTrackingEvent>>
RKVVASTTrackingEventFactory::trackingEventsFromVASTTrackingEvents(
    const std::vector<std::shared_ptr<RKVVASTTrackingEvent>>& events, double contentTotalTime) {
  std::vector<std::shared_ptr<RKVVASTTrackingEvent>> result;
  result.reserve(events.size());
  for (const auto& event : events) {
    if (!event) continue;
    event->setEventOffset(offsetOf(*event, contentTotalTime));
    result.push_back(event);
  }
  return result;
}

}  // namespace rkv
