// The coordinator's iCloud operations: reading a downloaded account folder through its
// "BackupInfo.plist" index, and the streamed JSON texts a host hands in one by one. Both feed
// the five iCloud parsers made by setupiCloudParser and report through the observer.
#include <algorithm>
#include <string>
#include <unordered_set>

#include "dataparser/core/ios_data_parser.h"
#include "dataparser/icloud/album.h"
#include "dataparser/icloud/backup_info.h"
#include "dataparser/icloud/download_runs.h"
#include "dataparser/parsers/media/photo.h"
#include "dataparser/parsers/personal/calendar.h"
#include "dataparser/parsers/personal/contacts.h"
#include "dataparser/parsers/personal/note.h"
#include "dataparser/parsers/personal/reminder.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/path.h"
#include "dataparser/util/run_log.h"

namespace dataparser {

namespace {

using Operation = IOSDataParserDelegate::Operation;
using Which = IOSDataParser::ICloudParser;

template <class T>
std::shared_ptr<T> parserAs(const IOSDataParser& coordinator, Which which) {
  return std::dynamic_pointer_cast<T>(coordinator.icloudParser(which));
}

JSONData bytesOf(const std::string& bytes) {
  return std::string_view(bytes);
}

// Calls `each` with the bytes of every readable file that `value` names. When the value is a
// list, `stopped` is asked before each entry and ends the walk; returns false then.
template <class Each>
bool forEachListedFile(const std::string& folder, const json::View& value,
                       const std::function<bool()>& stopped, Each&& each) {
  icloud::ListedFiles files = icloud::listedFiles(folder, value);
  for (const std::string& path : files.paths) {
    if (files.isList && stopped()) return false;
    std::optional<std::string> bytes = icloud::readListedFile(path);
    if (bytes) each(*bytes);
  }
  return true;
}

bool pathExists(std::string_view path) {
  return !path.empty() && backupFileExists(std::string(path));
}

}  // namespace

// ---- lifecycle -------------------------------------------------------------------------------

void IOSDataParser::setupiCloudParser() {
  parseStoped_.store(false);
  releaseiCloudParser();
  setICloudParser(ICloudParser::kPhoto, std::make_shared<IOSPhotoParser>());
  setICloudParser(ICloudParser::kContact, std::make_shared<IOSContactParser>());
  setICloudParser(ICloudParser::kCalendar, std::make_shared<IOSCalendarParser>());
  setICloudParser(ICloudParser::kNote, std::make_shared<IOSNoteParser>());
  setICloudParser(ICloudParser::kReminder, std::make_shared<IOSReminderParser>());
  // A calendar item fetches its own attachment through the same downloader as the runs.
  IOSCalendarItem::setAttachmentTransfer(icloud::fileDownloaderTransfer());
}

void IOSDataParser::releaseiCloudParser() {
  for (ICloudParser which : {ICloudParser::kPhoto, ICloudParser::kContact, ICloudParser::kCalendar,
                             ICloudParser::kNote, ICloudParser::kReminder}) {
    setICloudParser(which, nullptr);
  }
  IOSCalendarItem::setAttachmentTransfer({});
}

ItemList IOSDataParser::icloudNoteShowArr() const {
  std::lock_guard lock(mutex_);
  return icloudNoteShowArr_;
}

void IOSDataParser::addIcloudNoteShowItem(ItemPtr note) {
  std::lock_guard lock(mutex_);
  icloudNoteShowArr_.push_back(std::move(note));
}

ItemList IOSDataParser::icloudReminderShowArr() const {
  std::lock_guard lock(mutex_);
  return icloudReminderShowArr_;
}

std::string IOSDataParser::icloudDownloadPath() const {
  std::lock_guard lock(mutex_);
  return icloudDownloadPath_;
}

void IOSDataParser::setIcloudDownloadPath(std::string path) {
  std::lock_guard lock(mutex_);
  icloudDownloadPath_ = std::move(path);
}

// ---- a downloaded account folder -------------------------------------------------------------

json::Value IOSDataParser::icloudBackupInfoDictWithPath(const std::string& path) const {
  return icloud::readBackupInfo(path);
}

void IOSDataParser::startParseiCloudBackupWithPath(const std::string& path) {
  std::string index = path::appendingPathComponent(path, icloud::kBackupInfoFileName);
  if (!fileExists(index)) {
    RunLog::write("backup not exist:{}", index);
    return;
  }
  // While the account is read, files that its data names count only inside its folder and the
  // download folder.
  const BackupScope scope({path, icloudDownloadPath()});
  queryContactWithPath(path);
  queryCalendarWithPath(path);
  queryNoteWithPath(path);
  queryReminderWithPath(path);
  queryPhotoAndPhototVideoWithPath(path);
}

void IOSDataParser::queryContactWithPath(const std::string& path) {
  json::Value info = icloudBackupInfoDictWithPath(path);
  auto parser = parserAs<IOSContactParser>(*this, ICloudParser::kContact);
  if (!info.isObject() || !parser) return;
  parser->setBackupPath(path);
  parser->setParseDeleted(false);
  forEachListedFile(
      path, info["ContactInfo"], [this] { return parseStoped(); },
      [&](const std::string& bytes) {
        parser->addiCloudJSONData(bytesOf(bytes));
        if (auto observer = observerFor(Operation::kDidFetchedData)) {
          report(observer, parser->items(), IOSDataTypeContact);
        }
      });
}

void IOSDataParser::queryCalendarWithPath(const std::string& path) {
  json::Value info = icloudBackupInfoDictWithPath(path);
  auto parser = parserAs<IOSCalendarParser>(*this, ICloudParser::kCalendar);
  if (!info.isObject() || !info["CalendarInfo"].present() || !parser) return;
  parser->setBackupPath(path);
  parser->setParseDeleted(false);
  bool finished = forEachListedFile(
      path, info["CalendarInfo"], [this] { return parseStoped(); },
      [&](const std::string& bytes) {
        parser->addiCloudJSONData(bytesOf(bytes));
        if (auto observer = observerFor(Operation::kDidFetchedData)) {
          report(observer, parser->items(), IOSDataTypeCalendar);
        }
      });
  if (!finished) return;

  // The attachment files already on disk, each file once.
  ItemList present;
  for (const ItemPtr& item : parser->items()) {
    if (parseStoped()) return;
    auto event = std::dynamic_pointer_cast<IOSCalendarItem>(item);
    if (!event || event->attachments().empty()) continue;
    for (const ItemPtr& entry : event->attachments()) {
      if (parseStoped()) return;
      auto attachment = std::dynamic_pointer_cast<IOSAttachmentItem>(entry);
      if (!attachment || !pathExists(attachment->localPath())) continue;
      bool known = std::any_of(present.begin(), present.end(), [&](const ItemPtr& other) {
        return static_cast<const IOSAttachmentItem&>(*other).localPath() == attachment->localPath();
      });
      if (!known) present.push_back(attachment);
    }
    if (auto observer = observerFor(Operation::kDidFetchedData)) {
      report(observer, present, kResultCalendarAttachments);
    }
  }
}

void IOSDataParser::queryNoteWithPath(const std::string& path) {
  json::Value info = icloudBackupInfoDictWithPath(path);
  auto parser = parserAs<IOSNoteParser>(*this, ICloudParser::kNote);
  if (!info.isObject() || !info["NotesInfo"].present() || !parser) return;
  parser->setBackupPath(path);
  auto stopped = [this] { return parseStoped(); };
  // Attachments and media first, so that the join below finds them.
  forEachListedFile(path, info["NotesAttachmentsInfo"], stopped, [&](const std::string& bytes) {
    parser->parseriCloudAttachmentsForItem(nullptr, bytesOf(bytes));
  });
  forEachListedFile(path, info["NotesMediasInfo"], stopped, [&](const std::string& bytes) {
    parser->parseriCloudMediasForItem(nullptr, bytesOf(bytes));
  });
  forEachListedFile(path, info["NotesInfo"], stopped,
                    [&](const std::string& bytes) { parser->addiCloudJSONData(bytesOf(bytes)); });
  parser->matchAttachments();
  if (auto observer = observerFor(Operation::kDidFetchedData)) {
    report(observer, parser->items(), IOSDataTypeNote);
  }
  ItemList files = parser->allAttachmentsAndMedias();
  if (files.empty()) return;
  if (auto observer = observerFor(Operation::kDidFetchedData)) {
    report(observer, files, kResultNoteAttachments);
  }
}

void IOSDataParser::queryReminderWithPath(const std::string& path) {
  json::Value info = icloudBackupInfoDictWithPath(path);
  if (!info.isObject() || !info["ReminderVersion"].present()) return;
  if (info["ReminderVersion"].integer() == 1) {
    if (info["HeightReminderList"].present()) queryHeightReminderWithPath(path);
  } else if (info["LowReminderList"].present()) {
    queryLowReminderWithPath(path);
  }
}

void IOSDataParser::queryLowReminderWithPath(const std::string& path) {
  json::Value info = icloudBackupInfoDictWithPath(path);
  auto parser = parserAs<IOSReminderParser>(*this, ICloudParser::kReminder);
  if (!info.isObject() || !info["LowReminderList"].present() || !parser) return;
  parser->setParseDeleted(false);
  parser->setBackupPath(path);
  forEachListedFile(
      path, info["LowReminderList"], [this] { return parseStoped(); },
      [&](const std::string& bytes) {
        parser->addLowReminderiCloudJSONData(bytesOf(bytes));
        if (auto observer = observerFor(Operation::kDidFetchedData)) {
          report(observer, parser->items(), IOSDataTypeReminder);
        }
      });
}

void IOSDataParser::queryHeightReminderWithPath(const std::string& path) {
  json::Value info = icloudBackupInfoDictWithPath(path);
  auto parser = parserAs<IOSReminderParser>(*this, ICloudParser::kReminder);
  if (!info.isObject() || !info["HeightReminderList"].present() || !parser) return;
  parser->setParseDeleted(false);
  parser->setBackupPath(path);
  auto stopped = [this] { return parseStoped(); };
  ItemList lists;
  forEachListedFile(path, info["HeightReminderList"], stopped, [&](const std::string& bytes) {
    ItemList found = parser->parserICloudWithListDataJSONData(bytesOf(bytes));
    lists.insert(lists.end(), found.begin(), found.end());
  });
  forEachListedFile(path, info["HeightReminderAlarmsInfo"], stopped, [&](const std::string& bytes) {
    parser->parseriCloudAlarmsWithJSONData(bytesOf(bytes));
  });
  forEachListedFile(path, info["HeightReminderInfos"], stopped, [&](const std::string& bytes) {
    parser->addiCloudJSONData(bytesOf(bytes), lists);
  });
  for (const ItemPtr& item : parser->items()) {
    if (auto reminder = std::dynamic_pointer_cast<IOSReminderItem>(item)) {
      parser->matchingAlarmForItem(reminder);
    }
  }
  if (auto observer = observerFor(Operation::kDidFetchedData)) {
    report(observer, parser->items(), IOSDataTypeReminder);
  }
}

void IOSDataParser::queryPhotoAndPhototVideoWithPath(const std::string& path) {
  json::Value info = icloudBackupInfoDictWithPath(path);
  auto parser = parserAs<IOSPhotoParser>(*this, ICloudParser::kPhoto);
  if (!info.isObject() || !info["AlbumsInfo"].present() || !parser) return;
  parser->setParseDeleted(false);
  parser->setBackupPath(path);
  auto stopped = [this] { return parseStoped(); };

  std::vector<AlbumPtr> albums;
  forEachListedFile(path, info["AlbumsInfo"], stopped, [&](const std::string& bytes) {
    auto albumParser = iCloudiOSAlbumParser::parserWithJSONData(bytesOf(bytes), false, false);
    for (const ItemPtr& item : albumParser->items()) {
      albums.push_back(std::static_pointer_cast<iCloudiOSAlbumItem>(item));
    }
  });
  if (albums.empty()) return;

  for (const AlbumPtr& album : albums) {
    if (album->guid().empty()) continue;
    forEachListedFile(path, info[album->guid()], stopped, [&](const std::string& bytes) {
      parser->addiCloudPhotosJSONData(bytesOf(bytes), *album, path);
    });
  }

  // What is on disk already, each picture once per list.
  ItemList photos;
  ItemList videos;
  std::unordered_set<std::string> photoIds;
  std::unordered_set<std::string> videoIds;
  for (const ItemPtr& item : parser->items()) {
    auto photo = std::dynamic_pointer_cast<IOSPhotoItem>(item);
    if (!photo || !pathExists(photo->localPath())) continue;
    ItemList& list = photo->isVideo() ? videos : photos;
    auto& ids = photo->isVideo() ? videoIds : photoIds;
    if (ids.insert(std::string(photo->uuid())).second) list.push_back(photo);
  }
  if (!photos.empty()) {
    if (auto observer = observerFor(Operation::kDidFetchedData)) {
      report(observer, photos, IOSDataTypePhoto);
    }
  }
  if (!videos.empty()) {
    if (auto observer = observerFor(Operation::kDidFetchedData)) {
      report(observer, videos, kResultPhotoVideos);
    }
  }
}

// ---- streamed texts --------------------------------------------------------------------------

ItemList IOSDataParser::startParseiCloudAlbumsWithJSON(JSONData data) {
  return iCloudiOSAlbumParser::parserWithJSONData(data, false, false)->items();
}

void IOSDataParser::startParseiCloudAlbumPhototsForAlbum(const ItemPtr& album, JSONData withJSON) {
  auto parser = parserAs<IOSPhotoParser>(*this, ICloudParser::kPhoto);
  auto albumItem = std::dynamic_pointer_cast<iCloudiOSAlbumItem>(album);
  if (!parser || !albumItem) return;
  parser->setParseDeleted(false);
  parser->addiCloudPhotosJSONData(withJSON, *albumItem, std::string());
}

void IOSDataParser::startParseiCloudContactWithJSON(JSONData data,
                                                    const std::string& withSavePath) {
  auto parser = parserAs<IOSContactParser>(*this, ICloudParser::kContact);
  if (!parser) return;
  parser->setParseDeleted(false);
  parser->setBackupPath(withSavePath);
  parser->addiCloudJSONData(data);
  contactFetchedData();
}

namespace {

bool iconReady(const IOSContactItem& contact) {
  return contact.iconUrl().empty() || pathExists(contact.iconPath());
}

}  // namespace

ItemList IOSDataParser::needDownloadIconContacts() const {
  ItemList waiting;
  auto parser = parserAs<IOSContactParser>(*this, ICloudParser::kContact);
  if (!parser) return waiting;
  for (const ItemPtr& item : parser->items()) {
    auto contact = std::dynamic_pointer_cast<IOSContactItem>(item);
    if (contact && !iconReady(*contact)) waiting.push_back(item);
  }
  return waiting;
}

void IOSDataParser::contactFetchedData() {
  auto parser = parserAs<IOSContactParser>(*this, ICloudParser::kContact);
  if (!parser) return;
  ItemList ready;
  for (const ItemPtr& item : parser->items()) {
    auto contact = std::dynamic_pointer_cast<IOSContactItem>(item);
    if (contact && iconReady(*contact)) ready.push_back(item);
  }
  if (auto observer = observerFor(Operation::kDidFetchedData)) {
    report(observer, ready, IOSDataTypeContact);
  }
}

void IOSDataParser::startParseiCloudCalendarWithJSON(JSONData data) {
  auto parser = parserAs<IOSCalendarParser>(*this, ICloudParser::kCalendar);
  if (!parser) return;
  parser->setParseDeleted(false);
  parser->addiCloudJSONData(data);
  ItemList ready;
  for (const ItemPtr& item : parser->items()) {
    auto event = std::dynamic_pointer_cast<IOSCalendarItem>(item);
    if (event && event->attachments().empty()) ready.push_back(item);
  }
  if (auto observer = observerFor(Operation::kDidFetchedData)) {
    report(observer, ready, IOSDataTypeCalendar);
  }
}

std::optional<ItemList> IOSDataParser::startParseiCloudNoteWithJSON(JSONData data) {
  auto parser = parserAs<IOSNoteParser>(*this, ICloudParser::kNote);
  if (!parser) return std::nullopt;
  parser->setParseDeleted(false);
  parser->addiCloudJSONData(data);
  ItemList waiting;
  ItemList ready;
  for (const ItemPtr& item : parser->items()) {
    auto note = std::dynamic_pointer_cast<IOSNoteItem>(item);
    if (!note) continue;
    bool hasFiles = !note->attachmentUUIDs().empty() || !note->mediaUUIDs().empty();
    (hasFiles ? waiting : ready).push_back(item);
  }
  ItemList shown;
  {
    std::lock_guard lock(mutex_);
    icloudNoteShowArr_ = std::move(ready);
    shown = icloudNoteShowArr_;
  }
  if (auto observer = observerFor(Operation::kDidFetchedData)) {
    report(observer, shown, IOSDataTypeNote);
  }
  if (waiting.empty()) return std::nullopt;
  return waiting;
}

void IOSDataParser::startParseiCloudNoteAttachmentsForItem(const ItemPtr& note, JSONData data) {
  if (auto parser = parserAs<IOSNoteParser>(*this, ICloudParser::kNote)) {
    parser->parseriCloudAttachmentsForItem(std::dynamic_pointer_cast<IOSNoteItem>(note), data);
  }
}

void IOSDataParser::startParseiCloudNoteMediasForItem(const ItemPtr& note, JSONData data) {
  if (auto parser = parserAs<IOSNoteParser>(*this, ICloudParser::kNote)) {
    parser->parseriCloudMediasForItem(std::dynamic_pointer_cast<IOSNoteItem>(note), data);
  }
}

void IOSDataParser::startMatchingAttachments() {
  if (auto parser = parserAs<IOSNoteParser>(*this, ICloudParser::kNote)) {
    parser->matchAttachments();
  }
}

void IOSDataParser::startParseLowVersioniCloudReminderListWithJSON(JSONData data) {
  auto parser = parserAs<IOSReminderParser>(*this, ICloudParser::kReminder);
  if (!parser || !data || data->empty()) return;
  parser->setParseDeleted(false);
  parser->addLowReminderiCloudJSONData(data);
  if (auto observer = observerFor(Operation::kDidFetchedData)) {
    report(observer, parser->items(), IOSDataTypeReminder);
  }
}

ItemList IOSDataParser::startParseiCloudReminderListWithJSON(JSONData data) {
  auto parser = parserAs<IOSReminderParser>(*this, ICloudParser::kReminder);
  if (!parser) return {};
  parser->setParseDeleted(false);
  return parser->parserICloudWithListDataJSONData(data);
}

std::optional<ItemList> IOSDataParser::startParseiCloudRemindersInfoWithJSON(
    JSONData data, const ItemList& andListArr) {
  auto parser = parserAs<IOSReminderParser>(*this, ICloudParser::kReminder);
  if (!parser || !data || data->empty()) return std::nullopt;
  parser->addiCloudJSONData(data, andListArr);
  ItemList waiting;
  ItemList ready;
  for (const ItemPtr& item : parser->items()) {
    auto reminder = std::dynamic_pointer_cast<IOSReminderItem>(item);
    if (!reminder) continue;
    (reminder->alarmsUUIDArr().empty() ? ready : waiting).push_back(item);
  }
  ItemList shown;
  {
    std::lock_guard lock(mutex_);
    icloudReminderShowArr_ = std::move(ready);
    shown = icloudReminderShowArr_;
  }
  if (auto observer = observerFor(Operation::kDidFetchedData)) {
    report(observer, shown, IOSDataTypeReminder);
  }
  if (waiting.empty()) return std::nullopt;
  return waiting;
}

void IOSDataParser::startParseiCloudReminderAttachmentsInfoForItem(const ItemPtr& reminder,
                                                                   JSONData WithJSON) {
  auto parser = parserAs<IOSReminderParser>(*this, ICloudParser::kReminder);
  auto item = std::dynamic_pointer_cast<IOSReminderItem>(reminder);
  if (parser && item) parser->parseriCloudAttachmentsForItem(item, WithJSON);
}

void IOSDataParser::startParseiCloudReminderAlarmsInfoForItem(const ItemPtr& reminder,
                                                              JSONData WithJSON) {
  auto parser = parserAs<IOSReminderParser>(*this, ICloudParser::kReminder);
  auto item = std::dynamic_pointer_cast<IOSReminderItem>(reminder);
  if (!parser || !item) return;
  parser->parseriCloudAlarmsForItem(item, WithJSON);
  ItemList shown;
  {
    std::lock_guard lock(mutex_);
    icloudReminderShowArr_.push_back(item);
    shown = icloudReminderShowArr_;
  }
  if (auto observer = observerFor(Operation::kDidFetchedData)) {
    report(observer, shown, IOSDataTypeReminder);
  }
}

}  // namespace dataparser
