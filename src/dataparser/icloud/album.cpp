#include "dataparser/icloud/album.h"

#include "dataparser/util/date_format.h"

namespace dataparser {

namespace {

// Milliseconds since 1970 as a date and its display text; nothing for 0 or below.
void readMilliseconds(const json::View& value, OptionalDate& date, std::string& text) {
  if (!value.isNumber() || value.number() <= 0) return;
  date = dateWithSecondsSince1970(value.number() / 1000.0);
  if (date) text = stringWithDateFormatter(*date);
}

}  // namespace

void iCloudiOSAlbumItem::initWithDictionary(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  auto [guid, name, type, count, created, modified] = record.fields(
      {"album_guid", "album_name", "album_type", "item_count", "time_created", "time_modified"});
  if (guid.isString()) guid_ = guid.stringCopy();
  if (name.isString()) name_ = name.stringCopy();
  type_ = static_cast<std::int32_t>(type.integer());
  photoCount_ = static_cast<std::int32_t>(count.integer());
  readMilliseconds(created, createdDate_, strCreatedDate_);
  readMilliseconds(modified, modifiedDate_, strModifiedDate_);
}

void iCloudiOSAlbumItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("guid", guid_);
  visitor.field("name", name_);
  visitor.field("type", type_);
  visitor.field("photoCount", photoCount_);
  visitor.field("createdDate", createdDate_);
  visitor.field("strCreatedDate", strCreatedDate_);
  visitor.field("modifiedDate", modifiedDate_);
  visitor.field("strModifiedDate", strModifiedDate_);
}

void iCloudiOSAlbumItem::describeIsDeleted(FieldVisitor& visitor) const {
  visitor.field("isDeleted", isDeleted() != 0);
}

std::shared_ptr<iCloudiOSAlbumParser> iCloudiOSAlbumParser::parserWithJSONData(JSONData data,
                                                                               bool parseDeleted,
                                                                               bool deviceBackup) {
  auto parser = makeWithJSONData<iCloudiOSAlbumParser>(data, parseDeleted, deviceBackup);
  const json::Value& record = parser->rawData();
  if (!record.isObject()) return parser;
  json::Value albums = record.sub(record["albums"]);
  for (json::View element : albums.elements()) {
    if (!element.isObject()) continue;
    auto album = makeItem<iCloudiOSAlbumItem>();
    album->initWithDictionary(albums.sub(element));
    parser->items().push_back(std::move(album));
  }
  return parser;
}

}  // namespace dataparser
