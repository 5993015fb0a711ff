// Reminders: IOSReminderParser is fed the engine's reminder export piece by piece (each piece a
// list of reminder objects) and keeps IOSReminderItem reminders and their media files. The same
// items are built from a downloaded iCloud account in its two formats (the current one and the
// older, "low" one) together with their lists (iCloudReminderListItem), attachments and alarms.
//
// Reminder fields from the engine's record, read on first use and kept (setters win):
//   identifier "unique_identifier", title "utf_Title", location "utf_Address" (the two
//   characters backslash-n become a line break), note "utf_Description", list "utf_List", url
//   "url", remindDate "start_date" (an engine date text) and strRemindDate that date as
//   "yyyy/MM/dd HH:mm:ss", attachments one per "media_info" entry whose "media_name",
//   "media_path" and "media_device_path" are all given and whose file exists.
// Read when the item is made: state_flag "status", priority_flag "priority".
// Computed: completed (state_flag 1), priority (priority_flag 1, 5, 9 give 1, 2, 3, else 0),
//   strPriority ("High Priority", "Medium Priority", "Low Priority", "" for none; a location
//   alarm of iCloud stores its proximity here instead), hasFlag ("flagged" is 1).
//
// Ownership: items are shared; the parser's attachments are the reminders' own objects.
// Thread safety: built and fed on one thread, then read from one thread at a time;
// stopParser() may be called from any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dataparser/model/attachment.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/util/date.h"

namespace dataparser {

class IOSReminderItem : public IOSBaseItem {
 public:
  // Keeps the record and reads "status" and "priority".
  void initWithDictionary(const json::Value& record) override;
  // A reminder of the current iCloud format: "uuid", "title", "note", "parent" (the list's
  // identifier), "completed" (a reminder without it counts as completed), "due" (milliseconds
  // since 1970), "attachments" and "alarms" (identifiers).
  void initWithiCloudDictionary(const json::Value& record);
  // A reminder of the older iCloud format: "due" by its parts, the alarm keys kept in the
  // reminder itself ("address", "proximity", "latitude", ...), "title", "parent", "uuid".
  void initWithLowReminderiCloudDictionary(const json::Value& record);
  // One media record of an iCloud reminder ("name", "size", "url", "parent") as an attachment
  // whose file is still to be downloaded; appended to this reminder's `attachments`.
  std::shared_ptr<IOSAttachmentItem> parseReminderAttachmentsWithiCloudDict(
      const json::Value& record);
  // Makes this item an alarm: `alarmUUID` "uuid"; a "Date" alarm sets remindDate and
  // strRemindDate from its "date" parts, a "Location" alarm sets location ("address"),
  // locationTitle ("title"), the place and its proximity (kept in `strPriority`).
  void parseReminderAlarmsWithiCloudDict(const json::Value& record);

  std::int32_t state_flag() const { return state_flag_; }
  void setState_flag(std::int32_t value) { state_flag_ = value; }
  std::int32_t priority_flag() const { return priority_flag_; }
  void setPriority_flag(std::int32_t value) { priority_flag_ = value; }

  const std::string& identifier() const;
  void setIdentifier(std::string value) { identifier_ = std::move(value); }
  const std::string& title() const;
  void setTitle(std::string value) { title_ = std::move(value); }
  const std::string& location() const;
  void setLocation(std::string value) { location_ = std::move(value); }
  const std::string& locationTitle() const { return locationTitle_; }
  void setLocationTitle(std::string value) { locationTitle_ = std::move(value); }
  const std::string& note() const;
  void setNote(std::string value) { note_ = std::move(value); }
  const std::string& list() const;
  void setList(std::string value) { list_ = std::move(value); }
  const OptionalDate& remindDate() const;
  void setRemindDate(OptionalDate value) { remindDate_ = value; }
  const std::string& strRemindDate() const;
  void setStrRemindDate(std::string value) { strRemindDate_ = std::move(value); }
  const std::string& url() const;
  void setUrl(std::string value) { url_ = std::move(value); }
  const ItemList& attachments() const;
  void setAttachments(ItemList value) { attachments_ = std::move(value); }

  bool completed() const { return state_flag_ == 1; }
  std::uint64_t priority() const;
  const std::string& strPriority() const;
  void setStrPriority(std::string value) { strPriority_ = std::move(value); }
  bool hasFlag() const;

  // iCloud identifiers.
  const std::vector<std::string>& attachmentsUUID() const { return attachmentsUUID_; }
  void setAttachmentsUUID(std::vector<std::string> value) { attachmentsUUID_ = std::move(value); }
  const std::vector<std::string>& alarmsUUIDArr() const { return alarmsUUIDArr_; }
  void setAlarmsUUIDArr(std::vector<std::string> value) { alarmsUUIDArr_ = std::move(value); }
  const std::string& alarmUUID() const { return alarmUUID_; }
  void setAlarmUUID(std::string value) { alarmUUID_ = std::move(value); }
  // The place of a location alarm, and the older format's repetition of an alarm.
  double latitude() const { return latitude_; }
  void setLatitude(double value) { latitude_ = value; }
  double longitude() const { return longitude_; }
  void setLongitude(double value) { longitude_ = value; }
  double radius() const { return radius_; }
  void setRadius(double value) { radius_ = value; }
  std::int64_t interval() const { return interval_; }
  void setInterval(std::int64_t value) { interval_ = value; }
  const std::string& freq() const { return freq_; }
  void setFreq(std::string value) { freq_ = std::move(value); }

  std::string_view className() const override { return "IOSReminderItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  void readPlace(json::View record);

  mutable std::optional<std::string> identifier_, title_, location_, note_, list_, url_;
  mutable std::optional<OptionalDate> remindDate_;
  mutable std::optional<std::string> strRemindDate_, strPriority_;
  mutable std::optional<ItemList> attachments_;
  std::string locationTitle_;
  std::vector<std::string> attachmentsUUID_;
  std::vector<std::string> alarmsUUIDArr_;
  std::string alarmUUID_;
  std::string freq_;
  double latitude_ = 0;
  double longitude_ = 0;
  double radius_ = 0;
  std::int64_t interval_ = 0;
  std::int32_t state_flag_ = 0;
  std::int32_t priority_flag_ = 0;
};

// One reminder list of an iCloud account.
class iCloudReminderListItem : public IOSBaseItem {
 public:
  // Current format: "created" (seconds since 1970), "name", "uuid", "reminders".
  void initWithDictionary(const json::Value& record) override;
  // Older format: "enabled", "title", "uuid", "created" by its parts.
  void initWithLowReminderDictionary(const json::Value& record);

  const std::string& name() const { return name_; }
  void setName(std::string value) { name_ = std::move(value); }
  const std::string& uuid() const { return uuid_; }
  void setUuid(std::string value) { uuid_ = std::move(value); }
  const OptionalDate& data() const { return data_; }
  void setData(OptionalDate value) { data_ = value; }
  const std::string& strDate() const { return strDate_; }
  void setStrDate(std::string value) { strDate_ = std::move(value); }
  const std::vector<std::string>& reminderUUIDs() const { return reminderUUIDs_; }
  void setReminderUUIDs(std::vector<std::string> value) { reminderUUIDs_ = std::move(value); }
  bool enabled() const { return enabled_; }
  void setEnabled(bool value) { enabled_ = value; }

  std::string_view className() const override { return "iCloudReminderListItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  std::string name_;
  std::string uuid_;
  OptionalDate data_;
  std::string strDate_;
  std::vector<std::string> reminderUUIDs_;
  bool enabled_ = false;
};

using ReminderPtr = std::shared_ptr<IOSReminderItem>;
using ReminderListPtr = std::shared_ptr<iCloudReminderListItem>;

class IOSReminderParser : public IOSBaseParser {
 public:
  // One piece of the engine's export: a list of reminder objects. Deleted reminders are left
  // out unless `parseDeleted`; the media files of kept reminders that exist are collected.
  void addJSONData(JSONData data) override;

  // --- iCloud ---
  // The lists of an account ("lists"), kept by the parser and returned.
  ItemList parserICloudWithListDataJSONData(JSONData data);
  ItemList parserLowReminderiCloudWithListDataJSONData(JSONData data);
  // The reminders ("reminders") of the current format; each reminder's `list` is the name of
  // the list of `lists` whose uuid is its "parent".
  void addiCloudJSONData(JSONData data, const ItemList& lists);
  // The older format: its "lists" (when present) and its "reminders".
  void addLowReminderiCloudJSONData(JSONData data);
  // The media ("medias") of one reminder.
  void parseriCloudAttachmentsForItem(const ReminderPtr& item, JSONData data);
  // The alarms ("alarms"): kept by the parser; the ForItem form then matches `item`.
  void parseriCloudAlarmsWithJSONData(JSONData data);
  void parseriCloudAlarmsForItem(const ReminderPtr& item, JSONData data);
  // Copies remindDate, strRemindDate, location and strPriority of the first kept alarm whose
  // alarmUUID is one of the reminder's alarmsUUIDArr.
  void matchingAlarmForItem(const ReminderPtr& item) const;

  const std::vector<ReminderListPtr>& lists() const { return lists_; }
  const std::vector<ReminderPtr>& alarms() const { return alarms_; }

  std::string_view className() const override { return "IOSReminderParser"; }

 private:
  ItemList keepLists(JSONData data, bool lowFormat);
  std::string listName(std::string_view uuid, const ItemList& lists) const;

  std::vector<ReminderListPtr> lists_;
  std::vector<ReminderPtr> alarms_;
};

}  // namespace dataparser
