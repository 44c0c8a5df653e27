// RKVLogDefaultOutput: writes "HH:MM:SS <tag>[<LEVEL>] <message>" lines, each with one write of
// "%s\n" to a C stream (standard output for the shared instance). Thread-safe.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVCalendar.h"
#include "rkv/log/RKVLogOutput.h"

namespace rkv {

class RKV_EXPORT RKVLogDefaultOutput : public RKVLogOutput {
 public:
  using Clock = std::function<std::chrono::system_clock::time_point()>;

  // The process-wide instance writing to standard output, created on first use.
  static std::shared_ptr<RKVLogDefaultOutput> sharedInstance();

  // Writes to `stream` (borrowed: it must stay open while this output is in use; null writes
  // nothing), stamping lines with the system clock in the current calendar.
  explicit RKVLogDefaultOutput(std::FILE* stream = stdout);
  // As above, with the clock and the calendar of the time stamps.
  RKVLogDefaultOutput(std::FILE* stream, Clock clock, RKVCalendar calendar);

  // The time of day of the clock's now in the calendar, "HH:MM:SS"; absent if it cannot be
  // computed.
  std::optional<std::string> currentTime() const;
  // "<currentTime> <tag>[<level name>] <message>"; absent texts, and the name of a level
  // without one, read "(null)".
  std::string generateLog(std::string_view message, int64_t level, std::string_view tag) const;
  // Writes generateLog and a newline in one write. Text after a NUL character is not written.
  void logMessage(std::string_view message, int64_t level, std::string_view tag) override;

 private:
  std::FILE* stream_;
  Clock clock_;
  RKVCalendar calendar_;
};

}  // namespace rkv
