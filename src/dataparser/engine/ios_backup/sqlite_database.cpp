#include "dataparser/engine/ios_backup/sqlite_database.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>

namespace dataparser {

SqliteStatement::~SqliteStatement() {
  sqlite3_finalize(statement_);
}

SqliteStatement::SqliteStatement(SqliteStatement&& other) noexcept
    : statement_(other.statement_), failed_(other.failed_) {
  other.statement_ = nullptr;
}

SqliteStatement& SqliteStatement::operator=(SqliteStatement&& other) noexcept {
  if (this != &other) {
    sqlite3_finalize(statement_);
    statement_ = other.statement_;
    failed_ = other.failed_;
    other.statement_ = nullptr;
  }
  return *this;
}

bool SqliteStatement::step() {
  if (statement_ == nullptr || failed_) return false;
  const int result = sqlite3_step(statement_);
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) failed_ = true;
  return false;
}

void SqliteStatement::reset() {
  if (statement_ == nullptr) return;
  sqlite3_reset(statement_);
  failed_ = false;
}

void SqliteStatement::bind(int index, std::string_view text) {
  if (statement_ == nullptr) return;
  sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()),
                    SQLITE_TRANSIENT);
}

void SqliteStatement::bind(int index, std::int64_t value) {
  if (statement_ == nullptr) return;
  sqlite3_bind_int64(statement_, index, value);
}

bool SqliteStatement::isNull(int column) const {
  return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

std::int64_t SqliteStatement::integer(int column) const {
  return sqlite3_column_int64(statement_, column);
}

double SqliteStatement::real(int column) const {
  return sqlite3_column_double(statement_, column);
}

std::string_view SqliteStatement::text(int column) const {
  // Text or blob alike: the stored bytes (a blob is not converted).
  const void* bytes = sqlite3_column_type(statement_, column) == SQLITE_BLOB
                          ? sqlite3_column_blob(statement_, column)
                          : static_cast<const void*>(sqlite3_column_text(statement_, column));
  const int size = sqlite3_column_bytes(statement_, column);
  if (bytes == nullptr || size <= 0) return {};
  return {static_cast<const char*>(bytes), static_cast<std::size_t>(size)};
}

std::string immutableDatabaseURI(std::string_view path) {
  std::string uri = "file:";
  for (unsigned char c : path) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '/' || c == '-' || c == '_' || c == '.' || c == '~';
    if (plain) {
      uri += static_cast<char>(c);
    } else {
      uri += '%';
      uri += "0123456789ABCDEF"[c >> 4];
      uri += "0123456789ABCDEF"[c & 0xF];
    }
  }
  return uri + "?mode=ro&immutable=1";
}

std::unique_ptr<SqliteDatabase> SqliteDatabase::openReadOnly(const std::string& path,
                                                             std::string* error) {
  auto fail = [error](std::string reason) -> std::unique_ptr<SqliteDatabase> {
    if (error != nullptr) *error = std::move(reason);
    return nullptr;
  };
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return fail("no such file");
  if (!S_ISREG(info.st_mode)) return fail("not a regular file");
  sqlite3* db = nullptr;
  const int opened = sqlite3_open_v2(immutableDatabaseURI(path).c_str(), &db,
                                     SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
  if (opened != SQLITE_OK) {
    std::string reason = db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(opened);
    sqlite3_close(db);
    return fail(reason);
  }
  std::unique_ptr<SqliteDatabase> database(new SqliteDatabase(db));
  // SQLite reads the header lazily: a first query tells a database from other bytes.
  std::string reason;
  SqliteStatement check = database->prepare("SELECT count(*) FROM sqlite_master", &reason);
  if (!check.valid() || !check.step()) {
    return fail(reason.empty() ? sqlite3_errmsg(db) : reason);
  }
  return database;
}

SqliteDatabase::~SqliteDatabase() {
  sqlite3_close(db_);
}

SqliteStatement SqliteDatabase::prepare(std::string_view sql, std::string* error) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db_, sql.data(), static_cast<int>(sql.size()), &statement, nullptr) !=
      SQLITE_OK) {
    if (error != nullptr) *error = sqlite3_errmsg(db_);
    sqlite3_finalize(statement);
    return SqliteStatement();
  }
  return SqliteStatement(statement);
}

bool SqliteDatabase::hasTable(std::string_view table) {
  return !columns(table).empty();
}

std::vector<std::string> SqliteDatabase::columns(std::string_view table) {
  auto cached = std::find_if(columnCache_.begin(), columnCache_.end(),
                             [table](const auto& entry) { return entry.first == table; });
  if (cached != columnCache_.end()) return cached->second;
  std::vector<std::string> names;
  SqliteStatement info = prepare("SELECT name FROM pragma_table_info(?)");
  info.bind(1, table);
  while (info.step())
    names.emplace_back(info.text(0));
  columnCache_.emplace_back(std::string(table), names);
  return names;
}

std::string SqliteDatabase::column(std::string_view table, std::string_view alias,
                                   std::string_view name) {
  std::vector<std::string> names = columns(table);
  if (std::find(names.begin(), names.end(), name) == names.end()) return "NULL";
  return std::string(alias) + "." + std::string(name);
}

}  // namespace dataparser
