// `dataparser icloud <folder>`: reads a downloaded iCloud account folder (its "BackupInfo.plist"
// and the files it names) through the coordinator's iCloud queries, prints the same summary
// table as `scan` and optionally writes the same JSON export. With --download it then fetches
// the files still missing from a worker thread, printing one line per file when stdout is a
// terminal. A plain function so that tests can run it in-process.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>

#include "dataparser/icloud/download_runs.h"

namespace dataparser::cli {

// How many of `size` bytes the file system holding `path` lacks (0 when it has room).
using FreeSpaceProbe = std::function<std::uint64_t(std::uint64_t size, const std::string& path)>;

struct ICloudOptions {
  std::string folder;
  bool deleted = false;  // the coordinator's parseDeleted
  std::string jsonPath;  // write the export here when not empty
  // When not empty: after reading, fetch the files still missing into this folder.
  std::string downloadPath;
  std::string kinds = "calendar,notes,photos,videos";
  FreeSpaceProbe freeSpace;  // empty: the file system's own free space
};

// The download kinds named in `kinds` (comma-separated: calendar, notes, photos, videos); nothing
// when a name is unknown.
std::optional<std::uint32_t> downloadKinds(const std::string& kinds);

// The line printed for one file of a download run when stdout is a terminal:
// "{file name}  {bytes} bytes  done" or "{file name}  {bytes} bytes  failed: {error}".
std::string progressLine(const icloud::DownloadNotice& notice);

// The warning printed before a download run when `folder` lacks room for the coordinator's
// estimate by `probe`; nothing when there is room. The estimate counts notes and photos more
// than once, so a shortage only warns: the run goes on and may well fit.
std::optional<std::string> freeSpaceWarning(std::int64_t estimate, const std::string& folder,
                                            const FreeSpaceProbe& probe);

// Exit status: 0 read, 1 bad folder (no index), unknown kinds or export not written.
int runICloud(const ICloudOptions& options, std::FILE* out, std::FILE* err);

void addICloudCommand(CLI::App& app);

}  // namespace dataparser::cli
