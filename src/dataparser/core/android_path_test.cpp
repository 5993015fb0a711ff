#include "dataparser/core/android_path.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "dataparser/core/callback_bridge.h"
#include "dataparser/core/ios_data_parser.h"
#include "dataparser/parsers/messaging/whatsapp.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/json.h"
#include "tests/scan_support.h"

namespace dataparser {
namespace {

using testing::TempDir;

class FakeAndroidEngine final : public AndroidPackageEngine {
 public:
  void InitQMDataPackage(const char* log, const char* config) override {
    calls.push_back(std::string("init ") + log + " " + config);
  }
  void QMDataFilter(const char* text, int length) override {
    filter.assign(text, static_cast<std::size_t>(length));
    calls.push_back("filter");
  }
  void QMDataPackage(AndroidPackageCallback callback) override {
    calls.push_back(callback == &AndroidCallbackFuction ? "package" : "package ?");
  }
  void QMDataStop() override { calls.push_back("stop"); }
  std::vector<std::string> calls;
  std::string filter;
};

class AndroidPathTest : public ::testing::Test {
 protected:
  void SetUp() override {
    parser().setAndroidPackageEngine(engine);
    parser().setDelegate(observer.delegate());
    parser().resetParser();  // no stop left over from an earlier scan
  }
  void TearDown() override {
    parser().setAndroidPackageEngine(nullptr);
    parser().setDelegate({});
    parser().setSelectedDataType(0);
  }
  static IOSDataParser& parser() { return IOSDataParser::shared(); }

  std::shared_ptr<FakeAndroidEngine> engine = std::make_shared<FakeAndroidEngine>();
  testing::RecordingObserver observer;
  testing::LogCapture logs;
};

TEST_F(AndroidPathTest, StartSendsTheParameterObject) {
  const std::string root = productDomainPath();
  std::filesystem::create_directories(root + "/AndroidParse/old");
  struct Case {
    IOSDataType selected;
    std::int64_t packageType;  // -1: absent
  };
  for (Case c : {Case{kAndroidWhatsApp | kAndroidWhatsAppBusiness, 0},
                 Case{kAndroidWhatsAppBusiness, 25}, Case{IOSDataTypeSMS, -1}}) {
    engine->calls.clear();
    parser().setSelectedDataType(c.selected);
    parser().startParseWithAndroidBackupPath("/backup/Databases/msg\"store.db");
    EXPECT_EQ(engine->calls,
              (std::vector<std::string>{"init " + root + "/Logs " + configurationPath(), "filter",
                                        "package"}));
    json::Value filter = json::parse(engine->filter);
    EXPECT_NE(engine->filter.find('\n'), std::string::npos);  // pretty-printed
    EXPECT_EQ(filter["package_type"].present() ? filter["package_type"].integer() : -1,
              c.packageType);
    EXPECT_EQ(filter["temp_folder"].string(), root + "/AndroidParse/temp");
    EXPECT_EQ(filter["primary_file_object"]["msg_file_path"].string(),
              "/backup/Databases/msg\"store.db");
    EXPECT_EQ(filter["addtional_param"].string(), "/backup/Databases");
  }
  EXPECT_FALSE(std::filesystem::exists(root + "/AndroidParse/old"));
  EXPECT_TRUE(std::filesystem::is_directory(root + "/AndroidParse/temp"));
  EXPECT_EQ(parser().backupPath(), "/backup/Databases/msg\"store.db");
  EXPECT_TRUE(logs.run().contains("*** start parse backup: /backup/Databases/msg\"store.db"));
  parser().stopParse();
  EXPECT_EQ(engine->calls.back(), "stop");
}

TEST_F(AndroidPathTest, CallbackCodes) {
  TempDir dir;
  std::string file = dir.write("chat.json", R"({"messages": [{"universal_type": 0,
      "content": "hi", "send_date": "06 - 01 - 2024 09:00 : 05"}]})");
  std::string block = R"({"chat_sessions": [{"jid": "1@x", "msg_file_list": [")" + file + "\"]}]}";

  EXPECT_EQ(AndroidCallbackFuction(20, block.c_str(), 0), 0);
  EXPECT_EQ(AndroidCallbackFuction(21, block.c_str(), 0), 0);
  EXPECT_EQ(AndroidCallbackFuction(21, "\xff\xfe", 0), 0);  // not UTF-8: dropped silently
  EXPECT_EQ(AndroidCallbackFuction(5, "{}", 0), 0);
  const std::vector<std::string> fetched = observer.fetched();
  ASSERT_EQ(fetched.size(), 2u);
  EXPECT_TRUE(fetched[0].starts_with("fetched 0x1000000000 ")) << fetched[0];
  EXPECT_TRUE(fetched[1].starts_with("fetched 0x4000000000 ")) << fetched[1];
  EXPECT_TRUE(logs.run().contains(">>> CallbackFuction Discard!!!"));

  EXPECT_EQ(AndroidCallbackFuction(5, nullptr, 0), 0);
  EXPECT_TRUE(logs.run().contains("*** Data parse finished!!!"));
  EXPECT_EQ(AndroidCallbackFuction(0, "ignored", 0), -1);
  EXPECT_TRUE(logs.run().contains("*** Data parse error!!!"));
  const std::vector<std::string> events = observer.events();
  EXPECT_EQ(std::count(events.begin(), events.end(), "finished 1"), 1);
  EXPECT_EQ(std::count(events.begin(), events.end(), "error 3"), 1);
  EXPECT_EQ(androidRouteForCode(20).file, "AndroidParse/data/whatsapp-db-data.json");
  EXPECT_EQ(androidRouteForCode(0).file, "AndroidParse/data/error-data.json");
}

TEST_F(AndroidPathTest, IOSAndAndroidWhatsAppShareOneAttachmentList) {
  TempDir dir;
  DispatchTable table = testing::testDispatchTable();
  table.setFactory(IOSDataTypeWhatsApp, factory3<IOSWhatsappParser>());
  parser().setDispatchTable(table);
  parser().setupParser();
  parser().setBackupPath(dir.str() + "/backup/Databases/msgstore.db");
  std::string photo = dir.write("backup/Attachments/a.jpg", "jpeg");
  std::string ios = dir.write("ios.json", R"({"messages": [{"type": 1, "text": "p",
      "media_backup": ")" + photo + R"(", "media_path": "M/a.jpg"}]})");
  std::string android = dir.write("android.json", R"({"messages": [{"universal_type": 1,
      "media_path": "a.jpg", "send_date": "06 - 01 - 2024 09:00 : 05"}]})");
  CallbackFuction(
      61,
      (R"({"whatsapp_chatsessions": [{"jid": "1@x", "msg_file_list": [")" + ios + "\"]}]}").c_str(),
      0);
  AndroidCallbackFuction(
      20, (R"({"chat_sessions": [{"jid": "1@x", "msg_file_list": [")" + android + "\"]}]}").c_str(),
      0);
  auto* lists = dynamic_cast<IOSOtherAttachmentLists*>(parser().otherAttachmentParser().get());
  ASSERT_NE(lists, nullptr);
  // The Android attachment first, then the iOS one already in the list.
  ASSERT_EQ(lists->whatsappAttachments().size(), 2u);
  const std::vector<std::string> fetched = observer.fetched();
  ASSERT_EQ(fetched.size(), 4u);
  EXPECT_TRUE(fetched[3].starts_with("fetched 0x2000000000 ")) << fetched[3];
  parser().setDispatchTable(DispatchTable::standard());
  parser().resetParser();
}

}  // namespace
}  // namespace dataparser
