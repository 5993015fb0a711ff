#include "dataparser/util/file_helper.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include "dataparser/util/path.h"
#include "dataparser/util/run_log.h"

#ifndef DATAPARSER_RESOURCE_DIR
#define DATAPARSER_RESOURCE_DIR "/usr/share/dataparser"
#endif

namespace dataparser {
namespace {

namespace fs = std::filesystem;

struct Configuration {
  std::mutex mutex;
  std::string bundleIdentifier = "org.dataparser.host";
  std::string applicationSupportRoot;
  std::string cachesRoot;
  std::string resourcePath = DATAPARSER_RESOURCE_DIR;
};

Configuration& configuration() {
  static Configuration instance;
  return instance;
}

std::string homeFolder() {
  if (const char* home = std::getenv("HOME"); home != nullptr && home[0] != '\0') return home;
  if (const passwd* entry = getpwuid(getuid()); entry != nullptr && entry->pw_dir != nullptr) {
    return entry->pw_dir;
  }
  return "/tmp";
}

// An XDG base folder: the variable when it holds an absolute path, else ~/{fallback}.
std::string xdgFolder(const char* variable, const char* fallback) {
  if (const char* value = std::getenv(variable); value != nullptr && value[0] == '/') {
    return value;
  }
  return path::appendingPathComponent(homeFolder(), fallback);
}

std::string configured(std::string Configuration::*field) {
  Configuration& config = configuration();
  std::lock_guard lock(config.mutex);
  return config.*field;
}

void configure(std::string Configuration::*field, std::string value) {
  Configuration& config = configuration();
  std::lock_guard lock(config.mutex);
  config.*field = std::move(value);
}

std::uint64_t sizeBelow(const std::string& path, bool followLink) {
  struct stat status {};
  int rc = followLink ? ::stat(path.c_str(), &status) : ::lstat(path.c_str(), &status);
  if (rc != 0) return 0;
  if (!S_ISDIR(status.st_mode)) return static_cast<std::uint64_t>(status.st_size);
  std::error_code error;
  fs::directory_iterator it(path, error);
  if (error) return 0;
  std::uint64_t total = 0;
  for (const fs::directory_entry& entry : it) {
    total += sizeBelow(entry.path().string(), /*followLink=*/false);
  }
  return total;
}

}  // namespace

void setBundleIdentifier(std::string value) {
  configure(&Configuration::bundleIdentifier, std::move(value));
}
std::string bundleIdentifier() {
  return configured(&Configuration::bundleIdentifier);
}
void setApplicationSupportRoot(std::string value) {
  configure(&Configuration::applicationSupportRoot, std::move(value));
}
void setCachesRoot(std::string value) {
  configure(&Configuration::cachesRoot, std::move(value));
}
void setResourcePath(std::string value) {
  configure(&Configuration::resourcePath, std::move(value));
}
std::string resourcePath() {
  return configured(&Configuration::resourcePath);
}

std::string applicationSuportPath() {
  std::string root = configured(&Configuration::applicationSupportRoot);
  return root.empty() ? xdgFolder("XDG_DATA_HOME", ".local/share") : root;
}

std::string userCachesPath() {
  std::string root = configured(&Configuration::cachesRoot);
  return root.empty() ? xdgFolder("XDG_CACHE_HOME", ".cache") : root;
}

std::string configurationPath() {
  return path::appendingPathComponent(resourcePath(), "config");
}

std::string productDomainPath() {
  std::string root = path::appendingPathComponent(applicationSuportPath(), bundleIdentifier());
  if (!isDirectory(root)) {
    std::string error;
    if (!createDirectories(root, &error)) {
      SystemLog::write("Create path failed: {}, {}", root, error);
    }
  }
  return root;
}

std::uint64_t fileSizeAtPath(const std::string& path) {
  if (path.empty()) return 0;
  return sizeBelow(path, /*followLink=*/true);
}

std::string chargeFileHasExistWithFile(const std::string& path) {
  if (!fileExists(path)) return path;
  std::string folder = path::deletingLastPathComponent(path);
  std::string base = path::deletingPathExtension(path::lastPathComponent(path));
  std::string extension = path::pathExtension(base);
  for (long n = 1;; ++n) {
    std::string candidate =
        path::appendingPathComponent(folder, base + "_" + std::to_string(n) + "." + extension);
    if (!fileExists(candidate)) return candidate;
  }
}

std::uint64_t isSpaceEnough(std::uint64_t size, const std::string& path) {
  struct statvfs info {};
  std::uint64_t free = 0;
  if (::statvfs(path.empty() ? "/" : path.c_str(), &info) == 0) {
    free = static_cast<std::uint64_t>(info.f_bavail) * info.f_frsize;
  }
  return std::max(size, free) - free;
}

bool fileExists(const std::string& path) {
  struct stat status {};
  return !path.empty() && ::stat(path.c_str(), &status) == 0;
}

bool isRegularFile(const std::string& path) {
  struct stat status {};
  return !path.empty() && ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool isDirectory(const std::string& path) {
  struct stat status {};
  return !path.empty() && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool createDirectories(const std::string& path, std::string* error) {
  std::error_code code;
  fs::create_directories(path, code);
  if (isDirectory(path)) return true;
  if (error) *error = code ? code.message() : std::string("not a folder");
  return false;
}

std::optional<std::string> firstExistingFile(const std::vector<std::string>& candidates) {
  for (const std::string& candidate : candidates) {
    if (fileExists(candidate)) return candidate;
  }
  return std::nullopt;
}

std::optional<std::string> firstExistingFile(std::initializer_list<std::string_view> candidates) {
  for (std::string_view candidate : candidates) {
    std::string path(candidate);
    if (fileExists(path)) return path;
  }
  return std::nullopt;
}

int keepRegularFile(int fd, std::uint64_t* size) {
  struct stat status {};
  if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(fd);
    return -1;
  }
  int flags = ::fcntl(fd, F_GETFL);
  if (flags >= 0) ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
  if (size != nullptr) *size = static_cast<std::uint64_t>(status.st_size);
  return fd;
}

int openRegularFile(const std::string& path, std::uint64_t* size) {
  if (path.empty() || path.find('\0') != std::string::npos) return -1;
  // Non-blocking, so that opening a pipe without a writer returns at once; the test below then
  // refuses it.
  int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) return -1;
  return keepRegularFile(fd, size);
}

std::optional<std::string> readAndClose(int fd, std::uint64_t size) {
  std::string bytes;
  bytes.reserve(static_cast<std::size_t>(size));
  char buffer[1 << 16];
  for (;;) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      ::close(fd);
      return std::nullopt;
    }
    if (n == 0) break;
    bytes.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(fd);
  return bytes;
}

std::optional<std::string> readFile(const std::string& path) {
  std::uint64_t size = 0;
  int fd = openRegularFile(path, &size);
  if (fd < 0) return std::nullopt;
  return readAndClose(fd, size);
}

bool writeFileAtomically(const std::string& path, std::string_view data) {
  if (path.empty()) return false;
  std::string temporary = path + ".XXXXXX";
  int fd = ::mkstemp(temporary.data());
  if (fd < 0) return false;
  bool ok = true;
  for (std::size_t written = 0; ok && written < data.size();) {
    ssize_t n = ::write(fd, data.data() + written, data.size() - written);
    if (n < 0 && errno == EINTR) continue;
    ok = n > 0;
    if (ok) written += static_cast<std::size_t>(n);
  }
  // mkstemp creates the file for its owner only; give it the usual permissions.
  ok = ok && ::fchmod(fd, 0644) == 0;
  ok = ::close(fd) == 0 && ok;
  ok = ok && ::rename(temporary.c_str(), path.c_str()) == 0;
  if (!ok) ::unlink(temporary.c_str());
  return ok;
}

}  // namespace dataparser
