// dataparser: the command-line host of the library. Each subcommand lives in its own file and
// registers itself here.
#include <CLI/CLI.hpp>

#include <cstdio>

#include "dataparser/core/version.h"
#include "dataparser/util/file_helper.h"
#include "tools/dataparser/download_command.h"
#include "tools/dataparser/icloud_command.h"
#include "tools/dataparser/report_command.h"
#include "tools/dataparser/scan_command.h"

int main(int argc, char** argv) {
  dataparser::setBundleIdentifier("org.dataparser.cli");
  CLI::App app{"dataparser: turns phone backups into data people can see again"};
  app.set_version_flag("--version", std::string("dataparser ") + DataParserVersionString);
  app.require_subcommand(0, 1);
  // Subcommands register here.
  dataparser::cli::addScanCommand(app);
  dataparser::cli::addDownloadCommand(app);
  dataparser::cli::addICloudCommand(app);
  dataparser::cli::addReportCommand(app);
  CLI11_PARSE(app, argc, argv);
  if (app.get_subcommands().empty()) {
    std::printf("dataparser %s\n", DataParserVersionString);
  }
  return 0;
}
