// Captures what the shared console log writes while the capture lives, with debug logging on;
// the log's previous output and debug setting come back when it ends. One capture at a time.
#pragma once

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
  // Forgets what was captured so far.
  void clear();

 private:
  class Output;
  std::shared_ptr<Output> output_;
  std::shared_ptr<RKVLogOutput> previousOutput_;
  bool previousDebugLogging_;
};

}  // namespace rkv::test
