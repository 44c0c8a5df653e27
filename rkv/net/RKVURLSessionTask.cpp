#include "rkv/net/RKVURLSessionTask.h"

#include <utility>

#include "rkv/foundation/internal/RKVHostCall.h"

namespace rkv {

RKVURLSessionTask::RKVURLSessionTask(std::shared_ptr<RKVURLDataTask> dataTask)
    : dataTask_(std::move(dataTask)) {}

// A data task may be a host's own (a test double's); what it throws stops here.
void RKVURLSessionTask::resume() {
  if (dataTask_) internal::callHost("an HTTP data task's resume", [&] { dataTask_->resume(); });
}

void RKVURLSessionTask::cancel() {
  if (dataTask_) internal::callHost("an HTTP data task's cancel", [&] { dataTask_->cancel(); });
}

std::optional<int64_t> RKVURLSessionTask::identifier() const {
  if (dataTask_) {
    return internal::callHostOr<std::optional<int64_t>>(
        "an HTTP data task's taskIdentifier", std::nullopt,
        [&] { return dataTask_->taskIdentifier(); });
  }
  return testIdentifier();
}

std::optional<int64_t> RKVURLSessionTask::testIdentifier() const {
  RKVMutexLock lock(mutex_);
  return testIdentifier_;
}

void RKVURLSessionTask::setTestIdentifier(std::optional<int64_t> identifier) {
  RKVMutexLock lock(mutex_);
  testIdentifier_ = identifier;
}

}  // namespace rkv
