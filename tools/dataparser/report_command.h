// `dataparser report <folder> <out-dir>`: runs the same scan as `scan` and writes the offline
// HTML report of what it found into the output folder (see dataparser/report/report_writer.h).
#pragma once

#include <CLI/CLI.hpp>

namespace dataparser::cli {

void addReportCommand(CLI::App& app);

}  // namespace dataparser::cli
