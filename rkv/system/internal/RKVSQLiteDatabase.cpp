#include "rkv/system/internal/RKVSQLiteDatabase.h"

#include <sqlite3.h>

namespace rkv::internal {

void RKVSQLiteStatementDeleter::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

std::unique_ptr<RKVSQLiteDatabase> RKVSQLiteDatabase::open(const std::string& path, bool create,
                                                           std::string* error) {
  sqlite3* db = nullptr;
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
  if (create) flags |= SQLITE_OPEN_CREATE;
  int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
  if (rc != SQLITE_OK) {
    if (error) *error = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    sqlite3_close(db);
    return nullptr;
  }
  sqlite3_extended_result_codes(db, 1);
  return std::unique_ptr<RKVSQLiteDatabase>(new RKVSQLiteDatabase(db));
}

RKVSQLiteDatabase::~RKVSQLiteDatabase() {
  sqlite3_close_v2(db_);
}

bool RKVSQLiteDatabase::exec(std::string_view sql, std::string* error) {
  std::string text(sql);
  char* message = nullptr;
  int rc = sqlite3_exec(db_, text.c_str(), nullptr, nullptr, &message);
  if (rc != SQLITE_OK) {
    if (error) *error = message ? message : sqlite3_errstr(rc);
    sqlite3_free(message);
    return false;
  }
  return true;
}

RKVSQLiteStatement RKVSQLiteDatabase::prepare(std::string_view sql, std::string* error) {
  sqlite3_stmt* statement = nullptr;
  int rc = sqlite3_prepare_v3(db_, sql.data(), static_cast<int>(sql.size()),
                              SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  if (rc != SQLITE_OK) {
    if (error) *error = sqlite3_errmsg(db_);
    sqlite3_finalize(statement);
    return nullptr;
  }
  return RKVSQLiteStatement(statement);
}

std::string RKVSQLiteDatabase::lastError() const {
  return sqlite3_errmsg(db_);
}

}  // namespace rkv::internal
