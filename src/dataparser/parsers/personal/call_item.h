// IOSCallItem: one call of an app's own call list (Viber keeps one), filled field by field by
// its parser through the setters.
//
//   type        1 outgoing, 2 incoming, 0 unknown
//   answerType  the call's outcome code
//   strDate     `date` as "yyyy/MM/dd HH:mm:ss" (UTC); "" without a date
//   strType     "CallHistory_Outgoing" / "CallHistory_Incoming", "CallHistory_" otherwise
//   strDuration "CallHistory_Missed" for an incoming call with outcome 2,
//               "CallHistory_Canceled" for a call that is not incoming with outcome 1,
//               else the duration in whole seconds as "h:m:s" ("00:00" under one second)
// The str* texts are keys that the user interface translates; they are worked out on first
// read and kept (a setter overrides them).
//
// Thread safety: built on one thread; afterwards read from one thread at a time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "dataparser/model/base_item.h"
#include "dataparser/util/date.h"

namespace dataparser {

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
  std::uint64_t type() const { return type_; }
  void setType(std::uint64_t type) { type_ = type; }
  std::uint64_t answerType() const { return answerType_; }
  void setAnswerType(std::uint64_t answerType) { answerType_ = answerType; }
  const std::string& location() const { return location_; }
  void setLocation(std::string location) { location_ = std::move(location); }

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
  OptionalDate date_;
  float duration_ = 0;
  std::uint64_t type_ = 0;
  std::uint64_t answerType_ = 0;
  std::string location_;
  mutable std::optional<std::string> strDate_;
  mutable std::optional<std::string> strDuration_;
  mutable std::optional<std::string> strType_;
};

}  // namespace dataparser
