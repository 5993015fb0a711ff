// What the LINE, Kik and Viber parsers share: the test that decides whether a media file counts,
// attachments made from a record with their paths, the message records of a decoded message
// file, account aliases shown to the user, member lists, and conversation pictures that are
// loaded once.
//
// Thread safety: the functions keep no state. A LazyPicture belongs to one item and fills
// without locking, like every lazy field of an item.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>

#include "dataparser/model/attachment.h"
#include "dataparser/model/conversation.h"
#include "dataparser/model/message_files.h"
#include "dataparser/util/json.h"

namespace dataparser {

// A media file counts when a file exists at `path`; on a device backup every one counts, since
// the files are still arriving while the scan runs.
bool mediaFileCounts(const std::string& path, bool deviceBackup);

// The fields a parser sets on an attachment it makes from a record. Empty strings stay unset,
// so the attachment works its name out itself; -1 codes are the attachment's "unknown".
struct AttachmentFields {
  std::string localPath;
  std::string devicePath;
  std::string thumbPath;
  std::string name;
  std::int32_t flag = -1;
  std::int32_t mediaFlag = -1;
};

// An attachment built from `record` by the base factory (the record becomes its rawData).
AttachmentPtr attachmentFromRecord(const json::Value& record, AttachmentFields fields);

// Every element of the document's "messages" list that is an object, in file order; nothing
// when the document is not an object with such a list.
void forEachMessageRecord(const json::Value& document,
                          const std::function<void(const json::Value& record)>& visit);

// The 32-bit kind code of a record member (absent, null or not a number: 0; out of range:
// clamped).
std::int32_t kindCode(json::View value);

// Replaces the account's non-empty identifier by its alias and shows the alias: the user never
// sees the raw identifier, which stays in the account's rawData.
void showAccountAlias(IOSAccountItem& account, AccountAliases& aliases);

// One member per element of `records` that is an object, named by its `nameKey` (a value that
// is not a string names nobody: ""). With `skipUnnamed`, elements whose name is absent or null
// make no member. `finish`, when given, completes each member from its record.
MemberList namedMembers(json::View records, std::string_view nameKey, bool skipUnnamed,
                        const std::function<void(IOSMemberItem&, json::View record)>& finish = {});

// A picture read from the first candidate path that loads; tried once, so a missing or broken
// file costs one look however many messages ask for it.
class LazyPicture {
 public:
  const ImagePtr& load(std::initializer_list<std::string_view> candidates) const;
  void set(ImagePtr image) {
    image_ = std::move(image);
    tried_ = true;
  }

 private:
  mutable ImagePtr image_;
  mutable bool tried_ = false;
};

}  // namespace dataparser
