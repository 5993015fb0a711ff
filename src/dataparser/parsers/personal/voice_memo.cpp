#include "dataparser/parsers/personal/voice_memo.h"

#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/path.h"

namespace dataparser {

void IOSVoiceMemoItem::initWithDictionary(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  duration_ = floatSeconds(record["duration"]);
}

const std::string& IOSVoiceMemoItem::strDuration() const {
  return texts_.get(kStrDuration, [&] {
    return formattedDurationTime(wholeSeconds(rawData()["duration"].number()));
  });
}

const std::string& IOSVoiceMemoItem::title() const {
  return texts_.get(kTitle, [&] {
    std::string title = rawData()["label"].stringCopy();
    if (title.empty()) title = path::lastPathComponent(devicePath());
    if (path::pathExtension(title).empty()) title += "." + extension();
    return title;
  });
}

const OptionalDate& IOSVoiceMemoItem::date() const {
  if (!dateRead_) {
    json::View seconds = rawData()["datetime"];
    if (seconds.isNumber()) {
      // The local zone's offset is added on purpose: memos show the wall-clock time of the
      // phone, printed as UTC.
      Date now =
          std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
      date_ = dateWithSecondsSince1970(seconds.number() + localUTCOffsetSeconds(now));
    }
    dateRead_ = true;
  }
  return date_;
}

void IOSVoiceMemoItem::setDate(OptionalDate date) {
  date_ = date;
  dateRead_ = true;
}

const std::string& IOSVoiceMemoItem::strDate() const {
  return texts_.get(kStrDate, [&] { return date() ? stringWithDateFormatter(*date()) : ""; });
}

const std::string& IOSVoiceMemoItem::devicePath() const {
  return texts_.get(kDevicePath, [&] { return rawData()["media_path"].stringCopy(); });
}

const std::string& IOSVoiceMemoItem::localPath() const {
  return texts_.get(kLocalPath, [&] { return rawData()["media_backup"].stringCopy(); });
}

const std::string& IOSVoiceMemoItem::extension() const {
  return texts_.get(kExtension, [&] {
    std::string extension = path::pathExtension(devicePath());
    return extension.empty() ? std::string("m4a") : extension;
  });
}

void IOSVoiceMemoItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("duration", duration_);
  visitor.field("strDuration", strDuration());
  visitor.field("title", title());
  visitor.field("date", date());
  visitor.field("strDate", strDate());
  visitor.field("devicePath", devicePath());
  visitor.field("localPath", localPath());
  visitor.field("extension", extension());
}

void IOSVoiceMemoParser::addJSONData(JSONData data) {
  IOSBaseParser::addJSONData(data);
  appendEntries<IOSVoiceMemoItem>(*this, rawData(), rawData()["voice_memos_items"],
                                  /*skipNonObjects=*/true, /*filterDeleted=*/false,
                                  [](const IOSVoiceMemoItem& item) {
                                    const std::string& path = item.localPath();
                                    return backupFileExists(path);
                                  });
}

}  // namespace dataparser
