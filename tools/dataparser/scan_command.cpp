#include "tools/dataparser/scan_command.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <future>
#include <memory>
#include <set>

#include "dataparser/core/data_type.h"
#include "dataparser/core/delegate.h"
#include "dataparser/core/ios_data_parser.h"
#include "dataparser/engine/ios_backup/ios_backup_engine.h"
#include "dataparser/engine/replay_engine.h"
#include "dataparser/model/attachment.h"
#include "dataparser/model/conversation.h"
#include "dataparser/report/report_writer.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "tools/dataparser/scan_export.h"

namespace dataparser::cli {
namespace {

namespace fs = std::filesystem;

// What makes two attachments the same: their file when they have one (a message's attachment
// and the attachment list's entry may be two objects for one file), else the object itself.
std::string attachmentKey(const IOSAttachmentItem& attachment) {
  if (!attachment.localPath().empty()) return "file " + attachment.localPath();
  return fmt::format("item {}", fmt::ptr(&attachment));
}

// Calls `each` with the key of every attachment reachable from one reported item: the item itself
// when it is an attachment, the attachments of its messages when it is a conversation.
template <class Each>
void forEachAttachment(const IOSBaseItem& item, Each&& each) {
  if (const auto* attachment = dynamic_cast<const IOSAttachmentItem*>(&item)) {
    each(attachmentKey(*attachment));
  } else if (const auto* session = dynamic_cast<const IOSBaseSessionItem*>(&item)) {
    for (const MessagePtr& message : session->contents()) {
      if (message && message->isAttachment() && message->attachment())
        each(attachmentKey(*message->attachment()));
    }
  }
}

class ProgressBar {
 public:
  ProgressBar(std::FILE* err, bool enabled) : err_(err), enabled_(enabled && isatty(fileno(err))) {}
  void draw(float value) {
    if (!enabled_) return;
    int percent = static_cast<int>(value * 100.0f + 0.5f);
    if (percent == last_) return;
    last_ = percent;
    constexpr int kWidth = 40;
    int filled = percent * kWidth / 100;
    std::fprintf(err_, "\r[%.*s%*s] %3d%%", filled, "########################################",
                 kWidth - filled, "", percent);
    std::fflush(err_);
  }
  void done() {
    if (enabled_ && last_ >= 0) std::fputc('\n', err_);
  }

 private:
  std::FILE* err_;
  bool enabled_;
  int last_ = -1;
};

std::atomic<bool> gInterrupted = false;

}  // namespace

std::vector<SummaryRow> summaryRows(const std::map<std::int64_t, ItemList>& lists) {
  std::vector<SummaryRow> rows;
  std::vector<const ItemList*> seen;  // the list of each row, for lists reported twice
  std::set<std::string> counted;      // every attachment of the table, once
  for (const auto& [type, items] : lists) {
    SummaryRow row{type, std::string(IOSDataTypeName(type)), items.size(), 0, {}};
    if (row.name.empty()) row.name = "Type " + std::to_string(type);
    for (std::size_t i = 0; i < seen.size(); ++i) {
      if (*seen[i] == items) row.sameAs = rows[i].name;  // the same items, in the same order
    }
    std::set<std::string> own;
    for (const ItemPtr& item : items) {
      if (item) forEachAttachment(*item, [&](std::string key) { own.insert(std::move(key)); });
    }
    if (row.sameAs.empty()) row.attachments = own.size();
    counted.insert(own.begin(), own.end());
    seen.push_back(&items);
    rows.push_back(std::move(row));
  }
  rows.push_back(SummaryRow{0, "All attachments", 0, counted.size(), {}});
  return rows;
}

void printSummary(const ScanExport& scan, std::FILE* out) {
  std::fprintf(out, "%-14s %-38s %8s %12s\n", "type", "name", "items", "attachments");
  const std::map<std::int64_t, ItemList> lists = scan.lists();
  const std::vector<SummaryRow> rows = summaryRows(lists);
  for (std::size_t i = 0; i + 1 < rows.size(); ++i) {
    const SummaryRow& row = rows[i];
    if (row.sameAs.empty()) {
      std::fprintf(out, "%-14lld %-38s %8zu %12zu\n", static_cast<long long>(row.type),
                   row.name.c_str(), row.items, row.attachments);
    } else {
      std::fprintf(out, "%-14lld %-38s %8zu %12s  (same list as %s)\n",
                   static_cast<long long>(row.type), row.name.c_str(), row.items, "-",
                   row.sameAs.c_str());
    }
  }
  std::fprintf(out, "%-14s %-38s %8s %12zu\n", "", rows.back().name.c_str(), "",
               rows.back().attachments);
}

std::string androidDatabasePath(const std::string& folder) {
  return (fs::path(folder) / "Databases" / "msgstore.db").string();
}

int runScan(const ScanOptions& options, std::FILE* out, std::FILE* err) {
  std::error_code error;
  fs::path folder = fs::absolute(options.folder, error);
  if (error || !fs::is_directory(folder)) {
    std::fprintf(err, "dataparser: %s is not a folder\n", options.folder.c_str());
    return 1;
  }
  // A recording keeps the replay engine; a device backup (Manifest.db) gets our own engine.
  const bool recording = ReplayEngine::isRecording(folder.string());
  const bool backup = !recording && IOSBackupEngine::isBackup(folder.string());
  if (!recording && !backup) {
    std::fprintf(err,
                 "dataparser: %s is neither a recorded scan (no stream/NNNNNN-CODE.json) nor a "
                 "device backup (no Manifest.db)\n",
                 options.folder.c_str());
    return 1;
  }

  if (std::string message;
      !options.jsonPath.empty() && !ScanExport::canWrite(options.jsonPath, &message)) {
    std::fprintf(err, "dataparser: %s\n", message.c_str());
    return 1;
  }

  // The working folder holds the logs and the engine's temporary files; without it the scan
  // cannot run at all.
  const std::string root = productDomainPath();
  for (const char* sub : {"Logs", "temp"}) {
    std::string reason;
    if (!createDirectories(root + "/" + sub, &reason)) {
      std::fprintf(err, "dataparser: cannot create the working folder %s: %s\n", root.c_str(),
                   reason.c_str());
      return 1;
    }
  }

  auto scan = std::make_shared<ScanExport>();
  auto bar = std::make_shared<ProgressBar>(err, options.progressBar);
  auto ended = std::make_shared<std::promise<int>>();
  auto observer = std::make_shared<IOSDataParserDelegate>();
  observer->dataParseDidBegined = [scan](IOSDataParser&) { scan->began(); };
  observer->parseProgress = [scan, bar](IOSDataParser&, float value) {
    scan->progress(value);
    bar->draw(value);
  };
  observer->didFetchedData = [scan](IOSDataParser&, ItemList items, IOSDataType type) {
    scan->report(type, items);
  };
  // The first end report wins (a failed scan may still be followed by a finish).
  auto endedOnce = std::make_shared<std::atomic<bool>>(false);
  auto end = [scan, ended, endedOnce](IOSDataParser&, int status) {
    if (endedOnce->exchange(true)) return;
    scan->finish(status);
    ended->set_value(status);
  };
  observer->didParseFinished = end;
  observer->didParseError = end;

  IOSDataParser& parser = IOSDataParser::shared();
  if (backup) parser.setPackageEngine(std::make_shared<IOSBackupEngine>());
  parser.setDelegate(observer);
  parser.setParseDeleted(options.deleted);
  std::future<int> result = ended->get_future();
  if (options.android) {
    parser.setSelectedDataType(kAndroidWhatsApp | kAndroidWhatsAppBusiness);
    parser.startParseWithAndroidBackupPath(androidDatabasePath(folder.string()));
  } else {
    parser.startParseWithBackupPath(folder.string());
  }

  // Wait, turning Ctrl-C into a stop of the scan.
  auto started = std::chrono::steady_clock::now();
  while (result.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
    bool timedOut =
        options.timeoutSeconds > 0 && std::chrono::steady_clock::now() - started >
                                          std::chrono::duration<double>(options.timeoutSeconds);
    if (gInterrupted.exchange(false) || timedOut) parser.stopParse();
  }
  int status = result.get();
  bar->done();
  parser.setDelegate({});
  // Release the engine so that its thread has ended before the command returns.
  parser.setPackageEngine(nullptr);
  parser.setAndroidPackageEngine(nullptr);
  // Fields read by the export (sizes, pictures) look for files only inside the scanned folder,
  // as the parsers did during the scan.
  const BackupScope scope({folder.string()});

  printSummary(*scan, out);
  std::fflush(out);  // piped output keeps its order with the messages on `err`
  if (!options.jsonPath.empty()) {
    std::string message;
    if (!scan->write(options.jsonPath, &message)) {
      std::fprintf(err, "dataparser: %s\n", message.c_str());
      return 1;
    }
  }
  if (!options.reportDir.empty()) {
    ReportOptions report;
    report.outDir = options.reportDir;
    report.source = folder.string();
    report.deletedIncluded = options.deleted;
    report.copyMedia = options.copyMedia;
    std::string message;
    if (!writeReport(scan->lists(), status, report, &message)) {
      std::fprintf(err, "dataparser: %s\n", message.c_str());
      return 1;
    }
    std::fprintf(out, "report written to %s\n",
                 (fs::absolute(options.reportDir) / "index.html").c_str());
    std::fflush(out);
  }
  switch (status) {
    case 1:
      std::fprintf(out, "scan finished\n");
      return 0;
    case 2:
      std::fprintf(err, "dataparser: scan stopped\n");
      return 2;
    default:
      std::fprintf(err, "dataparser: scan failed (status %d)\n", status);
      return 1;
  }
}

void installInterruptHandler() {
  // The first Ctrl-C (or a SIGTERM) stops the scan, which ends with what it has and removes the
  // replay's temporary files; the handler then steps aside, so a second one ends the process at
  // once.
  auto stop = [](int signal) {
    gInterrupted = true;
    std::signal(signal, SIG_DFL);
  };
  std::signal(SIGINT, stop);
  std::signal(SIGTERM, stop);
}

void addScanCommand(CLI::App& app) {
  auto options = std::make_shared<ScanOptions>();
  CLI::App* command =
      app.add_subcommand("scan", "Scan a recorded scan or a device backup folder and summarise it");
  command->add_option("folder", options->folder, "Recorded scan or device backup folder")
      ->required();
  command->add_flag("--deleted", options->deleted, "Keep data marked deleted");
  command->add_flag("--android", options->android,
                    "Replay through the Android path (WhatsApp and WhatsApp Business)");
  command->add_option("--json", options->jsonPath, "Write the JSON export to this file");
  command->add_option("--report", options->reportDir, "Write the HTML report into this folder");
  command->callback([options] {
    installInterruptHandler();
    int status = runScan(*options, stdout, stderr);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace dataparser::cli
