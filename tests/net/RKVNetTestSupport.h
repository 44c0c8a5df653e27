// Shared by the HTTP session tests: records completions and waits for them with a hang guard,
// and captures the console log's error lines.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "rkv/log/RKVLog.h"
#include "rkv/log/RKVLogDataSource.h"
#include "rkv/log/RKVLogOutput.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/net/RKVURLSessionProviderProtocol.h"

#include "tests/support/RKVTestThreads.h"

namespace rkv::test {

struct RKVRecordedCompletion {
  RKVURLSessionResponse response;
  std::shared_ptr<RKVURLSessionTask> task;
  bool onCompletionThread = false;
};

class RKVCompletionRecorder {
 public:
  // `provider` (may be null) is asked whether each completion runs on its completion thread.
  explicit RKVCompletionRecorder(std::shared_ptr<RKVURLSessionProviderProtocol> provider = nullptr)
      : state_(std::make_shared<State>()) {
    state_->provider = provider;
  }

  RKVURLSessionCompletion handler() const {
    return
        [state = state_](RKVURLSessionResponse response, std::shared_ptr<RKVURLSessionTask> task) {
          auto provider = state->provider.lock();
          bool onThread = provider && provider->isCompletionThread();
          std::lock_guard lock(state->mutex);
          state->completions.push_back({std::move(response), std::move(task), onThread});
        };
  }

  // True when `count` completions have arrived before the hang guard.
  bool waitFor(size_t count) const {
    return eventually([&] { return this->count() >= count; });
  }
  std::vector<RKVRecordedCompletion> completions() const {
    std::lock_guard lock(state_->mutex);
    return state_->completions;
  }
  size_t count() const { return completions().size(); }

 private:
  struct State {
    std::weak_ptr<RKVURLSessionProviderProtocol> provider;
    std::mutex mutex;
    std::vector<RKVRecordedCompletion> completions;
  };
  std::shared_ptr<State> state_;
};

// Captures the error-level lines the shared console log writes while it lives (the way host
// code that throws is reported); the log's output and data source come back when it ends.
class RKVErrorLogCapture {
 public:
  RKVErrorLogCapture() {
    log_->setOutput(output_);
    log_->setDataSource(output_);
  }
  ~RKVErrorLogCapture() {
    log_->setOutput(previousOutput_);
    log_->setDataSource(previousDataSource_);
  }
  RKVErrorLogCapture(const RKVErrorLogCapture&) = delete;
  RKVErrorLogCapture& operator=(const RKVErrorLogCapture&) = delete;

  std::vector<std::string> lines() const {
    std::lock_guard lock(output_->mutex);
    return output_->lines;
  }

 private:
  static constexpr int64_t kErrorLevel = 2;
  struct Output : RKVLogOutput, RKVLogDataSource {
    void logMessage(std::string_view message, int64_t level, std::string_view) override {
      std::lock_guard lock(mutex);
      if (level == kErrorLevel) lines.emplace_back(message);
    }
    bool shouldLogMessageWithLevel(const RKVLog&, int64_t level) override {
      return level == kErrorLevel;
    }
    mutable std::mutex mutex;
    std::vector<std::string> lines;
  };
  std::shared_ptr<RKVLog> log_ = RKVLog::sharedInstance();
  std::shared_ptr<Output> output_ = std::make_shared<Output>();
  std::shared_ptr<RKVLogOutput> previousOutput_ = log_->output();
  std::shared_ptr<RKVLogDataSource> previousDataSource_ = log_->dataSource();
};

}  // namespace rkv::test
