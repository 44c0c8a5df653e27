// Captures what the shared console log writes while the capture lives, with debug logging on and
// every other level let through; the log's previous output, data source and debug setting come
// back when it ends. One capture at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "rkv/log/RKVLog.h"
#include "rkv/log/RKVLogOutput.h"

namespace rkv::test {

class RKVLogCapture {
 public:
  RKVLogCapture();
  ~RKVLogCapture();
  RKVLogCapture(const RKVLogCapture&) = delete;
  RKVLogCapture& operator=(const RKVLogCapture&) = delete;

  // The messages written at debug level, in order.
  std::vector<std::string> debugMessages() const;
  // The messages written at `level` (2 error...), in order.
  std::vector<std::string> messages(int64_t level) const;
  // Forgets what was captured so far.
  void clear();

 private:
  class Output;
  std::shared_ptr<Output> output_;
  std::shared_ptr<RKVLogOutput> previousOutput_;
  std::shared_ptr<RKVLogDataSource> previousDataSource_;
  bool previousDebugLogging_;
};

}  // namespace rkv::test
