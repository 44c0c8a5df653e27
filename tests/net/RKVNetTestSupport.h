// Shared by the HTTP session tests: records completions and waits for them with a hang guard.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

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

}  // namespace rkv::test
