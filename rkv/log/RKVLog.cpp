#include "rkv/log/RKVLog.h"

#include <cstdlib>
#include <utility>

#include <execinfo.h>

#include "rkv/foundation/internal/RKVErrorReport.h"
#include "rkv/log/RKVLogDefaultDataSource.h"
#include "rkv/log/RKVLogDefaultOutput.h"
#include "rkv/platform/RKVFrameworkInfo.h"

namespace rkv {

namespace {
constexpr int kMaxStackFrames = 128;

// Errors found by the foundation layer (host code that threw, a main-thread operation called
// elsewhere) are written by the shared console log, at error level.
void logFoundationError(std::string_view message) {
  try {
    RKVLog::sharedInstance()->logError(message);
  } catch (...) {
    // A host output that throws loses this line; the reporter never throws.
  }
}

// Other foundation lines (a timer destroyed while running) go to the shared console log at
// their own level, which decides whether they are written.
void logFoundationMessage(int64_t level, std::string_view message) {
  try {
    RKVLog::sharedInstance()->logMessage(message, level);
  } catch (...) {
    // As above: the reporter never throws.
  }
}

// Installed when the library is loaded; the foundation layer writes to stderr before that.
[[maybe_unused]] const bool kReportersInstalled = [] {
  internal::setErrorReporter(&logFoundationError);
  internal::setMessageReporter(&logFoundationMessage);
  return true;
}();
}  // namespace

std::shared_ptr<RKVLog> RKVLog::sharedInstance() {
  // Never destroyed: threads may log during static destruction.
  static const auto* const instance = new std::shared_ptr<RKVLog>([] {
    const auto framework = RKVFrameworkInfo::sharedInstance();
    return std::make_shared<RKVLog>(framework->frameworkName(),
                                    RKVLogDefaultDataSource::sharedInstance(),
                                    framework->frameworkBuiltInDebug());
  }());
  return *instance;
}

std::optional<std::string> RKVLog::levelName(int64_t level) {
  switch (level) {
    case 0:
      return "DEBUG";
    case 1:
      return "INFO";
    case 2:
      return "ERROR";
    case 3:
      return "WARNING";
    default:
      return std::nullopt;
  }
}

RKVLog::RKVLog(std::string tag, std::shared_ptr<RKVLogDataSource> dataSource,
               bool debugLoggingEnabled)
    : RKVLog(std::move(tag), std::move(dataSource), nullptr, debugLoggingEnabled) {}

RKVLog::RKVLog(std::string tag, std::shared_ptr<RKVLogDataSource> dataSource,
               std::shared_ptr<RKVLogOutput> output, bool debugLoggingEnabled)
    : tag_(std::move(tag)),
      dataSource_(dataSource ? std::move(dataSource) : RKVLogDefaultDataSource::sharedInstance()),
      output_(output ? std::move(output) : RKVLogDefaultOutput::sharedInstance()),
      debugLoggingEnabled_(debugLoggingEnabled) {}

std::string RKVLog::tag() const {
  RKVMutexLock lock(mutex_);
  return tag_;
}

void RKVLog::setTag(std::string tag) {
  RKVMutexLock lock(mutex_);
  tag_ = std::move(tag);
}

std::shared_ptr<RKVLogDataSource> RKVLog::dataSource() const {
  RKVMutexLock lock(mutex_);
  return dataSource_;
}

void RKVLog::setDataSource(std::shared_ptr<RKVLogDataSource> dataSource) {
  RKVMutexLock lock(mutex_);
  dataSource_ = std::move(dataSource);
}

std::shared_ptr<RKVLogOutput> RKVLog::output() const {
  RKVMutexLock lock(mutex_);
  return output_;
}

void RKVLog::setOutput(std::shared_ptr<RKVLogOutput> output) {
  RKVMutexLock lock(mutex_);
  output_ = std::move(output);
}

void RKVLog::logMessage(std::string_view message, int64_t level) {
  if (isWritingLevel(level)) write(message, level);
}

bool RKVLog::isWritingLevel(int64_t level) const {
  // Debug lines depend on the debug switch alone; the data source is not asked about them.
  return level == 0 ? isDebugLoggingEnabled() : isLoggingEnabledForLevel(level);
}

void RKVLog::logWithFormat(int64_t level, fmt::string_view format, fmt::format_args args) {
  if (isWritingLevel(level)) write(formatMessage(format, args), level);
}

void RKVLog::write(std::string_view message, int64_t level) {
  std::shared_ptr<RKVLogOutput> output;
  std::string tag;
  {
    RKVMutexLock lock(mutex_);
    output = output_;
    tag = tag_;
  }
  if (output) output->logMessage(message, level, tag);
}

void RKVLog::logStackTrackWithLevel(int64_t level) {
  void* frames[kMaxStackFrames];
  const int count = backtrace(frames, kMaxStackFrames);
  std::string symbols;
  if (char** names = backtrace_symbols(frames, count)) {
    for (int i = 0; i < count; ++i) {
      if (i > 0) symbols += "\n\t";
      symbols += names[i];
    }
    std::free(names);
  }
  logMessage("\n\t" + symbols, level);
}

bool RKVLog::isLoggingEnabledForLevel(int64_t level) const {
  const std::shared_ptr<RKVLogDataSource> source = dataSource();
  return source && source->shouldLogMessageWithLevel(*this, level);
}

std::string RKVLog::formatMessage(fmt::string_view format, fmt::format_args args) {
  try {
    return fmt::vformat(format, args);
  } catch (...) {
    return std::string(format.data(), format.size());
  }
}

}  // namespace rkv
