// Notes: IOSNoteParser turns the notes app's export ("iCloud_notes": "notes" and "notes_media")
// into IOSNoteItem notes, and IOSOtherAccountNoteParser the notes kept in other accounts
// ("Other_note"), marked `isThirdNotes`. Both collect every attachment file they find into their
// `attachments`. The same item is built from a downloaded iCloud note by
// `initWithiCloudNoteDict`.
//
// A note's body, `contents`, is the ordered list of its pieces: a text piece (std::string) or an
// attachment (IOSAttachmentItem).
//   notes app      "contents" objects by "type": 1 text ("content_data"), 3 table (its
//                  "table_summary" text), anything else an attachment (2 photo, 4 video,
//                  5 audio, 6 document) whose files come from its "media_items";
//   other account  the HTML "text" as plain text, then one attachment per "content" object;
//   iCloud         "text" split at each U+FFFC, with the attachment identifiers in those places
//                  (replaced by attachment items later with `replaceValueObj`).
// Other fields, read on first use and kept (setters win): title ("title", else the first line
// of the first text piece or the attachment's summary key, without line breaks), date
// ("datetime", an engine date text) and strDate ("yyyy/MM/dd HH:mm:ss"), account ("account"),
// richText ("text", the body as HTML, kept as it is).
//
// A locked iCloud note keeps no body; `lockedInfo` carries the values needed to unlock it later
// (this library does not decrypt).
//
// Ownership: items and attachments are shared. Thread safety: built on one thread, then read
// from one thread at a time; stopParser() may be called from any thread.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "dataparser/model/attachment.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/util/date.h"

namespace dataparser {

// One piece of a note's body.
using NoteContent = std::variant<std::string, std::shared_ptr<IOSAttachmentItem>>;
using NoteContents = std::vector<NoteContent>;
// The lock data of a locked note, under the record's own key names.
using NoteLockedInfo = std::map<std::string, json::Value>;

class IOSNoteItem : public IOSBaseItem {
 public:
  // Keeps the record; `contents` starts empty.
  void initWithDictionary(const json::Value& record) override;

  // Fills `contents` from the record: the other-account rules when `isThirdNotes`, else the
  // notes app's. Elements of "contents" that are not objects are logged ("*** Note parse
  // error") and skipped.
  void parseAttachments();
  void parseNoteAttachments();
  void parseThirdNoteAttachments();

  // Replaces `contents` by a copy of `list`.
  void resetContentWithArr(const NoteContents& list) { contents_ = list; }
  // Replaces the first entry equal to `old` (texts by value, attachments by identity) with
  // `withAtherObj`; logs "Note item Not find attach:{old}" when there is none.
  void replaceValueObj(const NoteContent& old, NoteContent withAtherObj);

  // --- iCloud ---
  // Identifier, title, modification time ("modified", milliseconds since 1970), attachment
  // identifiers ("attachments") and media identifiers ("medias"); then either the lock data
  // ("locked") or the body split at the attachments' places.
  void initWithiCloudNoteDict(const json::Value& record);
  // One attachment record of an iCloud note. Drawings and galleries are saved as ".png", other
  // files with "." and their "type"; the file is "{md5(uuid)}{extension}" under `andBackupPath`
  // and becomes localPath once it is there.
  std::shared_ptr<IOSAttachmentItem> parseNoteAttachmentsWithiCloudDict(
      const json::Value& record, const std::string& andBackupPath) const;
  // One media record ("size", "parent", "url", "uuid", "name"), named like an attachment with
  // the extension of its name.
  std::shared_ptr<IOSAttachmentItem> parseNoteMediaWithiCloudDict(
      const json::Value& record, const std::string& andBackupPath) const;

  const std::string& title() const;
  void setTitle(std::string value) { title_ = std::move(value); }
  const OptionalDate& date() const;
  void setDate(OptionalDate value) { date_ = value; }
  const std::string& strDate() const;
  void setStrDate(std::string value) { strDate_ = std::move(value); }
  const std::string& account() const;
  void setAccount(std::string value) { account_ = std::move(value); }
  const std::string& richText() const;
  void setRichText(std::string value) { richText_ = std::move(value); }
  const NoteContents& contents() const { return contents_; }
  void setContents(NoteContents value) { contents_ = std::move(value); }
  bool isThirdNotes() const { return isThirdNotes_; }
  void setIsThirdNotes(bool value) { isThirdNotes_ = value; }
  const std::string& uuid() const { return uuid_; }
  void setUuid(std::string value) { uuid_ = std::move(value); }
  bool isLock() const { return isLock_; }
  void setIsLock(bool value) { isLock_ = value; }
  const NoteLockedInfo& lockedInfo() const { return lockedInfo_; }
  void setLockedInfo(NoteLockedInfo value) { lockedInfo_ = std::move(value); }
  const std::vector<std::string>& attachmentUUIDs() const { return attachmentUUIDs_; }
  void setAttachmentUUIDs(std::vector<std::string> value) { attachmentUUIDs_ = std::move(value); }
  const std::vector<std::string>& mediaUUIDs() const { return mediaUUIDs_; }
  void setMediaUUIDs(std::vector<std::string> value) { mediaUUIDs_ = std::move(value); }

  // The attachments of `contents`, in body order.
  ItemList contentAttachments() const;

  std::string_view className() const override { return "IOSNoteItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  void splitiCloudText(std::string_view text);

  mutable std::optional<std::string> title_, strDate_, account_, richText_;
  mutable std::optional<OptionalDate> date_;
  NoteContents contents_;
  std::string uuid_;
  NoteLockedInfo lockedInfo_;
  std::vector<std::string> attachmentUUIDs_;
  std::vector<std::string> mediaUUIDs_;
  bool isThirdNotes_ = false;
  bool isLock_ = false;
};

using NotePtr = std::shared_ptr<IOSNoteItem>;

class IOSNoteParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  // Notes that are deleted are left out unless `parseDeleted`, but their files are collected
  // all the same. A file is collected when it exists, or always on a device backup.
  static std::shared_ptr<IOSNoteParser> parserWithJSONData(JSONData data, bool parseDeleted,
                                                           bool deviceBackup);

  // --- iCloud: note bodies first, then each note's attachments and media, then the join ---
  // A notes file: an object whose "notes" list holds the notes (initWithiCloudNoteDict).
  void addiCloudJSONData(JSONData data);
  // The "attachments" of one note (or of none: a scratch note names the files), kept in
  // `attachmentsArr`; while the note has media, the records that link a "MediaUUID" to an
  // "AttachmentUUID" are kept in `mediaDictArr`.
  void parseriCloudAttachmentsForItem(const NotePtr& note, JSONData data);
  // The "medias" of one note, kept in `mediaArr`.
  void parseriCloudMediasForItem(const NotePtr& note, JSONData data);
  // Puts the kept attachments and media in the places of their identifiers in every note's
  // body: an attachment by its uuid, else a medium whose linked "AttachmentUUID" is the piece.
  void matchAttachments();
  // `attachmentsArr` followed by `mediaArr`.
  ItemList allAttachmentsAndMedias() const;

  const std::vector<std::shared_ptr<IOSAttachmentItem>>& attachmentsArr() const {
    return attachmentsArr_;
  }
  const std::vector<std::shared_ptr<IOSAttachmentItem>>& mediaArr() const { return mediaArr_; }
  const std::optional<std::vector<json::Value>>& mediaDictArr() const { return mediaDictArr_; }

  std::string_view className() const override { return "IOSNoteParser"; }

 private:
  void addNotes(const json::Value& root);
  // The elements under `key` of a decoded record, when it is a non-empty list.
  json::Value iCloudList(JSONData data, std::string_view key) const;
  std::optional<std::string> linkedAttachmentUUID(const IOSAttachmentItem& media) const;

  std::vector<std::shared_ptr<IOSAttachmentItem>> attachmentsArr_;
  std::vector<std::shared_ptr<IOSAttachmentItem>> mediaArr_;
  std::optional<std::vector<json::Value>> mediaDictArr_;
};

class IOSOtherAccountNoteParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  static std::shared_ptr<IOSOtherAccountNoteParser> parserWithJSONData(JSONData data,
                                                                       bool parseDeleted,
                                                                       bool deviceBackup);

  std::string_view className() const override { return "IOSOtherAccountNoteParser"; }
};

}  // namespace dataparser
