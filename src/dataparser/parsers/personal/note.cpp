#include "dataparser/parsers/personal/note.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_set>

#include "dataparser/parsers/personal/personal_records.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/path.h"
#include "dataparser/util/run_log.h"
#include "dataparser/util/text.h"

namespace dataparser {
namespace {

using personal::lazy;

// Where a picture, a drawing or a video of a note lies: its path in the extracted backup and
// its path on the phone.
struct PathPair {
  std::string_view backup;
  std::string_view device;
};
constexpr PathPair kPicturePairs[] = {
    {"backup_add_media_png", "media_add_path_png"},
    {"backup_add_media_jpg", "media_add_path_jpg"},
    {"backup_draw_media", "media_draw_path"},
};
constexpr PathPair kVideoPair = {"backup_video_media", "media_video_path"};
constexpr PathPair kThumbPair = {"backup_media", "media_path"};

// The object replacement character that marks an attachment's place in an iCloud note.
constexpr std::string_view kAttachmentMark = "\xEF\xBF\xBC";

// Content "type" of the notes app to the attachment kind of the parser's file list.
std::uint64_t kindOfMediaType(std::int64_t type) {
  switch (type) {
    case 0:
      return kAttachmentPhoto;
    case 2:
      return kAttachmentVideo;
    case 3:
      return kAttachmentAudio;
    case 4:
      return kAttachmentDocument;
    default:
      return kAttachmentUnclassified;
  }
}

// Content "type" of the notes app to the kind of the attachment placed in the body.
std::uint64_t kindOfBodyType(std::int64_t type) {
  switch (type) {
    case 2:
      return kAttachmentPhoto;
    case 4:
      return kAttachmentVideo;
    case 5:
      return kAttachmentAudio;
    case 6:
      return kAttachmentDocument;
    default:
      return kAttachmentUnclassified;
  }
}

std::string summaryOf(const IOSAttachmentItem& attachment) {
  switch (attachment.type()) {
    case kAttachmentPhoto:
      return "Social Message Attachment - [a photo]";
    case kAttachmentVideo:
      return "Social Message Attachment - [a video]";
    case kAttachmentAudio:
      return "Social Message Attachment - [a audio]";
    default:
      return "Social Message Attachment - [a attachment]";
  }
}

// The first pair of `pairs`, over every media object in order, whose backup file exists.
bool findExisting(json::View mediaItems, std::initializer_list<PathPair> pairs,
                  IOSAttachmentItem& attachment) {
  for (json::View media : mediaItems.elements()) {
    for (const PathPair& pair : pairs) {
      std::string backup = media[pair.backup].stringCopy();
      if (!backupFileExists(backup)) continue;
      attachment.setLocalPath(std::move(backup));
      attachment.setDevicePath(media[pair.device].stringCopy());
      return true;
    }
  }
  return false;
}

std::string firstExistingThumb(json::View mediaItems) {
  for (json::View media : mediaItems.elements()) {
    for (json::View thumb : media["video_thumbs"].elements()) {
      std::string backup = thumb[kThumbPair.backup].stringCopy();
      if (backupFileExists(backup)) return backup;
    }
  }
  return {};
}

// What the run log shows for a body entry.
std::string describeEntry(const NoteContent& entry) {
  if (const auto* text = std::get_if<std::string>(&entry)) return *text;
  const auto& attachment = std::get<std::shared_ptr<IOSAttachmentItem>>(entry);
  if (!attachment) return "(null)";
  return fmt::format("<IOSAttachmentItem: {}>", static_cast<const void*>(attachment.get()));
}

bool sameEntry(const NoteContent& a, const NoteContent& b) {
  return a == b;  // texts by value, attachments by identity
}

// Files named in an iCloud record, under the download folder.
std::shared_ptr<IOSAttachmentItem> iCloudFile(const json::Value& record, std::string_view uuid,
                                              std::string_view extension,
                                              const std::string& folder) {
  auto attachment = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(record);
  attachment->setUuid(std::string(uuid));
  std::string fileName = personal::downloadedFileName(uuid, extension);
  attachment->setLocalPath(personal::existingDownloadedFile(folder, fileName));
  if (extension.size() > 1) attachment->setExtension(std::string(extension.substr(1)));
  return attachment;
}

// Lists the lock data under its own keys; texts as texts, numbers as numbers.
class LockedInfoFields final : public Describable {
 public:
  explicit LockedInfoFields(const NoteLockedInfo& info) : info_(info) {}
  std::string_view className() const override { return "NSDictionary"; }
  void describe(FieldVisitor& visitor) const override {
    for (const auto& [key, value] : info_) {
      switch (value.type()) {
        case json::Type::kString:
          visitor.field(key, value.view().string());
          break;
        case json::Type::kInteger:
          visitor.field(key, value.view().integer());
          break;
        case json::Type::kDouble:
          visitor.field(key, value.view().number());
          break;
        case json::Type::kBoolean:
          visitor.field(key, value.view().boolean());
          break;
        default:
          visitor.field(key, value.view().toJsonText());
      }
    }
  }

 private:
  const NoteLockedInfo& info_;
};

}  // namespace

// --- IOSNoteItem ---

void IOSNoteItem::initWithDictionary(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  contents_.clear();
}

const std::string& IOSNoteItem::title() const {
  return lazy(title_, [&] {
    std::string title = rawData()["title"].stringCopy();
    if (title.empty() && !contents_.empty()) {
      const NoteContent& first = contents_.front();
      if (const auto* text = std::get_if<std::string>(&first)) {
        title = text->substr(0, text->find('\n'));
      } else if (const auto& attachment = std::get<std::shared_ptr<IOSAttachmentItem>>(first)) {
        title = summaryOf(*attachment);
      }
    }
    return stringByReplacingOccurrences(title, "\n", "");
  });
}

const OptionalDate& IOSNoteItem::date() const {
  return lazy(date_, [&] { return dateWithDateFormatter(rawData()["datetime"].string()); });
}

const std::string& IOSNoteItem::strDate() const {
  return lazy(strDate_, [&] { return date() ? stringWithDateFormatter(*date()) : std::string(); });
}

const std::string& IOSNoteItem::account() const {
  return lazy(account_, [&] { return rawData()["account"].stringCopy(); });
}

const std::string& IOSNoteItem::richText() const {
  return lazy(richText_, [&] { return rawData()["text"].stringCopy(); });
}

void IOSNoteItem::parseAttachments() {
  if (isThirdNotes_) {
    parseThirdNoteAttachments();
  } else {
    parseNoteAttachments();
  }
}

void IOSNoteItem::parseNoteAttachments() {
  contents_.clear();
  json::View list = rawData()["contents"];
  for (json::View content : list.elements()) {
    if (!content.isObject()) {
      RunLog::write("*** Note parse error");
      continue;
    }
    std::int64_t type = content["type"].integer();
    if (type == 1 || type == 3) {
      std::string_view text = content[type == 1 ? "content_data" : "table_summary"].string();
      if (!text.empty()) contents_.emplace_back(std::string(text));
      continue;
    }
    auto attachment = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(rawData().sub(content));
    json::View mediaItems = content["media_items"];
    if (type == 2) {
      findExisting(mediaItems, {kPicturePairs[0], kPicturePairs[1], kPicturePairs[2]}, *attachment);
    } else if (type == 4) {
      attachment->setThumbPath(firstExistingThumb(mediaItems));
      findExisting(mediaItems, {kVideoPair}, *attachment);
    } else {
      findExisting(mediaItems, {kPicturePairs[0], kPicturePairs[1], kPicturePairs[2], kVideoPair},
                   *attachment);
    }
    attachment->setName(content["content_data"].stringCopy());
    attachment->setType(kindOfBodyType(type));
    contents_.emplace_back(std::move(attachment));
  }
}

void IOSNoteItem::parseThirdNoteAttachments() {
  contents_.clear();
  // The account keeps the body as HTML; the body shows its text.
  std::string_view html = rawData()["text"].string();
  if (!html.empty()) {
    std::string text = htmlText(html);
    contents_.emplace_back(text.empty() ? std::string(html) : std::move(text));
  }
  for (json::View media : rawData()["content"].elements()) {
    if (!media.isObject()) {
      RunLog::write("*** Note parse error");
      continue;
    }
    auto [path, name] = media.fields({"backup_media_path", "media_name"});
    if (!path.present()) continue;
    auto attachment = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(rawData().sub(media));
    attachment->setLocalPath(path.stringCopy());
    attachment->setName(name.stringCopy());
    contents_.emplace_back(std::move(attachment));
  }
}

void IOSNoteItem::replaceValueObj(const NoteContent& old, NoteContent withAtherObj) {
  for (NoteContent& entry : contents_) {
    if (!sameEntry(entry, old)) continue;
    entry = std::move(withAtherObj);
    return;
  }
  RunLog::write("Note item Not find attach:{}", describeEntry(old));
}

ItemList IOSNoteItem::contentAttachments() const {
  ItemList list;
  for (const NoteContent& entry : contents_) {
    if (const auto* attachment = std::get_if<std::shared_ptr<IOSAttachmentItem>>(&entry)) {
      if (*attachment) list.push_back(*attachment);
    }
  }
  return list;
}

void IOSNoteItem::initWithiCloudNoteDict(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  contents_.clear();
  auto [attachments, medias, uuid, modified, locked, text] =
      record.fields({"attachments", "medias", "uuid", "modified", "locked", "text"});
  attachmentUUIDs_.clear();
  for (json::View id : attachments.elements()) {
    if (id.isString()) attachmentUUIDs_.push_back(id.stringCopy());
  }
  mediaUUIDs_.clear();
  for (json::View id : medias.elements()) {
    if (id.isString()) mediaUUIDs_.push_back(id.stringCopy());
  }
  uuid_ = uuid.stringCopy();
  if (modified.isNumber()) {
    OptionalDate when = dateWithSecondsSince1970(modified.number() / 1000.0);
    std::string shown = when ? stringWithDateFormatter(*when, kDisplayDateFormat) : std::string();
    setDate(dateWithDateFormatter(shown, kDisplayDateFormat));
    setStrDate(std::move(shown));
  }
  isLock_ = locked.boolean();
  lockedInfo_.clear();
  if (isLock_) {
    for (std::string_view key : {"locked_ciphertext", "locked_hint", "locked_key", "locked_salt",
                                 "locked_tag", "locked_vector", "locked_iteration"}) {
      json::View value = record[key];
      if (value.present()) lockedInfo_.emplace(std::string(key), record.sub(value));
    }
    return;
  }
  splitiCloudText(text.string());
}

void IOSNoteItem::splitiCloudText(std::string_view text) {
  // The text is split as if framed by one character on each side, so that a mark at either end
  // still has a (then empty) piece beside it.
  std::vector<std::string_view> pieces;
  for (std::size_t start = 0;;) {
    std::size_t mark = text.find(kAttachmentMark, start);
    pieces.push_back(text.substr(start, mark == std::string_view::npos ? mark : mark - start));
    if (mark == std::string_view::npos) break;
    start = mark + kAttachmentMark.size();
  }
  std::size_t next = 0;
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    if (!pieces[i].empty()) contents_.emplace_back(std::string(pieces[i]));
    bool lastPiece = i + 1 == pieces.size();
    if (!lastPiece && next < attachmentUUIDs_.size()) {
      contents_.emplace_back(attachmentUUIDs_[next++]);
    }
  }
  // Identifiers without a place in the text still belong to the note.
  while (next < attachmentUUIDs_.size())
    contents_.emplace_back(attachmentUUIDs_[next++]);
}

std::shared_ptr<IOSAttachmentItem> IOSNoteItem::parseNoteAttachmentsWithiCloudDict(
    const json::Value& record, const std::string& andBackupPath) const {
  auto [size, parent, url, title, type, uuid] =
      record.fields({"size", "parent", "url", "title", "type", "uuid"});
  std::string_view kind = type.string();
  std::string extension;
  if (kind == "com.apple.drawing" || kind == "com.apple.notes.gallery") {
    extension = ".png";
  } else if (!kind.empty()) {
    extension = fmt::format(".{}", kind);
  }
  auto attachment = iCloudFile(record, uuid.string(), extension, andBackupPath);
  attachment->setSize(size.present() ? size.integerFromText() : -1);
  attachment->setParentUUID(parent.stringCopy());
  attachment->setUrl(url.stringCopy());
  std::string name = title.stringCopy();
  attachment->setName(name.empty() ? personal::downloadedFileName(uuid.string(), extension)
                                   : std::move(name));
  return attachment;
}

std::shared_ptr<IOSAttachmentItem> IOSNoteItem::parseNoteMediaWithiCloudDict(
    const json::Value& record, const std::string& andBackupPath) const {
  auto [size, parent, url, uuid, name] = record.fields({"size", "parent", "url", "uuid", "name"});
  std::string extension = path::pathExtension(name.string());
  if (!extension.empty()) extension.insert(0, ".");
  auto attachment = iCloudFile(record, uuid.string(), extension, andBackupPath);
  attachment->setSize(size.present() ? size.integerFromText() : -1);
  attachment->setParentUUID(parent.stringCopy());
  attachment->setUrl(url.stringCopy());
  attachment->setName(name.stringCopy());
  return attachment;
}

void IOSNoteItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("title", title());
  visitor.field("date", date());
  visitor.field("strDate", strDate());
  visitor.field("account", account());
  visitor.field("richText", richText());
  visitor.field("contents", contents_);
  visitor.field("isThirdNotes", isThirdNotes_);
  visitor.field("uuid", uuid_);
  visitor.field("isLock", isLock_);
  LockedInfoFields locked(lockedInfo_);
  visitor.field("lockedInfo", static_cast<const Describable*>(&locked));
  visitor.field("attachmentUUIDs", attachmentUUIDs_);
  visitor.field("mediaUUIDs", mediaUUIDs_);
}

// --- IOSNoteParser ---

std::shared_ptr<IOSNoteParser> IOSNoteParser::parserWithJSONData(JSONData data, bool parseDeleted,
                                                                 bool deviceBackup) {
  auto parser = makeWithJSONData<IOSNoteParser>(data, parseDeleted, deviceBackup);
  const json::Value& record = parser->rawData();
  if (record.isObject()) parser->addNotes(record.sub(record["iCloud_notes"]));
  return parser;
}

void IOSNoteParser::addNotes(const json::Value& root) {
  if (!root.isObject()) return;
  // (local path, device path) of every file collected so far.
  std::unordered_set<std::string> collected;
  auto collect = [&](const json::Value& record, std::string local, std::string device,
                     std::uint64_t kind) -> std::shared_ptr<IOSAttachmentItem> {
    if (!deviceBackup() && !backupFileExists(local)) return nullptr;
    collected.insert(local + '\0' + device);
    auto attachment = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(record);
    attachment->setLocalPath(std::move(local));
    attachment->setDevicePath(std::move(device));
    attachment->setType(kind);
    attachments().push_back(attachment);
    return attachment;
  };
  auto collectPair = [&](json::View media, const PathPair& pair, std::uint64_t kind) {
    json::View backup = media[pair.backup];
    json::View device = media[pair.device];
    if (!backup.present() || !device.present()) return;
    collect(root.sub(media), backup.stringCopy(), device.stringCopy(), kind);
  };

  for (json::View element : root["notes"].elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    auto note = IOSBaseItem::itemWithDictionary<IOSNoteItem>(root.sub(element));
    if (parseDeleted() || !note->isDeleted()) items().push_back(note);
    // A deleted note's files are collected all the same.
    note->parseAttachments();
    for (json::View content : element["contents"].elements()) {
      if (!content.isObject()) continue;
      std::uint64_t kind = kindOfMediaType(content["type"].integer());
      for (json::View media : content["media_items"].elements()) {
        if (!media.isObject()) continue;
        for (const PathPair& pair : kPicturePairs)
          collectPair(media, pair, kind);
        collectPair(media, kVideoPair, kind);
        for (json::View thumb : media["video_thumbs"].elements())
          collectPair(thumb, kThumbPair, kind);
      }
    }
  }

  for (json::View media : root["notes_media"].elements()) {
    if (isStopParser()) return;
    if (!media.isObject()) continue;
    auto [type, backup, device] = media.fields({"media_type", "backup_media", "media_path"});
    std::string local = backup.stringCopy();
    std::string onPhone = device.stringCopy();
    if (collected.contains(local + '\0' + onPhone)) continue;
    std::uint64_t kind = kindOfMediaType(type.integer());
    if (auto attachment = collect(root.sub(media), std::move(local), std::move(onPhone), kind)) {
      attachment->setMediaType(kind);
    }
  }
}

void IOSNoteParser::addiCloudJSONData(JSONData data) {
  addJSONData(data);
  const json::Value& record = rawData();
  if (!record.isObject()) return;
  json::Value notes = record.sub(record["notes"]);
  for (json::View element : notes.elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    auto note = makeItem<IOSNoteItem>();
    note->initWithiCloudNoteDict(notes.sub(element));
    items().push_back(std::move(note));
  }
}

json::Value IOSNoteParser::iCloudList(JSONData data, std::string_view key) const {
  if (!data || data->empty()) return {};
  json::Value document = JSONWithData(data);
  if (!document.isObject()) return {};
  json::Value list = document.sub(document[key]);
  return list.isArray() && list.size() > 0 ? list : json::Value();
}

void IOSNoteParser::parseriCloudAttachmentsForItem(const NotePtr& note, JSONData data) {
  json::Value list = iCloudList(data, "attachments");
  NotePtr owner = note ? note : makeItem<IOSNoteItem>();
  for (json::View element : list.elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    json::Value entry = list.sub(element);
    auto attachment = owner->parseNoteAttachmentsWithiCloudDict(entry, backupPath());
    if (!owner->mediaUUIDs().empty()) {
      if (!mediaDictArr_) mediaDictArr_.emplace();
      mediaDictArr_->push_back(entry);
    }
    attachmentsArr_.push_back(std::move(attachment));
  }
}

void IOSNoteParser::parseriCloudMediasForItem(const NotePtr& note, JSONData data) {
  json::Value list = iCloudList(data, "medias");
  NotePtr owner = note ? note : makeItem<IOSNoteItem>();
  for (json::View element : list.elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    mediaArr_.push_back(owner->parseNoteMediaWithiCloudDict(list.sub(element), backupPath()));
  }
}

std::optional<std::string> IOSNoteParser::linkedAttachmentUUID(
    const IOSAttachmentItem& media) const {
  for (const json::Value& link : *mediaDictArr_) {
    if (link["MediaUUID"].string() == media.uuid()) return link["AttachmentUUID"].stringCopy();
  }
  return std::nullopt;
}

void IOSNoteParser::matchAttachments() {
  for (const ItemPtr& item : items()) {
    if (isStopParser()) return;
    auto note = std::dynamic_pointer_cast<IOSNoteItem>(item);
    if (!note || note->contents().empty()) continue;
    const NoteContents pieces = note->contents();
    for (const NoteContent& piece : pieces) {
      const auto* id = std::get_if<std::string>(&piece);
      if (id == nullptr) continue;
      auto byUuid = std::find_if(attachmentsArr_.begin(), attachmentsArr_.end(),
                                 [&](const auto& attachment) { return attachment->uuid() == *id; });
      if (byUuid != attachmentsArr_.end()) {
        note->replaceValueObj(piece, *byUuid);
        continue;
      }
      if (mediaArr_.empty() || !mediaDictArr_) continue;
      for (const auto& media : mediaArr_) {
        if (linkedAttachmentUUID(*media) != *id) continue;
        note->replaceValueObj(piece, media);
        break;
      }
    }
  }
}

ItemList IOSNoteParser::allAttachmentsAndMedias() const {
  ItemList all(attachmentsArr_.begin(), attachmentsArr_.end());
  all.insert(all.end(), mediaArr_.begin(), mediaArr_.end());
  return all;
}

// --- IOSOtherAccountNoteParser ---

std::shared_ptr<IOSOtherAccountNoteParser> IOSOtherAccountNoteParser::parserWithJSONData(
    JSONData data, bool parseDeleted, bool deviceBackup) {
  auto parser = makeWithJSONData<IOSOtherAccountNoteParser>(data, parseDeleted, deviceBackup);
  const json::Value& record = parser->rawData();
  json::Value notes = record.sub(record["Other_note"]);
  for (json::View element : notes.elements()) {
    if (parser->isStopParser()) break;
    if (!element.isObject()) continue;
    auto note = IOSBaseItem::itemWithDictionary<IOSNoteItem>(notes.sub(element));
    if (!parseDeleted && note->isDeleted()) continue;
    note->setAccount(element["account"].stringCopy());
    note->setIsThirdNotes(true);
    parser->items().push_back(note);
    note->parseAttachments();
    // The body's attachments are the parser's files, when they are there.
    for (const ItemPtr& item : note->contentAttachments()) {
      const auto& attachment = static_cast<const IOSAttachmentItem&>(*item);
      if (deviceBackup || backupFileExists(attachment.localPath())) {
        parser->attachments().push_back(item);
      }
    }
  }
  return parser;
}

}  // namespace dataparser
