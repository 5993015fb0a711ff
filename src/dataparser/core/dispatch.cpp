#include "dataparser/core/dispatch.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "dataparser/parsers/messaging/sms.h"
#include "dataparser/parsers/messaging/wechat.h"

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
      // IOSOtherAccountNoteParser
      made(IOSDataTypeOtherNote, kThree, kNotYetBuilt, kResultNoteAttachments),
      fed(IOSDataTypeKikMedia, S::kKikThumb, true),
      // IOSPhotoParser
      made(IOSDataTypePhoto, kTwo, kNotYetBuilt, kResultPhotoVideos),
      fed(IOSDataTypeAppPhoto, S::kAppPhoto, false),
      fed(IOSDataTypeAppAudio, S::kAppAudio, false),
      fed(IOSDataTypeAppVideo, S::kAppVideo, false),
      fed(IOSDataTypeAppDocument, S::kAppDocument, false),
      // IOSBookParser
      made(IOSDataTypeBook, kTwo, kNotYetBuilt),
      fed(IOSDataTypeVoiceMemo, S::kVoiceMemo, false),
      // IOSVoiceMailParser, IOSContactParser, IOSSafariParser, IOSSafariHistoryParser
      made(IOSDataTypeVoiceMail, kTwo, kNotYetBuilt),
      made(IOSDataTypeContact, kTwo, kNotYetBuilt),
      made(IOSDataTypeSafari, kTwo, kNotYetBuilt),
      made(IOSDataTypeSafariHistory, kTwo, kNotYetBuilt),
      // IOSCallHistoryParser
      made(IOSDataTypeCallHistory, kTwo, kNotYetBuilt, kResultCallHistory),
      // IOSCalendarParser
      made(IOSDataTypeCalendar, kTwo, kNotYetBuilt, kResultCalendarAttachments),
      fed(IOSDataTypeReminder, S::kReminder, false, kResultReminderAttachments),
      // IOSNoteParser
      made(IOSDataTypeNote, kThree, kNotYetBuilt, kResultNoteAttachments, L::kNote),
      made(IOSDataTypeSMS, kThree, factory3<IOSSMSParser>(), kResultSMSAttachments),
      // IOSWhatsappParser
      made(IOSDataTypeWhatsApp, kThree, kNotYetBuilt, kResultWhatsAppAttachments, L::kWhatsapp),
      fed(IOSDataTypeKik, S::kKik, true, kResultKikAttachments, L::kKik),
      fed(IOSDataTypeLine, S::kLine, true, kResultLineAttachments, L::kLine),
      // IOSViberParser: attachments and calls both
      made(IOSDataTypeViber, kThree, kNotYetBuilt, kResultViberAttachments | kResultViberCalls,
           L::kViber),
      fed(IOSDataTypeWeChat, S::kWeChat, true, kResultWeChatAttachments, L::kWechat),
      // IOSWhatsappParser; WhatsApp and WhatsApp Business share `whatsappAttachments`
      made(IOSDataTypeWhatsAppBusiness, kThree, kNotYetBuilt, kResultWhatsAppBusinessAttachments,
           L::kWhatsapp),
  };
}

// The long-lived parser classes, made with their plain constructors at the start of a scan.
std::array<ParserMaker, kParserSlotCount> standardSlotMakers() {
  std::array<ParserMaker, kParserSlotCount> makers;
  makers[static_cast<std::size_t>(S::kAppPhoto)] = kNoClassYet;         // IOSAppFileParser
  makers[static_cast<std::size_t>(S::kAppVideo)] = kNoClassYet;         // IOSAppFileParser
  makers[static_cast<std::size_t>(S::kAppAudio)] = kNoClassYet;         // IOSAppFileParser
  makers[static_cast<std::size_t>(S::kAppDocument)] = kNoClassYet;      // IOSAppFileParser
  makers[static_cast<std::size_t>(S::kKikThumb)] = kNoClassYet;         // IOSKikThumbParser
  makers[static_cast<std::size_t>(S::kOtherAttachment)] = kNoClassYet;  // IOSOtherAttachmentParser
  makers[static_cast<std::size_t>(S::kWeChat)] = plainConstructor<IOSWeChatParser>();
  makers[static_cast<std::size_t>(S::kLine)] = kNoClassYet;       // IOSLineParser
  makers[static_cast<std::size_t>(S::kKik)] = kNoClassYet;        // IOSKikParser
  makers[static_cast<std::size_t>(S::kVoiceMemo)] = kNoClassYet;  // IOSVoiceMemoParser
  makers[static_cast<std::size_t>(S::kReminder)] = kNoClassYet;   // IOSReminderParser
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
  std::unordered_set<const IOSBaseItem*> seen;
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
