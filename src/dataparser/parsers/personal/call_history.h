// Call history: IOSCallHistoryParser turns the phone's call log into IOSCallHistoryItem objects
// (one per call: the other party, direction, duration or outcome, time, place and SIM line) and
// gathers the FaceTime calls into a second list, `callHistorys`. IOSCallItem is the same display
// logic for calls that other parsers build field by field.
//
// Input: an object whose "call_records" lists call records. Calls marked deleted are left out
// unless deleted data is asked for. Within one parse, each distinct "belong" value is shown as
// "SIM1", "SIM2", ... in order of first sight; the FaceTime list keeps the raw value.
//
// Display texts are keys the user interface translates: "CallHistory_Outgoing",
// "CallHistory_Incoming", "CallHistory_Missed" (incoming, outcome 2), "CallHistory_Canceled"
// (not incoming, outcome 1); any other call shows its duration as "h:m:s" ("00:00" below one
// second).
//
// Thread safety: built on one thread, read from one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "dataparser/model/base_item.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/parsers/personal/record_fields.h"
#include "dataparser/util/date.h"

namespace dataparser {

// Call directions.
inline constexpr std::uint64_t kCallUnknown = 0;
inline constexpr std::uint64_t kCallOutgoing = 1;
inline constexpr std::uint64_t kCallIncoming = 2;

// "CallHistory_" followed by "Outgoing" or "Incoming"; the bare prefix for any other type.
std::string callTypeText(std::uint64_t type);
// "CallHistory_Missed", "CallHistory_Canceled", or the duration in whole seconds as "h:m:s".
std::string callDurationText(std::uint64_t type, std::int64_t outcome, float duration);

class IOSCallHistoryItem : public IOSBaseItem {
 public:
  // Reads "flags", "answered", "connect_type" and "duration".
  void initWithDictionary(const json::Value& record) override;

  std::int32_t flags() const { return flags_; }
  void setFlags(std::int32_t flags) { flags_ = flags; }
  std::int32_t answered() const { return answered_; }
  void setAnswered(std::int32_t answered) { answered_ = answered; }
  // The outcome code ("connect_type").
  std::int32_t call_type() const { return callType_; }
  void setCall_type(std::int32_t type) { callType_ = type; }
  float duration() const { return duration_; }
  void setDuration(float duration) { duration_ = duration; }

  // "first middle last"; "Unknown" when empty. Worked out on every read.
  std::string name() const;
  const std::string& phone() const;
  void setPhone(std::string phone) { texts_.set(kPhone, std::move(phone)); }
  const std::string& belong() const;
  void setBelong(std::string belong) { texts_.set(kBelong, std::move(belong)); }
  // "location", except the engine's "<<RecentsNumberLocationNotFound>>" marker.
  const std::string& location() const;
  void setLocation(std::string location) { texts_.set(kLocation, std::move(location)); }
  // "datetime" in the engine's format (none when it does not parse); the time of the first read
  // when the call has no date text.
  const OptionalDate& date() const;
  void setDate(OptionalDate date);
  // `date` as "yyyy/MM/dd HH:mm:ss" (UTC); "" without a date.
  const std::string& strDate() const;
  void setStrDate(std::string text) { texts_.set(kStrDate, std::move(text)); }
  const std::string& strDuration() const;
  void setStrDuration(std::string text) { texts_.set(kStrDuration, std::move(text)); }
  // 1 outgoing ("flags" 1), else 2 incoming.
  std::uint64_t type() const { return flags_ == 1 ? kCallOutgoing : kCallIncoming; }
  const std::string& strType() const;
  void setStrType(std::string text) { texts_.set(kStrType, std::move(text)); }
  // A "call_type" of 8 or 16, or the FaceTime service provider.
  bool isFaceTime() const;

  std::string_view className() const override { return "IOSCallHistoryItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  enum Field : std::uint8_t {
    kPhone,
    kBelong,
    kLocation,
    kStrDate,
    kStrDuration,
    kStrType,
    kFieldCount
  };
  LazyTexts<kFieldCount> texts_;
  mutable OptionalDate date_;
  float duration_ = 0;
  mutable bool dateRead_ = false;
  std::int32_t flags_ = 0;
  std::int32_t answered_ = 0;
  std::int32_t callType_ = 0;
};

// A call built field by field, with the display rules of IOSCallHistoryItem (`answerType` in the
// place of the outcome code).
class IOSCallItem : public IOSBaseItem {
 public:
  const std::string& name() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }
  const std::string& phone() const { return phone_; }
  void setPhone(std::string phone) { phone_ = std::move(phone); }
  const OptionalDate& date() const { return date_; }
  void setDate(OptionalDate date) { date_ = date; }
  float duration() const { return duration_; }
  void setDuration(float duration) { duration_ = duration; }
  // 1 outgoing, 2 incoming, 0 unknown.
  std::uint64_t type() const { return type_; }
  void setType(std::uint64_t type) { type_ = type; }
  std::uint64_t answerType() const { return answerType_; }
  void setAnswerType(std::uint64_t type) { answerType_ = type; }
  const std::string& location() const { return location_; }
  void setLocation(std::string location) { location_ = std::move(location); }

  // Worked out on first read from the fields above.
  const std::string& strDate() const;
  void setStrDate(std::string text) { strDate_ = std::move(text); }
  const std::string& strDuration() const;
  void setStrDuration(std::string text) { strDuration_ = std::move(text); }
  const std::string& strType() const;
  void setStrType(std::string text) { strType_ = std::move(text); }

  std::string_view className() const override { return "IOSCallItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  std::string name_;
  std::string phone_;
  std::string location_;
  OptionalDate date_;
  mutable std::optional<std::string> strDate_;
  mutable std::optional<std::string> strDuration_;
  mutable std::optional<std::string> strType_;
  float duration_ = 0;
  std::uint64_t type_ = kCallUnknown;
  std::uint64_t answerType_ = 0;
};

class IOSCallHistoryParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  static std::shared_ptr<IOSCallHistoryParser> parserWithJSONData(JSONData data, bool parseDeleted);

  std::string_view className() const override { return "IOSCallHistoryParser"; }
};

}  // namespace dataparser
