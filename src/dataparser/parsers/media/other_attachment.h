// IOSOtherAttachmentParser: the loose media files of the chat applications and of notes, one
// list per source, without duplicates.
//
// The coordinator keeps one parser for a whole scan. Before each batch it sets `attachmentType`
// to the batch's media data type (-3 notes, -4 WhatsApp, -5 Kik, -6 LINE, -7 Viber, -8 WeChat);
// `addJSONData` then appends an IOSAttachmentItem for every entry of the batch's "media_file"
// list whose extracted file exists and whose phone path is not in that list yet. Any other
// `attachmentType` adds nothing. The lists start empty and only grow; the chat and note parsers
// later share these very items through the merge of the coordinator.
//
// Duplicates are found by the phone path alone ("same filePath:{path}" in the run log): two
// extracted copies of one phone file count as one attachment.
//
// Ownership: the lists hold shared items. Thread safety: built and fed on one thread;
// `stopParser` may be called from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "dataparser/model/base_parser.h"
#include "dataparser/model/other_attachment_lists.h"

namespace dataparser {

class IOSOtherAttachmentParser : public IOSBaseParser, public IOSOtherAttachmentLists {
 public:
  IOSOtherAttachmentParser() = default;

  std::string_view className() const override { return "IOSOtherAttachmentParser"; }

  // Base handling (the batch becomes rawData), then the new attachments of the batch go to the
  // list that `attachmentType` chooses.
  void addJSONData(JSONData data) override;

  // True when an attachment of `list` has the phone path `devicePath` (logged as
  // "same filePath:{devicePath}"). `localPath` takes no part in the test.
  static bool isExistLocalFile(std::string_view localPath, std::string_view devicePath,
                               const ItemList& list);

  std::int64_t attachmentType() const override { return attachmentType_; }
  void setAttachmentType(std::int64_t type) override { attachmentType_ = type; }

  ItemList& noteAttachments() override { return noteAttachments_; }
  ItemList& whatsappAttachments() override { return whatsappAttachments_; }
  ItemList& kikAttachments() override { return kikAttachments_; }
  ItemList& lineAttachments() override { return lineAttachments_; }
  ItemList& viberAttachments() override { return viberAttachments_; }
  ItemList& wechatAttachments() override { return wechatAttachments_; }
  void setNoteAttachments(ItemList list) { noteAttachments_ = std::move(list); }
  void setWhatsappAttachments(ItemList list) { whatsappAttachments_ = std::move(list); }
  void setKikAttachments(ItemList list) { kikAttachments_ = std::move(list); }
  void setLineAttachments(ItemList list) { lineAttachments_ = std::move(list); }
  void setViberAttachments(ItemList list) { viberAttachments_ = std::move(list); }
  void setWechatAttachments(ItemList list) { wechatAttachments_ = std::move(list); }

 private:
  // The list of the current `attachmentType`, or nullptr when it names none.
  ItemList* currentList();

  std::int64_t attachmentType_ = 0;
  ItemList noteAttachments_;
  ItemList whatsappAttachments_;
  ItemList kikAttachments_;
  ItemList lineAttachments_;
  ItemList viberAttachments_;
  ItemList wechatAttachments_;
};

}  // namespace dataparser
