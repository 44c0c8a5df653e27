// RKVUserDefaultsStore: where RKVUserDefaults keeps its entries. An interface, so that the
// defaults run over SQLite in production (RKVSQLiteUserDefaultsStore) and over memory in tests
// that inject faults (RKVMemoryUserDefaultsStore). Implementations are called by one
// RKVUserDefaults at a time, from any thread, never concurrently with themselves.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "rkv/RKVExport.h"

namespace rkv {

// A data blob: bytes that are not text (an archive, say). Kept apart from std::string values so
// that a reader asking for text never gets a blob and the other way round.
struct RKV_EXPORT RKVDataBlob {
  std::string bytes;
  friend bool operator==(const RKVDataBlob&, const RKVDataBlob&) = default;
};

// One stored value: a boolean, an integer, a floating-point number, a text, a date or a blob.
using RKVUserDefaultsValue = std::variant<bool, int64_t, double, std::string,
                                          std::chrono::system_clock::time_point, RKVDataBlob>;

// One change to write: a key and its new value, or std::nullopt to remove the key.
struct RKV_EXPORT RKVUserDefaultsChange {
  std::string key;
  std::optional<RKVUserDefaultsValue> value;
};

class RKV_EXPORT RKVUserDefaultsStore {
 public:
  virtual ~RKVUserDefaultsStore() = default;

  // Every stored entry. A store that cannot be read answers what it could read (an empty map for
  // a corrupt or foreign file), logs why once at error level, and must accept writes afterwards.
  virtual std::map<std::string, RKVUserDefaultsValue> load() = 0;
  // Applies every change, in order, as one transaction that is durable when this returns true.
  // False when the write failed (a store that keeps files logs why at error level): then nothing
  // of it was applied, and what was stored before is still there.
  virtual bool write(const std::vector<RKVUserDefaultsChange>& changes) = 0;
};

}  // namespace rkv
