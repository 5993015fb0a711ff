// `dataparser icloud <folder>`: reads a downloaded iCloud account folder (its "BackupInfo.plist"
// and the files it names) through the coordinator's iCloud queries, prints the same summary
// table as `scan` and optionally writes the same JSON export. A plain function so that tests can
// run it in-process.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

namespace dataparser::cli {

struct ICloudOptions {
  std::string folder;
  bool deleted = false;  // the coordinator's parseDeleted
  std::string jsonPath;  // write the export here when not empty
  // When not empty: after reading, fetch the files still missing into this folder.
  std::string downloadPath;
  std::string kinds = "calendar,notes,photos,videos";
};

// The download kinds named in `kinds` (comma-separated: calendar, notes, photos, videos); nothing
// when a name is unknown.
std::optional<std::uint32_t> downloadKinds(const std::string& kinds);

// Exit status: 0 read, 1 bad folder (no index), unknown kinds or export not written.
int runICloud(const ICloudOptions& options, std::FILE* out, std::FILE* err);

void addICloudCommand(CLI::App& app);

}  // namespace dataparser::cli
