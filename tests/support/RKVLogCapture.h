// Captures what the shared console log writes while the capture lives, with every level let
// through, and hands each to `onMessage` if given (outside its lock, on the writing thread); the
// log's previous output, data source and debug setting come back when it ends. One at a time.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "rkv/log/RKVLog.h"
#include "rkv/log/RKVLogOutput.h"

namespace rkv::test {

class RKVLogCapture {
 public:
  explicit RKVLogCapture(std::function<void(std::string_view)> onMessage = nullptr) {
    output_->onMessage = std::move(onMessage);
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

  // The messages written at `level`, in order.
  std::vector<std::string> messages(int64_t level) const {
    std::lock_guard lock(output_->mutex);
    std::vector<std::string> result;
    for (const auto& [written, message] : output_->messages)
      if (written == level) result.push_back(message);
    return result;
  }
  std::vector<std::string> debugMessages() const { return messages(0); }
  std::vector<std::string> errorMessages() const { return messages(2); }

 private:
  struct Output : RKVLogOutput, RKVLogDataSource {
    void logMessage(std::string_view message, int64_t level, std::string_view) override {
      {
        std::lock_guard lock(mutex);
        messages.emplace_back(level, message);
      }
      if (onMessage) onMessage(message);
    }
    bool shouldLogMessageWithLevel(const RKVLog&, int64_t) override { return true; }
    std::function<void(std::string_view)> onMessage;
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
