#include "dataparser/icloud/download_runs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dataparser/core/ios_data_parser.h"
#include "dataparser/parsers/media/photo.h"
#include "dataparser/parsers/personal/calendar.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/text.h"
#include "tests/http_test_server.h"
#include "tests/scan_support.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::HttpTestServer;
using testing::LogCapture;
using testing::TempDir;
using Which = IOSDataParser::ICloudParser;

class DownloadRunTest : public ::testing::Test {
 protected:
  void SetUp() override {
    observer = std::make_shared<IOSDataParserDelegate>();
    observer->didFetchedData = [this](IOSDataParser&, ItemList items, IOSDataType type) {
      std::lock_guard lock(mutex);
      reports.push_back(testing::hex(type) + ":" + std::to_string(items.size()));
    };
    parser().setDelegate(observer);
    server.addFile("p1.jpg", "first picture bytes");
    server.addFile("v1.mp4", "a small video");
    server.addFile("v1.png", "thumb");
    server.addFile("menu.pdf", "menu of the day");
  }
  void TearDown() override {
    icloud::setDownloadTimeout(std::chrono::seconds(1800));
    icloud::setDownloadListener({});
    parser().setupiCloudParser();  // clears a stop left by a test
    parser().releaseiCloudParser();
    parser().setDelegate({});
  }
  static IOSDataParser& parser() { return IOSDataParser::shared(); }

  // Fresh parsers holding two pictures (one missing on the server), a video with a thumbnail,
  // one calendar event with an attachment and a note with an attachment and a medium.
  void load() {
    parser().setupiCloudParser();
    auto photos = std::dynamic_pointer_cast<IOSPhotoParser>(parser().icloudParser(Which::kPhoto));
    photos->addiCloudPhotosJSONData(R"({"photos": [
        {"imageUuid": "P1", "imageName": "IMG_1.jpg", "imageType": "public.jpeg",
         "imageUrl": ")" + server.url("/files/p1.jpg") +
                                        R"(", "imageSize": 19},
        {"imageUuid": "P2", "imageName": "IMG_2.jpg", "imageType": "public.jpeg",
         "imageUrl": ")" + server.url("/files/gone.jpg") +
                                        R"(", "imageSize": 4},
        {"imageUuid": "V1", "imageName": "MOV_1.mp4", "imageType": "public.mpeg-4",
         "imageUrl": ")" + server.url("/files/v1.mp4") +
                                        R"(", "imageSize": 13,
         "thumbUrl": ")" + server.url("/files/v1.png") +
                                        R"(", "thumbSize": 5}]})",
                                    false, "");
    auto calendar =
        std::dynamic_pointer_cast<IOSCalendarParser>(parser().icloudParser(Which::kCalendar));
    calendar->setBackupPath(empty.str());
    calendar->addiCloudJSONData(R"({"collections": [], "events": [
        {"guid": "e1", "title": "Lunch", "attachments": [{"name": "menu.pdf", "size": 15,
          "url": ")" + server.url("/files/menu.pdf") +
                                R"(", "uuid": "M"}]},
        {"guid": "e2", "title": "Plain"}]})");
    // The medium takes the place of "A2" through the link object among the attachments.
    const std::string mark = "\xEF\xBF\xBC";
    auto waiting = parser().startParseiCloudNoteWithJSON(
        R"({"notes": [{"uuid": "n1", "text": "Menu )" + mark + " and " + mark +
        R"(", "attachments": ["A1", "A2"], "medias": ["M1"]}]})");
    ASSERT_TRUE(waiting && waiting->size() == 1u);
    parser().startParseiCloudNoteAttachmentsForItem(waiting->at(0),
                                                    R"({"attachments": [
        {"uuid": "A1", "title": "card.pdf", "type": "pdf", "size": 15, "url": ")" +
                                                        server.url("/files/menu.pdf") +
                                                        R"("},
        {"uuid": "L2", "MediaUUID": "M1", "AttachmentUUID": "A2"}]})");
    parser().startParseiCloudNoteMediasForItem(
        waiting->at(0), R"({"medias": [{"uuid": "M1", "name": "pic.jpg", "size": 19, "url": ")" +
                            server.url("/files/p1.jpg") + R"("}]})");
    parser().startMatchingAttachments();
  }

  std::string read(const std::string& name) {
    return readFile(dest.str() + "/" + name).value_or("(missing)");
  }

  HttpTestServer server;
  TempDir dest, empty;
  std::shared_ptr<IOSDataParserDelegate> observer;
  std::mutex mutex;
  std::vector<std::string> reports;
};

TEST_F(DownloadRunTest, FilesLandUnderMd5NamesAndASecondRunRequestsNothing) {
  LogCapture logs;
  std::vector<std::string> notices;
  icloud::setDownloadListener([&](const icloud::DownloadNotice& notice) {
    std::lock_guard lock(mutex);
    notices.push_back(notice.path.substr(notice.path.rfind('/') + 1) + ":" +
                      std::to_string(notice.bytes) + (notice.done ? "" : ":failed"));
  });
  load();
  EXPECT_EQ(parser().sizeForWillDownloadAttachment(),
            15 + (15 + 19) + 19 + (19 + 4) + (23 + 5 + 13));
  parser().startDownloadFilesWithType(0x400 | 0x100 | 0x2 | 0x4, dest.str());
  EXPECT_EQ(parser().icloudDownloadPath(), dest.str());
  EXPECT_EQ(read(md5String("M") + ".pdf"), "menu of the day");
  EXPECT_EQ(read(md5String("A1") + ".pdf"), "menu of the day");
  EXPECT_EQ(read(md5String("M1") + ".jpg"), "first picture bytes");
  EXPECT_EQ(read(md5String("P1") + ".jpg"), "first picture bytes");
  EXPECT_EQ(read(md5String("V1") + ".mp4"), "a small video");
  EXPECT_EQ(read(md5String("MOV_1.mp4") + ".png"), "thumb");
  EXPECT_FALSE(fileExists(dest.str() + "/" + md5String("P2") + ".jpg"));  // 404: no file
  EXPECT_EQ(reports, (std::vector<std::string>{"0x8000:1", "0x100000000:1", "0x8000:2", "0x40000:1",
                                               "0x40000:2", "0x20000:1", "0x2:1", "0x4:1"}));
  EXPECT_EQ(notices.size(), 7u);
  EXPECT_NE(std::find(notices.begin(), notices.end(), md5String("P2") + ".jpg:4:failed"),
            notices.end());
  EXPECT_NE(std::find(notices.begin(), notices.end(), md5String("M1") + ".jpg:19"), notices.end());
  auto lines = logs.run().lines();
  for (const char* expected :
       {"-----> downloadCalendarAttachments begin", "-----> downloadCalendarAttachments End",
        "-----> downloadNoteAttachments begin", "-----> downloadNoteAttachments End",
        "-----> download Photo begin", "-----> download Photo End",
        "-----> download Photo Videos begin", "-----> download Photo Videos End"}) {
    EXPECT_NE(std::find(lines.begin(), lines.end(), expected), lines.end()) << expected;
  }
  EXPECT_NE(std::find(lines.begin(), lines.end(), "下载失败 URL:" + server.url("/files/gone.jpg")),
            lines.end());

  // A second run over fresh records finds every finished file and asks only for the missing one.
  load();
  server.clearRequests();
  reports.clear();
  logs.run().clear();
  parser().startDownloadFilesWithType(0x400 | 0x100 | 0x2 | 0x4, "");
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].path, "/files/gone.jpg");
  auto photo =
      std::dynamic_pointer_cast<IOSPhotoItem>(parser().icloudParser(Which::kPhoto)->items().at(0));
  EXPECT_EQ(photo->localPath(), dest.str() + "/" + md5String("P1") + ".jpg");
  EXPECT_EQ(photo->thumbPath(), photo->localPath());
  // Files found on disk are not reported as fetched; the note's are logged as found.
  EXPECT_EQ(reports, (std::vector<std::string>{"0x8000:1", "0x8000:2", "0x20000:1"}));
  lines = logs.run().lines();
  for (const char* file : {"A1.pdf", "M1.jpg"}) {
    std::string found =
        "已经存在:" + dest.str() + "/" + md5String(std::string(file, 2)) + (file + 2);
    EXPECT_NE(std::find(lines.begin(), lines.end(), found), lines.end()) << found;
  }
}

TEST_F(DownloadRunTest, KindsStopsDroppedConnectionsAndTimeOuts) {
  LogCapture logs;
  load();
  parser().startDownloadFilesWithType(0x8000, dest.str());  // not a download kind
  EXPECT_TRUE(server.requests().empty());

  // Stopped before the run: only the begin and end lines.
  parser().stopParse();
  parser().startDownloadFilesWithType(0x2, "");
  EXPECT_TRUE(server.requests().empty());
  EXPECT_EQ(logs.run().lines(),
            (std::vector<std::string>{"-----> download Photo begin", "-----> download Photo End"}));

  // A dropped connection leaves no file and the run goes on.
  bool success = true;
  parser().downloadFilesWithURLStr(
      server.url("/files/p1.jpg?dropAt=5"), 19, dest.str() + "/dropped.jpg",
      [&](bool ok, const std::optional<std::string>&) { success = ok; });
  EXPECT_FALSE(success);
  EXPECT_FALSE(fileExists(dest.str() + "/dropped.jpg"));

  // A time-out is logged; the late completion is drained before the next test.
  logs.run().clear();
  icloud::setDownloadTimeout(std::chrono::milliseconds(50));
  parser().downloadFilesWithURLStr(server.url("/files/v1.png?trickle=1&every=100"), 5,
                                   dest.str() + "/slow.png",
                                   [](bool, const std::optional<std::string>&) {});
  // The dropped download's downloader may still be letting go on the main queue.
  auto lines = logs.run().lines();
  std::erase_if(lines, [](const std::string& line) { return line.ends_with(" dealloc"); });
  EXPECT_EQ(lines, std::vector<std::string>{"download timeout!! "});
  std::this_thread::sleep_for(std::chrono::milliseconds(900));
  while (parser().photoSignal().try_acquire()) {
  }
}

TEST_F(DownloadRunTest, CalendarItemFetchesItsOwnFileWhileTheParsersAreSetUp) {
  LogCapture logs;
  std::vector<std::pair<bool, std::string>> outcomes;
  auto record = [&](bool ok, const std::string& file) { outcomes.emplace_back(ok, file); };
  std::string tmp = productDomainPath() + "/iCloud/tmp/";
  std::error_code error;
  for (const char* name : {"own-menu.pdf", "own-gone.pdf", "own-later.pdf"}) {
    std::filesystem::remove(tmp + name, error);
  }
  IOSCalendarItem item;
  parser().setupiCloudParser();
  item.downloadAttachmentWithURLStr(server.url("/files/menu.pdf"), "own-menu.pdf", record);
  item.downloadAttachmentWithURLStr(server.url("/files/gone.pdf"), "own-gone.pdf", record);
  parser().releaseiCloudParser();  // takes the transfer away again
  item.downloadAttachmentWithURLStr(server.url("/files/menu.pdf"), "own-later.pdf", record);

  ASSERT_EQ(outcomes.size(), 3u);
  EXPECT_EQ(outcomes[0], std::make_pair(true, tmp + "own-menu.pdf"));
  EXPECT_EQ(readFile(tmp + "own-menu.pdf").value_or(""), "menu of the day");
  EXPECT_FALSE(outcomes[1].first);
  EXPECT_FALSE(fileExists(tmp + "own-gone.pdf"));
  EXPECT_FALSE(outcomes[2].first);
  EXPECT_EQ(server.requests().size(), 2u);
  // The item waits on its own semaphore: nothing is left on the runs' one.
  EXPECT_FALSE(parser().photoSignal().try_acquire());
  std::filesystem::remove(tmp + "own-menu.pdf", error);
}

}  // namespace
}  // namespace dataparser
