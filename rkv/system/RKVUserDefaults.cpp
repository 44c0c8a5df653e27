#include "rkv/system/RKVUserDefaults.h"

#include <cstdlib>
#include <utility>
#include <vector>

#include "rkv/log/RKVLog.h"
#include "rkv/platform/RKVAppInfo.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/system/RKVSQLiteUserDefaultsStore.h"

namespace rkv {

namespace {

struct Standard {
  RKVMutex mu;
  std::optional<std::string> path RKV_GUARDED_BY(mu);
  std::shared_ptr<RKVUserDefaults> instance RKV_GUARDED_BY(mu);
};

Standard& standard() {
  static Standard* s = new Standard();  // never destroyed: used until the process ends
  return *s;
}

template <typename T>
std::optional<T> typed(const std::optional<RKVUserDefaultsValue>& value) {
  if (value && std::holds_alternative<T>(*value)) return std::get<T>(*value);
  return std::nullopt;
}

}  // namespace

std::shared_ptr<RKVUserDefaults> RKVUserDefaults::standardUserDefaults() {
  auto& s = standard();
  RKVMutexLock lock(s.mu);
  if (!s.instance) {
    auto path = s.path ? *s.path : defaultPath();
    s.instance =
        std::make_shared<RKVUserDefaults>(std::make_shared<RKVSQLiteUserDefaultsStore>(path));
  }
  return s.instance;
}

bool RKVUserDefaults::setStandardPath(std::string path) {
  auto& s = standard();
  RKVMutexLock lock(s.mu);
  if (s.instance) return false;
  s.path = std::move(path);
  return true;
}

std::string RKVUserDefaults::standardPath() {
  auto& s = standard();
  {
    RKVMutexLock lock(s.mu);
    if (s.path) return *s.path;
  }
  return defaultPath();
}

std::string RKVUserDefaults::defaultPath() {
  std::string base;
  if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg == '/') {
    base = xdg;
  } else if (const char* home = std::getenv("HOME"); home && *home) {
    base = std::string(home) + "/.local/share";
  } else {
    base = ".";
  }
  std::string app = RKVAppInfo::sharedInstance()->appBundleIdentifier();
  if (app.empty() || app == "(unknown)" || app.find('/') != std::string::npos || app[0] == '.') {
    app = "default";
  }
  return base + "/rkvcore/" + app + "/defaults.sqlite";
}

RKVUserDefaults::RKVUserDefaults(std::shared_ptr<RKVUserDefaultsStore> store)
    : store_(store ? std::move(store) : std::make_shared<RKVMemoryUserDefaultsStore>()) {
  auto loaded = store_->load();
  RKVMutexLock lock(mu_);
  for (auto& [key, value] : loaded)
    entries_.emplace(key, std::move(value));
}

RKVUserDefaults::~RKVUserDefaults() {
  synchronize();
}

std::optional<RKVUserDefaultsValue> RKVUserDefaults::objectForKey(std::string_view key) const {
  RKVMutexLock lock(mu_);
  auto it = entries_.find(key);
  if (it == entries_.end()) return std::nullopt;
  return it->second;
}

std::optional<std::string> RKVUserDefaults::stringForKey(std::string_view key) const {
  return typed<std::string>(objectForKey(key));
}

std::optional<std::string> RKVUserDefaults::dataForKey(std::string_view key) const {
  RKVMutexLock lock(mu_);
  auto it = entries_.find(key);
  if (it == entries_.end() || !std::holds_alternative<RKVDataBlob>(it->second)) {
    return std::nullopt;
  }
  return std::get<RKVDataBlob>(it->second).bytes;
}

std::optional<int64_t> RKVUserDefaults::integerForKey(std::string_view key) const {
  return typed<int64_t>(objectForKey(key));
}

std::optional<double> RKVUserDefaults::doubleForKey(std::string_view key) const {
  return typed<double>(objectForKey(key));
}

std::optional<bool> RKVUserDefaults::boolForKey(std::string_view key) const {
  return typed<bool>(objectForKey(key));
}

std::optional<RKVUserDefaults::Date> RKVUserDefaults::dateForKey(std::string_view key) const {
  return typed<Date>(objectForKey(key));
}

void RKVUserDefaults::setObject(std::string key, RKVUserDefaultsValue value) {
  RKVMutexLock lock(mu_);
  dirty_.insert(key);
  entries_.insert_or_assign(std::move(key), std::move(value));
}

void RKVUserDefaults::removeObjectForKey(std::string_view key) {
  RKVMutexLock lock(mu_);
  auto it = entries_.find(key);
  if (it == entries_.end()) return;
  entries_.erase(it);
  dirty_.emplace(key);
}

std::map<std::string, RKVUserDefaultsValue> RKVUserDefaults::dictionaryRepresentation() const {
  RKVMutexLock lock(mu_);
  return {entries_.begin(), entries_.end()};
}

bool RKVUserDefaults::synchronize() {
  RKVMutexLock writing(writeMu_);
  std::vector<RKVUserDefaultsChange> changes;
  {
    RKVMutexLock lock(mu_);
    if (dirty_.empty()) return true;
    changes.reserve(dirty_.size());
    for (const auto& key : dirty_) {
      auto it = entries_.find(key);
      changes.push_back({key, it == entries_.end()
                                  ? std::nullopt
                                  : std::optional<RKVUserDefaultsValue>(it->second)});
    }
    dirty_.clear();
  }
  if (store_->write(changes)) return true;
  // Nothing was written: mark the keys again, unless a later set already did (its value is the
  // newer one and is in memory).
  RKVMutexLock lock(mu_);
  for (auto& change : changes)
    dirty_.insert(std::move(change.key));
  return false;
}

}  // namespace rkv
