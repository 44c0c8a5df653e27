// Captures what the shared console log writes while the capture lives, with every level let
// through; the log's previous output, data source and debug setting come back when it ends. One
// capture at a time.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "rkv/log/RKVLog.h"
#include "rkv/log/RKVLogOutput.h"

namespace rkv::test {

class RKVLogCapture {
 public:
  RKVLogCapture() {
    log_->setOutput(output_);
    log_->setDataSource(output_);
    log_->setDebugLoggingEnabled(true);
  }
  ~RKVLogCapture() {
    log_->setOutput(previousOutput_);
    log_->setDataSource(previousDataSource_);
    log_->setDebugLoggingEnabled(previousDebugLogging_);
  }
  RKVLogCapture(const RKVLogCapture&) = delete;
  RKVLogCapture& operator=(const RKVLogCapture&) = delete;

  // The debug messages written, in order.
  std::vector<std::string> debugMessages() const { return messagesAtLevel(0); }
  // The error messages written, in order.
  std::vector<std::string> errorMessages() const { return messagesAtLevel(2); }

 private:
  std::vector<std::string> messagesAtLevel(int64_t wanted) const {
    std::lock_guard lock(output_->mutex);
    std::vector<std::string> result;
    for (const auto& [level, message] : output_->messages)
      if (level == wanted) result.push_back(message);
    return result;
  }

  struct Output : RKVLogOutput, RKVLogDataSource {
    void logMessage(std::string_view message, int64_t level, std::string_view) override {
      std::lock_guard lock(mutex);
      messages.emplace_back(level, message);
    }
    bool shouldLogMessageWithLevel(const RKVLog&, int64_t) override { return true; }
    std::mutex mutex;
    std::vector<std::pair<int64_t, std::string>> messages;
  };
  std::shared_ptr<RKVLog> log_ = RKVLog::sharedInstance();
  std::shared_ptr<Output> output_ = std::make_shared<Output>();
  std::shared_ptr<RKVLogOutput> previousOutput_ = log_->output();
  std::shared_ptr<RKVLogDataSource> previousDataSource_ = log_->dataSource();
  bool previousDebugLogging_ = log_->isDebugLoggingEnabled();
};

}  // namespace rkv::test
