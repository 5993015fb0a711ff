#include "tools/dataparser/scan_export.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/json.h"
#include "tests/test_support.h"

namespace dataparser::cli {
namespace {

class Payload final : public Describable {
 public:
  std::string_view className() const override { return "Payload"; }
  void describe(FieldVisitor& visitor) const override {
    visitor.field("duration", 1.5f);
    visitor.field("ratio", std::nan(""));
  }
};

class Sample final : public IOSBaseItem {
 public:
  std::string_view className() const override { return "Sample"; }
  void describe(FieldVisitor& visitor) const override {
    IOSBaseItem::describe(visitor);
    visitor.field("text", std::string("a \"quoted\"\nline"));
    visitor.field("count", std::uint64_t{18446744073709551615u});
    visitor.field("flag", std::int32_t{-3});
    visitor.field("sendDate", OptionalDate(Date(std::chrono::seconds(86400))));
    visitor.field("recentDate", OptionalDate());
    visitor.field("image", std::shared_ptr<const Image>());
    visitor.field("payload", std::make_shared<Payload>());
    visitor.field("none", std::shared_ptr<Payload>());
    visitor.field("members", std::vector<std::shared_ptr<Payload>>{std::make_shared<Payload>()});
  }
};

TEST(ScanExportTest, ItemsBecomeObjectsWithClassAndEveryField) {
  Sample sample;
  sample.setSelected(1);
  json::Value out = json::parse(describeToJson(sample));
  ASSERT_TRUE(out.isObject());
  EXPECT_EQ(out["class"].string(), "Sample");
  EXPECT_EQ(out["tag"].string(), "");
  EXPECT_EQ(out["isDeleted"].type(), json::Type::kBoolean);
  // Display state means nothing outside a user interface.
  for (const char* state : {"selected", "highlighed", "dragHighlighted", "visible"}) {
    EXPECT_FALSE(out[state].present()) << state;
  }
  EXPECT_EQ(out["text"].string(), "a \"quoted\"\nline");
  EXPECT_EQ(out["count"].type(), json::Type::kUnsigned);
  EXPECT_EQ(out["flag"].integer(), -3);
  EXPECT_DOUBLE_EQ(out["sendDate"].number(), 86400.0);
  EXPECT_TRUE(out["recentDate"].isNull());
  EXPECT_TRUE(out["image"].isNull());
  EXPECT_EQ(out["payload"]["class"].string(), "Payload");
  EXPECT_DOUBLE_EQ(out["payload"]["duration"].number(), 1.5);
  EXPECT_TRUE(out["payload"]["ratio"].isNull());  // NaN cannot be JSON
  EXPECT_TRUE(out["none"].isNull());
  EXPECT_EQ(out["members"].size(), 1u);
  EXPECT_FALSE(out["rawData"].present());
}

TEST(ScanExportTest, ExportFileRecordsTheObserversView) {
  testing::TempDir dir;
  ScanExport scan;
  scan.began();
  scan.progress(0.5f);
  scan.progress(0.3f);
  scan.progress(1.0f);
  ItemList first{std::make_shared<Sample>()};
  ItemList second{std::make_shared<Sample>(), std::make_shared<Sample>()};
  scan.report(524288, first);
  scan.report(1048576, first);
  scan.report(524288, second);
  scan.finish(1);
  std::string error;
  ASSERT_TRUE(scan.write(dir.str() + "/export.json", &error)) << error;
  json::Value out = json::parseFile(dir.str() + "/export.json");
  ASSERT_TRUE(out.isObject());
  EXPECT_EQ(out["status"].integer(), 1);
  EXPECT_TRUE(out["began"].boolean());
  EXPECT_EQ(out["progress"].size(), 3u);
  // Printed as a person writes it, without the float's noise digits.
  EXPECT_NE(readFile(dir.str() + "/export.json").value_or("").find("[0.5,0.3,1.0]"),
            std::string::npos);
  ASSERT_EQ(out["reports"].size(), 3u);
  EXPECT_EQ(out["reports"].at(2)["type"].integer(), 524288);
  EXPECT_EQ(out["reports"].at(2)["count"].integer(), 2);
  EXPECT_EQ(out["lists"]["524288"].size(), 2u);  // the last list under that code
  EXPECT_EQ(out["lists"]["1048576"].size(), 1u);

  EXPECT_FALSE(scan.write(dir.str() + "/missing/folder/export.json", &error));
  EXPECT_FALSE(error.empty());
}

TEST(ScanExportTest, CanWriteAnswersBeforeTheScanAndLeavesNoTrace) {
  testing::TempDir dir;
  const std::string existing = dir.write("old.json", "keep me");
  struct Case {
    std::string path;
    bool writable;
  } cases[] = {
      {dir.str() + "/new.json", true},
      {existing, true},
      {dir.str(), false},                           // a folder
      {dir.str() + "/missing/export.json", false},  // no parent folder
      {existing + "/export.json", false},           // a file as the parent
      {"", false},
  };
  for (const Case& test : cases) {
    std::string error;
    EXPECT_EQ(ScanExport::canWrite(test.path, &error), test.writable) << test.path;
    EXPECT_EQ(error.empty(), test.writable) << test.path << ": " << error;
    if (!test.writable) {
      EXPECT_NE(error.find(test.path), std::string::npos) << error;
    }
  }
  EXPECT_FALSE(std::filesystem::exists(dir.str() + "/new.json"));  // the probe is removed
  EXPECT_EQ(readFile(existing).value_or(""), "keep me");           // and an old file untouched
}

}  // namespace
}  // namespace dataparser::cli
