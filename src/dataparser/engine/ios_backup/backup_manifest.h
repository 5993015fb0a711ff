// BackupManifest: the index of a device backup folder, the way a computer writes it when it
// backs up a phone.
//
// Such a folder holds "Manifest.plist" (the backup's properties, among them "IsEncrypted"),
// "Manifest.db" (SQLite; table Files with the columns fileID, domain, relativePath, flags,
// file) and the files themselves, each stored under the SHA-1 of "domain-relativePath":
// "<first two hex digits>/<40 hex digits>" (older backups keep them flat in the folder).
// `filePath` answers where a device file lives in the backup; only regular files listed as
// files (flags 1) inside the folder are ever returned, so no answer leaves the backup.
//
// Ownership: owns its open Manifest.db. Thread safety: one thread at a time.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "dataparser/engine/ios_backup/sqlite_database.h"

namespace dataparser {

class BackupManifest {
 public:
  enum class Failure { kNone, kNotABackup, kEncrypted };

  // Opens the backup in `folder`. Nothing when it is no backup (no readable Manifest.db) or an
  // encrypted one; `failure` and `reason` then say why.
  static std::unique_ptr<BackupManifest> open(const std::string& folder, Failure* failure,
                                              std::string* reason);

  // True when `folder` holds a "Manifest.db" file: the test the command line uses.
  static bool isBackup(const std::string& folder);

  // The file of `domain` and `relativePath` in the backup; "" when the backup does not hold it.
  std::string filePath(std::string_view domain, std::string_view relativePath);
  const std::string& folder() const { return folder_; }

 private:
  BackupManifest(std::string folder, std::unique_ptr<SqliteDatabase> manifest);

  std::string folder_;
  std::unique_ptr<SqliteDatabase> manifest_;
  SqliteStatement lookup_;
  bool hasFilesTable_ = false;
};

// The backup's name of a device file: sha1("domain-relativePath").
std::string backupFileID(std::string_view domain, std::string_view relativePath);

}  // namespace dataparser
