#include "dataparser/util/json_files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/test_support.h"

namespace dataparser::json {
namespace {

TEST(JsonFilesTest, VisitsEveryFileInOrderWithItsErrorAndStopsWhenAsked) {
  testing::TempDir dir;
  std::vector<std::string> paths;
  for (int i = 0; i < 6; ++i) {
    paths.push_back(dir.write("f" + std::to_string(i) + ".json",
                              i == 2 ? "{broken" : "{\"n\": " + std::to_string(i) + "}"));
  }
  paths.push_back(dir.str() + "/missing.json");

  std::vector<std::string> seen;
  forEachJsonFile(paths, [&](const std::string& path, Value document, const std::string& error) {
    seen.push_back(path.substr(path.rfind('/') + 1) + ":" +
                   (document.present() ? std::to_string(document["n"].integer())
                                       : (error.empty() ? "no error" : "error")));
    return true;
  });
  EXPECT_EQ(seen, (std::vector<std::string>{"f0.json:0", "f1.json:1", "f2.json:error", "f3.json:3",
                                            "f4.json:4", "f5.json:5", "missing.json:error"}));

  // Stopping after the second file visits nothing more; the helper thread is joined.
  int visits = 0;
  forEachJsonFile(paths,
                  [&](const std::string&, Value, const std::string&) { return ++visits < 2; });
  EXPECT_EQ(visits, 2);

  forEachJsonFile({}, [&](const std::string&, Value, const std::string&) {
    ADD_FAILURE() << "no file to visit";
    return true;
  });
}

// The preparation runs exactly once on every file that decoded, before take() hands it over,
// whichever thread ran it; a slow or a fast reader both see every file prepared.
TEST(JsonFilesTest, PreparationRunsOnceOnEveryDecodedFile) {
  testing::TempDir dir;
  std::vector<std::string> paths;
  for (int i = 0; i < 40; ++i) {
    paths.push_back(dir.write("f" + std::to_string(i) + ".json",
                              i % 7 == 3 ? "[broken" : "{\"n\": " + std::to_string(i) + "}"));
  }
  for (bool slowReader : {false, true}) {
    std::atomic<int> runs = 0;
    FileReadAhead ahead(paths, {}, 4, [&](DecodedFile& file) {
      ++runs;
      file.error = "prepared";
    });
    for (std::size_t i = 0; i < paths.size(); ++i) {
      DecodedFile file = ahead.take();
      EXPECT_EQ(file.document.present(), i % 7 != 3) << i;
      EXPECT_EQ(file.prepared, file.document.present()) << i;
      EXPECT_EQ(file.error == "prepared", file.prepared) << i;
      if (slowReader) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(runs, 34) << slowReader;
  }
}

}  // namespace
}  // namespace dataparser::json
