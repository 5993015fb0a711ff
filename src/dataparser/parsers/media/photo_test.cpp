#include "dataparser/parsers/media/photo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/text.h"
#include "tests/http_test_server.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using testing::LogCapture;
using testing::TempDir;

std::string sampleJpeg() {
  return *readFile(testing::fixturePath("images/picture.jpg"));
}

// Writes a batch file holding `records` (JSON text of the list's elements) and returns the
// engine block naming it.
std::string batchNaming(const TempDir& dir, std::string_view records,
                        std::string_view file = "photos.json") {
  std::string path = dir.write(file, "{\"photo_data\": [" + std::string(records) + "]}");
  return "{\"photo_file_path\": [\"" + path + "\"]}";
}

std::shared_ptr<IOSPhotoItem> photoAt(const ItemList& list, std::size_t index) {
  return std::dynamic_pointer_cast<IOSPhotoItem>(list.at(index));
}

std::vector<std::string> names(const ItemList& list) {
  std::vector<std::string> out;
  for (const ItemPtr& item : list)
    out.emplace_back(photoAt({item}, 0)->name());
  return out;
}

TEST(PhotoParserTest, RecordsAreSortedIntoPhotosAndVideosAndFilteredByFilesAndDeletion) {
  TempDir dir;
  std::string a = dir.write("a.jpg", "x");
  std::string t = dir.write("t.jpg", "x");
  std::string v = dir.write("v.mov", "x");
  std::string records = R"(
      {"name": "photo", "origin_file_path": ")" +
                        a + R"("},
      {"name": "two", "is_video": 2, "origin_file_path": ")" +
                        a + R"("},
      {"name": "video", "is_video": 1, "duration": 65.7, "other_video_path": ")" +
                        v + R"("},
      {"name": "thumbOnly", "origin_file_path": "/gone.jpg", "thumb_file_path": ")" +
                        t + R"("},
      {"name": "nothing", "origin_file_path": "/gone.jpg", "thumb_file_path": "/gone2.jpg"},
      {"name": "otherFile", "other_file_path": ")" +
                        a + R"("},
      {"name": "deleted", "is_deleted": 1, "origin_file_path": ")" +
                        a + R"("},
      {"name": "tagged", "is_deleted": 0, "tag": "deleted", "origin_file_path": ")" +
                        a + R"("},
      5, "text", null)";
  struct Case {
    bool parseDeleted;
    std::vector<std::string> photos;
  };
  const Case cases[] = {
      {false, {"photo", "two", "thumbOnly", "otherFile"}},
      {true, {"photo", "two", "thumbOnly", "otherFile", "deleted", "tagged"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.parseDeleted);
    auto parser = IOSPhotoParser::parserWithJSONData(batchNaming(dir, records), c.parseDeleted);
    EXPECT_EQ(names(parser->items()), c.photos);
    ASSERT_EQ(parser->photoVideos().size(), 1u);
    auto video = photoAt(parser->photoVideos(), 0);
    EXPECT_TRUE(video->isVideo());
    EXPECT_FLOAT_EQ(video->duration(), 65.7f);
    EXPECT_EQ(video->strDuration(), "0:1:5");
    EXPECT_EQ(video->localPath(), v);
    if (c.parseDeleted) {
      EXPECT_TRUE(photoAt(parser->items(), 4)->isDeleted());
      EXPECT_TRUE(photoAt(parser->items(), 5)->isDeleted());
      EXPECT_FALSE(photoAt(parser->items(), 0)->isDeleted());
    }
  }
}

TEST(PhotoParserTest, BatchListsThatHoldNothingGiveNoItems) {
  LogCapture logs;
  TempDir dir;
  std::string a = dir.write("a.jpg", "x");
  std::string good = dir.write("good.json", R"({"photo_data": [{"name": "kept",
      "origin_file_path": ")" + a + R"("}]})");
  std::string bad = dir.write("bad.json", R"({"photo_data": [)");
  std::string other = dir.write("other.json", R"({"photo_data": {"name": "x"}})");
  const std::pair<std::string, std::size_t> cases[] = {
      {R"({"photo_file_path": []})", 0},
      {R"({"other": 1})", 0},
      {R"({"photo_file_path": null})", 0},
      {R"([1])", 0},
      {R"({"photo_file_path": [)", 0},
      {R"({"photo_file_path": ["/no/such.json", 5, "/dev/zero", ")" + dir.str() + R"(", ")" + bad +
           R"(", ")" + other + R"(", ")" + good + R"("]})",
       1},
  };
  for (const auto& [block, count] : cases) {
    SCOPED_TRACE(block);
    auto parser = IOSPhotoParser::parserWithJSONData(block, true);
    EXPECT_EQ(parser->items().size(), count);
    EXPECT_TRUE(parser->photoVideos().empty());
  }
  std::vector<std::string> errors;
  for (const std::string& line : logs.system().lines()) {
    if (line.starts_with(">>>Photo Parser ERROR: ")) errors.push_back(line);
  }
  EXPECT_EQ(errors.size(), 1u);  // only the malformed batch file
}

TEST(PhotoItemTest, FieldsFallBackToTheOtherFilePath) {
  TempDir dir;
  std::string origin = dir.write("o.jpg", "x");
  std::string adjusted = dir.write("adj.jpg", "x");
  struct Case {
    std::string record;
    std::string name, extension, device, local, adjusDevice, adjusLocal;
  };
  const Case cases[] = {
      {R"({"other_file_path": "/var/DCIM/IMG_1.HEIC"})", "IMG_1.HEIC", "HEIC",
       "/var/DCIM/IMG_1.HEIC", "/var/DCIM/IMG_1.HEIC", "/var/DCIM/IMG_1.HEIC",
       "/var/DCIM/IMG_1.HEIC"},
      {R"({"name": "n.png", "origin_file_path": ")" + origin + R"(", "other_file_path": "/o",
          "mutation_device_path": "/m", "mutation_backup_path": ")" +
           adjusted + R"("})",
       "n.png", "png", origin, origin, "/m", adjusted},
      {R"({"name": null, "origin_file_path": "/missing.jpg", "other_video_path": "/missing.mov",
          "other_file_path": "/p/q.gif", "mutation_backup_path": "/missing"})",
       "q.gif", "gif", "/missing.jpg", "/p/q.gif", "/p/q.gif", "/p/q.gif"},
      {R"({"name": 5, "origin_file_path": null})", "", "", "", "", "", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.record);
    auto item = IOSBaseItem::itemWithDictionary<IOSPhotoItem>(json::parse(c.record));
    EXPECT_EQ(item->name(), c.name);
    EXPECT_EQ(item->extension(), c.extension);
    EXPECT_EQ(item->devicePath(), c.device);
    EXPECT_EQ(item->localPath(), c.local);
    EXPECT_EQ(item->adjusDevicePath(), c.adjusDevice);
    EXPECT_EQ(item->adjusLocalPath(), c.adjusLocal);
  }
}

TEST(PhotoItemTest, DatesSizesAndFlags) {
  struct Case {
    std::string record;
    std::string strDate, groupTitle, strSize;
    bool video, adjustments;
  };
  const Case cases[] = {
      {R"({"date": "09-13-2020 12:26:40", "filesize": 1500, "has_adjustments": 1})",
       "09-13-2020 12:26:40", "2020-09-13", "2 KB", false, true},
      {R"({"date": "", "filesize": -5, "is_video": 1})", "", "", "1 byte", true, false},
      {R"({"date": "2020/09/13", "filesize": 0, "is_video": true, "has_adjustments": 2})", "", "",
       "Zero KB", true, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.record);
    auto item = IOSBaseItem::itemWithDictionary<IOSPhotoItem>(json::parse(c.record));
    EXPECT_EQ(item->strDate(), c.strDate);
    EXPECT_EQ(item->groupTitle(), c.groupTitle);
    EXPECT_EQ(item->strSize(), c.strSize);
    EXPECT_EQ(item->isVideo(), c.video);
    EXPECT_EQ(item->isAdjustments(), c.adjustments);
  }
  auto item = IOSBaseItem::itemWithDictionary<IOSPhotoItem>(json::parse(R"({"name": "a"})"));
  item->setName("b.jpg");
  item->setDate(dateWithSecondsSince1970(0));
  EXPECT_EQ(item->name(), "b.jpg");
  EXPECT_EQ(item->extension(), "jpg");
  EXPECT_EQ(item->groupTitle(), "1970-01-01");
}

TEST(PhotoParserTest, ICloudAlbumsListEveryPictureAndFindDownloadedFiles) {
  TempDir dir;
  std::string local = dir.write(md5String("U1") + ".jpg", "x");
  std::string thumb = dir.write(md5String("IMG_1.jpg") + ".png", "x");
  std::string album = R"({"photos": [
      {"imageUuid": "U1", "imageName": "IMG_1.jpg", "imageType": "public.jpeg",
       "dateAsset": 1600000000000, "imageSize": 2600, "imageUrl": "http://x/1",
       "thumbUrl": "http://x/t1", "thumbSize": 40},
      7,
      {"imageUuid": "U2", "imageName": "MOV_2.MOV", "imageType": "com.apple.quicktime-movie",
       "imageSize": -3},
      {"imageUuid": "U3", "imageName": "c.mp4", "imageType": "public.mpeg-4", "dateAsset": "x"}
  ]})";
  IOSPhotoParser parser;
  parser.addiCloudPhotosJSONData(album, true, dir.str());
  ASSERT_EQ(parser.items().size(), 3u);
  auto first = photoAt(parser.items(), 0);
  EXPECT_FALSE(first->isVideo());
  EXPECT_TRUE(first->isDeleted());
  EXPECT_EQ(first->uuid(), "U1");
  EXPECT_EQ(first->strDate(), "09-13-2020 12:26:40");
  EXPECT_EQ(first->groupTitle(), "2020-09-13");
  EXPECT_EQ(first->strSize(), "3 KB");
  EXPECT_EQ(first->imageUrl(), "http://x/1");
  EXPECT_EQ(first->thumbUrl(), "http://x/t1");
  EXPECT_EQ(first->thumbSize(), 40);
  EXPECT_EQ(first->localPath(), local);
  EXPECT_EQ(first->thumbPath(), thumb);
  auto second = photoAt(parser.items(), 1);
  EXPECT_TRUE(second->isVideo());
  EXPECT_EQ(second->localPath(), "");
  EXPECT_EQ(second->strSize(), "1 byte");
  EXPECT_TRUE(photoAt(parser.items(), 2)->isVideo());
  EXPECT_EQ(photoAt(parser.items(), 2)->strDate(), "01-01-1970 00:00:00");

  // Without a backup folder nothing is looked for; a stopped parser adds nothing more.
  parser.addiCloudPhotosJSONData(album, false, "");
  EXPECT_EQ(photoAt(parser.items(), 3)->localPath(), "");
  EXPECT_FALSE(photoAt(parser.items(), 3)->isDeleted());
  parser.stopParser();
  parser.addiCloudPhotosJSONData(album, false, "");
  EXPECT_EQ(parser.items().size(), 6u);
}

TEST(PhotoParserTest, ShowListsAreReplacedSoEarlierCopiesStayAsTheyWere) {
  IOSPhotoParser parser;
  EXPECT_EQ(parser.showPhotoArr(), nullptr);
  EXPECT_EQ(parser.showPhotoVideoArr(), nullptr);
  auto a = std::make_shared<IOSPhotoItem>();
  auto b = std::make_shared<IOSPhotoItem>();
  parser.addShowPhotoItem(a);
  IOSPhotoParser::ShowList before = parser.showPhotoArr();
  parser.addShowPhotoItem(b);
  EXPECT_THAT(*before, ElementsAre(a));
  EXPECT_THAT(*parser.showPhotoArr(), ElementsAre(a, b));
  EXPECT_EQ(parser.showPhotoVideoArr(), nullptr);
  parser.addShowVideoItem(b);
  EXPECT_THAT(*parser.showPhotoVideoArr(), ElementsAre(b));
}

TEST(PhotoItemTest, ThumbnailsDecodeOnlyWhenAskedAndBadPicturesGiveNone) {
  TempDir dir;
  std::string jpeg = sampleJpeg();
  std::string good = dir.write("good.jpg", jpeg);
  std::string text = dir.write("text.jpg", "not a picture");
  std::string truncated = testing::fixturePath("images/truncated.jpg");
  struct Case {
    const char* name;
    std::string record;
    bool hasThumb;
  };
  const Case cases[] = {
      {"thumbnail file", R"({"thumb_file_path": ")" + good + R"("})", true},
      {"photo falls back to its file",
       R"({"thumb_file_path": ")" + text + R"(", "origin_file_path": ")" + good + R"("})", true},
      {"video has no fallback",
       R"({"is_video": 1, "thumb_file_path": "/none", "origin_file_path": ")" + good + R"("})",
       false},
      {"not a picture", R"({"origin_file_path": ")" + text + R"("})", false},
      {"missing", R"({"origin_file_path": "/no/such.jpg"})", false},
      {"folder", R"({"origin_file_path": ")" + dir.str() + R"("})", false},
      {"device", R"({"origin_file_path": "/dev/zero"})", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto item = IOSBaseItem::itemWithDictionary<IOSPhotoItem>(json::parse(c.record));
    EXPECT_EQ(item->thumb() != nullptr, c.hasThumb);
    auto scaled = IOSPhotoItem::ATThumbnailImageFromImage(item->thumb());
    EXPECT_EQ(scaled != nullptr, c.hasThumb);
    if (scaled) {
      EXPECT_EQ(scaled->height(), 200);
      EXPECT_EQ(scaled->width(), static_cast<int>(std::lround(item->thumb()->width() * 200.0 /
                                                              item->thumb()->height())));
    }
  }
  // Listing reads no picture: one that turns bad after the parse gives no thumbnail.
  std::string later = dir.write("later.jpg", jpeg);
  auto parser = IOSPhotoParser::parserWithJSONData(
      batchNaming(dir, R"({"origin_file_path": ")" + later + R"("})"), true);
  dir.write("later.jpg", "gone bad");
  ASSERT_EQ(parser->items().size(), 1u);
  EXPECT_EQ(photoAt(parser->items(), 0)->thumb(), nullptr);
  // A truncated picture may pass its header check; scaling it still gives nothing.
  auto cut = Image::imageWithContentsOfFile(truncated);
  EXPECT_EQ(IOSPhotoItem::ATThumbnailImageFromImage(cut), nullptr);
  EXPECT_EQ(IOSPhotoItem::ATThumbnailImageFromImage(nullptr), nullptr);
}

class PhotoDownloadTest : public ::testing::Test {
 protected:
  void SetUp() override { IOSPhotoItem::setDownloadTimeout(std::chrono::seconds(20)); }
  void TearDown() override { IOSPhotoItem::setDownloadTimeout(std::chrono::seconds(1800)); }

  static std::shared_ptr<IOSPhotoItem> itemFor(const std::string& name, const std::string& url) {
    auto item = std::make_shared<IOSPhotoItem>();
    item->setName(name);
    item->setImageUrl(url);
    return item;
  }
  static std::string tmpFolder() { return productDomainPath() + "/iCloud/tmp"; }

  testing::HttpTestServer server;
  LogCapture logs;
};

TEST_F(PhotoDownloadTest, DownloadSetsBothPathsAndNamesStayInsideTheFolder) {
  server.addFile("p.jpg", "picture");
  struct Case {
    const char* name;
    std::string expected;
  };
  const Case cases[] = {
      {"dl-a.jpg", tmpFolder() + "/dl-a.jpg"},
      {"../../escape.jpg", tmpFolder() + "/escape.jpg"},
      {"..", tmpFolder() + "/_"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto item = itemFor(c.name, server.url("/files/p.jpg"));
    int calls = 0;
    item->startDownloadAndCompleted([&calls] { ++calls; });
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(item->localPath(), c.expected);
    EXPECT_EQ(item->thumbPath(), c.expected);
    EXPECT_EQ(readFile(c.expected), "picture");
    fs::remove(c.expected);  // the working root is shared with later tests
  }
  EXPECT_FALSE(fs::exists(fs::path(productDomainPath()).parent_path() / "escape.jpg"));
}

TEST_F(PhotoDownloadTest, NothingToFetchReturnsWithoutTheCompletion) {
  TempDir dir;
  std::string there = dir.write("x.jpg", "x");
  fs::create_directories(tmpFolder());
  std::ofstream(tmpFolder() + "/already.jpg") << "x";
  auto withPath = itemFor("p.jpg", server.url("/files/p.jpg"));
  withPath->setLocalPath(there);
  auto noUrl = itemFor("p.jpg", "");
  auto onDisk = itemFor("already.jpg", server.url("/files/p.jpg"));
  for (const auto& item : {withPath, noUrl, onDisk}) {
    int calls = 0;
    item->startDownloadAndCompleted([&calls] { ++calls; });
    EXPECT_EQ(calls, 0);
  }
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(PhotoDownloadTest, FailuresAndTimeOutsAreLoggedAndLeaveThePaths) {
  std::string failing = server.url("/files/none.jpg?status=404");
  auto item = itemFor("dl-fail.jpg", failing);
  int calls = 0;
  item->startDownloadAndCompleted([&calls] { ++calls; });
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(item->localPath(), "");
  EXPECT_TRUE(logs.run().contains("download failed! URL:" + failing));

  server.addFile("slow.jpg", std::string(4000, 'x'));
  std::string slow = server.url("/files/slow.jpg?trickle=10&every=100");
  IOSPhotoItem::setDownloadTimeout(std::chrono::milliseconds(200));
  auto late = itemFor("dl-slow.jpg", slow);
  late->startDownloadAndCompleted([&calls] { ++calls; });
  EXPECT_EQ(calls, 2);
  EXPECT_TRUE(logs.run().contains("download timeout!! URL:" + slow));
}

}  // namespace
}  // namespace dataparser
