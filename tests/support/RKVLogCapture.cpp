#include "tests/support/RKVLogCapture.h"

#include <string_view>
#include <utility>

namespace rkv::test {

class RKVLogCapture::Output : public RKVLogOutput {
 public:
  void logMessage(std::string_view message, int64_t level, std::string_view /*tag*/) override {
    std::lock_guard lock(mutex_);
    messages_.emplace_back(level, message);
  }
  std::vector<std::string> messages(int64_t level) const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> result;
    for (const auto& [messageLevel, message] : messages_) {
      if (messageLevel == level) result.push_back(message);
    }
    return result;
  }
  void clear() {
    std::lock_guard lock(mutex_);
    messages_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<int64_t, std::string>> messages_;
};

namespace {

class LetEverythingThrough : public RKVLogDataSource {
 public:
  bool shouldLogMessageWithLevel(const RKVLog&, int64_t) override { return true; }
};

}  // namespace

RKVLogCapture::RKVLogCapture() : output_(std::make_shared<Output>()) {
  std::shared_ptr<RKVLog> log = RKVLog::sharedInstance();
  previousOutput_ = log->output();
  previousDataSource_ = log->dataSource();
  previousDebugLogging_ = log->isDebugLoggingEnabled();
  log->setOutput(output_);
  log->setDataSource(std::make_shared<LetEverythingThrough>());
  log->setDebugLoggingEnabled(true);
}

RKVLogCapture::~RKVLogCapture() {
  std::shared_ptr<RKVLog> log = RKVLog::sharedInstance();
  log->setOutput(previousOutput_);
  log->setDataSource(previousDataSource_);
  log->setDebugLoggingEnabled(previousDebugLogging_);
}

std::vector<std::string> RKVLogCapture::debugMessages() const {
  return output_->messages(0);
}

std::vector<std::string> RKVLogCapture::messages(int64_t level) const {
  return output_->messages(level);
}

void RKVLogCapture::clear() {
  output_->clear();
}

}  // namespace rkv::test
