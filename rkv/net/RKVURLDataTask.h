// RKVURLDataTask: the transport's side of one request, which RKVURLSessionTask wraps (the
// production provider's libcurl transfer, or a test double's own). Implementations are
// thread-safe.
#pragma once

#include <cstdint>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVURLDataTask {
 public:
  virtual ~RKVURLDataTask() = default;

  // Starts the exchange; later calls do nothing.
  virtual void resume() = 0;
  // Ends the exchange early: its completion is called with the cancellation error (-999) unless
  // it has already been called. Later calls do nothing.
  virtual void cancel() = 0;
  // Unique among the tasks of one provider; never changes.
  virtual int64_t taskIdentifier() const = 0;
};

}  // namespace rkv
