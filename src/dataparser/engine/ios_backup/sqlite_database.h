// SqliteDatabase: one SQLite database of a device backup, opened read-only and immutable, and
// SqliteStatement, one prepared query over it.
//
// The database is opened through the URI "file:PATH?mode=ro&immutable=1": SQLite neither writes
// nor locks the file and creates no -wal or -journal file beside it, so a backup stays exactly
// as it was. Opening checks that the file is a readable database (a corrupt file fails here,
// not at the first query). Readers ask for columns by name through `column`, so a column that an
// older or newer system version lacks reads as NULL instead of failing the query.
//
// Ownership: a statement borrows its database, which must outlive it.
// Thread safety: one thread at a time per database and its statements.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace dataparser {

class SqliteStatement {
 public:
  SqliteStatement() = default;
  ~SqliteStatement();
  SqliteStatement(SqliteStatement&& other) noexcept;
  SqliteStatement& operator=(SqliteStatement&& other) noexcept;
  SqliteStatement(const SqliteStatement&) = delete;
  SqliteStatement& operator=(const SqliteStatement&) = delete;

  bool valid() const { return statement_ != nullptr; }
  // The next row; false at the end or on an error (then `failed` is true).
  bool step();
  bool failed() const { return failed_; }
  // Back to before the first row, bindings kept.
  void reset();
  void bind(int index, std::string_view text);  // 1-based, as SQLite counts
  void bind(int index, std::int64_t value);

  // Values of the current row (0-based). NULL reads as 0, 0.0 and "".
  bool isNull(int column) const;
  std::int64_t integer(int column) const;
  double real(int column) const;
  // Valid until the next step; the bytes as stored (text or blob).
  std::string_view text(int column) const;

 private:
  friend class SqliteDatabase;
  explicit SqliteStatement(sqlite3_stmt* statement) : statement_(statement) {}
  sqlite3_stmt* statement_ = nullptr;
  bool failed_ = false;
};

class SqliteDatabase {
 public:
  // Opens `path` read-only and immutable. Nothing when the file is missing, is not a regular
  // file or is not a readable database; `error` then gets the reason.
  static std::unique_ptr<SqliteDatabase> openReadOnly(const std::string& path,
                                                      std::string* error = nullptr);
  ~SqliteDatabase();
  SqliteDatabase(const SqliteDatabase&) = delete;
  SqliteDatabase& operator=(const SqliteDatabase&) = delete;

  // A prepared statement; an invalid one (and the reason in `error`) when SQLite refuses it.
  SqliteStatement prepare(std::string_view sql, std::string* error = nullptr);
  bool hasTable(std::string_view table);
  // The table's column names, in order; empty for a missing table.
  std::vector<std::string> columns(std::string_view table);
  // "alias.name" when `table` has the column `name`, else "NULL": for building queries that
  // survive schema differences. Column lists are cached per table.
  std::string column(std::string_view table, std::string_view alias, std::string_view name);

 private:
  explicit SqliteDatabase(sqlite3* db) : db_(db) {}
  sqlite3* db_ = nullptr;
  std::vector<std::pair<std::string, std::vector<std::string>>> columnCache_;
};

// The SQLite URI that opens `path` read-only and immutable, the path percent-escaped.
std::string immutableDatabaseURI(std::string_view path);

}  // namespace dataparser
