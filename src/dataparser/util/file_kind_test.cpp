#include "dataparser/util/file_kind.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>
#include <vector>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/image.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

TEST(FileKindTest, KindsByNameIgnoringCaseAndDiacritics) {
  struct Case {
    const char* name;
    bool video, audio, image, document, contact;
  };
  const Case cases[] = {
      {"a.ogg", true, true, false, false, false},  // both kinds, as the product has it
      {"SONG.MP3", false, true, false, false, false},
      {"IMG_1.JPG", false, false, true, false, false},
      {"clip.mOv", true, false, false, false, false},
      {"x.acc", false, true, false, false, false},  // odd member kept
      {"x.giv", false, false, true, false, false},
      {"x.pic_thum", false, false, true, false, false},
      {"report.numbers", false, false, false, true, false},
      {"card.VCF", false, false, false, false, true},
      {"caf\xC3\xA9.p\xC3\xA4ges", false, false, false, true, false},  // "pages" with an umlaut
      {"/var/mobile/Media/DCIM/IMG_0001.HEIC", false, false, true, false, false},
      {"photo.jpg.txt", false, false, false, true, false},
      {"photo.jpgx", false, false, false, false, false},
      {"jpg", false, false, false, false, false},
      {".jpg", false, false, true, false, false},
      {"a.jpg\n", false, false, false, false, false},  // the whole name must match
      {"Unknown", false, false, false, false, false},
      {"", false, false, false, false, false},
      {"bad\xFF.jpg", false, false, false, false, false},  // not UTF-8
  };
  for (const Case& c : cases) {
    EXPECT_EQ(DPHelper::isVideo(c.name), c.video) << c.name;
    EXPECT_EQ(DPHelper::isAudio(c.name), c.audio) << c.name;
    EXPECT_EQ(DPHelper::isImage(c.name), c.image) << c.name;
    EXPECT_EQ(DPHelper::isDocument(c.name), c.document) << c.name;
    EXPECT_EQ(DPHelper::isContact(c.name), c.contact) << c.name;
  }
}

TEST(FileKindTest, ValidateMatchesTheWholeText) {
  EXPECT_TRUE(DPHelper::validate("ABC", "abc"));
  EXPECT_FALSE(DPHelper::validate("abcd", "abc"));
  EXPECT_FALSE(DPHelper::validate("xabc", "abc"));
  EXPECT_TRUE(DPHelper::validate("R\xC3\xA9sum\xC3\xA9", "resume"));
  EXPECT_TRUE(DPHelper::validate("Resume", "r\xC3\xA9sum\xC3\xA9"));
  EXPECT_FALSE(DPHelper::validate("abc", "(unclosed"));
  EXPECT_TRUE(DPHelper::validate("", ".*"));
}

TEST(FileKindTest, KindTestsAreSafeFromSeveralThreads) {
  std::vector<std::thread> threads;
  std::vector<int> hits(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &hits] {
      for (int i = 0; i < 500; ++i)
        hits[t] += DPHelper::isImage("IMG.JPG") && DPHelper::isAudio("a.ogg");
    });
  }
  for (auto& thread : threads)
    thread.join();
  for (int count : hits)
    EXPECT_EQ(count, 500);
}

TEST(FileKindTest, WebpDataDecodesToPng) {
  auto webp = readFile(testing::fixturePath("images/picture.webp"));
  ASSERT_TRUE(webp);
  auto png = DPHelper::decodedWebpWithData(*webp);
  ASSERT_TRUE(png);
  EXPECT_EQ(png->substr(1, 3), "PNG");
  auto image = Image::imageWithData(*png);
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width(), 40);
  EXPECT_EQ(image->height(), 30);

  EXPECT_FALSE(DPHelper::decodedWebpWithData(""));
  EXPECT_FALSE(DPHelper::decodedWebpWithData("RIFF....WEBPVP8 garbage"));
  // Only WebP is taken: a PNG is not a WebP picture.
  EXPECT_FALSE(
      DPHelper::decodedWebpWithData(*readFile(testing::fixturePath("images/picture.png"))));
}

TEST(FileKindTest, WebpFileIsWrittenAsPngUnderTheThumbnailFolder) {
  testing::TempDir temp;
  setApplicationSupportRoot(temp.str());
  const std::string folder = productDomainPath() + "/data/thumbnail";
  auto written =
      DPHelper::decodedWebpWithPath(testing::fixturePath("images/picture.webp"), "sticker.webp");
  ASSERT_TRUE(written);
  EXPECT_EQ(*written, folder + "/sticker.png");
  EXPECT_TRUE(Image::imageWithContentsOfFile(*written));

  // A name from input data cannot leave the folder.
  written =
      DPHelper::decodedWebpWithPath(testing::fixturePath("images/picture.webp"), "../../evil.webp");
  ASSERT_TRUE(written);
  EXPECT_EQ(*written, folder + "/evil.png");

  // Failures leave nothing behind.
  EXPECT_FALSE(DPHelper::decodedWebpWithPath(temp.str() + "/missing.webp", "m.webp"));
  EXPECT_FALSE(
      DPHelper::decodedWebpWithPath(testing::fixturePath("images/not_a_picture.jpg"), "n.webp"));
  std::size_t files = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder))
    ++files;
  EXPECT_EQ(files, 2u);
}

}  // namespace
}  // namespace dataparser
