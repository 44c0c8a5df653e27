// RKVSQLiteUserDefaultsStore: user defaults in one SQLite file, one row per key. Thread-safe
// (calls are serialized inside).
//
// The file is opened at the first load() or write(), with its folder created when missing, in
// WAL mode with synchronous=FULL: a write() that returns true has reached the disk, and a process
// killed at any moment leaves the file with either all of a write or none of it. A file that is
// not a readable SQLite database of this store (corrupt, truncated, something else) is renamed
// to `<path>.corrupt-<time>`, logged once at error level, and a new empty file takes its place.
// A file that another connection holds past the busy time-out is in use, not unreadable: it is
// left as it is, the load answers nothing (logged at error level) and a write fails until it is
// free.
#pragma once

#include <memory>
#include <string>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVMutex.h"
#include "rkv/system/RKVUserDefaultsStore.h"

namespace rkv {

namespace internal {
class RKVSQLiteDatabase;
}

class RKV_EXPORT RKVSQLiteUserDefaultsStore final : public RKVUserDefaultsStore {
 public:
  explicit RKVSQLiteUserDefaultsStore(std::string path);
  ~RKVSQLiteUserDefaultsStore() override;

  RKVSQLiteUserDefaultsStore(const RKVSQLiteUserDefaultsStore&) = delete;
  RKVSQLiteUserDefaultsStore& operator=(const RKVSQLiteUserDefaultsStore&) = delete;

  std::map<std::string, RKVUserDefaultsValue> load() override;
  bool write(const std::vector<RKVUserDefaultsChange>& changes) override;

  const std::string& path() const { return path_; }

 private:
  // Opens the file when it is not open; false (logged) when it cannot be opened or created.
  bool openLocked() RKV_REQUIRES(mu_);
  // Renames an unreadable file aside and opens a new one in its place.
  bool replaceUnreadableLocked(const std::string& reason) RKV_REQUIRES(mu_);

  const std::string path_;
  RKVMutex mu_;
  std::unique_ptr<internal::RKVSQLiteDatabase> db_ RKV_GUARDED_BY(mu_);
};

}  // namespace rkv
