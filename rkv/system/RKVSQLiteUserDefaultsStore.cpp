#include "rkv/system/RKVSQLiteUserDefaultsStore.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include <fmt/format.h>
#include <sqlite3.h>

#include "rkv/log/RKVLog.h"
#include "rkv/system/internal/RKVSQLiteDatabase.h"

namespace rkv {

namespace {

// The type column: how the value column is to be read back.
enum StoredType : int64_t { kBool = 0, kInteger = 1, kDouble = 2, kText = 3, kDate = 4, kData = 5 };

constexpr std::string_view kCreateTable =
    "CREATE TABLE IF NOT EXISTS rkv_defaults("
    "key TEXT PRIMARY KEY NOT NULL, type INTEGER NOT NULL, value)";

void logError(std::string_view message) {
  RKVLog::sharedInstance()->logError(message);
}

// Connection settings. WAL with synchronous=FULL makes every commit durable when it returns and
// lets a process die at any instant without tearing a write. A busy time-out covers another
// process holding the write lock for a moment.
bool configure(internal::RKVSQLiteDatabase& db, std::string* error) {
  sqlite3_busy_timeout(db.handle(), 5000);
  return db.exec("PRAGMA journal_mode=WAL", error) && db.exec("PRAGMA synchronous=FULL", error) &&
         db.exec(kCreateTable, error);
}

// "ok" from a quick integrity check, else the first problem it names.
bool quickCheck(internal::RKVSQLiteDatabase& db, std::string* error) {
  auto statement = db.prepare("PRAGMA quick_check(1)", error);
  if (!statement) return false;
  int rc = sqlite3_step(statement.get());
  if (rc != SQLITE_ROW) {
    *error = db.lastError();
    return false;
  }
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), 0));
  std::string result = text ? text : "";
  if (result != "ok") {
    *error = result;
    return false;
  }
  return true;
}

// True when the connection's last failure is another connection holding the file (past the
// busy time-out): the file is in use, not unreadable, and must not be set aside.
bool isBusy(sqlite3* handle) {
  const int code = sqlite3_errcode(handle) & 0xff;
  return code == SQLITE_BUSY || code == SQLITE_LOCKED;
}

void logBusy(const std::string& path, const std::string& error) {
  logError(
      fmt::format("The user defaults file '{}' is held by another connection: {}.", path, error));
}

std::optional<RKVUserDefaultsValue> readValue(sqlite3_stmt* row) {
  switch (sqlite3_column_int64(row, 1)) {
    case kBool:
      return RKVUserDefaultsValue(sqlite3_column_int64(row, 2) != 0);
    case kInteger:
      return RKVUserDefaultsValue(static_cast<int64_t>(sqlite3_column_int64(row, 2)));
    case kDouble:
      return RKVUserDefaultsValue(sqlite3_column_double(row, 2));
    case kText: {
      const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(row, 2));
      return RKVUserDefaultsValue(
          std::string(text ? text : "", static_cast<size_t>(sqlite3_column_bytes(row, 2))));
    }
    case kDate: {
      auto nanoseconds = std::chrono::nanoseconds(sqlite3_column_int64(row, 2));
      return RKVUserDefaultsValue(std::chrono::system_clock::time_point(
          std::chrono::duration_cast<std::chrono::system_clock::duration>(nanoseconds)));
    }
    case kData: {
      const auto* bytes = static_cast<const char*>(sqlite3_column_blob(row, 2));
      return RKVUserDefaultsValue(RKVDataBlob{
          std::string(bytes ? bytes : "", static_cast<size_t>(sqlite3_column_bytes(row, 2)))});
    }
    default:
      return std::nullopt;  // written by a later version of this store: not ours to read
  }
}

int bindValue(sqlite3_stmt* statement, const RKVUserDefaultsValue& value) {
  struct Binder {
    sqlite3_stmt* s;
    int operator()(bool v) const {
      sqlite3_bind_int64(s, 2, kBool);
      return sqlite3_bind_int64(s, 3, v ? 1 : 0);
    }
    int operator()(int64_t v) const {
      sqlite3_bind_int64(s, 2, kInteger);
      return sqlite3_bind_int64(s, 3, v);
    }
    int operator()(double v) const {
      sqlite3_bind_int64(s, 2, kDouble);
      return sqlite3_bind_double(s, 3, v);
    }
    int operator()(const std::string& v) const {
      sqlite3_bind_int64(s, 2, kText);
      return sqlite3_bind_text64(s, 3, v.data(), v.size(), SQLITE_STATIC, SQLITE_UTF8);
    }
    int operator()(const std::chrono::system_clock::time_point& v) const {
      sqlite3_bind_int64(s, 2, kDate);
      auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(v.time_since_epoch());
      return sqlite3_bind_int64(s, 3, ns.count());
    }
    int operator()(const RKVDataBlob& v) const {
      sqlite3_bind_int64(s, 2, kData);
      return sqlite3_bind_blob64(s, 3, v.bytes.data(), v.bytes.size(), SQLITE_STATIC);
    }
  };
  return std::visit(Binder{statement}, value);
}

}  // namespace

RKVSQLiteUserDefaultsStore::RKVSQLiteUserDefaultsStore(std::string path) : path_(std::move(path)) {}

RKVSQLiteUserDefaultsStore::~RKVSQLiteUserDefaultsStore() = default;

bool RKVSQLiteUserDefaultsStore::openLocked() {
  if (db_) return true;
  std::error_code ec;
  auto folder = std::filesystem::path(path_).parent_path();
  if (!folder.empty()) std::filesystem::create_directories(folder, ec);

  std::string error;
  auto db = internal::RKVSQLiteDatabase::open(path_, true, &error);
  if (!db) {
    logError(fmt::format("The user defaults file '{}' cannot be opened: {}.", path_, error));
    return false;
  }
  if (!configure(*db, &error) || !quickCheck(*db, &error)) {
    if (isBusy(db->handle())) {
      logBusy(path_, error);
      return false;
    }
    db.reset();
    return replaceUnreadableLocked(error);
  }
  db_ = std::move(db);
  return true;
}

bool RKVSQLiteUserDefaultsStore::replaceUnreadableLocked(const std::string& reason) {
  db_.reset();
  auto stamp = std::chrono::duration_cast<std::chrono::seconds>(
                   std::chrono::system_clock::now().time_since_epoch())
                   .count();
  std::string aside = fmt::format("{}.corrupt-{}", path_, stamp);
  std::error_code ec;
  std::filesystem::rename(path_, aside, ec);
  if (ec) {
    logError(fmt::format("The user defaults file '{}' cannot be read ({}) nor set aside: {}.",
                         path_, reason, ec.message()));
    return false;
  }
  // A journal left beside the unreadable file belongs to it, not to the new one.
  std::filesystem::remove(path_ + "-wal", ec);
  std::filesystem::remove(path_ + "-shm", ec);
  std::filesystem::remove(path_ + "-journal", ec);

  std::string error;
  auto db = internal::RKVSQLiteDatabase::open(path_, true, &error);
  if (!db || !configure(*db, &error)) {
    logError(
        fmt::format("The user defaults file '{}' cannot be read ({}); it was moved to '{}' "
                    "and no new file could be made: {}.",
                    path_, reason, aside, error));
    return false;
  }
  logError(
      fmt::format("The user defaults file '{}' cannot be read ({}); it was moved to '{}' and "
                  "the defaults start empty.",
                  path_, reason, aside));
  db_ = std::move(db);
  return true;
}

std::map<std::string, RKVUserDefaultsValue> RKVSQLiteUserDefaultsStore::load() {
  RKVMutexLock lock(mu_);
  std::map<std::string, RKVUserDefaultsValue> entries;
  if (!openLocked()) return entries;
  std::string error;
  auto statement = db_->prepare("SELECT key, type, value FROM rkv_defaults", &error);
  int rc = statement ? SQLITE_ROW : SQLITE_ERROR;
  while (statement && (rc = sqlite3_step(statement.get())) == SQLITE_ROW) {
    const auto* key = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), 0));
    auto value = readValue(statement.get());
    if (key && value) entries.insert_or_assign(key, std::move(*value));
  }
  if (rc != SQLITE_DONE) {
    if (error.empty()) error = db_->lastError();
    const bool busy = isBusy(db_->handle());
    statement.reset();
    entries.clear();
    if (busy) {
      logBusy(path_, error);
    } else {
      replaceUnreadableLocked(error);
    }
  }
  return entries;
}

bool RKVSQLiteUserDefaultsStore::write(const std::vector<RKVUserDefaultsChange>& changes) {
  RKVMutexLock lock(mu_);
  if (!openLocked()) return false;
  std::string error;
  if (!db_->exec("BEGIN IMMEDIATE", &error)) {
    logError(fmt::format("The user defaults file '{}' cannot be written: {}.", path_, error));
    return false;
  }
  auto upsert = db_->prepare(
      "INSERT OR REPLACE INTO rkv_defaults(key, type, value) VALUES(?1, ?2, ?3)", &error);
  auto remove = db_->prepare("DELETE FROM rkv_defaults WHERE key = ?1", &error);
  bool ok = upsert && remove;
  for (const auto& change : changes) {
    if (!ok) break;
    sqlite3_stmt* statement = change.value ? upsert.get() : remove.get();
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    sqlite3_bind_text64(statement, 1, change.key.data(), change.key.size(), SQLITE_STATIC,
                        SQLITE_UTF8);
    if (change.value && bindValue(statement, *change.value) != SQLITE_OK) ok = false;
    if (ok && sqlite3_step(statement) != SQLITE_DONE) ok = false;
    if (!ok) error = db_->lastError();
    sqlite3_reset(statement);
  }
  upsert.reset();
  remove.reset();
  if (ok && db_->exec("COMMIT", &error)) return true;
  db_->exec("ROLLBACK", nullptr);
  logError(fmt::format("The user defaults file '{}' cannot be written: {}.", path_, error));
  return false;
}

}  // namespace rkv
