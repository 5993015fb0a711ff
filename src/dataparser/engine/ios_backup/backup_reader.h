// The readers of a device backup: one row per app database, each turning its database into the
// JSON block the engine sends under one callback code.
//
// A row names the database by its backup domain and relative path, the callback code of its
// block and the function that reads it. The engine opens the database (read-only, immutable),
// calls the function with a BackupScanContext and sends what it returns; a function returns
// nothing when the database does not hold what it reads (the engine logs and skips it). Files
// that a block names (message files, contact files, pictures) go below the context's output
// folder, which belongs to this scan alone.
//
// The context also carries the stop flag (long readers look at it between records and give up
// early) and the address-book names, loaded once per scan on first use, with which readers put
// people's names on numbers.
//
// Thread safety: a context is used by one scan thread.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "dataparser/core/data_type.h"
#include "dataparser/engine/ios_backup/backup_manifest.h"
#include "dataparser/engine/ios_backup/contact_names.h"
#include "dataparser/engine/ios_backup/sqlite_database.h"

namespace dataparser {

// Where the address book lives in a backup.
inline constexpr std::string_view kHomeDomain = "HomeDomain";
inline constexpr std::string_view kMediaDomain = "MediaDomain";
inline constexpr std::string_view kAddressBookPath = "Library/AddressBook/AddressBook.sqlitedb";
inline constexpr std::string_view kAddressBookImagesPath =
    "Library/AddressBook/AddressBookImages.sqlitedb";

class BackupScanContext {
 public:
  BackupScanContext(BackupManifest& backup, std::string outputFolder, const std::atomic<bool>& stop)
      : backup_(backup), outputFolder_(std::move(outputFolder)), stop_(stop) {}

  BackupManifest& backup() { return backup_; }
  const std::string& outputFolder() const { return outputFolder_; }
  bool stopRequested() const { return stop_.load(std::memory_order_relaxed); }
  // The address book's names by number and e-mail address; empty without an address book.
  const ContactNames& names();

 private:
  BackupManifest& backup_;
  std::string outputFolder_;
  const std::atomic<bool>& stop_;
  std::optional<ContactNames> names_;
};

struct BackupReader {
  std::string_view name;  // for log lines: "sms"
  std::string_view domain;
  std::string_view relativePath;
  CallbackTypeExtend code;
  std::optional<std::string> (*read)(SqliteDatabase& database, BackupScanContext& context);
};

// Every reader, in the order the engine runs them.
std::span<const BackupReader> backupReaders();

// The readers.
std::optional<std::string> readMessages(SqliteDatabase& database, BackupScanContext& context);
std::optional<std::string> readContacts(SqliteDatabase& database, BackupScanContext& context);
std::optional<std::string> readCallHistory(SqliteDatabase& database, BackupScanContext& context);

// A date of the phone's databases, seconds (or, from iOS 11 on, nanoseconds) since
// 2001-01-01 UTC, as the engine's date text; "" for 0 and for values out of range.
std::string backupDateText(double value);

}  // namespace dataparser
