#include "dataparser/model/attachment.h"

#include "dataparser/util/byte_count.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_kind.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/path.h"

namespace dataparser {

namespace {

constexpr std::string_view kUnknown = "Unknown";
constexpr std::int32_t kUnknownFlag = -1;
// Flags up to this value follow the fixed table; above it only 30 and 34 mean something.
constexpr std::int32_t kLastTableFlag = 19;
// A kind that a parser may force on a picture message (WhatsApp's own code 6); shown as a photo.
constexpr std::uint64_t kForcedPictureType = 6;

// The message kind codes of the fixed table. Note the crossing: flag 2 is audio and flag 3 is
// video, the reverse of the display-kind numbering.
std::uint64_t kindOfTableFlag(std::int32_t flag) {
  switch (flag) {
    case 1:
    case 6:
      return kAttachmentPhoto;
    case 2:
      return kAttachmentAudio;
    case 3:
    case 5:
      return kAttachmentVideo;
    case 4:
      return kAttachmentDocument;
    case 7:
      return kAttachmentLocation;
    case 8:
      return kAttachmentContactCard;
    case 9:
      return kAttachmentVoiceCall;
    case 10:
      return kAttachmentVideoCall;
    case 11:
      return kAttachmentRedPacket;
    case 12:
      return kAttachmentMoneyTransfer;
    case 16:
      return kAttachmentUnlabelled;
    case 17:
      return kAttachmentEmoji;
    case 18:
      return kAttachmentMiniProgram;
    case 19:
      return kAttachmentSubscribeNews;
    default:
      return kAttachmentOther;
  }
}

// The media kind codes: the same crossing of 2 and 3, and everything else is "other".
std::uint64_t kindOfMediaFlag(std::int32_t mediaFlag) {
  switch (mediaFlag) {
    case 1:
      return kAttachmentPhoto;
    case 2:
      return kAttachmentAudio;
    case 3:
      return kAttachmentVideo;
    case 4:
      return kAttachmentDocument;
    default:
      return kAttachmentOther;
  }
}

// The kind a file name suggests; the tests run in this order and the first hit wins.
std::uint64_t kindOfFileName(std::string_view fileName) {
  if (DPHelper::isImage(fileName)) return kAttachmentPhoto;
  if (DPHelper::isVideo(fileName)) return kAttachmentVideo;
  if (DPHelper::isAudio(fileName)) return kAttachmentAudio;
  if (DPHelper::isDocument(fileName)) return kAttachmentDocument;
  return kAttachmentOther;
}

// Reads and decodes the picture at `path`; nothing when there is no file or it does not decode.
std::shared_ptr<const Image> pictureAt(const std::string& path) {
  // Only a regular file inside the backup is handed to the decoders.
  if (!isBackupFile(path)) return nullptr;
  return Image::imageWithContentsOfFile(path);
}

}  // namespace

const IOSAttachmentItem::Rare& IOSAttachmentItem::noRare() {
  static const Rare kEmpty;
  return kEmpty;
}

std::shared_ptr<IOSAttachmentItem> IOSAttachmentItem::item() {
  return IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(json::Value());
}

void IOSAttachmentItem::initWithDictionary(const json::Value& dictionary) {
  IOSBaseItem::initWithDictionary(dictionary);
  size_ = -1;
  flag_ = kUnknownFlag;
  mediaFlag_ = kUnknownFlag;
}

std::uint64_t IOSAttachmentItem::type() const {
  if (type_ != kAttachmentUnclassified) return type_;
  if (flag_ != kUnknownFlag) {
    if (flag_ == 34) return type_ = kAttachmentLocation;
    if (flag_ == 30) return type_ = kAttachmentLink;
    if (flag_ <= kLastTableFlag) return type_ = kindOfTableFlag(flag_);
  }
  // Unknown flag, or a flag the table does not cover: go by the file name.
  std::string fileName = path::lastPathComponent(devicePath_);
  if (fileName.empty()) fileName = name();
  if (fileName.empty()) return type_;
  return type_ = kindOfFileName(fileName);
}

std::uint64_t IOSAttachmentItem::mediaType() const {
  if (mediaType_ != kAttachmentUnclassified) return mediaType_;
  if (mediaFlag_ != kUnknownFlag && mediaFlag_ <= kLastTableFlag) {
    return mediaType_ = kindOfMediaFlag(mediaFlag_);
  }
  // Unlike `type`, a name without an extension is not classified at all.
  std::string fileName = path::lastPathComponent(devicePath_);
  if (fileName.empty()) fileName = name();
  if (path::pathExtension(fileName).empty()) return mediaType_;
  return mediaType_ = kindOfFileName(fileName);
}

const std::string& IOSAttachmentItem::name() const {
  if (name_.empty()) {
    name_ = path::lastPathComponent(devicePath_);
    if (name_.empty()) name_ = kUnknown;
  }
  return name_;
}

const std::string& IOSAttachmentItem::extension() const {
  if (extension_.empty()) {
    extension_ = getExtensionName({devicePath_, name(), localPath_, thumbPath_});
    if (extension_.empty()) extension_ = kUnknown;
  }
  return extension_;
}

std::int64_t IOSAttachmentItem::size() const {
  if (size_ != -1 && size_ != -2) return size_;
  for (const std::string* candidate : {&localPath_, &thumbPath_}) {
    if (std::optional<std::uint64_t> bytes = existingBackupFileSize(*candidate)) {
      return size_ = static_cast<std::int64_t>(*bytes);
    }
  }
  return -1;  // not stored: the file may appear later
}

const std::string& IOSAttachmentItem::strSize() const {
  if (strSize_.empty()) strSize_ = formattedByteCount(size());
  return strSize_;
}

const std::shared_ptr<const Image>& IOSAttachmentItem::thumb() const {
  if (!thumb_) {
    thumb_ = pictureAt(thumbPath_);
    if (!thumb_ && (type() == kAttachmentPhoto || type() == kForcedPictureType))
      thumb_ = pictureAt(localPath_);
  }
  return thumb_;
}

std::string IOSAttachmentItem::imageUID() const {
  if (backupFileExists(thumbPath_)) return thumbPath_;
  return localPath_;
}

std::string IOSAttachmentItem::returnNotnullString(json::View value) {
  return value.stringCopy();
}

std::string IOSAttachmentItem::getExtensionName(const std::vector<std::string>& candidates) {
  for (const std::string& candidate : candidates) {
    std::string extension = path::pathExtension(candidate);
    if (!extension.empty()) return extension;
  }
  return "";
}

void IOSAttachmentItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("type", type());
  visitor.field("flag", flag());
  visitor.field("mediaFlag", mediaFlag());
  visitor.field("name", name());
  visitor.field("extension", extension());
  visitor.field("devicePath", devicePath());
  visitor.field("localPath", localPath());
  visitor.field("thumbPath", thumbPath());
  visitor.field("thumb", thumb());
  visitor.field("resolvedThumbPath", resolvedThumbPath());
  visitor.field("strSize", strSize());
  visitor.field("size", size());
  visitor.field("mediaType", mediaType());
  visitor.field("voice", voice());
  visitor.field("video", video());
  visitor.field("location", location());
  visitor.field("contact", contact());
  visitor.field("money", money());
  visitor.field("emoji", emoji());
  visitor.field("news", news());
  visitor.field("callDuration", callDuration());
  visitor.field("link", link());
  visitor.field("parentUUID", parentUUID());
  visitor.field("uuid", uuid());
  visitor.field("url", url());
}

}  // namespace dataparser
