#include "dataparser/model/payload.h"

#include <cmath>
#include <limits>

#include "dataparser/util/date_format.h"

namespace dataparser {

namespace {

// Whole seconds of a duration, truncated towards zero. A duration that is not a number counts
// as none; one beyond the integer range is held at its end.
std::int64_t wholeSeconds(float duration) {
  if (std::isnan(duration)) return 0;
  constexpr double kLimit = static_cast<double>(std::numeric_limits<std::int64_t>::max() / 2);
  const double seconds = std::trunc(static_cast<double>(duration));
  if (seconds >= kLimit) return static_cast<std::int64_t>(kLimit);
  if (seconds <= -kLimit) return -static_cast<std::int64_t>(kLimit);
  return static_cast<std::int64_t>(seconds);
}

}  // namespace

void MoneyItem::describe(FieldVisitor& visitor) const {
  visitor.field("text", text());
  visitor.field("money", money());
  visitor.field("status", status());
  visitor.field("strStatus", strStatus());
}

void EmojiItem::describe(FieldVisitor& visitor) const {
  visitor.field("url", url());
}

void LocationItem::describe(FieldVisitor& visitor) const {
  visitor.field("localInfo", localInfo());
  visitor.field("domain", domain());
  visitor.field("thumbPath", thumbPath());
}

void ContactItem::describe(FieldVisitor& visitor) const {
  visitor.field("name", name());
  visitor.field("phone", phone());
  visitor.field("vcf", vcf());
}

void SubscribeNewsItem::describe(FieldVisitor& visitor) const {
  visitor.field("title", title());
  visitor.field("subtitle", subtitle());
}

void LinkItem::describe(FieldVisitor& visitor) const {
  visitor.field("title", title());
  visitor.field("summary", summary());
  visitor.field("text", text());
  visitor.field("url", url());
  visitor.field("thumbPath", thumbPath());
}

const std::string& TimedPayload::strDuration() const {
  if (!strDuration_) strDuration_ = formattedDurationTime(wholeSeconds(duration_));
  return *strDuration_;
}

void TimedPayload::describe(FieldVisitor& visitor) const {
  visitor.field("duration", duration());
  visitor.field("strDuration", strDuration());
}

void CallDurationItem::describe(FieldVisitor& visitor) const {
  TimedPayload::describe(visitor);
  visitor.field("callHistoryType", callHistoryType());
  visitor.field("strCallHistoryType", strCallHistoryType());
}

}  // namespace dataparser
