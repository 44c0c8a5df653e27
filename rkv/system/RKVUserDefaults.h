// RKVUserDefaults: the typed key-value store the library persists into (pending pixels, the
// transient identifier, consent strings a host stores). Thread-safe.
//
// Reads come from memory: the store's entries are loaded once, at construction. A set changes
// memory at once and marks the key; synchronize() writes every marked key to the store in one
// durable transaction. A failed write keeps the changes marked, so the next synchronize() writes
// them again, and never touches what the store already holds. Destruction synchronizes.
//
// standardUserDefaults() is the process-wide instance over an SQLite file: standardPath(),
// which the host may set with setStandardPath() before first use.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVMutex.h"
#include "rkv/system/RKVUserDefaultsStore.h"

namespace rkv {

class RKV_EXPORT RKVUserDefaults {
 public:
  using Date = std::chrono::system_clock::time_point;

  // The process-wide defaults, created on first use over an RKVSQLiteUserDefaultsStore at
  // standardPath().
  static std::shared_ptr<RKVUserDefaults> standardUserDefaults();
  // Sets the file of the standard defaults. False, changing nothing, once they exist.
  static bool setStandardPath(std::string path);
  // The path set by setStandardPath(), else defaultPath().
  static std::string standardPath();
  // $XDG_DATA_HOME (else $HOME/.local/share, else the working folder) + "/rkvcore/" + the host
  // application's bundle identifier (RKVAppInfo; "default" when unknown) + "/defaults.sqlite".
  static std::string defaultPath();

  // Loads the store's entries. A null store means an RKVMemoryUserDefaultsStore.
  explicit RKVUserDefaults(std::shared_ptr<RKVUserDefaultsStore> store);
  // Synchronizes what is still pending; a failure is logged and the changes are lost with the
  // object.
  ~RKVUserDefaults();

  RKVUserDefaults(const RKVUserDefaults&) = delete;
  RKVUserDefaults& operator=(const RKVUserDefaults&) = delete;

  // The value under `key`, of whatever type.
  std::optional<RKVUserDefaultsValue> objectForKey(std::string_view key) const;
  // The value under `key` when it has the asked type, else std::nullopt (a text is never read as
  // a number, nor an integer as a boolean).
  std::optional<std::string> stringForKey(std::string_view key) const;
  std::optional<std::string> dataForKey(std::string_view key) const;
  std::optional<int64_t> integerForKey(std::string_view key) const;
  std::optional<double> doubleForKey(std::string_view key) const;
  std::optional<bool> boolForKey(std::string_view key) const;
  std::optional<Date> dateForKey(std::string_view key) const;

  void setObject(std::string key, RKVUserDefaultsValue value);
  void setString(std::string key, std::string value) {
    setObject(std::move(key), std::move(value));
  }
  void setData(std::string key, std::string bytes) {
    setObject(std::move(key), RKVDataBlob{std::move(bytes)});
  }
  void setInteger(std::string key, int64_t value) { setObject(std::move(key), value); }
  void setDouble(std::string key, double value) { setObject(std::move(key), value); }
  void setBool(std::string key, bool value) { setObject(std::move(key), value); }
  void setDate(std::string key, Date value) { setObject(std::move(key), value); }
  void removeObjectForKey(std::string_view key);

  // Every entry, as in memory now.
  std::map<std::string, RKVUserDefaultsValue> dictionaryRepresentation() const;

  // Writes the keys changed since the last successful synchronize in one durable transaction.
  // True when they were written or nothing was pending; false when the store refused (logged at
  // error level), and the changes stay pending. Concurrent calls write one after the other.
  bool synchronize();

 private:
  std::shared_ptr<RKVUserDefaultsStore> store_;
  mutable RKVMutex mu_;
  std::map<std::string, RKVUserDefaultsValue, std::less<>> entries_ RKV_GUARDED_BY(mu_);
  // Keys changed in memory and not yet written; a removed key is here and not in entries_.
  std::set<std::string, std::less<>> dirty_ RKV_GUARDED_BY(mu_);
  // Held while the store writes, so that writes reach it in the order they were taken from memory.
  RKVMutex writeMu_ RKV_ACQUIRED_BEFORE(mu_);
};

}  // namespace rkv
