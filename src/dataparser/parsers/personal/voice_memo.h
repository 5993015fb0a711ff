// Voice memos: IOSVoiceMemoParser is a long-lived parser fed with pieces of the engine's
// voice-memo export; it accumulates IOSVoiceMemoItem objects across pieces, one per recording
// whose file exists in the extracted backup. Voice memos are never filtered by their deleted
// mark.
//
// Input (each piece): an object whose "voice_memos_items" lists recording records. A memo is
// titled by its "label", else by the file name of its path on the phone, with the extension
// ("m4a" when the path has none) added to a title that has none. Its date is "datetime" in
// seconds since 1970, moved by the local zone's current offset from UTC.
//
// Thread safety: fed on one thread; stopParser() may be called from any thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "dataparser/model/base_item.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/parsers/personal/record_fields.h"
#include "dataparser/util/date.h"

namespace dataparser {

class IOSVoiceMemoItem : public IOSBaseItem {
 public:
  // Reads "duration".
  void initWithDictionary(const json::Value& record) override;

  float duration() const { return duration_; }
  void setDuration(float duration) { duration_ = duration; }
  // The duration in whole seconds as "h:m:s" ("00:00" below one second).
  const std::string& strDuration() const;
  void setStrDuration(std::string text) { texts_.set(kStrDuration, std::move(text)); }
  const std::string& title() const;
  void setTitle(std::string title) { texts_.set(kTitle, std::move(title)); }
  const OptionalDate& date() const;
  void setDate(OptionalDate date);
  // `date` as "yyyy/MM/dd HH:mm:ss"; "" without a date.
  const std::string& strDate() const;
  void setStrDate(std::string text) { texts_.set(kStrDate, std::move(text)); }
  // "media_path": the recording's path on the phone.
  const std::string& devicePath() const;
  void setDevicePath(std::string path) { texts_.set(kDevicePath, std::move(path)); }
  // "media_backup": the recording in the extracted backup.
  const std::string& localPath() const;
  void setLocalPath(std::string path) { texts_.set(kLocalPath, std::move(path)); }
  // The extension of `devicePath`; "m4a" when it has none.
  const std::string& extension() const;
  void setExtension(std::string extension) { texts_.set(kExtension, std::move(extension)); }

  std::string_view className() const override { return "IOSVoiceMemoItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  enum Field : std::uint8_t {
    kStrDuration,
    kTitle,
    kStrDate,
    kDevicePath,
    kLocalPath,
    kExtension,
    kFieldCount
  };
  LazyTexts<kFieldCount> texts_;
  mutable OptionalDate date_;
  float duration_ = 0;
  mutable bool dateRead_ = false;
};

class IOSVoiceMemoParser : public IOSBaseParser {
 public:
  // Adds the memos of one more piece to those already held.
  void addJSONData(JSONData data) override;

  std::string_view className() const override { return "IOSVoiceMemoParser"; }
};

}  // namespace dataparser
