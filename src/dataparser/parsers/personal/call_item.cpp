#include "dataparser/parsers/personal/call_item.h"

#include <cmath>

#include "dataparser/util/date_format.h"

namespace dataparser {
namespace {

constexpr std::uint64_t kOutgoing = 1;
constexpr std::uint64_t kIncoming = 2;
constexpr std::uint64_t kOutcomeCanceled = 1;
constexpr std::uint64_t kOutcomeMissed = 2;

}  // namespace

const std::string& IOSCallItem::strDate() const {
  if (!strDate_) strDate_ = date_ ? stringWithDateFormatter(*date_) : std::string();
  return *strDate_;
}

const std::string& IOSCallItem::strType() const {
  if (!strType_) {
    strType_ = type_ == kOutgoing   ? "CallHistory_Outgoing"
               : type_ == kIncoming ? "CallHistory_Incoming"
                                    : "CallHistory_";
  }
  return *strType_;
}

const std::string& IOSCallItem::strDuration() const {
  if (!strDuration_) {
    // Outcome 2 means missed only for incoming calls, 1 cancelled only for the others.
    if (type_ == kIncoming && answerType_ == kOutcomeMissed) {
      strDuration_ = "CallHistory_Missed";
    } else if (type_ != kIncoming && answerType_ == kOutcomeCanceled) {
      strDuration_ = "CallHistory_Canceled";
    } else {
      const double seconds = std::isfinite(duration_) ? std::trunc(duration_) : 0.0;
      strDuration_ = formattedDurationTime(
          static_cast<std::int64_t>(std::fmax(std::fmin(seconds, 9.0e15), -9.0e15)));
    }
  }
  return *strDuration_;
}

void IOSCallItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("name", name());
  visitor.field("phone", phone());
  visitor.field("date", date());
  visitor.field("strDate", strDate());
  visitor.field("duration", duration());
  visitor.field("strDuration", strDuration());
  visitor.field("type", type());
  visitor.field("strType", strType());
  visitor.field("answerType", answerType());
  visitor.field("location", location());
}

}  // namespace dataparser
