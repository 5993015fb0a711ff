// IOSOtherAttachmentLists: what the coordinator needs of the parser that collects the loose
// media files of the messaging applications and of notes, one list per source.
//
// The other-attachment parser (an IOSBaseParser) implements this next to its base. The
// coordinator sets `attachmentType` to the media data type (-8 .. -3) before feeding it a batch,
// reads the list of that source to report it, and merges each chat or note parser's attachments
// with the matching list, replacing the list by the merged result.
//
// Ownership: the lists hold shared items; one attachment may sit in several lists and parsers.
// Thread safety: none; the coordinator uses it only inside `analyzeData`, which is serialised.
#pragma once

#include <cstdint>

#include "dataparser/model/base_item.h"

namespace dataparser {

class IOSOtherAttachmentLists {
 public:
  virtual ~IOSOtherAttachmentLists() = default;

  virtual std::int64_t attachmentType() const = 0;
  virtual void setAttachmentType(std::int64_t type) = 0;

  // Every list exists, empty, from construction on. The references stay valid as long as the
  // parser lives; assigning to one replaces that list.
  virtual ItemList& whatsappAttachments() = 0;
  virtual ItemList& kikAttachments() = 0;
  virtual ItemList& lineAttachments() = 0;
  virtual ItemList& viberAttachments() = 0;
  virtual ItemList& wechatAttachments() = 0;
  virtual ItemList& noteAttachments() = 0;
};

}  // namespace dataparser
