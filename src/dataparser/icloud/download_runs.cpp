#include "dataparser/icloud/download_runs.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "dataparser/core/ios_data_parser.h"
#include "dataparser/icloud/icloud_codes.h"
#include "dataparser/net/file_downloader.h"
#include "dataparser/parsers/media/photo.h"
#include "dataparser/parsers/personal/calendar.h"
#include "dataparser/parsers/personal/note.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/path.h"
#include "dataparser/util/run_log.h"
#include "dataparser/util/text.h"
#include "dataparser/util/url_encoding.h"

namespace dataparser {

namespace {

using Which = IOSDataParser::ICloudParser;
std::atomic<std::int64_t> timeoutMs{std::int64_t{1800} * 1000};

struct Listener {
  std::mutex mutex;
  icloud::DownloadListener listener;
};
Listener& listenerSlot() {
  static Listener slot;
  return slot;
}

void notify(const icloud::DownloadNotice& notice) {
  icloud::DownloadListener listener;
  {
    Listener& slot = listenerSlot();
    std::lock_guard lock(slot.mutex);
    listener = slot.listener;
  }
  if (listener) listener(notice);
}

template <class T>
std::shared_ptr<T> parserAs(const IOSDataParser& coordinator, Which which) {
  return std::dynamic_pointer_cast<T>(coordinator.icloudParser(which));
}

std::string md5Name(std::string_view key, std::string_view name) {
  std::string extension = path::pathExtension(name);
  return md5String(key) + (extension.empty() ? "" : "." + extension);
}

void reportTo(IOSDataParser& coordinator, const ItemList& list, IOSDataType type) {
  auto observer = coordinator.delegate();
  if (!list.empty() && observer && observer->didFetchedData) {
    observer->didFetchedData(coordinator, ItemList(list), type);
  }
}

bool observerListens(const IOSDataParser& coordinator) {
  auto observer = coordinator.delegate();
  return observer && observer->responds(IOSDataParserDelegate::Operation::kDidFetchedData);
}

// The common frame for one attachment file: already there, no URL, found under its md5 name,
// or downloaded. Calls `fetched` after a successful download.
void fetchAttachment(IOSDataParser& coordinator, IOSAttachmentItem& attachment,
                     const std::string& folder, bool logExisting,
                     const std::function<void()>& fetched) {
  if (!attachment.localPath().empty() || attachment.url().empty()) return;
  std::string target =
      path::appendingPathComponent(folder, md5Name(attachment.uuid(), attachment.name()));
  if (fileExists(target)) {
    if (logExisting) RunLog::write("已经存在:{}", target);
    attachment.setLocalPath(target);
    return;
  }
  coordinator.downloadFilesWithURLStr(attachment.url(), attachment.size(), target,
                                      [&](bool success, const std::optional<std::string>&) {
                                        if (!success) return;
                                        attachment.setLocalPath(target);
                                        fetched();
                                      });
}

void downloadCalendarAttachments(IOSDataParser& coordinator, const std::string& folder) {
  auto parser = parserAs<IOSCalendarParser>(coordinator, Which::kCalendar);
  if (!parser || !observerListens(coordinator)) return;
  ItemList shown;
  std::vector<std::shared_ptr<IOSCalendarItem>> pending;
  for (const ItemPtr& item : parser->items()) {
    auto event = std::dynamic_pointer_cast<IOSCalendarItem>(item);
    if (!event) continue;
    if (event->attachments().empty()) {
      shown.push_back(item);
    } else {
      pending.push_back(event);
    }
  }
  reportTo(coordinator, shown, IOSDataTypeCalendar);
  if (pending.empty()) return;
  RunLog::writeData("-----> downloadCalendarAttachments begin");
  ItemList fetched;
  for (const auto& event : pending) {
    if (coordinator.parseStoped()) break;
    bool stopped = false;
    for (const ItemPtr& entry : event->attachments()) {
      if (coordinator.parseStoped()) {
        stopped = true;
        break;
      }
      auto attachment = std::dynamic_pointer_cast<IOSAttachmentItem>(entry);
      if (!attachment) continue;
      fetchAttachment(coordinator, *attachment, folder, false, [&] {
        fetched.push_back(attachment);
        reportTo(coordinator, fetched, kResultCalendarAttachments);
      });
    }
    if (stopped) break;
    shown.push_back(event);
    reportTo(coordinator, shown, IOSDataTypeCalendar);
  }
  RunLog::writeData("-----> downloadCalendarAttachments End");
}

void downloadNoteAttachments(IOSDataParser& coordinator, const std::string& folder) {
  auto parser = parserAs<IOSNoteParser>(coordinator, Which::kNote);
  if (!parser || !observerListens(coordinator)) return;
  std::vector<NotePtr> notes;
  for (const ItemPtr& item : parser->items()) {
    auto note = std::dynamic_pointer_cast<IOSNoteItem>(item);
    if (note && (!note->attachmentUUIDs().empty() || !note->mediaUUIDs().empty())) {
      notes.push_back(note);
    }
  }
  if (notes.empty()) return;
  RunLog::writeData("-----> downloadNoteAttachments begin");
  ItemList fetched;
  for (const NotePtr& note : notes) {
    if (coordinator.parseStoped()) break;
    bool stopped = false;
    for (const ItemPtr& piece : note->contentAttachments()) {
      if (coordinator.parseStoped()) {
        stopped = true;
        break;
      }
      auto attachment = std::static_pointer_cast<IOSAttachmentItem>(piece);
      fetchAttachment(coordinator, *attachment, folder, true, [&] {
        fetched.push_back(attachment);
        reportTo(coordinator, fetched, kResultNoteAttachments);
      });
    }
    if (stopped) break;
    coordinator.addIcloudNoteShowItem(note);
    reportTo(coordinator, coordinator.icloudNoteShowArr(), IOSDataTypeNote);
  }
  RunLog::writeData("-----> downloadNoteAttachments End");
}

std::vector<std::shared_ptr<IOSPhotoItem>> photoItems(const IOSPhotoParser& parser, bool videos) {
  std::vector<std::shared_ptr<IOSPhotoItem>> list;
  for (const ItemPtr& item : parser.items()) {
    auto photo = std::dynamic_pointer_cast<IOSPhotoItem>(item);
    if (photo && photo->isVideo() == videos) list.push_back(photo);
  }
  return list;
}

void downloadPhotos(IOSDataParser& coordinator, const std::string& folder) {
  auto parser = parserAs<IOSPhotoParser>(coordinator, Which::kPhoto);
  if (!parser) return;
  auto photos = photoItems(*parser, false);
  if (photos.empty()) return;
  RunLog::writeData("-----> download Photo begin");
  for (const auto& photo : photos) {
    if (coordinator.parseStoped()) break;
    if (!photo->localPath().empty() || photo->imageUrl().empty()) continue;
    std::string target =
        path::appendingPathComponent(folder, md5Name(photo->uuid(), photo->name()));
    if (fileExists(target)) {
      // The full picture serves as its own thumbnail.
      photo->setLocalPath(target);
      photo->setThumbPath(target);
      continue;
    }
    coordinator.downloadFilesWithURLStr(std::string(photo->imageUrl()), photo->size(), target,
                                        [&](bool success, const std::optional<std::string>&) {
                                          if (!success) return;
                                          photo->setLocalPath(target);
                                          photo->setThumbPath(target);
                                          parser->addShowPhotoItem(photo);
                                          reportTo(coordinator, *parser->showPhotoArr(),
                                                   IOSDataTypePhoto);
                                        });
  }
  RunLog::writeData("-----> download Photo End");
}

void downloadPhotoVideos(IOSDataParser& coordinator, const std::string& folder) {
  auto parser = parserAs<IOSPhotoParser>(coordinator, Which::kPhoto);
  if (!parser) return;
  auto videos = photoItems(*parser, true);
  if (videos.empty()) return;
  RunLog::writeData("-----> download Photo Videos begin");
  for (const auto& video : videos) {
    if (coordinator.parseStoped()) break;
    if (!video->localPath().empty() || video->imageUrl().empty()) continue;
    if (!video->thumbUrl().empty()) {
      std::string thumb = path::appendingPathComponent(folder, md5String(video->name()) + ".png");
      if (fileExists(thumb)) {
        video->setThumbPath(thumb);
      } else {
        coordinator.downloadFilesWithURLStr(std::string(video->thumbUrl()), video->thumbSize(),
                                            thumb,
                                            [&](bool success, const std::optional<std::string>&) {
                                              if (success) video->setThumbPath(thumb);
                                            });
      }
    }
    if (coordinator.parseStoped()) break;
    std::string target =
        path::appendingPathComponent(folder, md5Name(video->uuid(), video->name()));
    if (fileExists(target)) {
      video->setLocalPath(target);
      continue;
    }
    coordinator.downloadFilesWithURLStr(std::string(video->imageUrl()), video->size(), target,
                                        [&](bool success, const std::optional<std::string>&) {
                                          if (!success) return;
                                          video->setLocalPath(target);
                                          parser->addShowVideoItem(video);
                                          reportTo(coordinator, *parser->showPhotoVideoArr(),
                                                   kResultPhotoVideos);
                                        });
  }
  RunLog::writeData("-----> download Photo Videos End");
}

}  // namespace

namespace icloud {

void setDownloadTimeout(std::chrono::milliseconds timeout) {
  timeoutMs.store(timeout.count());
}

void setDownloadListener(DownloadListener listener) {
  Listener& slot = listenerSlot();
  std::lock_guard lock(slot.mutex);
  slot.listener = std::move(listener);
}

IOSCalendarItem::AttachmentTransfer fileDownloaderTransfer() {
  return [](const std::string& url, const std::string& path,
            std::function<void(std::optional<std::string> error)> done) {
    // A started downloader keeps itself alive until its completion has been delivered.
    auto downloader = FileDownloader::initWithURL(urlQueryEncoded(url), path, {}, {});
    downloader->setCompletionHandler(
        [done = std::move(done)](const std::optional<DownloadError>& error) {
          done(error ? std::optional<std::string>(error->message) : std::nullopt);
        });
    downloader->start();
  };
}

}  // namespace icloud

void IOSDataParser::downloadFilesWithURLStr(const std::string& url, std::int64_t fileSize,
                                            const std::string& toPath,
                                            const DownloadCompleted& completed) {
  auto downloader = FileDownloader::initWithURL(urlQueryEncoded(url), toPath, {}, {});
  downloader->setExpectedContentLength(fileSize);
  std::counting_semaphore<>& signal = photoSignal();
  // The completion may arrive after a time-out: it owns what it needs.
  auto done = std::make_shared<DownloadCompleted>(completed);
  auto finished = std::make_shared<std::atomic<bool>>(false);
  downloader->setCompletionHandler(
      [url, toPath, fileSize, done, finished, &signal](std::optional<DownloadError> error) {
        if (!finished->load()) {
          std::optional<std::string> failure;
          if (error) {
            RunLog::write("下载失败 URL:{}", url);
            failure = error->message;
          } else if (!isRegularFile(toPath)) {
            RunLog::write("下载成功但文件没保存到本地:{}", url);
            failure = "下载成功但文件没保存到本地!!!";
          }
          (*done)(!failure, failure);
          notify({toPath, failure ? fileSize : static_cast<std::int64_t>(fileSizeAtPath(toPath)),
                  !failure, failure.value_or("")});
        }
        signal.release();
      });
  downloader->start();
  if (!signal.try_acquire_for(std::chrono::milliseconds(timeoutMs.load()))) {
    // A late completion must not touch the caller's records any more.
    finished->store(true);
    RunLog::writeData("download timeout!! ");
    notify({toPath, fileSize, false, "timed out"});
  }
}

void IOSDataParser::startDownloadFilesWithType(std::uint32_t type, const std::string& toPath) {
  using namespace icloud;
  if (!toPath.empty()) setIcloudDownloadPath(toPath);
  std::string folder = icloudDownloadPath();
  if (folder.empty()) return;
  createDirectories(folder);
  if (type & kDownloadCalendarAttachments) downloadCalendarAttachments(*this, folder);
  if (type & kDownloadNoteAttachments) downloadNoteAttachments(*this, folder);
  if (type & kDownloadPhotos) downloadPhotos(*this, folder);
  if (type & kDownloadVideos) downloadPhotoVideos(*this, folder);
}

std::int64_t IOSDataParser::sizeForWillDownloadAttachment() const {
  const IOSDataParser& coordinator = *this;
  std::int64_t total = 0;
  if (auto calendar = parserAs<IOSCalendarParser>(coordinator, Which::kCalendar)) {
    for (const ItemPtr& item : calendar->items()) {
      auto event = std::dynamic_pointer_cast<IOSCalendarItem>(item);
      if (!event) continue;
      for (const ItemPtr& entry : event->attachments()) {
        auto attachment = std::dynamic_pointer_cast<IOSAttachmentItem>(entry);
        if (attachment && !attachment->url().empty())
          total += std::max<std::int64_t>(0, attachment->size());
      }
    }
  }
  if (auto notes = parserAs<IOSNoteParser>(coordinator, Which::kNote)) {
    std::int64_t running = 0;  // not reset between notes
    for (const ItemPtr& item : notes->items()) {
      auto note = std::dynamic_pointer_cast<IOSNoteItem>(item);
      if (!note || note->contents().empty()) continue;
      for (const ItemPtr& piece : note->contentAttachments()) {
        const auto& attachment = static_cast<const IOSAttachmentItem&>(*piece);
        if (!attachment.url().empty()) running += std::max<std::int64_t>(0, attachment.size());
      }
      total += running;
    }
  }
  if (auto photos = parserAs<IOSPhotoParser>(coordinator, Which::kPhoto)) {
    std::int64_t running = 0;  // not reset between items
    for (const ItemPtr& item : photos->items()) {
      auto photo = std::dynamic_pointer_cast<IOSPhotoItem>(item);
      if (!photo) continue;
      if (photo->isVideo() && !photo->thumbUrl().empty()) running += photo->thumbSize();
      if (!photo->imageUrl().empty()) running += photo->size();
      total += running;
    }
  }
  return total;
}

}  // namespace dataparser
