// The "download" subcommand: one blocking download through FileDownloader.
//
//   dataparser download URL DEST [--resume] [--size BYTES] [--cacert FILE]
//
// Prints the path the file was actually moved to (DEST, or the time-stamped name beside an
// existing DEST) and exits 0; otherwise prints the reason to stderr and exits non-zero. A
// progress bar is drawn on stderr when it is a terminal and the total size is known.
#pragma once

namespace CLI {
class App;
}

namespace dataparser::cli {

void addDownloadCommand(CLI::App& app);

}  // namespace dataparser::cli
