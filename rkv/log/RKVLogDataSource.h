// RKVLogDataSource: decides which non-debug messages an RKVLog writes. Implementations are
// called from any logging thread and must be thread-safe.
#pragma once

#include <cstdint>

#include "rkv/RKVExport.h"

namespace rkv {

class RKVLog;

class RKV_EXPORT RKVLogDataSource {
 public:
  virtual ~RKVLogDataSource() = default;

  // Whether `log` writes a message of `level` (1 info, 2 error, 3 warning, or any other value;
  // never asked about debug messages).
  virtual bool shouldLogMessageWithLevel(const RKVLog& log, int64_t level) = 0;
};

}  // namespace rkv
