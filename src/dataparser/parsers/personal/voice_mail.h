// Voice mail: IOSVoiceMailParser turns the engine's voice-mail export into IOSVoiceMailItem
// objects, one per message whose audio file exists in the extracted backup.
//
// Input: an object whose "voicd_mail_items" (spelled so) lists voice-mail records. Entries marked
// deleted are left out unless deleted data is asked for; entries whose "media_backup" is missing
// or names no file are left out always.
//
// Thread safety: built on one thread, read from one thread at a time.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "dataparser/model/base_item.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/parsers/personal/record_fields.h"
#include "dataparser/util/date.h"

namespace dataparser {

class IOSVoiceMailItem : public IOSBaseItem {
 public:
  // Reads "duration" and makes its display text.
  void initWithDictionary(const json::Value& record) override;

  float duration() const { return duration_; }
  void setDuration(float duration) { duration_ = duration; }
  // The duration in whole seconds as "h:m:s" ("00:00" below one second).
  const std::string& strDuration() const { return texts_.value(kStrDuration); }
  void setStrDuration(std::string text) { texts_.set(kStrDuration, std::move(text)); }
  // "first middle last"; the caller's number ("sender") when there is no name.
  const std::string& sender() const;
  void setSender(std::string sender) { texts_.set(kSender, std::move(sender)); }
  // "datetime" in the engine's format; none when it does not parse.
  const OptionalDate& date() const;
  void setDate(OptionalDate date);
  // `date` as "yyyy/MM/dd HH:mm:ss" (UTC); "" without a date.
  const std::string& strDate() const;
  void setStrDate(std::string text) { texts_.set(kStrDate, std::move(text)); }
  // "media_backup": the audio file in the extracted backup.
  const std::string& localpath() const;
  void setLocalpath(std::string path) { texts_.set(kLocalpath, std::move(path)); }

  std::string_view className() const override { return "IOSVoiceMailItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  enum Field : std::uint8_t { kStrDuration, kSender, kStrDate, kLocalpath, kFieldCount };
  LazyTexts<kFieldCount> texts_;
  mutable OptionalDate date_;
  float duration_ = 0;
  mutable bool dateRead_ = false;
};

class IOSVoiceMailParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  static std::shared_ptr<IOSVoiceMailParser> parserWithJSONData(JSONData data, bool parseDeleted);

  std::string_view className() const override { return "IOSVoiceMailParser"; }
};

}  // namespace dataparser
