#include "dataparser/util/file_scope.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <string_view>

#include "dataparser/util/file_helper.h"

#ifdef __linux__
#include <linux/openat2.h>
#include <sys/syscall.h>
#endif

namespace dataparser {
namespace {

// One registered folder: its text as given (made absolute, no trailing slash), its resolved
// form, and a descriptor that resolution starts beneath.
struct Root {
  std::string text;
  std::string canonical;
  int fd = -1;
};

struct Registry {
  std::shared_mutex mutex;
  std::map<std::uint64_t, std::vector<Root>> scopes;
  std::uint64_t next = 0;
  std::atomic<bool> any = false;
};

Registry& registry() {
  static Registry* instance = new Registry;  // outlives every static scope
  return *instance;
}

std::string withoutTrailingSlashes(std::string text) {
  while (text.size() > 1 && text.back() == '/')
    text.pop_back();
  return text;
}

std::optional<std::string> resolved(const char* path) {
  std::unique_ptr<char, decltype(&std::free)> real(::realpath(path, nullptr), &std::free);
  if (!real) return std::nullopt;
  return std::string(real.get());
}

// `path` is `root` or lies below it, as text.
bool below(std::string_view path, std::string_view root) {
  if (!path.starts_with(root)) return false;
  return path.size() == root.size() || path[root.size()] == '/' || root == "/";
}

std::vector<Root> rootsOf(const std::vector<std::string>& folders) {
  std::vector<std::string> all = folders;
  all.push_back(productDomainPath());
  all.push_back(resourcePath());
  std::vector<Root> roots;
  for (const std::string& folder : all) {
    if (folder.empty() || folder.find('\0') != std::string::npos) continue;
    std::optional<std::string> canonical = resolved(folder.c_str());
    if (!canonical) continue;
    int fd = ::open(canonical->c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) continue;
    std::string text = folder[0] == '/' ? withoutTrailingSlashes(folder) : *canonical;
    roots.push_back(Root{std::move(text), std::move(*canonical), fd});
  }
  return roots;
}

enum class Beneath { kInside, kMissing, kUnknown };

// Opens `relative` beneath `root` without leaving it. kUnknown when the kernel cannot tell (no
// openat2, or an absolute link on the way, which may still land inside).
Beneath openBeneath(int root, const char* relative, int flags, int* fd) {
#if defined(__linux__) && defined(SYS_openat2)
  static std::atomic<bool> unsupported = false;
  if (unsupported.load(std::memory_order_relaxed)) return Beneath::kUnknown;
  open_how how{};
  how.flags = static_cast<std::uint64_t>(flags);
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  for (;;) {
    long result =
        ::syscall(SYS_openat2, root, relative[0] == '\0' ? "." : relative, &how, sizeof how);
    if (result >= 0) {
      *fd = static_cast<int>(result);
      return Beneath::kInside;
    }
    if (errno == EINTR || errno == EAGAIN) continue;
    if (errno == ENOSYS || errno == EPERM) {
      if (errno == ENOSYS) unsupported.store(true, std::memory_order_relaxed);
      return Beneath::kUnknown;
    }
    return errno == EXDEV || errno == ELOOP ? Beneath::kUnknown : Beneath::kMissing;
  }
#else
  (void)root, (void)relative, (void)flags, (void)fd;
  return Beneath::kUnknown;
#endif
}

// Opens `path` beneath the registered folder whose text it starts with: a descriptor, -1 when
// it is missing there or leaves it, nothing when no folder's text matches or the kernel cannot
// tell. The caller holds the registry's lock.
std::optional<int> openBelowRegistered(const Registry& reg, const std::string& path, int flags) {
  for (const auto& [id, roots] : reg.scopes) {
    for (const Root& root : roots) {
      for (const std::string* text : {&root.text, &root.canonical}) {
        if (!below(path, *text)) continue;
        std::size_t start = text->size();
        while (start < path.size() && path[start] == '/')
          ++start;
        int fd = -1;
        switch (openBeneath(root.fd, path.c_str() + start, flags, &fd)) {
          case Beneath::kInside:
            return fd;
          case Beneath::kMissing:
            return -1;
          case Beneath::kUnknown:
            return std::nullopt;
        }
      }
    }
  }
  return std::nullopt;
}

// Opens `path` with `flags` under the rule; -1 when it is outside, missing or not openable.
int openScoped(const std::string& path, int flags) {
  if (path.empty() || path.find('\0') != std::string::npos) return -1;
  Registry& reg = registry();
  if (!reg.any.load(std::memory_order_acquire)) return ::open(path.c_str(), flags);
  if (path[0] != '/') return -1;
  std::shared_lock lock(reg.mutex);
  // A path written below a registered folder resolves beneath it: one system call.
  if (std::optional<int> fd = openBelowRegistered(reg, path, flags)) return *fd;
  // Anything else is resolved in full and must land inside a folder.
  std::optional<std::string> real = resolved(path.c_str());
  if (!real) return -1;
  for (const auto& [id, roots] : reg.scopes) {
    for (const Root& root : roots) {
      if (below(*real, root.canonical)) return ::open(real->c_str(), flags);
    }
  }
  return -1;
}

// Folders already found to resolve inside a registered folder, so that a scan naming many files
// of one folder resolves that folder once. Forgotten whenever the registered folders change.
class CheckedFolders {
 public:
  bool contains(std::string_view folder) {
    std::lock_guard lock(mutex_);
    return folders_.find(folder) != folders_.end();
  }
  void add(std::string_view folder) {
    std::lock_guard lock(mutex_);
    if (folders_.size() >= kMaxFolders) folders_.clear();
    folders_.emplace(folder);
  }
  void clear() {
    std::lock_guard lock(mutex_);
    folders_.clear();
  }

 private:
  static constexpr std::size_t kMaxFolders = 1 << 16;
  std::mutex mutex_;
  std::set<std::string, std::less<>> folders_;
};

CheckedFolders& checkedFolders() {
  static CheckedFolders* instance = new CheckedFolders;
  return *instance;
}

// The quick form of the rule for the common case, a plain path written below a registered
// folder: when its folder is known to resolve inside, one lstat of the path itself settles it,
// unless the path ends in a link. The lstat walks only the part of the path below the folder,
// from the folder's descriptor. Nothing when the quick form cannot tell. The caller holds the
// registry's lock.
std::optional<bool> statBelowCheckedFolder(const Registry& reg, const std::string& path,
                                           struct stat* status) {
  if (path.find("/..") != std::string::npos) return std::nullopt;
  const std::size_t slash = path.rfind('/');
  if (slash == 0 || slash == std::string::npos) return std::nullopt;
  const std::string_view folder(path.data(), slash);
  const Root* written = nullptr;
  std::size_t relative = 0;
  for (const auto& [id, roots] : reg.scopes) {
    for (const Root& root : roots) {
      for (const std::string* text : {&root.text, &root.canonical}) {
        if (written == nullptr && below(folder, *text)) {
          written = &root;
          relative = text->size();
        }
      }
    }
  }
  if (written == nullptr) return std::nullopt;
  while (path[relative] == '/')
    ++relative;
  CheckedFolders& checked = checkedFolders();
  if (!checked.contains(folder)) {
    // One resolution of the folder beneath the registered one settles it; only where the kernel
    // cannot tell is the folder resolved in full.
    const std::string inner(relative < folder.size() ? folder.substr(relative) : ".");
    int fd = -1;
    switch (openBeneath(written->fd, inner.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC, &fd)) {
      case Beneath::kInside:
        ::close(fd);
        break;
      case Beneath::kMissing:
        return false;  // no such folder there
      case Beneath::kUnknown: {
        std::optional<std::string> real = resolved(std::string(folder).c_str());
        if (!real) return false;  // no such folder
        bool inside = false;
        for (const auto& [id, roots] : reg.scopes) {
          for (const Root& root : roots) {
            inside = inside || below(*real, root.canonical);
          }
        }
        if (!inside) return std::nullopt;  // the full rule decides
        break;
      }
    }
    checked.add(folder);
  }
  const char* rest = relative == path.size() ? "." : path.c_str() + relative;
  if (::fstatat(written->fd, rest, status, AT_SYMLINK_NOFOLLOW) != 0) {
    return false;
  }
  if (S_ISLNK(status->st_mode)) return std::nullopt;
  return true;
}

thread_local const KnownBackupFiles* knownFiles = nullptr;
thread_local RememberedBackupLooks* rememberedLooks = nullptr;

bool statScopedNow(const std::string& path, struct stat* status);

bool answer(const BackupFileLook& look, struct stat* status) {
  status->st_mode = look.mode;
  status->st_size = look.size;
  return look.found;
}

BackupFileLook lookOf(bool found, const struct stat& status) {
  if (!found) return {};
  return {true, static_cast<unsigned>(status.st_mode), static_cast<std::int64_t>(status.st_size)};
}

// stat of the file `path` names under the rule; false when outside or missing. A look taken
// ahead or remembered fills in only the kind and size.
bool statScoped(const std::string& path, struct stat* status) {
  if (knownFiles != nullptr) {
    if (const BackupFileLook* look = knownFiles->find(path)) return answer(*look, status);
  }
  if (rememberedLooks != nullptr) {
    if (const BackupFileLook* look = rememberedLooks->find(path)) return answer(*look, status);
  }
  const bool found = statScopedNow(path, status);
  if (rememberedLooks != nullptr) rememberedLooks->remember(path, lookOf(found, *status));
  return found;
}

bool statScopedNow(const std::string& path, struct stat* status) {
  Registry& reg = registry();
  if (!path.empty() && path[0] == '/' && path.find('\0') == std::string::npos &&
      reg.any.load(std::memory_order_acquire)) {
    std::shared_lock lock(reg.mutex);
    if (std::optional<bool> known = statBelowCheckedFolder(reg, path, status)) return *known;
  }
  int fd = openScoped(path, O_PATH | O_CLOEXEC);
  if (fd < 0) return false;
  bool ok = ::fstat(fd, status) == 0;
  ::close(fd);
  return ok;
}

}  // namespace

BackupScope::BackupScope(const std::vector<std::string>& folders) {
  std::vector<Root> roots = rootsOf(folders);
  Registry& reg = registry();
  std::unique_lock lock(reg.mutex);
  id_ = ++reg.next;
  reg.scopes.emplace(id_, std::move(roots));
  checkedFolders().clear();
  reg.any.store(true, std::memory_order_release);
}

BackupScope::~BackupScope() {
  reset();
}

BackupScope::BackupScope(BackupScope&& other) noexcept : id_(other.id_) {
  other.id_ = 0;
}

BackupScope& BackupScope::operator=(BackupScope&& other) noexcept {
  if (this != &other) {
    reset();
    id_ = other.id_;
    other.id_ = 0;
  }
  return *this;
}

void BackupScope::reset() {
  if (id_ == 0) return;
  Registry& reg = registry();
  std::unique_lock lock(reg.mutex);
  if (auto it = reg.scopes.find(id_); it != reg.scopes.end()) {
    for (const Root& root : it->second)
      ::close(root.fd);
    reg.scopes.erase(it);
  }
  checkedFolders().clear();
  reg.any.store(!reg.scopes.empty(), std::memory_order_release);
  id_ = 0;
}

bool isInsideBackup(const std::string& path) {
  if (path.empty() || path.find('\0') != std::string::npos) return false;
  if (!registry().any.load(std::memory_order_acquire)) return true;
  struct stat status {};
  return statScoped(path, &status);
}

void KnownBackupFiles::lookUp(std::string_view path) {
  if (answers_.contains(path)) return;
  struct stat status {};
  const bool found = statScoped(std::string(path), &status);
  answers_.emplace(path, lookOf(found, status));
}

const BackupFileLook* KnownBackupFiles::find(std::string_view path) const {
  auto found = answers_.find(path);
  return found == answers_.end() ? nullptr : &found->second;
}

const BackupFileLook* RememberedBackupLooks::find(const std::string& path) const {
  auto found = looks_.find(path);
  return found == looks_.end() ? nullptr : &found->second;
}

bool rememberedStat(const std::string& path, struct stat* status) {
  RememberedBackupLooks* remembered = rememberedLooks;
  if (remembered != nullptr) {
    if (auto found = remembered->stats_.find(path); found != remembered->stats_.end()) {
      *status = found->second.status;
      return found->second.ok;
    }
  }
  const bool ok = path.find('\0') == std::string::npos && ::stat(path.c_str(), status) == 0;
  if (remembered != nullptr)
    remembered->stats_.emplace(path, RememberedBackupLooks::Stat{ok, *status});
  return ok;
}

RememberedBackupLooks::RememberedBackupLooks() : outer_(rememberedLooks) {
  rememberedLooks = this;
}

RememberedBackupLooks::~RememberedBackupLooks() {
  rememberedLooks = outer_;
}

KnownBackupFiles::Scope::Scope(const KnownBackupFiles* table) : outer_(knownFiles) {
  knownFiles = table;
}

KnownBackupFiles::Scope::~Scope() {
  knownFiles = outer_;
}

bool backupFileExists(const std::string& path) {
  struct stat status {};
  return statScoped(path, &status);
}

bool isBackupFile(const std::string& path) {
  struct stat status {};
  return statScoped(path, &status) && S_ISREG(status.st_mode);
}

std::uint64_t backupFileSize(const std::string& path) {
  return existingBackupFileSize(path).value_or(0);
}

std::optional<std::uint64_t> existingBackupFileSize(const std::string& path) {
  struct stat status {};
  if (!statScoped(path, &status)) return std::nullopt;
  // A folder's bytes are summed without following the links inside it.
  return S_ISDIR(status.st_mode) ? fileSizeAtPath(path)
                                 : static_cast<std::uint64_t>(status.st_size);
}

std::optional<std::string> firstExistingBackupFile(std::initializer_list<std::string_view> paths) {
  for (std::string_view candidate : paths) {
    std::string path(candidate);
    if (backupFileExists(path)) return path;
  }
  return std::nullopt;
}

int openBackupFile(const std::string& path, std::uint64_t* size) {
  // Non-blocking, so that a pipe without a writer is refused at once.
  int fd = openScoped(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  return fd < 0 ? -1 : keepRegularFile(fd, size);
}

std::optional<std::string> readBackupFile(const std::string& path) {
  std::uint64_t size = 0;
  int fd = openBackupFile(path, &size);
  if (fd < 0) return std::nullopt;
  return readAndClose(fd, size);
}

}  // namespace dataparser
