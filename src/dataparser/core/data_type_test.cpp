#include "dataparser/core/data_type.h"

#include <gtest/gtest.h>

#include <set>
#include <string_view>

namespace dataparser {
namespace {

TEST(DataTypeTest, ScanTypePrecedence) {
  struct Case {
    IOSDataType type;
    ScanType scan;
  };
  const IOSDataType kWhatsApp = IOSDataTypeWhatsApp, kWeChat = IOSDataTypeWeChat;
  // clang-format off
  const Case cases[] = {
      {kWhatsApp | kWeChat, 3}, {kWhatsApp | IOSDataTypeWhatsAppBusiness, 3},
      {IOSDataTypeWhatsAppBusiness | IOSDataTypeKik, 24},
      {IOSDataTypeKik | IOSDataTypeLine | IOSDataTypeViber, 4}, {IOSDataTypeLine | kWeChat, 2},
      {IOSDataTypeViber | kWeChat, 5}, {kWeChat, 1}, {IOSDataTypeSMS, 0}, {0, 0},
      {IOSDataTypeContact | IOSDataTypeNote, 0}};
  // clang-format on
  for (const Case& c : cases)
    EXPECT_EQ(ScanTypeForIOSDataType(c.type), c.scan) << c.type;
}

TEST(DataTypeTest, CallbackRoutes) {
  EXPECT_EQ(callbackRouteForCode(56).type, IOSDataTypeSMS);
  EXPECT_EQ(callbackRouteForCode(56).file, "data/sms-db-data.json");
  EXPECT_EQ(callbackRouteForCode(56).mode, "wb");
  // LINE and WeChat append, WhatsApp and Viber rewrite.
  EXPECT_EQ(callbackRouteForCode(53).mode, "ab");
  EXPECT_EQ(callbackRouteForCode(62).mode, "ab");
  EXPECT_EQ(callbackRouteForCode(61).mode, "wb");
  EXPECT_EQ(callbackRouteForCode(50).mode, "wb");
  EXPECT_EQ(callbackRouteForCode(73).type, IOSDataTypeWhatsAppMedia);
  EXPECT_EQ(callbackRouteForCode(84).outcome, CallbackOutcome::kScanFailed);
  EXPECT_EQ(callbackRouteForCode(84).file, "data/error-data.json");
  EXPECT_EQ(callbackRouteForCode(89).outcome, CallbackOutcome::kReleaseEngine);
  EXPECT_EQ(callbackRouteForCode(91).file, "data/progress-data.json");
  for (int code : {47, 54, 67, 78, 80, 82, 83, 85, 88, 93, -1, 1000}) {
    CallbackRoute route = callbackRouteForCode(code);
    EXPECT_EQ(route.outcome, CallbackOutcome::kDiscard) << code;
    EXPECT_EQ(route.type, 0) << code;
    EXPECT_EQ(route.file, "") << code;
  }
  // Every data route names a file below "data/" and every data type appears once.
  std::set<IOSDataType> seen;
  for (const CallbackRoute& route : callbackRoutes()) {
    if (route.outcome != CallbackOutcome::kData) continue;
    EXPECT_TRUE(route.file.starts_with("data/")) << route.code;
    EXPECT_TRUE(seen.insert(route.type).second) << route.code;
    EXPECT_FALSE(IOSDataTypeName(route.type).empty()) << route.code;
  }
  EXPECT_EQ(seen.size(), 30u);
  EXPECT_EQ(IOSDataTypeName(IOSDataTypeSMS), "SMS");
  EXPECT_EQ(IOSDataTypeName(1), "");

  // People read these names: one for every data type and result list, never the same twice.
  for (IOSDataType result : {kResultPhotoVideos, kResultCallHistory, kResultSMSAttachments,
                             kResultViberCalls, kResultWeChatSecondReport, kAndroidWhatsApp}) {
    seen.insert(result);
  }
  std::set<std::string_view> displayNames;
  for (IOSDataType type : seen) {
    std::string_view name = IOSDataTypeName(type);
    EXPECT_FALSE(name.empty()) << type;
    EXPECT_FALSE(name.starts_with("IOSDataType")) << name;
    EXPECT_TRUE(displayNames.insert(name).second) << name;
  }
}

}  // namespace
}  // namespace dataparser
