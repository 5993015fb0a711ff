#include "dataparser/util/image.h"

#include <gtest/gtest.h>

#include "dataparser/util/file_helper.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

TEST(ImageTest, LoadsFilesAndBytesWithTheirSize) {
  for (const char* name : {"images/picture.png", "images/picture.jpg", "images/picture.webp"}) {
    auto fromFile = Image::imageWithContentsOfFile(testing::fixturePath(name));
    ASSERT_TRUE(fromFile) << name;
    EXPECT_EQ(fromFile->width(), 40);
    EXPECT_EQ(fromFile->height(), 30);
    auto fromData = Image::imageWithData(*readFile(testing::fixturePath(name)));
    ASSERT_TRUE(fromData) << name;
    EXPECT_EQ(fromData->width(), 40);
    ASSERT_TRUE(fromData->pngData());
  }
}

TEST(ImageTest, ThumbnailIsScaledToTheRequestedHeight) {
  auto image = Image::imageWithContentsOfFile(testing::fixturePath("images/picture.jpg"));
  ASSERT_TRUE(image);
  for (int height : {200, 15}) {
    auto png = image->thumbnailPNG(height);
    ASSERT_TRUE(png);
    auto thumb = Image::imageWithData(*png);
    ASSERT_TRUE(thumb);
    EXPECT_EQ(thumb->height(), height);
    EXPECT_NEAR(thumb->width(), height * 4 / 3, 1);
  }
  EXPECT_FALSE(image->thumbnailPNG(0));
}

TEST(ImageTest, UnreadablePicturesGiveNothing) {
  testing::TempDir temp;
  EXPECT_FALSE(Image::imageWithContentsOfFile(""));
  EXPECT_FALSE(Image::imageWithContentsOfFile(temp.str() + "/missing.png"));
  EXPECT_FALSE(Image::imageWithContentsOfFile(temp.str()));  // a folder
  EXPECT_FALSE(Image::imageWithContentsOfFile(testing::fixturePath("images/not_a_picture.jpg")));
  EXPECT_FALSE(Image::imageWithData(""));
  EXPECT_FALSE(Image::imageWithData("GIF89a garbage"));
  // A name with libvips option syntax is an ordinary (missing) file name.
  EXPECT_FALSE(
      Image::imageWithContentsOfFile(testing::fixturePath("images/picture.png") + "[page=1]"));

  // The header of a truncated picture reads, the pixels do not.
  auto truncated = Image::imageWithContentsOfFile(testing::fixturePath("images/truncated.jpg"));
  if (truncated) {
    EXPECT_FALSE(truncated->pngData());
  }
}

TEST(ImageTest, AFileIsReadOnceUntilItChanges) {
  testing::TempDir temp;
  const std::string path = temp.str() + "/picture";
  const std::string png = *readFile(testing::fixturePath("images/picture.png"));
  temp.write("picture", png);
  auto first = Image::imageWithContentsOfFile(path);
  ASSERT_TRUE(first);
  EXPECT_EQ(Image::imageWithContentsOfFile(path), first);

  // Rewritten: no picture any more, then another picture.
  temp.write("picture", "not a picture at all");
  EXPECT_FALSE(Image::imageWithContentsOfFile(path));
  EXPECT_FALSE(Image::imageWithContentsOfFile(path));
  auto thumb = Image::imageWithData(png)->thumbnailPNG(15);
  ASSERT_TRUE(thumb);
  temp.write("picture", *thumb);
  auto second = Image::imageWithContentsOfFile(path);
  ASSERT_TRUE(second);
  EXPECT_NE(second, first);
  EXPECT_EQ(second->height(), 15);
}

}  // namespace
}  // namespace dataparser
