// dataparser: the command-line host of the library. Each subcommand lives in its own file and
// registers itself here.
//
// Exit status: 0 done, 1 failed (bad folder, failed scan or download, working folder that cannot
// be made), 2 scan stopped (Ctrl-C), 64 usage error (unknown option, missing argument ...).
#include <CLI/CLI.hpp>

#include <cstdio>

#include "dataparser/core/version.h"
#include "dataparser/util/file_helper.h"
#include "tools/dataparser/download_command.h"
#include "tools/dataparser/icloud_command.h"
#include "tools/dataparser/report_command.h"
#include "tools/dataparser/scan_command.h"

namespace {

constexpr int kUsageError = 64;

}  // namespace

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
  try {
    app.parse(argc, argv);
  } catch (const CLI::RuntimeError& status) {
    // A command's own exit status, already explained on stderr.
    std::fflush(stdout);
    return status.get_exit_code();
  } catch (const CLI::ParseError& error) {
    // Help and version end well; every mistake in the command line has one status.
    int code = app.exit(error);
    return code == 0 ? 0 : kUsageError;
  }
  if (app.get_subcommands().empty()) {
    std::fputs(app.help().c_str(), stdout);
  }
  return 0;
}
