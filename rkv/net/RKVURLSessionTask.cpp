#include "rkv/net/RKVURLSessionTask.h"

#include <utility>

namespace rkv {

RKVURLSessionTask::RKVURLSessionTask(std::shared_ptr<RKVURLDataTask> dataTask)
    : dataTask_(std::move(dataTask)) {}

void RKVURLSessionTask::resume() {
  if (dataTask_) dataTask_->resume();
}

void RKVURLSessionTask::cancel() {
  if (dataTask_) dataTask_->cancel();
}

std::optional<int64_t> RKVURLSessionTask::identifier() const {
  if (dataTask_) return dataTask_->taskIdentifier();
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
