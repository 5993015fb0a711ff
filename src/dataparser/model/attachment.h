// IOSAttachmentItem: the file or structured payload carried by a message that is not plain text.
//
// The chat parsers create an attachment, set its paths and kind codes and hang payload objects
// on it; the other-attachment parser later shares the same object in its own lists. The
// attachment works out on first use, and then keeps:
//   type       display kind (1 photo, 2 video, 3 audio, 4 document, 5 link, 7 other, 8 contact
//              card, 9 location, 10 voice call, 11 video call, 12 red packet, 13 money
//              transfer, 14 unlabelled, 15 emoji, 16 mini-program, 17 article), from `flag`
//              or else from the file name; 0 = not classified yet
//   mediaType  the same kinds from `mediaFlag`, or from a file name that has an extension
//   name       last component of `devicePath`, else "Unknown"
//   extension  first non-empty extension of devicePath, name, localPath, thumbPath, else
//              "Unknown"
//   size       bytes of the file at localPath, else at thumbPath; -1 while neither exists (and
//              then looked up again on the next call)
//   strSize    `size` in the file style of the byte-count formatter (unknown shows as 1 byte)
//   thumb      picture at thumbPath; for photos the file at localPath when no thumbnail loads
// Every setter overrides what the getter would compute. String fields left empty count as
// "not computed yet".
//
// Ownership: held through std::shared_ptr (a message and several lists share one attachment);
// payloads and the thumbnail are shared, immutable-once-set objects.
// Thread safety: built on one thread; afterwards read from one thread at a time (the lazy
// fields fill without locking).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dataparser/model/base_item.h"
#include "dataparser/model/payload.h"
#include "dataparser/util/image.h"

namespace dataparser {

// Display kinds of `type` and `mediaType`.
enum AttachmentKind : std::uint64_t {
  kAttachmentUnclassified = 0,
  kAttachmentPhoto = 1,
  kAttachmentVideo = 2,
  kAttachmentAudio = 3,
  kAttachmentDocument = 4,
  kAttachmentLink = 5,
  kAttachmentOther = 7,
  kAttachmentContactCard = 8,
  kAttachmentLocation = 9,
  kAttachmentVoiceCall = 10,
  kAttachmentVideoCall = 11,
  kAttachmentRedPacket = 12,
  kAttachmentMoneyTransfer = 13,
  kAttachmentUnlabelled = 14,
  kAttachmentEmoji = 15,
  kAttachmentMiniProgram = 16,
  kAttachmentSubscribeNews = 17,
};

class IOSAttachmentItem : public IOSBaseItem {
 public:
  // The image browser's representation type for a decoded picture object.
  static constexpr std::string_view kImageRepresentationType =
      "IKImageBrowserNSImageRepresentationType";

  // A new attachment with no record: the same as initWithDictionary of nothing.
  static std::shared_ptr<IOSAttachmentItem> item();

  // Keeps `dictionary` as rawData (when an object) and resets size, flag and mediaFlag to -1.
  // Nothing else is read: the parsers set every field.
  void initWithDictionary(const json::Value& dictionary) override;

  // --- lazily computed ---
  std::uint64_t type() const;
  void setType(std::uint64_t type) { type_ = type; }
  std::uint64_t mediaType() const;
  void setMediaType(std::uint64_t mediaType) { mediaType_ = mediaType; }
  const std::string& name() const;
  void setName(std::string name) { name_ = std::move(name); }
  const std::string& extension() const;
  void setExtension(std::string extension) { extension_ = std::move(extension); }
  std::int64_t size() const;
  void setSize(std::int64_t size) { size_ = size; }
  const std::string& strSize() const;
  void setStrSize(std::string strSize) { strSize_ = std::move(strSize); }
  const std::shared_ptr<const Image>& thumb() const;
  void setThumb(std::shared_ptr<const Image> thumb) { thumb_ = std::move(thumb); }

  // --- plain fields ---
  std::int32_t flag() const { return flag_; }
  void setFlag(std::int32_t flag) { flag_ = flag; }
  std::int32_t mediaFlag() const { return mediaFlag_; }
  void setMediaFlag(std::int32_t mediaFlag) { mediaFlag_ = mediaFlag; }
  const std::string& devicePath() const { return devicePath_; }
  void setDevicePath(std::string path) { devicePath_ = std::move(path); }
  const std::string& localPath() const { return localPath_; }
  void setLocalPath(std::string path) { localPath_ = std::move(path); }
  const std::string& thumbPath() const { return thumbPath_; }
  void setThumbPath(std::string path) { thumbPath_ = std::move(path); }
  const std::string& resolvedThumbPath() const { return rare().resolvedThumbPath; }
  void setResolvedThumbPath(std::string path) {
    setRare(&Rare::resolvedThumbPath, std::move(path));
  }
  const std::string& parentUUID() const { return rare().parentUUID; }
  void setParentUUID(std::string uuid) { setRare(&Rare::parentUUID, std::move(uuid)); }
  const std::string& uuid() const { return rare().uuid; }
  void setUuid(std::string uuid) { setRare(&Rare::uuid, std::move(uuid)); }
  const std::string& url() const { return rare().url; }
  void setUrl(std::string url) { setRare(&Rare::url, std::move(url)); }

  // --- payloads (empty pointer: none) ---
  const std::shared_ptr<VoiceItem>& voice() const { return rare().voice; }
  void setVoice(std::shared_ptr<VoiceItem> voice) { setRare(&Rare::voice, std::move(voice)); }
  const std::shared_ptr<VideoItem>& video() const { return rare().video; }
  void setVideo(std::shared_ptr<VideoItem> video) { setRare(&Rare::video, std::move(video)); }
  const std::shared_ptr<LocationItem>& location() const { return rare().location; }
  void setLocation(std::shared_ptr<LocationItem> location) {
    setRare(&Rare::location, std::move(location));
  }
  const std::shared_ptr<ContactItem>& contact() const { return rare().contact; }
  void setContact(std::shared_ptr<ContactItem> contact) {
    setRare(&Rare::contact, std::move(contact));
  }
  const std::shared_ptr<MoneyItem>& money() const { return rare().money; }
  void setMoney(std::shared_ptr<MoneyItem> money) { setRare(&Rare::money, std::move(money)); }
  const std::shared_ptr<EmojiItem>& emoji() const { return rare().emoji; }
  void setEmoji(std::shared_ptr<EmojiItem> emoji) { setRare(&Rare::emoji, std::move(emoji)); }
  const std::shared_ptr<SubscribeNewsItem>& news() const { return rare().news; }
  void setNews(std::shared_ptr<SubscribeNewsItem> news) { setRare(&Rare::news, std::move(news)); }
  const std::shared_ptr<CallDurationItem>& callDuration() const { return rare().callDuration; }
  void setCallDuration(std::shared_ptr<CallDurationItem> callDuration) {
    setRare(&Rare::callDuration, std::move(callDuration));
  }
  const std::shared_ptr<LinkItem>& link() const { return rare().link; }
  void setLink(std::shared_ptr<LinkItem> link) { setRare(&Rare::link, std::move(link)); }

  // --- picture-grid operations ---
  // The thumbnail path when a file exists there, else the local path.
  std::string imageUID() const;
  const std::string& imageTitle() const { return name(); }
  const std::string& imageSubtitle() const { return extension(); }
  const std::shared_ptr<const Image>& imageRepresentation() const { return thumb(); }
  std::string_view imageRepresentationType() const { return kImageRepresentationType; }

  // The text of `value` when it is a JSON string, else "".
  static std::string returnNotnullString(json::View value);
  static std::string returnNotnullString(std::string_view value) { return std::string(value); }
  // The extension of the first candidate that has one; "" when none has.
  static std::string getExtensionName(const std::vector<std::string>& candidates);

  std::string_view className() const override { return "IOSAttachmentItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  mutable std::uint64_t type_ = 0;
  std::int32_t flag_ = -1;
  std::int32_t mediaFlag_ = -1;
  mutable std::string name_;
  mutable std::string extension_;
  std::string devicePath_;
  std::string localPath_;
  std::string thumbPath_;
  mutable std::shared_ptr<const Image> thumb_;
  mutable std::string strSize_;
  mutable std::int64_t size_ = -1;
  mutable std::uint64_t mediaType_ = 0;
  // The payloads and paths that few attachments carry live in one block, allocated by the
  // first setter that stores a non-empty value; until then the getters read a shared empty one.
  struct Rare {
    std::shared_ptr<VoiceItem> voice;
    std::shared_ptr<VideoItem> video;
    std::shared_ptr<LocationItem> location;
    std::shared_ptr<ContactItem> contact;
    std::shared_ptr<MoneyItem> money;
    std::shared_ptr<EmojiItem> emoji;
    std::shared_ptr<SubscribeNewsItem> news;
    std::shared_ptr<CallDurationItem> callDuration;
    std::shared_ptr<LinkItem> link;
    std::string resolvedThumbPath;
    std::string parentUUID;
    std::string uuid;
    std::string url;
  };
  static const Rare& noRare();
  const Rare& rare() const { return rare_ ? *rare_ : noRare(); }
  template <class T>
  void setRare(T Rare::*field, T value) {
    if (!rare_) {
      if (value == T()) return;  // storing nothing needs no block
      rare_ = makeSlabUnique<Rare>();
    }
    (*rare_).*field = std::move(value);
  }

  SlabUniquePtr<Rare> rare_;
};

using AttachmentPtr = std::shared_ptr<IOSAttachmentItem>;

}  // namespace dataparser
