// The whole road for WeChat: the sample recording goes through the replay engine, the callback,
// the coordinator's long-lived WeChat parser and the CLI's observer out to the JSON export.
#include <gtest/gtest.h>

#include <string>

#include "tests/integration/cli_scan.h"

namespace dataparser::cli {
namespace {

using dataparser::testing::TempDir;
using testing::sampleFolder;
using testing::scan;
using testing::ScanRun;

constexpr const char* kAccounts = "1073741824";     // 0x40000000
constexpr const char* kAttachments = "2147483648";  // 0x80000000

TEST(WeChatScanTest, SampleRecordingReportsBothAccounts) {
  TempDir dir;
  ScanRun run = scan(sampleFolder("wechat-demo"), /*deleted=*/false, dir);
  ASSERT_EQ(run.status, 0) << run.err;
  const json::Value& out = run.exported;
  ASSERT_TRUE(out.isObject());
  EXPECT_EQ(out["status"].integer(), 1);

  // Each block: the accounts three times (the second under the extra code), then the files.
  const std::int64_t codes[] = {0x40000000, 0x10000000000, 0x40000000, 0x80000000};
  json::View reports = out["reports"];
  ASSERT_EQ(reports.size(), 8u);
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(reports.at(i)["type"].integer(), codes[i % 4]) << i;
    EXPECT_EQ(reports.at(i)["count"].integer(), i % 4 == 3 ? 4 : 1 + i / 4) << i;
  }

  json::View accounts = out["lists"][kAccounts];
  ASSERT_EQ(accounts.size(), 2u);
  json::View ann = accounts.at(0);
  EXPECT_EQ(ann["class"].string(), "IOSWeChatAccountItem");
  EXPECT_EQ(ann["account"].string(), "Account1");
  EXPECT_EQ(ann["displayAccount"].string(), "Ann Lee-+15550101");
  EXPECT_EQ(ann["contacts"].size(), 2u);
  EXPECT_EQ(ann["contacts"].at(1)["displayName"].string(), "cy");
  EXPECT_EQ(accounts.at(1)["displayAccount"].string(), "Carl-Account2");
  EXPECT_EQ(accounts.at(1)["items"].at(0)["recentMessage"].string(),
            "Social Message Attachment - [location]");

  json::View sessions = ann["items"];
  ASSERT_EQ(sessions.size(), 3u);
  json::View bob = sessions.at(0);
  EXPECT_EQ(bob["class"].string(), "IOSWeChatSessionItem");
  EXPECT_EQ(bob["image"]["width"].integer(), 12);
  ASSERT_EQ(bob["contents"].size(), 5u);  // both files; the deleted message left out
  json::View photo = bob["contents"].at(2)["attachment"];
  EXPECT_EQ(photo["type"].integer(), 1);
  EXPECT_EQ(photo["name"].string(), "IMG_0001.JPG");
  EXPECT_EQ(photo["size"].integer(), 812);
  json::View voice = bob["contents"].at(3)["attachment"];
  EXPECT_EQ(voice["type"].integer(), 3);
  EXPECT_DOUBLE_EQ(voice["voice"]["duration"].number(), 4.0);
  json::View transfer = bob["contents"].at(4)["attachment"]["money"];
  EXPECT_EQ(transfer["money"].string(), "45.00");
  EXPECT_EQ(transfer["strStatus"].string(), "WeChatMoneyTransferReceived");
  EXPECT_EQ(bob["recentMessage"].string(), "Social Message Attachment - [money transfer]");

  json::View trip = sessions.at(1);
  EXPECT_TRUE(trip["isGroup"].boolean());
  EXPECT_EQ(trip["members"].size(), 3u);
  ASSERT_EQ(trip["contents"].size(), 3u);
  EXPECT_EQ(trip["contents"].at(1)["attachment"]["money"]["strStatus"].string(),
            "WeChatRedPacketUnaccalimed");
  json::View sticker = trip["contents"].at(2)["attachment"];
  EXPECT_EQ(sticker["type"].integer(), 15);  // kept although its picture could not be fetched
  EXPECT_EQ(sticker["thumbPath"].string(), "");

  json::View news = sessions.at(2);
  EXPECT_EQ(news["contents"].size(), 1u);  // the article is not shown
  EXPECT_EQ(news["recentMessage"].string(), "Tide tables for the weekend");

  // Two conversation pictures, the photo and the voice note.
  EXPECT_EQ(out["lists"][kAttachments].size(), 4u);

  ScanRun all = scan(sampleFolder("wechat-demo"), /*deleted=*/true, dir);
  ASSERT_EQ(all.status, 0) << all.err;
  EXPECT_EQ(all.exported["lists"][kAccounts].at(0)["items"].at(0)["contents"].size(), 6u);
}

}  // namespace
}  // namespace dataparser::cli
