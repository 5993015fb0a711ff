// Runs the CLI's scan command in-process on a recording and reads back its JSON export, for the
// end-to-end tests of the sample recordings; plus the small readers those tests share.
#pragma once

#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "dataparser/util/json.h"
#include "tests/test_support.h"
#include "tools/dataparser/scan_command.h"

namespace dataparser::cli::testing {

struct ScanRun {
  int status;
  std::string out;
  std::string err;
  json::Value exported;
};

// Reads a temporary file from its start and closes it.
inline std::string contents(std::FILE* file) {
  std::rewind(file);
  std::string text;
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, file)) > 0;)
    text.append(buffer, n);
  std::fclose(file);
  return text;
}

// The bundled sample recording of that name.
inline std::string sampleFolder(const std::string& name) {
  return (std::filesystem::path(DATAPARSER_TEST_FIXTURES) / "../../samples" / name)
      .lexically_normal();
}

// One scan of `folder` (an Android recording when `android`), exported to `dir`/export.json.
inline ScanRun scan(const std::string& folder, bool deleted,
                    const dataparser::testing::TempDir& dir, bool android = false) {
  ScanOptions options;
  options.folder = folder;
  options.android = android;
  options.deleted = deleted;
  options.jsonPath = dir.str() + "/export.json";
  options.timeoutSeconds = 60;
  std::FILE* out = std::tmpfile();
  std::FILE* err = std::tmpfile();
  ScanRun run;
  run.status = runScan(options, out, err);
  run.out = contents(out);
  run.err = contents(err);
  run.exported = json::parseFile(options.jsonPath);
  return run;
}

// The string under `key` of every item of a list.
inline std::vector<std::string> texts(json::View list, std::string_view key) {
  std::vector<std::string> values;
  for (json::View item : list.elements())
    values.emplace_back(item[key].string());
  return values;
}

// "type:count" of every report of an export, in order.
inline std::vector<std::string> reportsOf(const json::Value& exported) {
  std::vector<std::string> reports;
  for (json::View report : exported["reports"].elements())
    reports.push_back(fmt::format("{}:{}", report["type"].integer(), report["count"].integer()));
  return reports;
}

}  // namespace dataparser::cli::testing
