// Data-type values, the engine's scan types, and the table that ties each engine callback code
// to a data type, a JSON file under the working root and an open mode.
//
// IOSDataType is a signed 64-bit value: one bit per data type, -1 to -8 for the media side
// streams of the chat and note exports, and further bits used only as result codes of the
// observer's reports. The callback table is plain data, looked up by code; the bridge and the
// coordinator both read it, nothing else keeps a copy.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace dataparser {

using IOSDataType = std::int64_t;
using ScanType = std::int32_t;
using CallbackTypeExtend = std::int32_t;

inline constexpr IOSDataType IOSDataTypePhoto = 0x2;
inline constexpr IOSDataType IOSDataTypeAppPhoto = 0x8;
inline constexpr IOSDataType IOSDataTypeAppAudio = 0x10;
inline constexpr IOSDataType IOSDataTypeAppVideo = 0x20;
inline constexpr IOSDataType IOSDataTypeAppDocument = 0x40;
inline constexpr IOSDataType IOSDataTypeBook = 0x80;
inline constexpr IOSDataType IOSDataTypeVoiceMemo = 0x100;
inline constexpr IOSDataType IOSDataTypeVoiceMail = 0x200;
inline constexpr IOSDataType IOSDataTypeContact = 0x400;
inline constexpr IOSDataType IOSDataTypeCallHistory = 0x800;
inline constexpr IOSDataType IOSDataTypeSafari = 0x2000;
inline constexpr IOSDataType IOSDataTypeSafariHistory = 0x4000;
inline constexpr IOSDataType IOSDataTypeCalendar = 0x8000;
inline constexpr IOSDataType IOSDataTypeReminder = 0x10000;
inline constexpr IOSDataType IOSDataTypeNote = 0x20000;
inline constexpr IOSDataType IOSDataTypeSMS = 0x80000;
inline constexpr IOSDataType IOSDataTypeWhatsApp = 0x200000;
inline constexpr IOSDataType IOSDataTypeKik = 0x800000;
inline constexpr IOSDataType IOSDataTypeLine = 0x2000000;
inline constexpr IOSDataType IOSDataTypeViber = 0x8000000;
inline constexpr IOSDataType IOSDataTypeWeChat = 0x40000000;
inline constexpr IOSDataType IOSDataTypeWhatsAppBusiness = 0x400000000;
inline constexpr IOSDataType IOSDataTypeKikMedia = -1;
inline constexpr IOSDataType IOSDataTypeOtherNote = -2;
inline constexpr IOSDataType IOSDataTypeNoteMedia = -3;
inline constexpr IOSDataType IOSDataTypeWhatsAppMedia = -4;
inline constexpr IOSDataType IOSDataTypeKikOtherMedia = -5;
inline constexpr IOSDataType IOSDataTypeLineMedia = -6;
inline constexpr IOSDataType IOSDataTypeViberMedia = -7;
inline constexpr IOSDataType IOSDataTypeWeChatMedia = -8;

// Data types of the Android path.
inline constexpr IOSDataType kAndroidWhatsApp = 0x1000000000;
inline constexpr IOSDataType kAndroidWhatsAppBusiness = 0x4000000000;

// Codes that only appear as result lists in the observer's reports.
inline constexpr IOSDataType kResultPhotoVideos = 0x4;
inline constexpr IOSDataType kResultCallHistory = 0x1000;
inline constexpr IOSDataType kResultNoteAttachments = 0x40000;
inline constexpr IOSDataType kResultSMSAttachments = 0x100000;
inline constexpr IOSDataType kResultWhatsAppAttachments = 0x400000;
inline constexpr IOSDataType kResultKikAttachments = 0x1000000;
inline constexpr IOSDataType kResultLineAttachments = 0x4000000;
inline constexpr IOSDataType kResultViberCalls = 0x10000000;
inline constexpr IOSDataType kResultViberAttachments = 0x20000000;
inline constexpr IOSDataType kResultWeChatAttachments = 0x80000000;
inline constexpr IOSDataType kResultCalendarAttachments = 0x100000000;
inline constexpr IOSDataType kResultReminderAttachments = 0x200000000;
inline constexpr IOSDataType kResultAndroidWhatsAppAttachments = 0x2000000000;
inline constexpr IOSDataType kResultWhatsAppBusinessAttachments = 0x800000000;
inline constexpr IOSDataType kResultAndroidWhatsAppBusinessAttachments = 0x8000000000;
inline constexpr IOSDataType kResultWeChatSecondReport = 0x10000000000;

// The engine's single-application scan code for a selection: WhatsApp, WhatsApp Business,
// Kik, LINE, Viber, WeChat, tested in that order (the first bit set wins); 0 for anything else.
ScanType ScanTypeForIOSDataType(IOSDataType type);

// What the callback bridge does with one callback code.
enum class CallbackOutcome : std::uint8_t {
  kDiscard,        // drop the text with a log line
  kData,           // hand the text to the data type's parser
  kScanFailed,     // code 84
  kReleaseEngine,  // code 89: release the engine one second later
  kScanBegan,      // code 90
  kProgress,       // code 91
  kScanFinished,   // code 92
};

struct CallbackRoute {
  CallbackTypeExtend code;
  std::string_view file;  // relative to the working root; "" for none
  std::string_view mode;  // "wb" rewrite per callback, "ab" append; "" for code 89
  IOSDataType type;       // 0 for none
  CallbackOutcome outcome;
};

// The route of a callback code; codes outside the table give the discard route of `code`.
CallbackRoute callbackRouteForCode(CallbackTypeExtend code);
// Every tabulated callback code, in code order.
std::span<const CallbackRoute> callbackRoutes();

// Names for display and logs, in one style for data types and result codes alike ("SMS",
// "SMS attachments", "Kik media"); "" for unknown values.
std::string_view IOSDataTypeName(IOSDataType type);

}  // namespace dataparser
