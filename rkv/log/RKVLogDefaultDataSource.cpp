#include "rkv/log/RKVLogDefaultDataSource.h"

namespace rkv {

std::shared_ptr<RKVLogDefaultDataSource> RKVLogDefaultDataSource::sharedInstance() {
  static const auto* const instance =
      new std::shared_ptr<RKVLogDefaultDataSource>(std::make_shared<RKVLogDefaultDataSource>());
  return *instance;
}

bool RKVLogDefaultDataSource::shouldLogMessageWithLevel(const RKVLog& /*log*/, int64_t /*level*/) {
  return false;
}

}  // namespace rkv
