// The photo sample through the whole road: replay engine, coordinator, the photo, app-file and
// loose-media parsers, the CLI's observer and its JSON export.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/integration/cli_scan.h"

namespace dataparser::cli {
namespace {

using dataparser::testing::TempDir;
using testing::sampleFolder;
using testing::scan;
using testing::ScanRun;
using testing::texts;

TEST(PhotosScanIntegrationTest, SampleLibraryAppFilesAndLooseMedia) {
  TempDir dir;
  ScanRun run = scan(sampleFolder("photos-demo"), /*deleted=*/false, dir);
  ASSERT_EQ(run.status, 0) << run.err;
  const json::Value& out = run.exported;
  ASSERT_TRUE(out.isObject());
  EXPECT_EQ(out["status"].integer(), 1);
  json::View lists = out["lists"];

  json::View photos = lists["2"];
  using Names = std::vector<std::string>;
  EXPECT_EQ(texts(photos, "name"),
            (Names{"IMG_0001.JPG", "IMG_0002.PNG", "IMG_0005.JPG", "../../IMG_0008.JPG"}));
  EXPECT_EQ(photos.at(0)["class"].string(), "IOSPhotoItem");
  EXPECT_EQ(photos.at(0)["groupTitle"].string(), "2023-06-14");
  EXPECT_EQ(photos.at(0)["strSize"].string(), "812 bytes");
  EXPECT_TRUE(photos.at(0)["isAdjustments"].boolean());
  EXPECT_TRUE(photos.at(0)["thumb"].isObject());
  EXPECT_TRUE(photos.at(1)["thumb"].isObject());  // the picture stands in for its thumbnail
  EXPECT_FALSE(photos.at(2)["thumb"].present());  // not a picture
  json::View videos = lists["4"];
  ASSERT_EQ(videos.size(), 1u);
  EXPECT_EQ(videos.at(0)["name"].string(), "IMG_0003.MOV");
  EXPECT_EQ(videos.at(0)["strDuration"].string(), "0:0:12");
  EXPECT_TRUE(videos.at(0)["thumb"].isObject());

  EXPECT_EQ(texts(lists["8"], "appDomain"), (Names{"Notes", "Unknown"}));
  EXPECT_EQ(texts(lists["64"], "name"), (Names{"report.pdf"}));
  EXPECT_EQ(texts(lists["16"], "appDomain"), (Names{"Files"}));
  EXPECT_EQ(lists["32"].size(), 0u);

  json::View whatsapp = lists[std::to_string(0x400000)];
  EXPECT_EQ(texts(whatsapp, "name"), (Names{"beach.png", "IMG_0001.JPG"}));
  EXPECT_EQ(whatsapp.at(0)["class"].string(), "IOSAttachmentItem");
  EXPECT_EQ(whatsapp.at(0)["type"].integer(), 1);
  EXPECT_EQ(texts(lists[std::to_string(0x40000)], "name"), (Names{"card.vcf"}));

  ScanRun all = scan(sampleFolder("photos-demo"), /*deleted=*/true, dir);
  ASSERT_EQ(all.status, 0) << all.err;
  EXPECT_EQ(texts(all.exported["lists"]["2"], "name"),
            (Names{"IMG_0001.JPG", "IMG_0002.PNG", "IMG_0004.GIF", "IMG_0005.JPG",
                   "../../IMG_0008.JPG"}));
}

}  // namespace
}  // namespace dataparser::cli
