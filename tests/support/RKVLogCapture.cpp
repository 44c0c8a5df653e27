#include "tests/support/RKVLogCapture.h"

#include <string_view>

namespace rkv::test {

class RKVLogCapture::Output : public RKVLogOutput {
 public:
  void logMessage(std::string_view message, int64_t level, std::string_view /*tag*/) override {
    std::lock_guard lock(mutex_);
    if (level == 0) debug_.emplace_back(message);
  }
  std::vector<std::string> debugMessages() const {
    std::lock_guard lock(mutex_);
    return debug_;
  }
  void clear() {
    std::lock_guard lock(mutex_);
    debug_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> debug_;
};

RKVLogCapture::RKVLogCapture() : output_(std::make_shared<Output>()) {
  std::shared_ptr<RKVLog> log = RKVLog::sharedInstance();
  previousOutput_ = log->output();
  previousDebugLogging_ = log->isDebugLoggingEnabled();
  log->setOutput(output_);
  log->setDebugLoggingEnabled(true);
}

RKVLogCapture::~RKVLogCapture() {
  std::shared_ptr<RKVLog> log = RKVLog::sharedInstance();
  log->setOutput(previousOutput_);
  log->setDebugLoggingEnabled(previousDebugLogging_);
}

std::vector<std::string> RKVLogCapture::debugMessages() const {
  return output_->debugMessages();
}

void RKVLogCapture::clear() {
  output_->clear();
}

}  // namespace rkv::test
