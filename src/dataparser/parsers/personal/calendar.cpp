#include "dataparser/parsers/personal/calendar.h"

#include <fmt/format.h>

#include <atomic>
#include <mutex>
#include <semaphore>

#include "dataparser/parsers/personal/personal_records.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/path.h"
#include "dataparser/util/run_log.h"

namespace dataparser {
namespace {

using personal::lazy;

OptionalDate dateOfText(json::View text) {
  std::string_view value = text.string();
  if (value.empty()) return std::nullopt;
  return dateWithDateFormatter(value);
}

std::string displayText(const OptionalDate& date) {
  return date ? stringWithDateFormatter(*date) : std::string();
}

// An iCloud date by its parts, read back the way the display format reads it.
OptionalDate dateOfParts(json::View value) {
  if (!personal::hasDateParts(value)) return std::nullopt;
  personal::DateParts parts = personal::datePartsOf(value);
  std::string text = fmt::format("{}/{:02}/{:02} {:02}:{:02}:00", parts.year, parts.month,
                                 parts.day, parts.hour, parts.minute);
  return dateWithDateFormatter(text, kDisplayDateFormat);
}

struct TransferSettings {
  std::mutex mutex;
  IOSCalendarItem::AttachmentTransfer transfer;
  std::chrono::milliseconds timeout = std::chrono::seconds(1800);
};

TransferSettings& transferSettings() {
  static TransferSettings settings;
  return settings;
}

}  // namespace

// --- IOSCalendarItem ---

const std::string& IOSCalendarItem::title() const {
  return lazy(title_, [&] { return rawData()["utf_Title"].stringCopy(); });
}

const std::string& IOSCalendarItem::location() const {
  return lazy(location_, [&] { return rawData()["utf_Address"].stringCopy(); });
}

const std::string& IOSCalendarItem::note() const {
  return lazy(note_, [&] { return rawData()["utf_Description"].stringCopy(); });
}

const std::string& IOSCalendarItem::url() const {
  return lazy(url_, [&] { return rawData()["utf_Url"].stringCopy(); });
}

const std::string& IOSCalendarItem::calendar() const {
  return lazy(calendar_, [&] { return rawData()["calendar"].stringCopy(); });
}

const OptionalDate& IOSCalendarItem::startDate() const {
  return lazy(startDate_, [&] { return dateOfText(rawData()["start_date"]); });
}

const OptionalDate& IOSCalendarItem::endDate() const {
  return lazy(endDate_, [&] { return dateOfText(rawData()["end_date"]); });
}

const std::string& IOSCalendarItem::strStartDate() const {
  return lazy(strStartDate_, [&] { return displayText(startDate()); });
}

const std::string& IOSCalendarItem::strEndDate() const {
  return lazy(strEndDate_, [&] { return displayText(endDate()); });
}

const std::vector<std::string>& IOSCalendarItem::participants() const {
  return lazy(participants_, [&] {
    std::vector<std::string> list;
    for (json::View participant : rawData()["participants"].elements()) {
      if (participant.isString()) {
        list.push_back(participant.stringCopy());
      } else if (participant.present()) {
        list.push_back(participant.toJsonText());
      }
    }
    return list;
  });
}

const ItemList& IOSCalendarItem::attachments() const {
  return lazy(attachments_, [&] {
    ItemList list;
    for (json::View file : rawData()["attachment_files"].elements()) {
      auto [name, path] = file.fields({"file_name", "file_path"});
      if (!name.present() || !path.present()) continue;
      auto attachment = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(rawData().sub(file));
      attachment->setName(name.stringCopy());
      attachment->setLocalPath(path.stringCopy());
      list.push_back(std::move(attachment));
    }
    return list;
  });
}

void IOSCalendarItem::initWithiCloudDictionary(const json::Value& record,
                                               const std::vector<CalendarCollection>& collections,
                                               const std::string& backupPath) {
  initWithDictionary(record);
  std::string calendarName;
  std::string_view parent = record["parent"].string();
  for (const CalendarCollection& collection : collections) {
    auto guid = collection.find("guid");
    if (guid == collection.end() || guid->second != parent) continue;
    if (auto title = collection.find("title"); title != collection.end()) {
      calendarName = title->second;
    }
    break;
  }
  setCalendar(std::move(calendarName));
  setNote(record["description"].stringCopy());
  setLocation(record["location"].stringCopy());
  setTitle(record["title"].stringCopy());
  setUrl(record["url"].stringCopy());
  std::vector<std::string> participants;
  if (json::View organizer = record["organizer"]; organizer.isString()) {
    participants.push_back(organizer.stringCopy());
  }
  setParticipants(std::move(participants));
  setStartDate(dateOfParts(record["startDate"]));
  setEndDate(dateOfParts(record["endDate"]));

  ItemList files;
  for (json::View entry : record["attachments"].elements()) {
    if (!entry.isObject()) continue;
    auto [name, size, url, uuid] = entry.fields({"name", "size", "url", "uuid"});
    auto attachment = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(record.sub(entry));
    attachment->setName(name.stringCopy());
    attachment->setSize(size.present() ? size.integer() : -1);
    attachment->setUrl(url.stringCopy());
    attachment->setUuid(uuid.stringCopy());
    attachment->setParentUUID(record["guid"].stringCopy());
    std::string extension = path::pathExtension(name.string());
    std::string fileName = personal::downloadedFileName(
        uuid.string(), extension.empty() ? std::string() : "." + extension);
    attachment->setLocalPath(personal::existingDownloadedFile(backupPath, fileName));
    files.push_back(std::move(attachment));
  }
  setAttachments(std::move(files));
}

void IOSCalendarItem::setAttachmentTransfer(AttachmentTransfer transfer) {
  TransferSettings& settings = transferSettings();
  std::lock_guard lock(settings.mutex);
  settings.transfer = std::move(transfer);
}

void IOSCalendarItem::setDownloadTimeout(std::chrono::milliseconds timeout) {
  TransferSettings& settings = transferSettings();
  std::lock_guard lock(settings.mutex);
  settings.timeout = timeout;
}

void IOSCalendarItem::downloadAttachmentWithURLStr(const std::string& url,
                                                   const std::string& fileName,
                                                   const DownloadCompletion& completed) const {
  auto finish = [&](bool success, const std::string& file) {
    if (completed) completed(success, file);
  };
  std::string folder = path::appendingPathComponent(productDomainPath(), "iCloud/tmp");
  createDirectories(folder);
  std::string target = path::appendingPathComponent(folder, path::safeComponent(fileName));
  if (url.empty()) {
    RunLog::write("download failed! URL:{}", url);
    finish(false, target);
    return;
  }
  if (fileExists(target)) {
    finish(true, target);
    return;
  }
  AttachmentTransfer transfer;
  std::chrono::milliseconds timeout{};
  {
    TransferSettings& settings = transferSettings();
    std::lock_guard lock(settings.mutex);
    transfer = settings.transfer;
    timeout = settings.timeout;
  }
  if (!transfer) {
    RunLog::write("download failed! URL:{}", url);
    finish(false, target);
    return;
  }
  // Shared with the transfer: a late answer after a time-out still finds its semaphore.
  struct Wait {
    std::binary_semaphore done{0};
    std::atomic<bool> failed = false;
  };
  auto wait = std::make_shared<Wait>();
  transfer(url, target, [wait](std::optional<std::string> error) {
    wait->failed.store(error.has_value());
    wait->done.release();
  });
  if (!wait->done.try_acquire_for(timeout)) {
    RunLog::write("download timeout!! URL:{}", url);
    finish(false, target);
    return;
  }
  bool success = !wait->failed.load() && fileExists(target);
  if (!success) RunLog::write("download failed! URL:{}", url);
  finish(success, target);
}

void IOSCalendarItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("title", title());
  visitor.field("location", location());
  visitor.field("note", note());
  visitor.field("startDate", startDate());
  visitor.field("strStartDate", strStartDate());
  visitor.field("endDate", endDate());
  visitor.field("strEndDate", strEndDate());
  visitor.field("url", url());
  visitor.field("calendar", calendar());
  visitor.field("participants", participants());
  visitor.field("attachments", attachments());
}

// --- IOSCalendarParser ---

std::shared_ptr<IOSCalendarParser> IOSCalendarParser::parserWithJSONData(JSONData data,
                                                                         bool parseDeleted) {
  return parserWithJSONData(data, parseDeleted, false);
}

std::shared_ptr<IOSCalendarParser> IOSCalendarParser::parserWithJSONData(JSONData data,
                                                                         bool parseDeleted,
                                                                         bool deviceBackup) {
  auto parser = makeWithJSONData<IOSCalendarParser>(data, parseDeleted, deviceBackup);
  parser->addEvents(parser->rawData());
  return parser;
}

void IOSCalendarParser::addEvents(const json::Value& events) {
  for (json::View element : events.elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    auto event = IOSBaseItem::itemWithDictionary<IOSCalendarItem>(events.sub(element));
    if (!parseDeleted() && event->isDeleted()) continue;
    items().push_back(event);
    // The event lists every attachment it names; the parser only those found on disk.
    for (const ItemPtr& item : event->attachments()) {
      const auto& attachment = static_cast<const IOSAttachmentItem&>(*item);
      if (backupFileExists(attachment.localPath())) attachments().push_back(item);
    }
  }
}

void IOSCalendarParser::addiCloudJSONData(JSONData data) {
  addJSONData(data);
  const json::Value& record = rawData();
  if (!record.isObject()) return;
  std::vector<CalendarCollection> collections;
  json::View list = record["collections"];
  for (json::View element : list.elements()) {
    auto [guid, title, color] = element.fields({"guid", "title", "color"});
    if (!guid.isString()) continue;
    collections.push_back(CalendarCollection{
        {"guid", guid.stringCopy()}, {"title", title.stringCopy()}, {"color", color.stringCopy()}});
  }
  if (list.size() > 0) listArr_ = std::move(collections);
  for (json::View element : record["events"].elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    auto event = makeItem<IOSCalendarItem>();
    event->initWithiCloudDictionary(record.sub(element), listArr_, backupPath());
    items().push_back(std::move(event));
  }
}

}  // namespace dataparser
