// Calendar: IOSCalendarParser turns the engine's calendar export (a list of event objects) into
// IOSCalendarItem events, and collects the events' attached files that exist on disk into its
// `attachments`. The same item is built from an event of a downloaded iCloud calendar by
// `initWithiCloudDictionary`, and `addiCloudJSONData` reads a whole iCloud calendar file.
//
// Event fields are read from the record on first use and kept; every setter wins over the
// record (the iCloud constructor fills the item through them):
//   title "utf_Title", location "utf_Address", note "utf_Description", url "utf_Url",
//   calendar "calendar" (the calendar's name), participants "participants" (texts as they
//   come; other values as their JSON text), startDate / endDate "start_date" / "end_date"
//   (engine date texts; an empty or unreadable text gives no date), strStartDate / strEndDate
//   those dates as "yyyy/MM/dd HH:mm:ss" ("" without a date), attachments one attachment per
//   "attachment_files" object with both "file_name" and "file_path" (present on disk or not).
//
// Ownership: items and attachments are shared; the parser's attachments are the same objects
// as the events' own. Thread safety: built on one thread, then read from one thread at a time;
// stopParser() may be called from any thread.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dataparser/model/attachment.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/util/date.h"

namespace dataparser {

// One calendar (collection) of an iCloud account: the keys "guid", "title" and "color".
using CalendarCollection = std::map<std::string, std::string>;

class IOSCalendarItem : public IOSBaseItem {
 public:
  // How an event's file is fetched: start the transfer of `url` (as the record gives it; the
  // transfer escapes it) into `path` and call `done` exactly once, from any thread, with nothing
  // on success or the error's text. The iCloud download layer installs the real one; without
  // one every download fails.
  using AttachmentTransfer =
      std::function<void(const std::string& url, const std::string& path,
                         std::function<void(std::optional<std::string> error)> done)>;
  // The outcome of `downloadAttachmentWithURLStr`: success and the file's path.
  using DownloadCompletion = std::function<void(bool success, const std::string& path)>;

  // The event of a downloaded iCloud calendar: its calendar's title from `collections` (by the
  // event's "parent"), texts, organizer, dates by parts, and the attachments, whose files are
  // named "{md5(uuid)}.{extension of name}" under `backupPath` (set as localPath once there).
  void initWithiCloudDictionary(const json::Value& record,
                                const std::vector<CalendarCollection>& collections,
                                const std::string& backupPath);

  const std::string& title() const;
  void setTitle(std::string title) { title_ = std::move(title); }
  const std::string& location() const;
  void setLocation(std::string location) { location_ = std::move(location); }
  const std::string& note() const;
  void setNote(std::string note) { note_ = std::move(note); }
  const OptionalDate& startDate() const;
  void setStartDate(OptionalDate date) { startDate_ = date; }
  const std::string& strStartDate() const;
  void setStrStartDate(std::string text) { strStartDate_ = std::move(text); }
  const OptionalDate& endDate() const;
  void setEndDate(OptionalDate date) { endDate_ = date; }
  const std::string& strEndDate() const;
  void setStrEndDate(std::string text) { strEndDate_ = std::move(text); }
  const std::string& url() const;
  void setUrl(std::string url) { url_ = std::move(url); }
  const std::string& calendar() const;
  void setCalendar(std::string calendar) { calendar_ = std::move(calendar); }
  const std::vector<std::string>& participants() const;
  void setParticipants(std::vector<std::string> participants) {
    participants_ = std::move(participants);
  }
  const ItemList& attachments() const;
  void setAttachments(ItemList attachments) { attachments_ = std::move(attachments); }

  // Downloads one event attachment into "{working root}/iCloud/tmp/{fileName}" and calls
  // `completed` once. An empty URL fails at once; a file already there is taken as it is.
  // Otherwise it waits for the transfer (at most 1800 seconds; on time-out logs
  // "download timeout!! URL:{url}") and logs "download failed! URL:{url}" on failure. Blocks the
  // calling thread, which must not be the MainQueue.
  void downloadAttachmentWithURLStr(const std::string& url, const std::string& fileName,
                                    const DownloadCompletion& completed) const;
  static void setAttachmentTransfer(AttachmentTransfer transfer);
  // How long a download may take; 1800 seconds unless a test shortens it.
  static void setDownloadTimeout(std::chrono::milliseconds timeout);

  std::string_view className() const override { return "IOSCalendarItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  mutable std::optional<std::string> title_, location_, note_, url_, calendar_;
  mutable std::optional<OptionalDate> startDate_, endDate_;
  mutable std::optional<std::string> strStartDate_, strEndDate_;
  mutable std::optional<std::vector<std::string>> participants_;
  mutable std::optional<ItemList> attachments_;
};

class IOSCalendarParser : public IOSBaseParser {
 public:
  // The record is the list of events. Events that are not objects are skipped, deleted ones
  // too unless `parseDeleted`; the attachments of kept events whose files exist are collected.
  static std::shared_ptr<IOSCalendarParser> parserWithJSONData(JSONData data, bool parseDeleted,
                                                               bool deviceBackup);
  static std::shared_ptr<IOSCalendarParser> parserWithJSONData(JSONData data, bool parseDeleted);

  // A downloaded iCloud calendar file: an object with "collections" (the calendars, into
  // `listArr`) and "events" (appended to `items`). Stops between events when asked to.
  void addiCloudJSONData(JSONData data);

  const std::vector<CalendarCollection>& listArr() const { return listArr_; }
  void setListArr(std::vector<CalendarCollection> list) { listArr_ = std::move(list); }

  std::string_view className() const override { return "IOSCalendarParser"; }

 private:
  void addEvents(const json::Value& events);

  std::vector<CalendarCollection> listArr_;
};

}  // namespace dataparser
