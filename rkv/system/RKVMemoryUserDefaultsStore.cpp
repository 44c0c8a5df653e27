#include "rkv/system/RKVMemoryUserDefaultsStore.h"

#include "rkv/log/RKVLog.h"

namespace rkv {

RKVMemoryUserDefaultsStore::RKVMemoryUserDefaultsStore(
    std::map<std::string, RKVUserDefaultsValue> entries)
    : entries_(std::move(entries)) {}

std::map<std::string, RKVUserDefaultsValue> RKVMemoryUserDefaultsStore::load() {
  RKVMutexLock lock(mu_);
  if (corrupt_) {
    corrupt_ = false;
    entries_.clear();
    RKVLog::sharedInstance()->logError(
        "The user defaults in memory could not be read; starting with an empty store.");
  }
  return entries_;
}

bool RKVMemoryUserDefaultsStore::write(const std::vector<RKVUserDefaultsChange>& changes) {
  RKVMutexLock lock(mu_);
  if (failures_ > 0) {
    --failures_;
    return false;
  }
  for (const auto& change : changes) {
    if (change.value) {
      entries_.insert_or_assign(change.key, *change.value);
    } else {
      entries_.erase(change.key);
    }
  }
  ++writes_;
  return true;
}

void RKVMemoryUserDefaultsStore::failNextWrites(int count) {
  RKVMutexLock lock(mu_);
  failures_ = count < 0 ? 0 : count;
}

void RKVMemoryUserDefaultsStore::corruptBeforeNextLoad() {
  RKVMutexLock lock(mu_);
  corrupt_ = true;
}

std::map<std::string, RKVUserDefaultsValue> RKVMemoryUserDefaultsStore::entries() const {
  RKVMutexLock lock(mu_);
  return entries_;
}

int64_t RKVMemoryUserDefaultsStore::writeCount() const {
  RKVMutexLock lock(mu_);
  return writes_;
}

}  // namespace rkv
