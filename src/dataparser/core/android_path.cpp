#include "dataparser/core/android_path.h"

#include <simdjson.h>

#include <array>
#include <exception>
#include <filesystem>

#include "dataparser/core/ios_data_parser.h"
#include "dataparser/parsers/messaging/android_whatsapp.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/json.h"
#include "dataparser/util/path.h"
#include "dataparser/util/run_log.h"

namespace dataparser {
namespace {

constexpr std::int32_t kErrorCode = 0;

constexpr std::array<AndroidRoute, 2> kRoutes = {
    AndroidRoute{20, kAndroidWhatsApp, "AndroidParse/data/whatsapp-db-data.json", 0,
                 kResultAndroidWhatsAppAttachments},
    AndroidRoute{21, kAndroidWhatsAppBusiness, "AndroidParse/data/whatsappbusiness-db-data.json",
                 25, kResultAndroidWhatsAppBusinessAttachments},
};

// A JSON string literal of `text` (quotes, backslashes and control characters escaped).
std::string jsonString(std::string_view text) {
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') {
      quoted.push_back('\\');
      quoted.push_back(c);
    } else if (static_cast<unsigned char>(c) < 0x20) {
      constexpr char kHex[] = "0123456789abcdef";
      quoted += "\\u00";
      quoted.push_back(kHex[(c >> 4) & 0xf]);
      quoted.push_back(kHex[c & 0xf]);
    } else {
      quoted.push_back(c);
    }
  }
  quoted.push_back('"');
  return quoted;
}

std::int32_t handleAndroidCallback(std::int32_t code, const char* data) {
  IOSDataParser& parser = IOSDataParser::shared();
  if (code == kErrorCode) {
    RunLog::write("*** Data parse error!!!");
    parser.parseError(3);
    return -1;
  }
  // The route's file name is worked out as the engine expects, but nothing is written.
  const AndroidRoute route = androidRouteForCode(code);
  if (data == nullptr) {
    RunLog::write("*** Data parse finished!!!");
    parser.parseFinished(1);
    return 0;
  }
  std::string_view text(data);
  if (!simdjson::validate_utf8(text.data(), text.size())) return 0;
  if (route.type != 0) {
    parser.analyzeAndroidData(text, route.type);
  } else {
    RunLog::write(">>> CallbackFuction Discard!!!");
  }
  return 0;
}

}  // namespace

AndroidRoute androidRouteForCode(std::int32_t code) {
  for (const AndroidRoute& route : kRoutes) {
    if (route.code == code) return route;
  }
  return AndroidRoute{code, 0, code == kErrorCode ? "AndroidParse/data/error-data.json" : "", -1,
                      0};
}

AndroidRoute androidRouteForType(IOSDataType type) {
  for (const AndroidRoute& route : kRoutes) {
    if (route.type == type) return route;
  }
  return AndroidRoute{-1, 0, "", -1, 0};
}

// ---- the coordinator's Android operations ----------------------------------------------------

void IOSDataParser::startParseWithAndroidBackupPath(const std::string& path) {
  RunLog::write("*** start parse backup: {}", path);
  backupStoped_.store(false);
  parseStoped_.store(false);
  setBackupPath(path);
  setupAndroidInterface(path);
  RunLog::write("*** end add backup: {}", path);
}

std::string IOSDataParser::androidParameterText(const std::string& path) const {
  const std::string root = productDomainPath();
  const std::string tempFolder =
      path::appendingPathComponent(path::appendingPathComponent(root, "AndroidParse"), "temp");
  std::string text = "{";
  // WhatsApp wins over WhatsApp Business when both are selected.
  const IOSDataType selected = selectedDataType();
  if (selected & kAndroidWhatsApp) {
    text += "\"package_type\": 0, ";
  } else if (selected & kAndroidWhatsAppBusiness) {
    text += "\"package_type\": 25, ";
  }
  text += "\"temp_folder\": " + jsonString(tempFolder) +
          ", \"primary_file_object\": {\"msg_file_path\": " + jsonString(path) +
          "}, \"addtional_param\": " + jsonString(path::deletingLastPathComponent(path)) + "}";
  return encodeToJosnString(json::parse(text).view());
}

void IOSDataParser::setupAndroidInterface(const std::string& path) {
  const std::string root = productDomainPath();
  const std::string androidRoot = path::appendingPathComponent(root, "AndroidParse");
  const std::string logFolder = path::appendingPathComponent(root, "Logs");
  const std::string tempFolder = path::appendingPathComponent(androidRoot, "temp");
  std::error_code ignored;
  std::filesystem::remove_all(androidRoot, ignored);
  createDirectories(logFolder);
  createDirectories(tempFolder);

  std::shared_ptr<AndroidPackageEngine> engine = androidPackageEngine();
  engine->InitQMDataPackage(logFolder.c_str(), configurationPath().c_str());
  const std::string parameters = androidParameterText(path);
  RunLog::write("{}", parameters);
  engine->QMDataFilter(parameters.c_str(), static_cast<int>(parameters.size()));
  engine->QMDataPackage(&AndroidCallbackFuction);
}

void IOSDataParser::analyzeAndroidData(JSONData data, IOSDataType type) {
  if (parseStoped_.load()) return;
  semaphore_.acquire();
  struct Release {
    std::binary_semaphore& semaphore;
    ~Release() { semaphore.release(); }
  } release{semaphore_};

  const AndroidRoute route = androidRouteForType(type);
  if (route.type == 0) return;
  ParseStopScope stopScope(parseStoped_);
  std::shared_ptr<IOSBaseParser> parser =
      AndroidWhatsAppParser::parserWithJSONData(data, parseDeleted(), deviceBackup(), backupPath());

  // Android and iOS WhatsApp share one attachment list.
  ParserPtr other = parserInSlot(ParserSlot::kOtherAttachment);
  auto* lists = dynamic_cast<IOSOtherAttachmentLists*>(other.get());
  ItemList* shared = lists != nullptr ? &lists->whatsappAttachments() : nullptr;
  ItemList merged = mergeAttachments(parser->attachments(), shared ? *shared : ItemList());
  parser->setAttachments(merged);
  if (shared != nullptr) *shared = std::move(merged);

  if (auto observer = observerFor(IOSDataParserDelegate::Operation::kDidFetchedData)) {
    report(observer, parser->items(), type);
    report(observer, parser->attachments(), route.attachments);
  }
}

}  // namespace dataparser

extern "C" {

std::int32_t AndroidCallbackFuction(std::int32_t type, const char* data, int /*len*/) {
  // Nothing may unwind into the engine.
  try {
    return dataparser::handleAndroidCallback(type, data);
  } catch (const std::exception& error) {
    dataparser::SystemLog::write(">>> AndroidCallbackFuction failed: {}", error.what());
  } catch (...) {
    dataparser::SystemLog::write(">>> AndroidCallbackFuction failed");
  }
  return 0;
}
}
