#include "dataparser/core/data_type.h"

#include <algorithm>
#include <array>

namespace dataparser {
namespace {

using enum CallbackOutcome;

constexpr std::array kRoutes = {
    CallbackRoute{48, "data/kik-db-data.json", "wb", IOSDataTypeKik, kData},
    CallbackRoute{49, "data/kik-media-db-data.json", "ab", IOSDataTypeKikMedia, kData},
    CallbackRoute{50, "data/viber-db-data.json", "wb", IOSDataTypeViber, kData},
    CallbackRoute{51, "data/callhis-db-data.json", "wb", IOSDataTypeCallHistory, kData},
    CallbackRoute{52, "data/safari-db-data.json", "wb", IOSDataTypeSafari, kData},
    CallbackRoute{53, "data/line-db-data.json", "ab", IOSDataTypeLine, kData},
    CallbackRoute{54, "", "wb", 0, kDiscard},
    CallbackRoute{55, "data/contact-db-data.json", "wb", IOSDataTypeContact, kData},
    CallbackRoute{56, "data/sms-db-data.json", "wb", IOSDataTypeSMS, kData},
    CallbackRoute{57, "data/note-db-data.json", "ab", IOSDataTypeNote, kData},
    CallbackRoute{58, "data/calendar-db-data.json", "wb", IOSDataTypeCalendar, kData},
    CallbackRoute{59, "data/reminder-db-data.json", "ab", IOSDataTypeReminder, kData},
    CallbackRoute{60, "data/safari-his-db-data.json", "wb", IOSDataTypeSafariHistory, kData},
    CallbackRoute{61, "data/whatsapp-db-data.json", "wb", IOSDataTypeWhatsApp, kData},
    CallbackRoute{62, "data/wechat-db-data.json", "ab", IOSDataTypeWeChat, kData},
    CallbackRoute{63, "data/voice-mail-db-data.json", "wb", IOSDataTypeVoiceMail, kData},
    CallbackRoute{64, "data/voice-memo-db-data.json", "ab", IOSDataTypeVoiceMemo, kData},
    CallbackRoute{65, "data/iBook-data.json", "ab", IOSDataTypeBook, kData},
    CallbackRoute{66, "data/photo-media-data.json", "ab", IOSDataTypePhoto, kData},
    CallbackRoute{67, "", "wb", 0, kDiscard},
    CallbackRoute{68, "data/app-audio-media-data.json", "ab", IOSDataTypeAppAudio, kData},
    CallbackRoute{69, "data/app-document-media-data.json", "ab", IOSDataTypeAppDocument, kData},
    CallbackRoute{70, "data/app-photo-media-data.json", "ab", IOSDataTypeAppPhoto, kData},
    CallbackRoute{71, "data/app-video-media-data.json", "ab", IOSDataTypeAppVideo, kData},
    CallbackRoute{72, "data/other-note-db-data.json", "wb", IOSDataTypeOtherNote, kData},
    CallbackRoute{73, "data/whatsapp-media-db-data.json", "ab", IOSDataTypeWhatsAppMedia, kData},
    CallbackRoute{74, "data/line-media-db-data.json", "ab", IOSDataTypeLineMedia, kData},
    CallbackRoute{75, "data/kik-other-media-db-data.json", "ab", IOSDataTypeKikOtherMedia, kData},
    CallbackRoute{76, "data/viber-media-db-data.json", "ab", IOSDataTypeViberMedia, kData},
    CallbackRoute{77, "data/wechat-media-db-data.json", "ab", IOSDataTypeWeChatMedia, kData},
    CallbackRoute{78, "", "wb", 0, kDiscard},
    CallbackRoute{79, "data/note-media-db-data.json", "ab", IOSDataTypeNoteMedia, kData},
    CallbackRoute{80, "", "wb", 0, kDiscard},
    CallbackRoute{81, "data/whatsappbusiness-db-data.json", "wb", IOSDataTypeWhatsAppBusiness,
                  kData},
    CallbackRoute{82, "", "wb", 0, kDiscard},
    CallbackRoute{83, "", "wb", 0, kDiscard},
    CallbackRoute{84, "data/error-data.json", "wb", 0, kScanFailed},
    CallbackRoute{85, "", "wb", 0, kDiscard},
    CallbackRoute{86, "", "wb", 0, kDiscard},
    CallbackRoute{87, "", "wb", 0, kDiscard},
    CallbackRoute{88, "", "wb", 0, kDiscard},
    CallbackRoute{89, "", "", 0, kReleaseEngine},
    CallbackRoute{90, "", "wb", 0, kScanBegan},
    CallbackRoute{91, "data/progress-data.json", "wb", 0, kProgress},
    CallbackRoute{92, "", "wb", 0, kScanFinished},
};

static_assert(kRoutes.front().code == 48 && kRoutes.back().code == 92 &&
                  kRoutes.size() == 92 - 48 + 1,
              "one route per code from 48 to 92, in order");

struct Name {
  IOSDataType type;
  std::string_view name;
};

// Display names, one style for every data type and result code: the app or kind, capitalised.
constexpr std::array kNames = {
    Name{IOSDataTypePhoto, "Photos"},
    Name{IOSDataTypeAppPhoto, "App photos"},
    Name{IOSDataTypeAppAudio, "App audio"},
    Name{IOSDataTypeAppVideo, "App videos"},
    Name{IOSDataTypeAppDocument, "App documents"},
    Name{IOSDataTypeBook, "Books"},
    Name{IOSDataTypeVoiceMemo, "Voice memos"},
    Name{IOSDataTypeVoiceMail, "Voicemail"},
    Name{IOSDataTypeContact, "Contacts"},
    Name{IOSDataTypeCallHistory, "Call history"},
    Name{IOSDataTypeSafari, "Safari bookmarks"},
    Name{IOSDataTypeSafariHistory, "Safari history"},
    Name{IOSDataTypeCalendar, "Calendar events"},
    Name{IOSDataTypeReminder, "Reminders"},
    Name{IOSDataTypeNote, "Notes"},
    Name{IOSDataTypeSMS, "SMS"},
    Name{IOSDataTypeWhatsApp, "WhatsApp"},
    Name{IOSDataTypeKik, "Kik"},
    Name{IOSDataTypeLine, "LINE"},
    Name{IOSDataTypeViber, "Viber"},
    Name{IOSDataTypeWeChat, "WeChat"},
    Name{IOSDataTypeWhatsAppBusiness, "WhatsApp Business"},
    Name{IOSDataTypeKikMedia, "Kik media"},
    Name{IOSDataTypeOtherNote, "Other notes"},
    Name{IOSDataTypeNoteMedia, "Note media"},
    Name{IOSDataTypeWhatsAppMedia, "WhatsApp media"},
    Name{IOSDataTypeKikOtherMedia, "Kik other media"},
    Name{IOSDataTypeLineMedia, "LINE media"},
    Name{IOSDataTypeViberMedia, "Viber media"},
    Name{IOSDataTypeWeChatMedia, "WeChat media"},
    Name{kAndroidWhatsApp, "Android WhatsApp"},
    Name{kAndroidWhatsAppBusiness, "Android WhatsApp Business"},
    Name{kResultPhotoVideos, "Photo library videos"},
    Name{kResultCallHistory, "Calls"},
    Name{kResultNoteAttachments, "Note attachments"},
    Name{kResultSMSAttachments, "SMS attachments"},
    Name{kResultWhatsAppAttachments, "WhatsApp attachments"},
    Name{kResultKikAttachments, "Kik attachments"},
    Name{kResultLineAttachments, "LINE attachments"},
    Name{kResultViberCalls, "Viber calls"},
    Name{kResultViberAttachments, "Viber attachments"},
    Name{kResultWeChatAttachments, "WeChat attachments"},
    Name{kResultCalendarAttachments, "Calendar attachments"},
    Name{kResultReminderAttachments, "Reminder attachments"},
    Name{kResultWhatsAppBusinessAttachments, "WhatsApp Business attachments"},
    Name{kResultAndroidWhatsAppAttachments, "Android WhatsApp attachments"},
    Name{kResultAndroidWhatsAppBusinessAttachments, "Android WhatsApp Business attachments"},
    Name{kResultWeChatSecondReport, "WeChat (second report)"},
};

}  // namespace

ScanType ScanTypeForIOSDataType(IOSDataType type) {
  struct Rule {
    IOSDataType bit;
    ScanType scan;
  };
  static constexpr std::array kRules = {
      Rule{IOSDataTypeWhatsApp, 3}, Rule{IOSDataTypeWhatsAppBusiness, 24},
      Rule{IOSDataTypeKik, 4},      Rule{IOSDataTypeLine, 2},
      Rule{IOSDataTypeViber, 5},    Rule{IOSDataTypeWeChat, 1},
  };
  for (const Rule& rule : kRules) {
    if (type & rule.bit) return rule.scan;
  }
  return 0;
}

CallbackRoute callbackRouteForCode(CallbackTypeExtend code) {
  if (code >= kRoutes.front().code && code <= kRoutes.back().code) {
    return kRoutes[static_cast<std::size_t>(code - kRoutes.front().code)];
  }
  return CallbackRoute{code, "", "wb", 0, kDiscard};
}

std::span<const CallbackRoute> callbackRoutes() {
  return kRoutes;
}

namespace {

const Name* nameOf(IOSDataType type) {
  auto it = std::find_if(kNames.begin(), kNames.end(),
                         [type](const Name& name) { return name.type == type; });
  return it == kNames.end() ? nullptr : &*it;
}

}  // namespace

std::string_view IOSDataTypeName(IOSDataType type) {
  const Name* name = nameOf(type);
  return name ? name->name : std::string_view();
}

}  // namespace dataparser
