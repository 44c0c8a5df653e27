// RKVLog: the console logger. Levels are 0 debug, 1 info, 2 error, 3 warning (error below
// warning, on purpose). Debug messages are written only while debug logging is on; every other
// level only when the data source agrees. Thread-safe: properties may be swapped while other
// threads log; each message uses the values current when it is logged.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVMutex.h"
#include "rkv/log/RKVLogDataSource.h"
#include "rkv/log/RKVLogOutput.h"

namespace rkv {

class RKV_EXPORT RKVLog {
 public:
  // The process-wide logger, created on first use: tagged with the framework's name, with the
  // default data source and output, and debug logging on only in a debug build of the library.
  static std::shared_ptr<RKVLog> sharedInstance();

  // "DEBUG", "INFO", "ERROR", "WARNING" for 0 to 3; absent for any other level.
  static std::optional<std::string> levelName(int64_t level);

  // A null data source means the default data source; the output is the default output.
  RKVLog(std::string tag, std::shared_ptr<RKVLogDataSource> dataSource, bool debugLoggingEnabled);
  // A null data source or output means the default one.
  RKVLog(std::string tag, std::shared_ptr<RKVLogDataSource> dataSource,
         std::shared_ptr<RKVLogOutput> output, bool debugLoggingEnabled);

  std::string tag() const;
  void setTag(std::string tag);
  std::shared_ptr<RKVLogDataSource> dataSource() const;
  // A null data source lets no non-debug message through.
  void setDataSource(std::shared_ptr<RKVLogDataSource> dataSource);
  std::shared_ptr<RKVLogOutput> output() const;
  // A null output writes nothing.
  void setOutput(std::shared_ptr<RKVLogOutput> output);
  bool isDebugLoggingEnabled() const { return debugLoggingEnabled_.load(); }
  void setDebugLoggingEnabled(bool enabled) { debugLoggingEnabled_.store(enabled); }

  void logDebug(std::string_view message) { logMessage(message, 0); }
  void logInfo(std::string_view message) { logMessage(message, 1); }
  void logWarning(std::string_view message) { logMessage(message, 3); }
  void logError(std::string_view message) { logMessage(message, 2); }

  // The message is formatted (fmt syntax, checked at compile time) only when the level is
  // written, so that a silenced level costs no formatting. Absent texts should be passed through
  // RKVUtils::nullableDescription to read "(null)".
  template <typename... Args>
  void logDebugWithFormat(fmt::format_string<Args...> format, Args&&... args) {
    logWithFormat(0, fmt::string_view(format), fmt::make_format_args(args...));
  }
  template <typename... Args>
  void logInfoWithFormat(fmt::format_string<Args...> format, Args&&... args) {
    logWithFormat(1, fmt::string_view(format), fmt::make_format_args(args...));
  }
  template <typename... Args>
  void logWarningWithFormat(fmt::format_string<Args...> format, Args&&... args) {
    logWithFormat(3, fmt::string_view(format), fmt::make_format_args(args...));
  }
  template <typename... Args>
  void logErrorWithFormat(fmt::format_string<Args...> format, Args&&... args) {
    logWithFormat(2, fmt::string_view(format), fmt::make_format_args(args...));
  }

  // logDebug.
  void logMessage(std::string_view message) { logMessage(message, 0); }
  // Debug (0) is written when debug logging is on, without asking the data source; any other
  // level when isLoggingEnabledForLevel says so. Writing is one call of the output.
  void logMessage(std::string_view message, int64_t level);

  // Logs "\n\t" followed by the calling thread's stack frames joined with "\n\t".
  void logStackTrackWithLevel(int64_t level);
  // logStackTrackWithLevel(0).
  void logStackTrack() { logStackTrackWithLevel(0); }

  // What the data source answers for this logger and level (false without a data source).
  bool isLoggingEnabledForLevel(int64_t level) const;
  // Whether logMessage(_, level) writes now: the debug switch for 0, the data source otherwise.
  bool isWritingLevel(int64_t level) const;

 private:
  void logWithFormat(int64_t level, fmt::string_view format, fmt::format_args args);
  // One call of the output, without asking whether the level is written.
  void write(std::string_view message, int64_t level);
  // fmt::vformat that never throws: a failure yields the format text itself.
  static std::string formatMessage(fmt::string_view format, fmt::format_args args);

  mutable RKVMutex mutex_;
  std::string tag_ RKV_GUARDED_BY(mutex_);
  std::shared_ptr<RKVLogDataSource> dataSource_ RKV_GUARDED_BY(mutex_);
  std::shared_ptr<RKVLogOutput> output_ RKV_GUARDED_BY(mutex_);
  std::atomic<bool> debugLoggingEnabled_;
};

}  // namespace rkv
