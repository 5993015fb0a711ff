// Runs the CLI's scan command in-process on a recording and reads back its JSON export, for the
// end-to-end tests of the sample recordings.
#pragma once

#include <cstdio>
#include <filesystem>
#include <string>

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

inline ScanRun scan(const std::string& folder, bool deleted,
                    const dataparser::testing::TempDir& dir) {
  ScanOptions options;
  options.folder = folder;
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

}  // namespace dataparser::cli::testing
