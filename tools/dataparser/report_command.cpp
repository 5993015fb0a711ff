#include "tools/dataparser/report_command.h"

#include <csignal>
#include <cstdio>
#include <memory>

#include "tools/dataparser/scan_command.h"

namespace dataparser::cli {

void addReportCommand(CLI::App& app) {
  auto options = std::make_shared<ScanOptions>();
  CLI::App* command =
      app.add_subcommand("report", "Scan a recorded scan folder and write an HTML report");
  command->add_option("folder", options->folder, "Recorded scan folder")->required();
  command->add_option("out", options->reportDir, "Folder to write the report into")->required();
  command->add_flag("--deleted", options->deleted, "Keep data marked deleted");
  command->add_flag("--android", options->android,
                    "Replay through the Android path (WhatsApp and WhatsApp Business)");
  command->add_flag("--copy-media", options->copyMedia,
                    "Copy original files into the report instead of linking them");
  command->callback([options] {
    installInterruptHandler();
    int status = runScan(*options, stdout, stderr);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace dataparser::cli
