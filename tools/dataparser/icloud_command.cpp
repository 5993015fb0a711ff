#include "tools/dataparser/icloud_command.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <sstream>
#include <thread>

#include <fmt/format.h>

#include "dataparser/core/delegate.h"
#include "dataparser/core/ios_data_parser.h"
#include "dataparser/icloud/icloud_codes.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/path.h"
#include "tools/dataparser/scan_command.h"
#include "tools/dataparser/scan_export.h"

namespace dataparser::cli {

std::optional<std::uint32_t> downloadKinds(const std::string& kinds) {
  std::uint32_t set = 0;
  std::stringstream list(kinds);
  for (std::string name; std::getline(list, name, ',');) {
    if (name == "calendar") {
      set |= icloud::kDownloadCalendarAttachments;
    } else if (name == "notes") {
      set |= icloud::kDownloadNoteAttachments;
    } else if (name == "photos") {
      set |= icloud::kDownloadPhotos;
    } else if (name == "videos") {
      set |= icloud::kDownloadVideos;
    } else {
      return std::nullopt;
    }
  }
  return set;
}

std::string progressLine(const icloud::DownloadNotice& notice) {
  std::string line = fmt::format("{}  {} bytes  ", path::lastPathComponent(notice.path),
                                 std::max<std::int64_t>(0, notice.bytes));
  return line + (notice.done ? "done" : "failed: " + notice.error);
}

std::optional<std::string> freeSpaceWarning(std::int64_t estimate, const std::string& folder,
                                            const FreeSpaceProbe& probe) {
  if (estimate <= 0) return std::nullopt;
  std::uint64_t missing = probe(static_cast<std::uint64_t>(estimate), folder);
  if (missing == 0) return std::nullopt;
  return fmt::format(
      "dataparser: {} may be short of {} bytes for the download (estimate {} bytes); going on",
      folder, missing, estimate);
}

namespace {

// Fetches the missing files into `folder` on a worker thread: the runs wait for each file while
// the downloader reports on the main queue.
void download(IOSDataParser& parser, const ICloudOptions& options, std::uint32_t kinds,
              const std::string& folder, std::FILE* out, std::FILE* err) {
  // The run creates the folder too; the free space is read from it, not from a missing path.
  createDirectories(folder);
  FreeSpaceProbe probe = options.freeSpace ? options.freeSpace : FreeSpaceProbe(isSpaceEnough);
  if (auto warning = freeSpaceWarning(parser.sizeForWillDownloadAttachment(), folder, probe)) {
    std::fprintf(err, "%s\n", warning->c_str());
  }
  if (isatty(fileno(out)) != 0) {
    icloud::setDownloadListener([out](const icloud::DownloadNotice& notice) {
      std::fprintf(out, "%s\n", progressLine(notice).c_str());
      std::fflush(out);
    });
  }
  std::thread worker([&] { parser.startDownloadFilesWithType(kinds, folder); });
  worker.join();
  icloud::setDownloadListener({});
}

}  // namespace

int runICloud(const ICloudOptions& options, std::FILE* out, std::FILE* err) {
  namespace fs = std::filesystem;
  std::error_code error;
  fs::path folder = fs::absolute(options.folder, error);
  if (error || !fs::is_regular_file(folder / "BackupInfo.plist", error)) {
    std::fprintf(err, "dataparser: %s is not an iCloud folder (no BackupInfo.plist)\n",
                 options.folder.c_str());
    return 1;
  }
  if (std::string message;
      !options.jsonPath.empty() && !ScanExport::canWrite(options.jsonPath, &message)) {
    std::fprintf(err, "dataparser: %s\n", message.c_str());
    return 1;
  }

  std::optional<std::uint32_t> kinds = downloadKinds(options.kinds);
  if (!kinds) {
    std::fprintf(err, "dataparser: unknown download kinds %s\n", options.kinds.c_str());
    return 1;
  }

  auto scan = std::make_shared<ScanExport>();
  auto observer = std::make_shared<IOSDataParserDelegate>();
  observer->didFetchedData = [scan](IOSDataParser&, ItemList items, IOSDataType type) {
    scan->report(type, items);
  };
  IOSDataParser& parser = IOSDataParser::shared();
  parser.setDelegate(observer);
  parser.setParseDeleted(options.deleted);
  scan->began();
  parser.setupiCloudParser();
  parser.startParseiCloudBackupWithPath(folder.string());
  if (!options.downloadPath.empty()) {
    download(parser, options, *kinds, fs::absolute(options.downloadPath, error).string(), out, err);
  }
  scan->finish(1);
  parser.setDelegate({});
  // Fields read by the export look for files only inside the account folder and the download
  // folder, as the parsers did.
  const BackupScope scope(
      {folder.string(),
       options.downloadPath.empty() ? "" : fs::absolute(options.downloadPath, error).string()});

  printSummary(*scan, out);
  if (!options.jsonPath.empty()) {
    std::string message;
    if (!scan->write(options.jsonPath, &message)) {
      std::fprintf(err, "dataparser: %s\n", message.c_str());
      return 1;
    }
  }
  parser.releaseiCloudParser();
  std::fprintf(out, "icloud folder read\n");
  return 0;
}

void addICloudCommand(CLI::App& app) {
  auto options = std::make_shared<ICloudOptions>();
  CLI::App* command =
      app.add_subcommand("icloud", "Read a downloaded iCloud account folder and summarise it");
  command->add_option("folder", options->folder, "Folder holding BackupInfo.plist")->required();
  command->add_flag("--deleted", options->deleted, "Keep data marked deleted");
  command->add_option("--json", options->jsonPath, "Write the JSON export to this file");
  command->add_option("--download", options->downloadPath,
                      "Fetch the files still missing into this folder");
  command->add_option("--kinds", options->kinds,
                      "What --download fetches: calendar,notes,photos,videos (default all)");
  command->callback([options] {
    int status = runICloud(*options, stdout, stderr);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace dataparser::cli
