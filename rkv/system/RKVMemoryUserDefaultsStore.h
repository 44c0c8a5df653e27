// RKVMemoryUserDefaultsStore: a user defaults store that lives in memory, for tests and for hosts
// that want nothing on disk. It can be told to fail its next writes or to read as a corrupt file,
// so that callers' failure paths can be exercised. Thread-safe.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVMutex.h"
#include "rkv/system/RKVUserDefaultsStore.h"

namespace rkv {

class RKV_EXPORT RKVMemoryUserDefaultsStore final : public RKVUserDefaultsStore {
 public:
  RKVMemoryUserDefaultsStore() = default;
  explicit RKVMemoryUserDefaultsStore(std::map<std::string, RKVUserDefaultsValue> entries);

  std::map<std::string, RKVUserDefaultsValue> load() override;
  bool write(const std::vector<RKVUserDefaultsChange>& changes) override;

  // The next `count` writes fail (and apply nothing).
  void failNextWrites(int count);
  // The next load() behaves as over a corrupt file: it logs one error, answers an empty map and
  // drops what was stored, as the SQLite store does when it sets a corrupt file aside.
  void corruptBeforeNextLoad();

  // What is stored now, and how many writes were applied.
  std::map<std::string, RKVUserDefaultsValue> entries() const;
  int64_t writeCount() const;

 private:
  mutable RKVMutex mu_;
  std::map<std::string, RKVUserDefaultsValue> entries_ RKV_GUARDED_BY(mu_);
  int failures_ RKV_GUARDED_BY(mu_) = 0;
  bool corrupt_ RKV_GUARDED_BY(mu_) = false;
  int64_t writes_ RKV_GUARDED_BY(mu_) = 0;
};

}  // namespace rkv
