// dataparser: the command-line host of the library.
#include <CLI/CLI.hpp>

#include <cstdio>

#include "dataparser/core/file_helper.h"
#include "dataparser/core/version.h"

int main(int argc, char** argv) {
  dataparser::setBundleIdentifier("org.dataparser.cli");
  CLI::App app{"dataparser: turns phone backups into data people can see again"};
  bool version = false;
  app.add_flag("--version", version, "Print the library version");
  CLI11_PARSE(app, argc, argv);
  std::printf("dataparser %s\n", DataParserVersionString);
  return 0;
}
