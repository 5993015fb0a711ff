#include "dataparser/model/base_parser.h"

#include "dataparser/util/run_log.h"

namespace dataparser {
namespace {

thread_local const std::atomic<bool>* tCurrentStop = nullptr;

}  // namespace

const std::atomic<bool>* IOSBaseParser::currentStopFlag() {
  return tCurrentStop;
}

ParseStopScope::ParseStopScope(const std::atomic<bool>& flag) : previous_(tCurrentStop) {
  tCurrentStop = &flag;
}

ParseStopScope::~ParseStopScope() {
  tCurrentStop = previous_;
}

void IOSBaseParser::initWithJSONData(JSONData data) {
  if (!data) return;
  std::string error;
  rawData_ = json::parse(*data, &error);
  if (!rawData_.present()) SystemLog::write(">>> {}", error);
}

std::shared_ptr<IOSBaseParser> IOSBaseParser::parserWithJSONData(JSONData data, bool parseDeleted,
                                                                 bool deviceBackup) {
  return makeWithJSONData<IOSBaseParser>(data, parseDeleted, deviceBackup);
}

std::shared_ptr<IOSBaseParser> IOSBaseParser::parserWithJSONData(JSONData data, bool parseDeleted) {
  return IOSBaseParser::parserWithJSONData(data, parseDeleted, false);
}

void IOSBaseParser::addJSONData(JSONData data) {
  if (!data) return;
  rawData_ = json::parse(*data);
}

json::Value IOSBaseParser::JSONWithData(JSONData data) {
  if (!data) return {};
  std::string error;
  json::Value value = json::parse(*data, &error);
  if (!value.present()) SystemLog::write("JSONWithData ERROR:{}", error);
  return value;
}

}  // namespace dataparser
