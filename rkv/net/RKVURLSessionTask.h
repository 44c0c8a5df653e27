// RKVURLSessionTask: the handle callers keep for one request, to cancel it or to recognise its
// completion. Thread-safe.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVMutex.h"
#include "rkv/net/RKVURLDataTask.h"

namespace rkv {

class RKV_EXPORT RKVURLSessionTask {
 public:
  // A task that wraps no data task, as test doubles hand out; see testIdentifier().
  RKVURLSessionTask() = default;
  // Wraps `dataTask` (may be null), without resuming it.
  explicit RKVURLSessionTask(std::shared_ptr<RKVURLDataTask> dataTask);
  // Releases the data task without cancelling it: the exchange goes on and its completion is
  // still called.
  ~RKVURLSessionTask() = default;

  RKVURLSessionTask(const RKVURLSessionTask&) = delete;
  RKVURLSessionTask& operator=(const RKVURLSessionTask&) = delete;

  // Forwarded to the data task; nothing happens when none is wrapped. An exception the data task
  // throws is reported at error level and dropped (identifier() is then absent).
  void resume();
  void cancel();

  // The data task's identifier when one is wrapped, otherwise testIdentifier().
  std::optional<int64_t> identifier() const;

  // Used when no data task is wrapped; absent until set.
  std::optional<int64_t> testIdentifier() const;
  void setTestIdentifier(std::optional<int64_t> identifier);

  const std::shared_ptr<RKVURLDataTask>& dataTask() const { return dataTask_; }

 private:
  const std::shared_ptr<RKVURLDataTask> dataTask_;
  mutable RKVMutex mutex_;
  std::optional<int64_t> testIdentifier_ RKV_GUARDED_BY(mutex_);
};

}  // namespace rkv
