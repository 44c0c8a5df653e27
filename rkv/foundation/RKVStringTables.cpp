#include "rkv/foundation/RKVStringTables.h"

#include "rkv/foundation/RKVMutex.h"

namespace rkv {

namespace {

// bundle -> table -> key -> text. std::less<> lets string_views look up without copies.
using Table = std::map<std::string, std::string, std::less<>>;
using Bundle = std::map<std::string, Table, std::less<>>;

struct Registry {
  RKVMutex mutex;
  std::map<std::string, Bundle, std::less<>> bundles RKV_GUARDED_BY(mutex);
};

Registry& registry() {
  // Never destroyed: hosts may look texts up from threads that outlive static destruction.
  static Registry* const instance = new Registry();
  return *instance;
}

std::string_view tableName(std::string_view table) {
  return table.empty() ? RKVStringTables::kDefaultTable : table;
}

}  // namespace

void RKVStringTables::registerTable(std::string_view bundle, std::string_view table,
                                    const std::map<std::string, std::string>& entries) {
  Registry& r = registry();
  RKVMutexLock lock(r.mutex);
  Table& target = r.bundles[std::string(bundle)][std::string(tableName(table))];
  for (const auto& [key, text] : entries)
    target.insert_or_assign(key, text);
}

void RKVStringTables::removeBundle(std::string_view bundle) {
  Registry& r = registry();
  RKVMutexLock lock(r.mutex);
  if (auto it = r.bundles.find(bundle); it != r.bundles.end()) r.bundles.erase(it);
}

std::optional<std::string> RKVStringTables::textForKey(std::string_view key, std::string_view table,
                                                       std::string_view bundle) {
  Registry& r = registry();
  RKVMutexLock lock(r.mutex);
  auto b = r.bundles.find(bundle);
  if (b == r.bundles.end()) return std::nullopt;
  auto t = b->second.find(tableName(table));
  if (t == b->second.end()) return std::nullopt;
  auto k = t->second.find(key);
  if (k == t->second.end()) return std::nullopt;
  return k->second;
}

}  // namespace rkv
