#include "dataparser/model/payload.h"

#include <cmath>

#include "dataparser/util/date_format.h"

namespace dataparser {

namespace {

// Whole seconds of a duration, truncated towards zero. A duration that is not a number counts
// as none; one beyond +-2^62 seconds is held there, so the conversion cannot overflow.
std::int64_t wholeSeconds(float duration) {
  if (std::isnan(duration)) return 0;
  constexpr std::int64_t kLimit = std::int64_t{1} << 62;
  const double seconds = std::trunc(static_cast<double>(duration));
  if (seconds >= static_cast<double>(kLimit)) return kLimit;
  if (seconds <= -static_cast<double>(kLimit)) return -kLimit;
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
