#include "dataparser/parsers/personal/voice_mail.h"

#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"

namespace dataparser {

void IOSVoiceMailItem::initWithDictionary(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  duration_ = floatSeconds(record["duration"]);
  setStrDuration(formattedDurationTime(wholeSeconds(duration_)));
}

const std::string& IOSVoiceMailItem::sender() const {
  return texts_.get(kSender, [&] {
    std::string name = joinedName(rawData().view());
    return name.empty() ? rawData()["sender"].stringCopy() : name;
  });
}

const OptionalDate& IOSVoiceMailItem::date() const {
  if (!dateRead_) {
    date_ = dateWithDateFormatter(rawData()["datetime"].string());
    dateRead_ = true;
  }
  return date_;
}

void IOSVoiceMailItem::setDate(OptionalDate date) {
  date_ = date;
  dateRead_ = true;
}

const std::string& IOSVoiceMailItem::strDate() const {
  return texts_.get(kStrDate, [&] { return date() ? stringWithDateFormatter(*date()) : ""; });
}

const std::string& IOSVoiceMailItem::localpath() const {
  return texts_.get(kLocalpath, [&] { return rawData()["media_backup"].stringCopy(); });
}

void IOSVoiceMailItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("duration", duration_);
  visitor.field("strDuration", strDuration());
  visitor.field("sender", sender());
  visitor.field("date", date());
  visitor.field("strDate", strDate());
  visitor.field("localpath", localpath());
}

std::shared_ptr<IOSVoiceMailParser> IOSVoiceMailParser::parserWithJSONData(JSONData data,
                                                                           bool parseDeleted) {
  auto parser = makeWithJSONData<IOSVoiceMailParser>(data, parseDeleted, false);
  appendEntries<IOSVoiceMailItem>(*parser, parser->rawData(), parser->rawData()["voicd_mail_items"],
                                  /*skipNonObjects=*/false, /*filterDeleted=*/true,
                                  [](const IOSVoiceMailItem& item) {
                                    const std::string& path = item.localpath();
                                    return backupFileExists(path);
                                  });
  return parser;
}

}  // namespace dataparser
