#include "dataparser/model/attachment.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <utility>
#include <vector>

#include "dataparser/util/byte_count.h"
#include "dataparser/util/date_format.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::TempDir;

AttachmentPtr attachmentWith(std::int32_t flag, std::string devicePath = {}) {
  auto item = IOSAttachmentItem::item();
  item->setFlag(flag);
  item->setDevicePath(std::move(devicePath));
  return item;
}

TEST(AttachmentTest, TypeFromFlagAndFileName) {
  struct Case {
    std::int32_t flag;
    const char* devicePath;
    std::uint64_t type;
  };
  // clang-format off
  const Case cases[] = {
      // The fixed table, with audio and video crossed.
      {1, "", 1}, {6, "", 1}, {2, "", 3}, {3, "", 2}, {5, "", 2}, {4, "", 4}, {7, "", 9},
      {8, "", 8}, {9, "", 10}, {10, "", 11}, {11, "", 12}, {12, "", 13}, {16, "", 14},
      {17, "", 15}, {18, "", 16}, {19, "", 17},
      // Table gaps are "other" whatever the file name says.
      {0, "/a/b.jpg", 7}, {13, "/a/b.jpg", 7}, {14, "", 7}, {15, "", 7}, {-5, "/a/b.mp4", 7},
      // Flag codes above the table.
      {30, "/a/b.pdf", 5}, {34, "/a/b.pdf", 9}, {25, "/var/mobile/report.PDF", 4},
      {25, "/a/clip.mov", 2}, {20, "/a/voice.m4a", 3}, {-1, "/a/IMG_1.JPG", 1},
      {-1, "/a/notes.unknownext", 7},
      // No devicePath: the name "Unknown" has no kind.
      {-1, "", 7}, {40, "", 7}};
  // clang-format on
  for (const Case& c : cases) {
    EXPECT_EQ(attachmentWith(c.flag, c.devicePath)->type(), c.type)
        << "flag " << c.flag << " path " << c.devicePath;
  }
}

TEST(AttachmentTest, TypeIsKeptAndCanBeForced) {
  auto item = attachmentWith(-1, "/a/IMG_1.JPG");
  EXPECT_EQ(item->type(), 1u);
  item->setDevicePath("/a/song.mp3");
  EXPECT_EQ(item->type(), 1u);  // kept once classified
  item->setType(6);
  EXPECT_EQ(item->type(), 6u);

  // An explicit name is used when the device path has no last component.
  auto named = attachmentWith(-1);
  named->setName("movie.mp4");
  EXPECT_EQ(named->type(), 2u);
}

TEST(AttachmentTest, NameAndExtension) {
  auto photo = attachmentWith(-1, "/var/mobile/Media/IMG_1.JPG");
  EXPECT_EQ(photo->type(), 1u);
  EXPECT_EQ(photo->name(), "IMG_1.JPG");
  EXPECT_EQ(photo->extension(), "JPG");

  auto bare = IOSAttachmentItem::item();
  EXPECT_EQ(bare->name(), "Unknown");
  EXPECT_EQ(bare->extension(), "Unknown");
  EXPECT_EQ(bare->type(), 7u);
  EXPECT_EQ(bare->mediaType(), 0u);

  // The extension comes from the first candidate that has one: devicePath, name, localPath,
  // thumbPath.
  auto fromLocal = attachmentWith(-1, "/dev/file");
  fromLocal->setLocalPath("/backup/abc.mov");
  fromLocal->setThumbPath("/backup/abc.jpg");
  EXPECT_EQ(fromLocal->extension(), "mov");
  auto fromThumb = attachmentWith(-1);
  fromThumb->setThumbPath("/backup/t.png");
  EXPECT_EQ(fromThumb->extension(), "png");
  auto fromName = attachmentWith(-1);
  fromName->setName("voice.amr");
  fromName->setLocalPath("/backup/x.mov");
  EXPECT_EQ(fromName->extension(), "amr");

  EXPECT_EQ(IOSAttachmentItem::getExtensionName({"", "/a/b", "/c/d.tar.gz", "e.txt"}), "gz");
  EXPECT_EQ(IOSAttachmentItem::getExtensionName({"/a/.hidden", "x."}), "");
}

TEST(AttachmentTest, MediaTypeFromMediaFlagOrExtension) {
  struct Case {
    std::int32_t mediaFlag;
    const char* devicePath;
    const char* name;
    std::uint64_t mediaType;
  };
  // clang-format off
  const Case cases[] = {
      {1, "", "", 1}, {2, "", "", 3}, {3, "", "", 2}, {4, "", "", 4}, {0, "/a/b.jpg", "", 7},
      {9, "", "", 7}, {-3, "", "", 7}, {25, "/a/b.pdf", "", 4}, {-1, "/a/b.JPEG", "", 1},
      {-1, "/a/b.xyz", "", 7},
      // A name without an extension is not classified (unlike `type`).
      {-1, "/a/README", "", 0}, {-1, "", "", 0}, {-1, "", "tune.mp3", 3}};
  // clang-format on
  for (const Case& c : cases) {
    auto item = IOSAttachmentItem::item();
    item->setMediaFlag(c.mediaFlag);
    item->setDevicePath(c.devicePath);
    if (*c.name) item->setName(c.name);
    EXPECT_EQ(item->mediaType(), c.mediaType) << c.mediaFlag << " " << c.devicePath;
  }

  // 0 is not kept: once a file name with an extension appears, it classifies.
  auto later = IOSAttachmentItem::item();
  EXPECT_EQ(later->mediaType(), 0u);
  later->setDevicePath("/a/b.mp4");
  EXPECT_EQ(later->mediaType(), 2u);
}

TEST(AttachmentTest, SizeFallsBackToThumbnailAndStaysUnknownWithoutFiles) {
  TempDir dir;
  auto item = IOSAttachmentItem::item();
  item->setLocalPath(dir.str() + "/media.bin");
  item->setThumbPath(dir.str() + "/thumb.bin");
  EXPECT_EQ(item->size(), -1);
  EXPECT_EQ(item->strSize(), "1 byte");

  // Looked up again while unknown: the thumbnail counts when the local file is missing.
  dir.write("thumb.bin", "12345");
  EXPECT_EQ(item->size(), 5);
  // Once known, the size is kept.
  dir.write("media.bin", "1234567");
  EXPECT_EQ(item->size(), 5);

  auto preferLocal = IOSAttachmentItem::item();
  preferLocal->setLocalPath(dir.str() + "/media.bin");
  preferLocal->setThumbPath(dir.str() + "/thumb.bin");
  EXPECT_EQ(preferLocal->size(), 7);
  EXPECT_EQ(preferLocal->strSize(), formattedByteCount(7));

  // -2 also means "unknown"; any other stored value is returned as it is.
  auto marked = IOSAttachmentItem::item();
  marked->setThumbPath(dir.str() + "/thumb.bin");
  marked->setSize(-2);
  EXPECT_EQ(marked->size(), 5);
  marked->setSize(-3);
  EXPECT_EQ(marked->size(), -3);
}

TEST(AttachmentTest, ThumbnailAndPictureGrid) {
  TempDir dir;
  const std::string picture = testing::fixturePath("model/pixel.png");
  const std::string missing = dir.str() + "/none.jpg";

  // A photo without a thumbnail file shows its local file.
  auto photo = attachmentWith(1);
  photo->setLocalPath(picture);
  photo->setThumbPath(missing);
  ASSERT_NE(photo->thumb(), nullptr);
  EXPECT_EQ(photo->thumb()->width(), 1);
  EXPECT_EQ(photo->imageRepresentation(), photo->thumb());
  EXPECT_EQ(photo->imageUID(), picture);  // no thumbnail file: the local path

  // The kind 6 a parser may force counts as a picture too; a document does not.
  auto forced = attachmentWith(-1);
  forced->setType(6);
  forced->setLocalPath(picture);
  EXPECT_NE(forced->thumb(), nullptr);
  auto document = attachmentWith(4);
  document->setLocalPath(picture);
  EXPECT_EQ(document->thumb(), nullptr);
  // The thumbnail file serves every kind, and is tried again after a failure.
  document->setThumbPath(picture);
  EXPECT_NE(document->thumb(), nullptr);
  EXPECT_EQ(document->imageUID(), picture);

  // A thumbnail file that does not decode falls back to the local picture of a photo.
  const std::string broken = dir.write("broken.jpg", "not a picture");
  auto brokenThumb = attachmentWith(6);
  brokenThumb->setThumbPath(broken);
  brokenThumb->setLocalPath(picture);
  EXPECT_NE(brokenThumb->thumb(), nullptr);

  auto named = attachmentWith(-1, "/DCIM/IMG_9.HEIC");
  EXPECT_EQ(named->imageTitle(), "IMG_9.HEIC");
  EXPECT_EQ(named->imageSubtitle(), "HEIC");
  EXPECT_EQ(named->imageRepresentationType(), IOSAttachmentItem::kImageRepresentationType);
}

TEST(AttachmentTest, DurationTexts) {
  struct Case {
    float duration;
    std::int64_t seconds;
  };
  const Case cases[] = {
      {0.0F, 0}, {0.9F, 0}, {59.99F, 59}, {3725.5F, 3725}, {-2.5F, -2}, {std::nanf(""), 0},
  };
  for (const Case& c : cases) {
    VoiceItem voice;
    voice.setDuration(c.duration);
    EXPECT_EQ(voice.strDuration(), formattedDurationTime(c.seconds)) << c.duration;
  }
  // Durations beyond the integer range are held at one large value instead of overflowing.
  VoiceItem endless;
  endless.setDuration(std::numeric_limits<float>::infinity());
  VoiceItem huge;
  huge.setDuration(1e30F);
  EXPECT_EQ(endless.strDuration(), huge.strDuration());

  VideoItem video;
  video.setDuration(61.7F);
  EXPECT_EQ(video.strDuration(), formattedDurationTime(61));
  video.setDuration(5);
  EXPECT_EQ(video.strDuration(), formattedDurationTime(61));  // kept once computed
  video.setStrDuration("custom");
  EXPECT_EQ(video.strDuration(), "custom");

  CallDurationItem call;
  call.setDuration(3600.2F);
  call.setCallHistoryType(3);
  EXPECT_EQ(call.strDuration(), formattedDurationTime(3600));
}

// The rarely set payloads and paths share one block: each field reads back what was set, the
// others stay empty, and clearing a field of an attachment that has none allocates nothing.
TEST(AttachmentTest, RareFieldsReadBackIndependently) {
  using Check = std::function<bool(const IOSAttachmentItem&)>;
  using Set = std::function<void(IOSAttachmentItem&)>;
  const std::vector<std::pair<Set, Check>> fields = {
      {[](auto& a) { a.setVoice(std::make_shared<VoiceItem>()); },
       [](auto& a) { return a.voice() != nullptr; }},
      {[](auto& a) { a.setVideo(std::make_shared<VideoItem>()); },
       [](auto& a) { return a.video() != nullptr; }},
      {[](auto& a) { a.setLocation(std::make_shared<LocationItem>()); },
       [](auto& a) { return a.location() != nullptr; }},
      {[](auto& a) { a.setContact(std::make_shared<ContactItem>()); },
       [](auto& a) { return a.contact() != nullptr; }},
      {[](auto& a) { a.setMoney(std::make_shared<MoneyItem>()); },
       [](auto& a) { return a.money() != nullptr; }},
      {[](auto& a) { a.setEmoji(std::make_shared<EmojiItem>()); },
       [](auto& a) { return a.emoji() != nullptr; }},
      {[](auto& a) { a.setNews(std::make_shared<SubscribeNewsItem>()); },
       [](auto& a) { return a.news() != nullptr; }},
      {[](auto& a) { a.setCallDuration(std::make_shared<CallDurationItem>()); },
       [](auto& a) { return a.callDuration() != nullptr; }},
      {[](auto& a) { a.setLink(std::make_shared<LinkItem>()); },
       [](auto& a) { return a.link() != nullptr; }},
      {[](auto& a) { a.setResolvedThumbPath("/t"); },
       [](auto& a) { return a.resolvedThumbPath() == "/t"; }},
      {[](auto& a) { a.setParentUUID("p"); }, [](auto& a) { return a.parentUUID() == "p"; }},
      {[](auto& a) { a.setUuid("u"); }, [](auto& a) { return a.uuid() == "u"; }},
      {[](auto& a) { a.setUrl("https://x"); }, [](auto& a) { return a.url() == "https://x"; }},
  };
  for (std::size_t set = 0; set < fields.size(); ++set) {
    auto item = IOSAttachmentItem::item();
    fields[set].first(*item);
    for (std::size_t read = 0; read < fields.size(); ++read) {
      EXPECT_EQ(fields[read].second(*item), read == set) << set << " " << read;
    }
  }
  auto item = IOSAttachmentItem::item();
  item->setUrl("https://x");
  item->setUrl("");
  item->setVoice(nullptr);
  EXPECT_EQ(item->url(), "");
  EXPECT_FALSE(item->voice());

  // Most attachments carry none of these; they cost one pointer.
  EXPECT_LE(sizeof(IOSAttachmentItem), 320u);
}

}  // namespace
}  // namespace dataparser
