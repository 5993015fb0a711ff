// Where the files that backup data names may be: the one rule for every path read from a
// recording, a device backup or an iCloud folder before it is tested or opened.
//
// While a scan runs, its engine holds a BackupScope naming the folders of the backup (the
// recording or backup folder, the engine's own temporary folder, an iCloud download folder); a
// host that reads items' lazy fields later (sizes, pictures) holds one of its own for that, as
// the CLI does for its export. While at least one scope is held, a path named by backup data
// counts only when
//   - it holds no NUL byte and is absolute, and
//   - it resolves (symbolic links and ".." followed) to a place inside one registered folder or
//     inside the library's own working folders (the working root and the resource folder).
// Anything else counts as missing, exactly like a file that is not there. Without any scope (a
// host feeding JSON itself) every path without a NUL byte counts, as the file system finds it.
//
// The `backup...` helpers are the file_helper.h tests and readers with this rule in front; a
// path from backup data goes through them, the library's own files through file_helper.h.
// Resolution runs beneath an open descriptor of the folder (openat2 with RESOLVE_BENEATH, one
// system call, no allocation), falling back to realpath where the kernel cannot.
//
// Thread safety: scopes may be made and dropped on any thread while others test paths; the
// folders are resolved once, when the scope is made.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace dataparser {

class BackupScope {
 public:
  // Holds nothing.
  BackupScope() = default;
  // Registers `folders` (empty entries and missing folders are skipped) together with the
  // library's own working folders, until the scope is destroyed or reset.
  explicit BackupScope(const std::vector<std::string>& folders);
  ~BackupScope();
  BackupScope(BackupScope&& other) noexcept;
  BackupScope& operator=(BackupScope&& other) noexcept;
  BackupScope(const BackupScope&) = delete;
  BackupScope& operator=(const BackupScope&) = delete;

  void reset();
  bool held() const { return id_ != 0; }

 private:
  std::uint64_t id_ = 0;
};

// True when `path` may be looked at under the rule above (and, while a scope is held, exists).
bool isInsideBackup(const std::string& path);

// file_helper.h's tests with the rule in front: a path outside the backup is missing.
bool backupFileExists(const std::string& path);
bool isBackupFile(const std::string& path);  // a regular file
// Bytes of the file, or of everything below the folder; 0 when missing or outside.
std::uint64_t backupFileSize(const std::string& path);
// The same in one look, telling a missing file from an empty one: nothing when missing or
// outside.
std::optional<std::uint64_t> existingBackupFileSize(const std::string& path);
std::optional<std::string> firstExistingBackupFile(std::initializer_list<std::string_view> paths);
// What one look at a path found: whether it is there (under the rule), its kind and its size.
struct BackupFileLook {
  bool found = false;
  unsigned mode = 0;
  std::int64_t size = 0;
};

// Looks taken ahead, on another thread, at the paths that one decoded document names. While a
// KnownBackupFiles::Scope holds a table on a thread, the helpers above answer on that thread
// from it for the paths it holds (exactly what a look then would have said, unless the backup
// changes meanwhile) and look every other path up. The table refers to the paths' bytes; they
// must outlive it. Not locked: filled on one thread, then read on one thread.
class KnownBackupFiles {
 public:
  // Looks `path` up now and remembers the answer.
  void lookUp(std::string_view path);
  const BackupFileLook* find(std::string_view path) const;
  bool empty() const { return answers_.empty(); }

  class Scope {
   public:
    explicit Scope(const KnownBackupFiles* table);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    const KnownBackupFiles* outer_;
  };

 private:
  std::unordered_map<std::string_view, BackupFileLook> answers_;
};

// While one is held on a thread, every look that thread takes at a path through the helpers
// above is remembered, found or not, and answered from memory the next time: for a long pass
// over a finished scan's items (an export, a report) that names the same files, and the same
// missing files, again and again. Only for a pass during which the backup does not change.
class RememberedBackupLooks {
 public:
  RememberedBackupLooks();
  ~RememberedBackupLooks();
  RememberedBackupLooks(const RememberedBackupLooks&) = delete;
  RememberedBackupLooks& operator=(const RememberedBackupLooks&) = delete;

  const BackupFileLook* find(const std::string& path) const;
  void remember(const std::string& path, const BackupFileLook& look) { looks_.emplace(path, look); }

 private:
  friend bool rememberedStat(const std::string& path, struct stat* status);
  struct Stat {
    bool ok;
    struct stat status;
  };
  std::unordered_map<std::string, BackupFileLook> looks_;
  std::unordered_map<std::string, Stat> stats_;
  RememberedBackupLooks* outer_;
};

// stat(2) of `path` as the file system answers it, without the rule above; while a
// RememberedBackupLooks is held on the thread, remembered like its looks. For caches of the
// library's own that check whether a file changed (loaded pictures).
bool rememberedStat(const std::string& path, struct stat* status);

// openRegularFile / readFile for a path named by backup data.
int openBackupFile(const std::string& path, std::uint64_t* size = nullptr);
std::optional<std::string> readBackupFile(const std::string& path);

}  // namespace dataparser
