#include "dataparser/parsers/personal/call_history.h"

#include <chrono>
#include <map>

#include <fmt/format.h>

#include "dataparser/util/date_format.h"

namespace dataparser {

std::string callTypeText(std::uint64_t type) {
  switch (type) {
    case kCallOutgoing:
      return "CallHistory_Outgoing";
    case kCallIncoming:
      return "CallHistory_Incoming";
    default:
      return "CallHistory_";
  }
}

std::string callDurationText(std::uint64_t type, std::int64_t outcome, float duration) {
  // Outcome 2 means missed only for an incoming call, outcome 1 cancelled only for the others.
  if (type == kCallIncoming && outcome == 2) return "CallHistory_Missed";
  if (type != kCallIncoming && outcome == 1) return "CallHistory_Canceled";
  return formattedDurationTime(wholeSeconds(duration));
}

// --- IOSCallHistoryItem ---

void IOSCallHistoryItem::initWithDictionary(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  auto [flags, answered, connectType, duration] =
      record.fields({"flags", "answered", "connect_type", "duration"});
  flags_ = int32Value(flags);
  answered_ = int32Value(answered);
  callType_ = int32Value(connectType);
  duration_ = floatSeconds(duration);
}

std::string IOSCallHistoryItem::name() const {
  std::string name = joinedName(rawData().view());
  return name.empty() ? "Unknown" : name;
}

const std::string& IOSCallHistoryItem::phone() const {
  return texts_.get(kPhone, [&] { return rawData()["address"].stringCopy(); });
}

const std::string& IOSCallHistoryItem::belong() const {
  return texts_.get(kBelong, [&] { return rawData()["belong"].stringCopy(); });
}

const std::string& IOSCallHistoryItem::location() const {
  return texts_.get(kLocation, [&]() -> std::string {
    std::string_view location = rawData()["location"].string();
    return location == "<<RecentsNumberLocationNotFound>>" ? std::string() : std::string(location);
  });
}

const OptionalDate& IOSCallHistoryItem::date() const {
  if (!dateRead_) {
    std::string_view text = rawData()["datetime"].string();
    // Undated calls take the time of the first read, so that they still sort.
    date_ = text.empty() ? std::chrono::time_point_cast<std::chrono::microseconds>(
                               std::chrono::system_clock::now())
                         : dateWithDateFormatter(text);
    dateRead_ = true;
  }
  return date_;
}

void IOSCallHistoryItem::setDate(OptionalDate date) {
  date_ = date;
  dateRead_ = true;
}

const std::string& IOSCallHistoryItem::strDate() const {
  return texts_.get(kStrDate, [&] { return date() ? stringWithDateFormatter(*date()) : ""; });
}

const std::string& IOSCallHistoryItem::strDuration() const {
  return texts_.get(kStrDuration, [&] { return callDurationText(type(), callType_, duration_); });
}

const std::string& IOSCallHistoryItem::strType() const {
  return texts_.get(kStrType, [&] { return callTypeText(type()); });
}

bool IOSCallHistoryItem::isFaceTime() const {
  auto [callType, provider] = rawData().fields({"call_type", "service_provider"});
  if (callType.isNumber()) {
    std::int64_t kind = callType.integer();
    if (kind == 8 || kind == 16) return true;
  }
  return provider.string() == "com.apple.FaceTime";
}

void IOSCallHistoryItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("flags", flags_);
  visitor.field("answered", answered_);
  visitor.field("call_type", callType_);
  visitor.field("duration", duration_);
  visitor.field("name", name());
  visitor.field("phone", phone());
  visitor.field("belong", belong());
  visitor.field("location", location());
  visitor.field("date", date());
  visitor.field("strDate", strDate());
  visitor.field("strDuration", strDuration());
  visitor.field("type", type());
  visitor.field("strType", strType());
  visitor.field("isFaceTime", isFaceTime());
}

// --- IOSCallItem ---

const std::string& IOSCallItem::strDate() const {
  if (!strDate_) strDate_ = date_ ? stringWithDateFormatter(*date_) : std::string();
  return *strDate_;
}

const std::string& IOSCallItem::strDuration() const {
  if (!strDuration_) {
    strDuration_ = callDurationText(type_, static_cast<std::int64_t>(answerType_), duration_);
  }
  return *strDuration_;
}

const std::string& IOSCallItem::strType() const {
  if (!strType_) strType_ = callTypeText(type_);
  return *strType_;
}

void IOSCallItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("name", name_);
  visitor.field("phone", phone_);
  visitor.field("date", date_);
  visitor.field("duration", duration_);
  visitor.field("type", type_);
  visitor.field("answerType", answerType_);
  visitor.field("location", location_);
  visitor.field("strDate", strDate());
  visitor.field("strDuration", strDuration());
  visitor.field("strType", strType());
}

// --- IOSCallHistoryParser ---

std::shared_ptr<IOSCallHistoryParser> IOSCallHistoryParser::parserWithJSONData(JSONData data,
                                                                               bool parseDeleted) {
  auto parser = makeWithJSONData<IOSCallHistoryParser>(data, parseDeleted, false);
  const json::Value& record = parser->rawData();
  json::View calls = record["call_records"];
  if (!calls.isArray()) return parser;
  // SIM labels live for this one parse, numbered in order of first sight.
  std::map<std::string, std::string, std::less<>> simLabels;
  ItemList faceTime;
  for (json::View element : calls.elements()) {
    if (!element.isObject()) continue;
    json::Value callRecord = record.sub(element);
    auto call = IOSBaseItem::itemWithDictionary<IOSCallHistoryItem>(callRecord);
    if (!parseDeleted && call->isDeleted()) continue;
    if (const std::string& belong = call->belong(); !belong.empty()) {
      auto found = simLabels.find(belong);
      if (found == simLabels.end()) {
        found = simLabels.emplace(belong, fmt::format("SIM{}", simLabels.size() + 1)).first;
      }
      call->setBelong(found->second);
    }
    bool isFaceTime = call->isFaceTime();
    parser->items().push_back(std::move(call));
    // The FaceTime list holds its own item, which keeps the raw SIM value.
    if (isFaceTime)
      faceTime.push_back(IOSBaseItem::itemWithDictionary<IOSCallHistoryItem>(callRecord));
  }
  parser->setCallHistorys(std::move(faceTime));
  return parser;
}

}  // namespace dataparser
