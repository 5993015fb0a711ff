#include "dataparser/engine/ios_backup/backup_manifest.h"

#include <plist/plist.h>
#include <sys/stat.h>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/text.h"

namespace dataparser {
namespace {

constexpr std::int64_t kFlagsFile = 1;  // Files.flags: 1 file, 2 folder, 4 symbolic link

// A regular file that is not reached through a symbolic link: a backup's links never count.
bool isFileNotLink(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// "IsEncrypted" of Manifest.plist (XML or binary); false when the file or key is missing.
bool isEncrypted(const std::string& folder) {
  const std::string path = folder + "/Manifest.plist";
  if (!isFileNotLink(path)) return false;
  std::optional<std::string> bytes = readFile(path);
  if (!bytes || bytes->empty() || bytes->size() > 64u * 1024 * 1024) return false;
  plist_t root = nullptr;
  plist_from_memory(bytes->data(), static_cast<std::uint32_t>(bytes->size()), &root);
  if (root == nullptr) return false;
  bool encrypted = false;
  if (plist_get_node_type(root) == PLIST_DICT) {
    plist_t node = plist_dict_get_item(root, "IsEncrypted");
    if (node != nullptr && plist_get_node_type(node) == PLIST_BOOLEAN) {
      std::uint8_t value = 0;
      plist_get_bool_val(node, &value);
      encrypted = value != 0;
    }
  }
  plist_free(root);
  return encrypted;
}

}  // namespace

std::string backupFileID(std::string_view domain, std::string_view relativePath) {
  std::string key;
  key.reserve(domain.size() + 1 + relativePath.size());
  key.append(domain).append("-").append(relativePath);
  return sha1String(key);
}

bool BackupManifest::isBackup(const std::string& folder) {
  return isFileNotLink(folder + "/Manifest.db");
}

std::unique_ptr<BackupManifest> BackupManifest::open(const std::string& folder, Failure* failure,
                                                     std::string* reason) {
  auto fail = [&](Failure kind, std::string why) -> std::unique_ptr<BackupManifest> {
    if (failure != nullptr) *failure = kind;
    if (reason != nullptr) *reason = std::move(why);
    return nullptr;
  };
  if (isEncrypted(folder)) return fail(Failure::kEncrypted, "the backup is encrypted");
  std::string error;
  std::unique_ptr<SqliteDatabase> manifest =
      SqliteDatabase::openReadOnly(folder + "/Manifest.db", &error);
  if (!manifest) return fail(Failure::kNotABackup, "Manifest.db: " + error);
  if (failure != nullptr) *failure = Failure::kNone;
  return std::unique_ptr<BackupManifest>(new BackupManifest(folder, std::move(manifest)));
}

BackupManifest::BackupManifest(std::string folder, std::unique_ptr<SqliteDatabase> manifest)
    : folder_(std::move(folder)), manifest_(std::move(manifest)) {
  // Files(fileID TEXT PRIMARY KEY, domain, relativePath, flags INTEGER, file BLOB)
  hasFilesTable_ = manifest_->hasTable("Files");
  if (hasFilesTable_) {
    lookup_ = manifest_->prepare("SELECT " + manifest_->column("Files", "Files", "flags") +
                                 " FROM Files WHERE fileID = ?");
  }
}

std::string BackupManifest::filePath(std::string_view domain, std::string_view relativePath) {
  if (relativePath.empty() || !hasFilesTable_ || !lookup_.valid()) return {};
  const std::string id = backupFileID(domain, relativePath);
  if (id.size() != 40) return {};
  lookup_.reset();
  lookup_.bind(1, std::string_view(id));
  const bool listed = lookup_.step();
  const bool isFile = listed && (lookup_.isNull(0) || lookup_.integer(0) == kFlagsFile);
  lookup_.reset();
  if (!isFile) return {};
  std::string nested = folder_ + "/" + id.substr(0, 2) + "/" + id;
  if (isFileNotLink(nested)) return nested;
  std::string flat = folder_ + "/" + id;
  if (isFileNotLink(flat)) return flat;
  return {};
}

}  // namespace dataparser
