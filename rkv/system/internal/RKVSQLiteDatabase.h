// RKVSQLiteDatabase: the one owner of an sqlite3 connection and its prepared statements.
// Move-only; not synchronized (its owner serializes calls).
#pragma once

#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace rkv::internal {

struct RKVSQLiteStatementDeleter {
  void operator()(sqlite3_stmt* statement) const;
};
using RKVSQLiteStatement = std::unique_ptr<sqlite3_stmt, RKVSQLiteStatementDeleter>;

class RKVSQLiteDatabase {
 public:
  // Opens (creating when asked) the file at `path`; null with `error` set when it cannot.
  static std::unique_ptr<RKVSQLiteDatabase> open(const std::string& path, bool create,
                                                 std::string* error);
  ~RKVSQLiteDatabase();

  RKVSQLiteDatabase(const RKVSQLiteDatabase&) = delete;
  RKVSQLiteDatabase& operator=(const RKVSQLiteDatabase&) = delete;

  sqlite3* handle() const { return db_; }
  // Runs statements that return no rows; false with `error` set on failure.
  bool exec(std::string_view sql, std::string* error);
  // A prepared statement, or null with `error` set.
  RKVSQLiteStatement prepare(std::string_view sql, std::string* error);
  // The connection's last error message.
  std::string lastError() const;

 private:
  explicit RKVSQLiteDatabase(sqlite3* db) : db_(db) {}
  sqlite3* db_;
};

}  // namespace rkv::internal
