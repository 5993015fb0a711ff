// `dataparser scan <folder>`: runs one scan of a recorded scan folder (through the replay
// engine) or of a device backup folder holding Manifest.db (through the backup engine) and the
// coordinator, draws a progress bar on a terminal, prints a summary table and optionally writes the
// JSON export. The command's logic is a plain function so that tests can run it in-process.
#pragma once

#include <CLI/CLI.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "dataparser/model/base_item.h"

namespace dataparser::cli {

class ScanExport;

struct ScanOptions {
  std::string folder;
  bool deleted = false;       // keep items marked deleted
  bool android = false;       // replay through the Android path, both Android apps selected
  std::string jsonPath;       // write the export here when not empty
  std::string reportDir;      // write the HTML report into this folder when not empty
  bool copyMedia = false;     // the report copies originals instead of linking them
  bool progressBar = true;    // draw the bar (only ever on a terminal)
  double timeoutSeconds = 0;  // 0: wait as long as the scan takes
};

// The message database path that an Android scan of `folder` names: the folder's
// "Databases/msgstore.db", so that the backup's attachments are its "Attachments" folder.
std::string androidDatabasePath(const std::string& folder);

// Runs the scan; the summary goes to `out`, messages and the progress bar to `err`.
// Exit status: 0 finished, 1 bad folder or failed scan, 2 stopped.
int runScan(const ScanOptions& options, std::FILE* out, std::FILE* err);

void addScanCommand(CLI::App& app);

// One line of the summary. `attachments` counts the distinct attachments of the row (attachment
// items, or the attachments of a conversation's messages; two objects for one file are one). A list
// reported again under another code (one attachment list shared by two apps) names the first row in
// `sameAs` and counts nothing. The last row, "All attachments", counts every attachment of the
// table once.
struct SummaryRow {
  std::int64_t type = 0;
  std::string name;
  std::size_t items = 0;
  std::size_t attachments = 0;
  std::string sameAs;
};
std::vector<SummaryRow> summaryRows(const std::map<std::int64_t, ItemList>& lists);

// The summary table (type, name, items, attachments) of what `scan` recorded.
void printSummary(const ScanExport& scan, std::FILE* out);

// Ctrl-C stops the running scan instead of ending the process.
void installInterruptHandler();

}  // namespace dataparser::cli
