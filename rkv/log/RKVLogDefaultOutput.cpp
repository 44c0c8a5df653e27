#include "rkv/log/RKVLogDefaultOutput.h"

#include <utility>

#include <fmt/format.h>

#include "rkv/foundation/RKVTimeUtils.h"
#include "rkv/foundation/RKVUtils.h"
#include "rkv/log/RKVLog.h"

namespace rkv {

std::shared_ptr<RKVLogDefaultOutput> RKVLogDefaultOutput::sharedInstance() {
  static const auto* const instance =
      new std::shared_ptr<RKVLogDefaultOutput>(std::make_shared<RKVLogDefaultOutput>(stdout));
  return *instance;
}

RKVLogDefaultOutput::RKVLogDefaultOutput(std::FILE* stream)
    : RKVLogDefaultOutput(stream, &std::chrono::system_clock::now, RKVCalendar::currentCalendar()) {
}

RKVLogDefaultOutput::RKVLogDefaultOutput(std::FILE* stream, Clock clock, RKVCalendar calendar)
    : stream_(stream),
      clock_(clock ? std::move(clock) : Clock(&std::chrono::system_clock::now)),
      calendar_(calendar) {}

std::optional<std::string> RKVLogDefaultOutput::currentTime() const {
  return RKVTimeUtils::timeFromDate(clock_(), calendar_);
}

std::string RKVLogDefaultOutput::generateLog(std::string_view message, int64_t level,
                                             std::string_view tag) const {
  return fmt::format("{} {}[{}] {}", RKVUtils::nullableDescription(currentTime()), tag,
                     RKVUtils::nullableDescription(RKVLog::levelName(level)), message);
}

void RKVLogDefaultOutput::logMessage(std::string_view message, int64_t level,
                                     std::string_view tag) {
  if (stream_ == nullptr) return;
  const std::string line = generateLog(message, level, tag);
  std::fprintf(stream_, "%s\n", line.c_str());
}

}  // namespace rkv
