#include "dataparser/core/dispatch.h"

#include <algorithm>
#include <unordered_set>
#include <utility>
#include <vector>

#include "dataparser/parsers/media/app_file.h"
#include "dataparser/parsers/media/other_attachment.h"
#include "dataparser/parsers/media/photo.h"
#include "dataparser/parsers/messaging/kik.h"
#include "dataparser/parsers/messaging/line.h"
#include "dataparser/parsers/messaging/sms.h"
#include "dataparser/parsers/messaging/viber.h"
#include "dataparser/parsers/messaging/wechat.h"
#include "dataparser/parsers/messaging/whatsapp.h"
#include "dataparser/parsers/personal/book.h"
#include "dataparser/parsers/personal/calendar.h"
#include "dataparser/parsers/personal/call_history.h"
#include "dataparser/parsers/personal/contacts.h"
#include "dataparser/parsers/personal/note.h"
#include "dataparser/parsers/personal/reminder.h"
#include "dataparser/parsers/personal/safari.h"
#include "dataparser/parsers/personal/voice_mail.h"
#include "dataparser/parsers/personal/voice_memo.h"

namespace dataparser {
namespace {

using enum FactoryArity;
using L = AttachmentListName;
using S = ParserSlot;

// A row or slot whose parser class is still to come.
const ParserFactory kNotYetBuilt;
const ParserMaker kNoClassYet;

DispatchRow made(IOSDataType type, FactoryArity arity, ParserFactory factory,
                 IOSDataType extraReport = 0, AttachmentListName attachments = L::kNone) {
  DispatchRow row;
  row.type = type;
  row.kind = RowKind::kMade;
  row.arity = arity;
  row.factory = std::move(factory);
  row.extraReport = extraReport;
  row.attachments = attachments;
  return row;
}

DispatchRow fed(IOSDataType type, ParserSlot slot, bool feedsDeviceBackup,
                IOSDataType extraReport = 0, AttachmentListName attachments = L::kNone) {
  DispatchRow row;
  row.type = type;
  row.kind = RowKind::kFed;
  row.slot = slot;
  row.feedsDeviceBackup = feedsDeviceBackup;
  row.extraReport = extraReport;
  row.attachments = attachments;
  return row;
}

DispatchRow media(IOSDataType type, AttachmentListName list, IOSDataType reportCode) {
  DispatchRow row;
  row.type = type;
  row.kind = RowKind::kMedia;
  row.slot = S::kOtherAttachment;
  row.feedsDeviceBackup = true;
  row.extraReport = reportCode;
  row.attachments = list;
  return row;
}

std::vector<DispatchRow> standardRows() {
  return {
      media(IOSDataTypeWeChatMedia, L::kWechat, kResultWeChatAttachments),
      media(IOSDataTypeViberMedia, L::kViber, kResultViberAttachments),
      media(IOSDataTypeLineMedia, L::kLine, kResultLineAttachments),
      media(IOSDataTypeKikOtherMedia, L::kKik, kResultKikAttachments),
      media(IOSDataTypeWhatsAppMedia, L::kWhatsapp, kResultWhatsAppAttachments),
      media(IOSDataTypeNoteMedia, L::kNote, kResultNoteAttachments),
      made(IOSDataTypeOtherNote, kThree, factory3<IOSOtherAccountNoteParser>(),
           kResultNoteAttachments),
      fed(IOSDataTypeKikMedia, S::kKikThumb, true),
      made(IOSDataTypePhoto, kTwo, factory2<IOSPhotoParser>(), kResultPhotoVideos),
      fed(IOSDataTypeAppPhoto, S::kAppPhoto, false),
      fed(IOSDataTypeAppAudio, S::kAppAudio, false),
      fed(IOSDataTypeAppVideo, S::kAppVideo, false),
      fed(IOSDataTypeAppDocument, S::kAppDocument, false),
      made(IOSDataTypeBook, kTwo, factory2<IOSBookParser>()),
      fed(IOSDataTypeVoiceMemo, S::kVoiceMemo, false),
      made(IOSDataTypeVoiceMail, kTwo, factory2<IOSVoiceMailParser>()),
      made(IOSDataTypeContact, kTwo, factory2<IOSContactParser>()),
      made(IOSDataTypeSafari, kTwo, factory2<IOSSafariParser>()),
      made(IOSDataTypeSafariHistory, kTwo, factory2<IOSSafariHistoryParser>()),
      // The FaceTime calls are reported a second time under their own code.
      made(IOSDataTypeCallHistory, kTwo, factory2<IOSCallHistoryParser>(), kResultCallHistory),
      made(IOSDataTypeCalendar, kTwo, factory2<IOSCalendarParser>(), kResultCalendarAttachments),
      fed(IOSDataTypeReminder, S::kReminder, false, kResultReminderAttachments),
      made(IOSDataTypeNote, kThree, factory3<IOSNoteParser>(), kResultNoteAttachments, L::kNote),
      made(IOSDataTypeSMS, kThree, factory3<IOSSMSParser>(), kResultSMSAttachments),
      made(IOSDataTypeWhatsApp, kThree, factory3<IOSWhatsappParser>(), kResultWhatsAppAttachments,
           L::kWhatsapp),
      fed(IOSDataTypeKik, S::kKik, true, kResultKikAttachments, L::kKik),
      fed(IOSDataTypeLine, S::kLine, true, kResultLineAttachments, L::kLine),
      // Viber reports attachments and calls both
      made(IOSDataTypeViber, kThree, factory3<IOSViberParser>(),
           kResultViberAttachments | kResultViberCalls, L::kViber),
      fed(IOSDataTypeWeChat, S::kWeChat, true, kResultWeChatAttachments, L::kWechat),
      // WhatsApp and WhatsApp Business share `whatsappAttachments`
      made(IOSDataTypeWhatsAppBusiness, kThree, factory3<IOSWhatsappParser>(),
           kResultWhatsAppBusinessAttachments, L::kWhatsapp),
  };
}

// The long-lived parser classes, made with their plain constructors at the start of a scan.
std::array<ParserMaker, kParserSlotCount> standardSlotMakers() {
  std::array<ParserMaker, kParserSlotCount> makers;
  makers[static_cast<std::size_t>(S::kAppPhoto)] = plainConstructor<IOSAppFileParser>();
  makers[static_cast<std::size_t>(S::kAppVideo)] = plainConstructor<IOSAppFileParser>();
  makers[static_cast<std::size_t>(S::kAppAudio)] = plainConstructor<IOSAppFileParser>();
  makers[static_cast<std::size_t>(S::kAppDocument)] = plainConstructor<IOSAppFileParser>();
  makers[static_cast<std::size_t>(S::kKikThumb)] = plainConstructor<IOSKikThumbParser>();
  makers[static_cast<std::size_t>(S::kOtherAttachment)] =
      plainConstructor<IOSOtherAttachmentParser>();
  makers[static_cast<std::size_t>(S::kWeChat)] = plainConstructor<IOSWeChatParser>();
  makers[static_cast<std::size_t>(S::kLine)] = plainConstructor<IOSLineParser>();
  makers[static_cast<std::size_t>(S::kKik)] = plainConstructor<IOSKikParser>();
  makers[static_cast<std::size_t>(S::kVoiceMemo)] = plainConstructor<IOSVoiceMemoParser>();
  makers[static_cast<std::size_t>(S::kReminder)] = plainConstructor<IOSReminderParser>();
  return makers;
}

}  // namespace

ItemList* attachmentList(IOSOtherAttachmentLists& lists, AttachmentListName name) {
  switch (name) {
    case L::kNone:
      return nullptr;
    case L::kWhatsapp:
      return &lists.whatsappAttachments();
    case L::kKik:
      return &lists.kikAttachments();
    case L::kLine:
      return &lists.lineAttachments();
    case L::kViber:
      return &lists.viberAttachments();
    case L::kWechat:
      return &lists.wechatAttachments();
    case L::kNote:
      return &lists.noteAttachments();
  }
  return nullptr;
}

ItemList mergeAttachments(const ItemList& first, const ItemList& second) {
  ItemList merged;
  merged.reserve(first.size() + second.size());
  // Usually no item is in both lists, nor twice in one: sorted addresses tell so without a set.
  std::vector<const IOSBaseItem*> addresses;
  addresses.reserve(first.size() + second.size());
  for (const ItemList* list : {&first, &second}) {
    for (const ItemPtr& item : *list)
      addresses.push_back(item.get());
  }
  std::sort(addresses.begin(), addresses.end());
  if (std::adjacent_find(addresses.begin(), addresses.end()) == addresses.end()) {
    merged.insert(merged.end(), first.begin(), first.end());
    merged.insert(merged.end(), second.begin(), second.end());
    return merged;
  }
  std::unordered_set<const IOSBaseItem*> seen;
  seen.reserve(addresses.size());
  for (const ItemList* list : {&first, &second}) {
    for (const ItemPtr& item : *list) {
      if (seen.insert(item.get()).second) merged.push_back(item);
    }
  }
  return merged;
}

DispatchTable DispatchTable::standard() {
  DispatchTable table;
  table.rows_ = standardRows();
  table.slotMakers_ = standardSlotMakers();
  return table;
}

const DispatchRow* DispatchTable::row(IOSDataType type) const {
  auto it = std::find_if(rows_.begin(), rows_.end(),
                         [type](const DispatchRow& row) { return row.type == type; });
  return it == rows_.end() ? nullptr : &*it;
}

const ParserMaker& DispatchTable::slotMaker(ParserSlot slot) const {
  return slotMakers_[static_cast<std::size_t>(slot)];
}

bool DispatchTable::setFactory(IOSDataType type, ParserFactory factory) {
  auto it = std::find_if(rows_.begin(), rows_.end(), [type](const DispatchRow& row) {
    return row.type == type && row.kind == RowKind::kMade;
  });
  if (it == rows_.end()) return false;
  it->factory = std::move(factory);
  return true;
}

void DispatchTable::setSlotMaker(ParserSlot slot, ParserMaker maker) {
  slotMakers_[static_cast<std::size_t>(slot)] = std::move(maker);
}

}  // namespace dataparser
