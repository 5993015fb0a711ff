#include "dataparser/parsers/personal/reminder.h"

#include <fmt/format.h>

#include <algorithm>

#include "dataparser/parsers/personal/personal_records.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/run_log.h"
#include "dataparser/util/text.h"

namespace dataparser {
namespace {

using personal::lazy;

const std::string kNoPriority;
const std::string kPriorityTexts[] = {"High Priority", "Medium Priority", "Low Priority"};

std::vector<std::string> textsOf(json::View list) {
  std::vector<std::string> texts;
  for (json::View element : list.elements())
    texts.push_back(element.stringCopy());
  return texts;
}

// The record's elements under `key` of a decoded iCloud file, or nothing.
json::Value listOf(const json::Value& document, std::string_view key) {
  if (!document.isObject()) return {};
  return document.sub(document[key]);
}

}  // namespace

// --- IOSReminderItem ---

void IOSReminderItem::initWithDictionary(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  auto [status, priority] = record.fields({"status", "priority"});
  state_flag_ = static_cast<std::int32_t>(status.integer());
  priority_flag_ = static_cast<std::int32_t>(priority.integer());
}

const std::string& IOSReminderItem::identifier() const {
  return lazy(identifier_, [&] { return rawData()["unique_identifier"].stringCopy(); });
}

const std::string& IOSReminderItem::title() const {
  return lazy(title_, [&] { return rawData()["utf_Title"].stringCopy(); });
}

const std::string& IOSReminderItem::location() const {
  return lazy(location_, [&] {
    return stringByReplacingOccurrences(rawData()["utf_Address"].string(), "\\n", "\n");
  });
}

const std::string& IOSReminderItem::note() const {
  return lazy(note_, [&] { return rawData()["utf_Description"].stringCopy(); });
}

const std::string& IOSReminderItem::list() const {
  return lazy(list_, [&] { return rawData()["utf_List"].stringCopy(); });
}

const std::string& IOSReminderItem::url() const {
  return lazy(url_, [&] { return rawData()["url"].stringCopy(); });
}

const OptionalDate& IOSReminderItem::remindDate() const {
  return lazy(remindDate_, [&]() -> OptionalDate {
    std::string_view text = rawData()["start_date"].string();
    if (text.empty()) return std::nullopt;
    return dateWithDateFormatter(text);
  });
}

const std::string& IOSReminderItem::strRemindDate() const {
  return lazy(strRemindDate_, [&] {
    const OptionalDate& date = remindDate();
    return date ? stringWithDateFormatter(*date) : std::string();
  });
}

std::uint64_t IOSReminderItem::priority() const {
  switch (priority_flag_) {
    case 1:
      return 1;
    case 5:
      return 2;
    case 9:
      return 3;
    default:
      return 0;
  }
}

const std::string& IOSReminderItem::strPriority() const {
  if (strPriority_) return *strPriority_;
  std::uint64_t level = priority();
  return level == 0 ? kNoPriority : kPriorityTexts[level - 1];
}

bool IOSReminderItem::hasFlag() const {
  json::View flagged = rawData()["flagged"];
  return flagged.present() && flagged.integer() == 1;
}

const ItemList& IOSReminderItem::attachments() const {
  return lazy(attachments_, [&] {
    ItemList list;
    for (json::View media : rawData()["media_info"].elements()) {
      auto [name, path, device] = media.fields({"media_name", "media_path", "media_device_path"});
      if (!name.present() || !path.present() || !device.present()) continue;
      std::string local = path.stringCopy();
      if (!backupFileExists(local)) continue;
      auto attachment = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(rawData().sub(media));
      attachment->setName(name.stringCopy());
      attachment->setLocalPath(std::move(local));
      attachment->setDevicePath(device.stringCopy());
      list.push_back(std::move(attachment));
    }
    return list;
  });
}

void IOSReminderItem::initWithiCloudDictionary(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  auto [uuid, title, note, parent, completed, due, attachments, alarms] = record.fields(
      {"uuid", "title", "note", "parent", "completed", "due", "attachments", "alarms"});
  if (uuid.isString()) setIdentifier(uuid.stringCopy());
  if (title.isString()) setTitle(title.stringCopy());
  if (note.isString()) setNote(note.stringCopy());
  if (parent.isString()) setList(parent.stringCopy());
  // A reminder that does not say counts as completed.
  state_flag_ = completed.isNumber() ? static_cast<std::int32_t>(completed.integer()) : 1;
  std::int64_t milliseconds = due.integer();
  if (milliseconds > 0) {
    std::string text = stringWithTimeIntervalSince1970(static_cast<double>(milliseconds / 1000));
    // The text is minute-exact and read back in the engine's format, as the account expects.
    setRemindDate(dateWithDateFormatter(text));
    setStrRemindDate(std::move(text));
  } else {
    setRemindDate(std::nullopt);
    setStrRemindDate("");
  }
  setAttachmentsUUID(textsOf(attachments));
  setAlarmsUUIDArr(textsOf(alarms));
}

void IOSReminderItem::readPlace(json::View record) {
  auto [latitude, longitude, radius] = record.fields({"latitude", "longitude", "radius"});
  latitude_ = latitude.numberFromText();
  longitude_ = longitude.numberFromText();
  radius_ = radius.numberFromText();
}

void IOSReminderItem::initWithLowReminderiCloudDictionary(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  auto [due, interval, address, description, freq, proximity, title, parent, uuid] =
      record.fields({"due", "interval", "address", "description", "freq", "proximity", "title",
                     "parent", "uuid"});
  if (personal::hasDateParts(due)) {
    personal::DateParts parts = personal::datePartsOf(due);
    std::string text = fmt::format("{}/{:02}/{:02} {:02}:{:02}:00", parts.year, parts.month,
                                   parts.day, parts.hour, parts.minute);
    RunLog::write("due Date:{}", text);
    setRemindDate(dateWithDateFormatter(text, kDisplayDateFormat));
  } else {
    setRemindDate(std::nullopt);
  }
  // The alarm of this format lives in the reminder: its place, proximity and repetition.
  interval_ = interval.integerFromText();
  readPlace(record.view());
  setLocation(address.stringCopy());
  setNote(description.stringCopy());
  freq_ = freq.isString() ? freq.stringCopy() : (freq.present() ? freq.toJsonText() : "");
  if (!proximity.string().empty()) setStrPriority(proximity.stringCopy());
  if (title.isString()) setTitle(title.stringCopy());
  if (parent.isString()) setList(parent.stringCopy());
  if (uuid.isString()) setIdentifier(uuid.stringCopy());
}

std::shared_ptr<IOSAttachmentItem> IOSReminderItem::parseReminderAttachmentsWithiCloudDict(
    const json::Value& record) {
  auto [size, parent, url, name] = record.fields({"size", "parent", "url", "name"});
  auto attachment = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(record);
  attachment->setName(name.stringCopy());
  attachment->setSize(size.present() ? size.integerFromText() : -1);
  attachment->setUrl(url.stringCopy());
  attachment->setParentUUID(parent.stringCopy());
  ItemList list = attachments();
  list.push_back(attachment);
  setAttachments(std::move(list));
  return attachment;
}

void IOSReminderItem::parseReminderAlarmsWithiCloudDict(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  auto [uuid, type, date, address, title, proximity, upperProximity] =
      record.fields({"uuid", "type", "date", "address", "title", "proximity", "Proximity"});
  alarmUUID_ = uuid.stringCopy();
  if (type.string() == "Date") {
    personal::DateParts parts = personal::datePartsOf(date);
    std::string text = fmt::format("{}/{:02}/{:02} {:02}:{:02}:{:02}", parts.year, parts.month,
                                   parts.day, parts.hour, parts.minute, parts.second);
    RunLog::write("startDate:{}", text);
    setRemindDate(dateWithDateFormatter(text, kDisplayDateFormat));
    setStrRemindDate(std::move(text));
  } else if (type.string() == "Location") {
    setLocation(address.stringCopy());
    setLocationTitle(title.stringCopy());
    // The priority text carries the proximity (arriving or leaving) of a location alarm.
    setStrPriority(proximity.isString() ? proximity.stringCopy() : upperProximity.stringCopy());
    readPlace(record.view());
  }
}

void IOSReminderItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("state_flag", state_flag_);
  visitor.field("priority_flag", priority_flag_);
  visitor.field("identifier", identifier());
  visitor.field("title", title());
  visitor.field("location", location());
  visitor.field("locationTitle", locationTitle_);
  visitor.field("note", note());
  visitor.field("list", list());
  visitor.field("remindDate", remindDate());
  visitor.field("strRemindDate", strRemindDate());
  visitor.field("completed", completed());
  visitor.field("priority", priority());
  visitor.field("strPriority", strPriority());
  visitor.field("hasFlag", hasFlag());
  visitor.field("url", url());
  visitor.field("attachments", attachments());
  visitor.field("attachmentsUUID", attachmentsUUID_);
  visitor.field("alarmsUUIDArr", alarmsUUIDArr_);
  visitor.field("alarmUUID", alarmUUID_);
  visitor.field("latitude", latitude_);
  visitor.field("longitude", longitude_);
  visitor.field("radius", radius_);
  visitor.field("interval", interval_);
  visitor.field("freq", freq_);
}

// --- iCloudReminderListItem ---

void iCloudReminderListItem::initWithDictionary(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  auto [created, name, uuid, reminders] = record.fields({"created", "name", "uuid", "reminders"});
  data_ = created.isNumber() ? dateWithSecondsSince1970(created.number()) : std::nullopt;
  strDate_ = data_ ? stringWithDateFormatter(*data_) : std::string();
  name_ = name.stringCopy();
  uuid_ = uuid.stringCopy();
  reminderUUIDs_ = textsOf(reminders);
}

void iCloudReminderListItem::initWithLowReminderDictionary(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  auto [enabled, title, uuid, created] = record.fields({"enabled", "title", "uuid", "created"});
  enabled_ = enabled.boolean();
  name_ = title.stringCopy();
  uuid_ = uuid.stringCopy();
  if (personal::hasDateParts(created)) {
    personal::DateParts parts = personal::datePartsOf(created);
    // Space-padded, as the account's own lists are written.
    strDate_ = fmt::format("{}/{:2}/{:2} {:2}:{:2}:00", parts.year, parts.month, parts.day,
                           parts.hour, parts.minute);
    data_ = dateWithDateFormatter(strDate_, kDisplayDateFormat);
  }
}

void iCloudReminderListItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("name", name_);
  visitor.field("uuid", uuid_);
  visitor.field("data", data_);
  visitor.field("strDate", strDate_);
  visitor.field("reminderUUIDs", reminderUUIDs_);
  visitor.field("enabled", enabled_);
}

// --- IOSReminderParser ---

void IOSReminderParser::addJSONData(JSONData data) {
  IOSBaseParser::addJSONData(data);
  const json::Value& record = rawData();
  for (json::View element : record.elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    auto reminder = IOSBaseItem::itemWithDictionary<IOSReminderItem>(record.sub(element));
    if (!parseDeleted() && reminder->isDeleted()) continue;
    items().push_back(reminder);
    const ItemList& media = reminder->attachments();
    attachments().insert(attachments().end(), media.begin(), media.end());
  }
}

ItemList IOSReminderParser::keepLists(JSONData data, bool lowFormat) {
  ItemList found;
  json::Value document = JSONWithData(data);
  json::Value entries = listOf(document, "lists");
  for (json::View element : entries.elements()) {
    if (isStopParser()) break;
    if (!element.isObject()) continue;
    auto list = makeItem<iCloudReminderListItem>();
    if (lowFormat) {
      list->initWithLowReminderDictionary(entries.sub(element));
    } else {
      list->initWithDictionary(entries.sub(element));
    }
    lists_.push_back(list);
    found.push_back(std::move(list));
  }
  return found;
}

ItemList IOSReminderParser::parserICloudWithListDataJSONData(JSONData data) {
  return keepLists(data, false);
}

ItemList IOSReminderParser::parserLowReminderiCloudWithListDataJSONData(JSONData data) {
  return keepLists(data, true);
}

std::string IOSReminderParser::listName(std::string_view uuid, const ItemList& lists) const {
  for (const ItemPtr& item : lists) {
    auto list = std::dynamic_pointer_cast<iCloudReminderListItem>(item);
    if (list && list->uuid() == uuid) return list->name();
  }
  return {};
}

void IOSReminderParser::addiCloudJSONData(JSONData data, const ItemList& lists) {
  IOSBaseParser::addJSONData(data);
  json::Value entries = listOf(rawData(), "reminders");
  for (json::View element : entries.elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    auto reminder = makeItem<IOSReminderItem>();
    reminder->initWithiCloudDictionary(entries.sub(element));
    reminder->setList(listName(element["parent"].string(), lists));
    if (!parseDeleted() && reminder->isDeleted()) continue;
    items().push_back(std::move(reminder));
  }
}

void IOSReminderParser::addLowReminderiCloudJSONData(JSONData data) {
  IOSBaseParser::addJSONData(data);
  json::Value document = rawData();
  ItemList lists(lists_.begin(), lists_.end());
  json::Value listEntries = listOf(document, "lists");
  for (json::View element : listEntries.elements()) {
    if (!element.isObject()) continue;
    auto list = makeItem<iCloudReminderListItem>();
    list->initWithLowReminderDictionary(listEntries.sub(element));
    lists_.push_back(list);
    lists.push_back(std::move(list));
  }
  json::Value entries = listOf(document, "reminders");
  for (json::View element : entries.elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    auto reminder = makeItem<IOSReminderItem>();
    reminder->initWithLowReminderiCloudDictionary(entries.sub(element));
    reminder->setList(listName(element["parent"].string(), lists));
    if (!parseDeleted() && reminder->isDeleted()) continue;
    items().push_back(std::move(reminder));
  }
}

void IOSReminderParser::parseriCloudAttachmentsForItem(const ReminderPtr& item, JSONData data) {
  if (!item) return;
  json::Value document = JSONWithData(data);
  json::Value entries = listOf(document, "medias");
  for (json::View element : entries.elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    attachments().push_back(item->parseReminderAttachmentsWithiCloudDict(entries.sub(element)));
  }
}

void IOSReminderParser::parseriCloudAlarmsWithJSONData(JSONData data) {
  json::Value document = JSONWithData(data);
  json::Value entries = listOf(document, "alarms");
  for (json::View element : entries.elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    auto alarm = makeItem<IOSReminderItem>();
    alarm->parseReminderAlarmsWithiCloudDict(entries.sub(element));
    alarms_.push_back(std::move(alarm));
  }
}

void IOSReminderParser::parseriCloudAlarmsForItem(const ReminderPtr& item, JSONData data) {
  parseriCloudAlarmsWithJSONData(data);
  matchingAlarmForItem(item);
}

void IOSReminderParser::matchingAlarmForItem(const ReminderPtr& item) const {
  if (!item) return;
  const std::vector<std::string>& wanted = item->alarmsUUIDArr();
  for (const ReminderPtr& alarm : alarms_) {
    if (std::find(wanted.begin(), wanted.end(), alarm->alarmUUID()) == wanted.end()) continue;
    item->setRemindDate(alarm->remindDate());
    item->setStrRemindDate(alarm->strRemindDate());
    item->setLocation(alarm->location());
    item->setStrPriority(alarm->strPriority());
    return;
  }
}

}  // namespace dataparser
