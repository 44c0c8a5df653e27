// RKVLogDefaultDataSource: the data source of a logger that was given none. It lets no
// non-debug message through: info, warning and error lines stay silent until the integrator
// supplies a data source. Stateless; thread-safe.
#pragma once

#include <cstdint>
#include <memory>

#include "rkv/RKVExport.h"
#include "rkv/log/RKVLogDataSource.h"

namespace rkv {

class RKV_EXPORT RKVLogDefaultDataSource : public RKVLogDataSource {
 public:
  // The process-wide instance, created on first use.
  static std::shared_ptr<RKVLogDefaultDataSource> sharedInstance();

  // False for every level.
  bool shouldLogMessageWithLevel(const RKVLog& log, int64_t level) override;
};

}  // namespace rkv
