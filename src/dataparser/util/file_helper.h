// The library's working folders and the small file-system helpers that go with them.
//
// Folder layout (Linux rules):
//   application support  $XDG_DATA_HOME, else ~/.local/share          (applicationSuportPath)
//   working root         application support + the host's bundle id    (productDomainPath)
//     Logs/  temp/  data/  data/thumbnail/  iCloud/tmp/ ...
//   caches               $XDG_CACHE_HOME, else ~/.cache                (userCachesPath)
//   configuration        the library's resource folder + "config"      (configurationPath)
//
// The host sets its bundle identifier once at start-up; hosts and tests may also point the
// roots elsewhere. None of the helpers reports an error: missing paths and failing system calls
// give 0 or the unchanged path.
//
// Thread safety: all functions may be called from any thread; the configuration setters are
// meant for start-up but are safe at any time.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dataparser {

// Host configuration.
void setBundleIdentifier(std::string bundleIdentifier);
std::string bundleIdentifier();
// Overrides the application-support folder; "" goes back to the XDG rule.
void setApplicationSupportRoot(std::string path);
// Overrides the user caches folder; "" goes back to the XDG rule.
void setCachesRoot(std::string path);
// Overrides the library's resource folder (the one holding "config").
void setResourcePath(std::string path);
std::string resourcePath();

std::string applicationSuportPath();
// The working root; created with its parents when missing. A failed creation is logged to the
// system log ("Create path failed: %@, %@") and the path is returned all the same.
std::string productDomainPath();
std::string userCachesPath();
std::string configurationPath();

// Bytes of a file, or of everything below a folder. 0 for "", missing paths, unreadable
// folders. Symbolic links inside a folder count as links and are not followed, so a link to
// an ancestor cannot loop.
std::uint64_t fileSizeAtPath(const std::string& path);

// A path that does not exist yet: `path` itself, or "{folder}/{base}_{n}.{ext}" for the first
// free n = 1, 2, ..., where base is the name without its extension and ext is the extension of
// that base (so photo.jpg gives photo_1. and a.tar.gz gives a.tar_1.tar).
std::string chargeFileHasExistWithFile(const std::string& path);

// Bytes missing for `size` bytes on the file system holding `path` ("/" when empty); 0 when
// there is room. An unreadable file system counts as having no free space.
std::uint64_t isSpaceEnough(std::uint64_t size, const std::string& path);

// True when something exists at `path` (links followed).
bool fileExists(const std::string& path);
// True when a regular file is at `path` (links followed): one stat. Devices, pipes and folders
// are not files to open.
bool isRegularFile(const std::string& path);
bool isDirectory(const std::string& path);
// Creates a folder with its parents; true when it exists afterwards. `error` gets the reason.
bool createDirectories(const std::string& path, std::string* error = nullptr);
// The first candidate at which a file exists; nothing when none does. Empty candidates are
// skipped.
std::optional<std::string> firstExistingFile(const std::vector<std::string>& candidates);
std::optional<std::string> firstExistingFile(std::initializer_list<std::string_view> candidates);
// Opens `path` for reading only when it is a regular file (links followed): a pipe, a device
// or a folder is refused without blocking. The descriptor (close-on-exec, blocking reads) or -1;
// `size` gets the file's length. The caller closes the descriptor.
int openRegularFile(const std::string& path, std::uint64_t* size = nullptr);
// Reads a whole regular file; nothing when it cannot be read or is not a regular file.
std::optional<std::string> readFile(const std::string& path);
// The two halves of the above for descriptors opened elsewhere. keepRegularFile: `fd` when it
// is a regular file (made blocking; `size` gets its length), else closes it and gives -1.
// readAndClose: every byte up to the end (`size` is a hint), then closes `fd`.
int keepRegularFile(int fd, std::uint64_t* size);
std::optional<std::string> readAndClose(int fd, std::uint64_t size);
// Writes `data` to `path` atomically, replacing an existing file: the bytes go to a temporary
// file in the same folder, which is then renamed over `path`. Readers see the old file or the
// whole new one, never a part. False when the folder is missing or a system call fails (the
// temporary file is removed).
bool writeFileAtomically(const std::string& path, std::string_view data);

}  // namespace dataparser
