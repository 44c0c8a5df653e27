// RKVLogOutput: formats and writes the messages an RKVLog lets through. Implementations are
// called from any logging thread and must be thread-safe.
#pragma once

#include <cstdint>
#include <string_view>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVLogOutput {
 public:
  virtual ~RKVLogOutput() = default;

  // Writes one message of `level` from the logger tagged `tag`.
  virtual void logMessage(std::string_view message, int64_t level, std::string_view tag) = 0;
};

}  // namespace rkv
