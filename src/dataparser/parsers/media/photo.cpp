#include "dataparser/parsers/media/photo.h"

#include <atomic>
#include <vector>

#include "dataparser/net/file_downloader.h"
#include "dataparser/util/byte_count.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/json_files.h"
#include "dataparser/util/path.h"
#include "dataparser/util/run_log.h"
#include "dataparser/util/text.h"
#include "dataparser/util/url_encoding.h"

namespace dataparser {
namespace {

std::atomic<std::int64_t> downloadTimeoutMs{std::int64_t{1800} * 1000};

// A regular file is there: a folder or a device is never read as a picture or a batch.
bool isFileAt(std::string_view path) {
  return !path.empty() && isBackupFile(std::string(path));
}

bool isVideoType(std::string_view type) {
  return type == "public.mpeg-4" || type == "com.apple.quicktime-movie";
}

}  // namespace

// Texts that are computed or set, and the rarely used parts of an item; made on first need so
// that a listed item costs only its flags and a few bytes of bookkeeping.
struct IOSPhotoItem::Texts {
  std::optional<std::string> name;
  std::optional<std::string> extension;
  std::optional<std::string> strDate;
  std::optional<std::string> groupTitle;
  std::optional<std::string> strSize;
  std::optional<std::string> strDuration;
  std::optional<std::string> devicePath;
  std::optional<std::string> localPath;
  std::optional<std::string> adjusDevicePath;
  std::optional<std::string> adjusLocalPath;
  std::optional<std::string> thumbPath;
  std::optional<std::string> resolveThumbPath;
  std::string uuid;
  std::string imageUrl;
  std::string thumbUrl;
  std::optional<std::shared_ptr<const Image>> thumb;
  // Signalled when the item's own download ends.
  std::shared_ptr<std::counting_semaphore<>> singDis;
};

IOSPhotoItem::IOSPhotoItem() = default;
IOSPhotoItem::~IOSPhotoItem() = default;

IOSPhotoItem::Texts& IOSPhotoItem::texts() const {
  if (!texts_) texts_ = std::make_unique<Texts>();
  return *texts_;
}

std::string_view IOSPhotoItem::recordText(Source source) const {
  switch (source) {
    case Source::kName:
      return rawData()["name"].string();
    case Source::kOriginFile:
      return rawData()["origin_file_path"].string();
    case Source::kOtherVideo:
      return rawData()["other_video_path"].string();
    case Source::kOtherFile:
      return rawData()["other_file_path"].string();
    case Source::kMutationDevice:
      return rawData()["mutation_device_path"].string();
    case Source::kMutationBackup:
      return rawData()["mutation_backup_path"].string();
    case Source::kThumbFile:
      return rawData()["thumb_file_path"].string();
    case Source::kUnread:
    case Source::kNone:
    case Source::kOwned:
      break;
  }
  return {};
}

std::string_view IOSPhotoItem::read(Source source, const std::optional<std::string>* owned) const {
  if (source == Source::kOwned) {
    return owned != nullptr && *owned ? std::string_view(**owned) : std::string_view();
  }
  return recordText(source);
}

void IOSPhotoItem::initWithDictionary(const json::Value& dictionary) {
  IOSBaseItem::initWithDictionary(dictionary);
  auto [video, duration, adjustments, filesize, thumb, deleted, tag] =
      dictionary.fields({"is_video", "duration", "has_adjustments", "filesize", "thumb_file_path",
                         "is_deleted", "tag"});
  primeTag(tag);
  isVideo_ = video.integer() == 1;
  if (isVideo_) duration_ = static_cast<float>(duration.number());
  isAdjustments_ = adjustments.integer() == 1;
  size_ = filesize.integer();
  thumbPath_ = thumb.present() ? Source::kThumbFile : Source::kNone;
  deleted_ = deleted.integer() == 1 || IOSBaseItem::isDeleted();
}

void IOSPhotoItem::initWithiCloudPhotoDict(const json::Value& dictionary,
                                           const std::string& withBackupPath) {
  IOSBaseItem::initWithDictionary(dictionary);
  auto [dateAsset, imageName, imageSize, imageType, imageUrl, thumbSize, thumbUrl, imageUuid] =
      dictionary.fields({"dateAsset", "imageName", "imageSize", "imageType", "imageUrl",
                         "thumbSize", "thumbUrl", "imageUuid"});
  Texts& t = texts();
  t.uuid = imageUuid.stringCopy();
  isVideo_ = isVideoType(imageType.string());
  isAdjustments_ = false;
  setName(imageName.stringCopy());
  setDate(dateWithSecondsSince1970(dateAsset.number() / 1000.0));
  size_ = imageSize.integer();
  t.strSize = formattedByteCount(size_);
  t.imageUrl = imageUrl.stringCopy();
  thumbSize_ = thumbSize.integer();
  t.thumbUrl = thumbUrl.stringCopy();
  if (withBackupPath.empty()) return;
  std::string local = path::appendingPathComponent(
      withBackupPath, md5String(t.uuid) + "." + path::pathExtension(imageName.string()));
  if (isFileAt(local)) setLocalPath(std::move(local));
  std::string thumbFile =
      path::appendingPathComponent(withBackupPath, md5String(imageName.string()) + ".png");
  if (isFileAt(thumbFile)) setThumbPath(std::move(thumbFile));
}

std::string_view IOSPhotoItem::name() const {
  if (name_ == Source::kUnread) {
    json::View value = rawData()["name"];
    if (value.present()) {
      name_ = Source::kName;
    } else if (json::View other = rawData()["other_file_path"]; other.isString()) {
      texts().name = path::lastPathComponent(other.string());
      name_ = Source::kOwned;
    } else {
      name_ = Source::kNone;
    }
  }
  return read(name_, texts_ ? &texts_->name : nullptr);
}

void IOSPhotoItem::setName(std::string name) {
  texts().name = std::move(name);
  name_ = Source::kOwned;
}

std::string_view IOSPhotoItem::extension() const {
  if (!texts().extension) texts_->extension = path::pathExtension(name());
  return *texts_->extension;
}

void IOSPhotoItem::setExtension(std::string extension) {
  texts().extension = std::move(extension);
}

const OptionalDate& IOSPhotoItem::date() const {
  if (!dateRead_) {
    dateRead_ = true;
    std::string_view text = rawData()["date"].string();
    if (!text.empty()) date_ = dateWithDateFormatter(text);
  }
  return date_;
}

void IOSPhotoItem::setDate(OptionalDate date) {
  date_ = date;
  dateRead_ = true;
  if (texts_) {
    texts_->strDate.reset();
    texts_->groupTitle.reset();
  }
}

std::string_view IOSPhotoItem::strDate() const {
  if (!texts().strDate) {
    const OptionalDate& when = date();
    texts_->strDate = when ? printDate(*when, kDefaultDateFormat, DateZone::utc()) : "";
  }
  return *texts_->strDate;
}

void IOSPhotoItem::setStrDate(std::string text) {
  texts().strDate = std::move(text);
}

std::string_view IOSPhotoItem::groupTitle() const {
  if (!texts().groupTitle) {
    const OptionalDate& when = date();
    texts_->groupTitle = when ? printDate(*when, "yyyy-MM-dd", DateZone::utc()) : "";
  }
  return *texts_->groupTitle;
}

void IOSPhotoItem::setGroupTitle(std::string text) {
  texts().groupTitle = std::move(text);
}

std::string_view IOSPhotoItem::strSize() const {
  if (!texts().strSize) texts_->strSize = formattedByteCount(size_ < 0 ? 1 : size_);
  return *texts_->strSize;
}

void IOSPhotoItem::setStrSize(std::string text) {
  texts().strSize = std::move(text);
}

std::string_view IOSPhotoItem::strDuration() const {
  if (!texts().strDuration) {
    texts_->strDuration = formattedDurationTime(static_cast<std::int64_t>(duration_));
  }
  return *texts_->strDuration;
}

void IOSPhotoItem::setStrDuration(std::string text) {
  texts().strDuration = std::move(text);
}

std::string_view IOSPhotoItem::devicePath() const {
  if (devicePath_ == Source::kUnread) {
    devicePath_ =
        rawData()["origin_file_path"].present() ? Source::kOriginFile : Source::kOtherFile;
  }
  return read(devicePath_, texts_ ? &texts_->devicePath : nullptr);
}

void IOSPhotoItem::setDevicePath(std::string path) {
  texts().devicePath = std::move(path);
  devicePath_ = Source::kOwned;
}

std::string_view IOSPhotoItem::localPath() const {
  if (localPath_ == Source::kUnread) {
    auto [origin, video] = rawData().fields({"origin_file_path", "other_video_path"});
    if (origin.isString() && isFileAt(origin.string())) {
      localPath_ = Source::kOriginFile;
    } else if (video.isString() && isFileAt(video.string())) {
      localPath_ = Source::kOtherVideo;
    } else {
      localPath_ = Source::kOtherFile;
    }
  }
  return read(localPath_, texts_ ? &texts_->localPath : nullptr);
}

bool IOSPhotoItem::localPathTested() const {
  return localPath_ == Source::kOriginFile || localPath_ == Source::kOtherVideo;
}

void IOSPhotoItem::setLocalPath(std::string path) {
  texts().localPath = std::move(path);
  localPath_ = Source::kOwned;
}

std::string_view IOSPhotoItem::adjusDevicePath() const {
  if (adjusDevicePath_ == Source::kUnread) {
    adjusDevicePath_ =
        rawData()["mutation_device_path"].present() ? Source::kMutationDevice : Source::kOtherFile;
  }
  return read(adjusDevicePath_, texts_ ? &texts_->adjusDevicePath : nullptr);
}

void IOSPhotoItem::setAdjusDevicePath(std::string path) {
  texts().adjusDevicePath = std::move(path);
  adjusDevicePath_ = Source::kOwned;
}

std::string_view IOSPhotoItem::adjusLocalPath() const {
  if (adjusLocalPath_ == Source::kUnread) {
    json::View backup = rawData()["mutation_backup_path"];
    adjusLocalPath_ = backup.isString() && isFileAt(backup.string()) ? Source::kMutationBackup
                                                                     : Source::kOtherFile;
  }
  return read(adjusLocalPath_, texts_ ? &texts_->adjusLocalPath : nullptr);
}

void IOSPhotoItem::setAdjusLocalPath(std::string path) {
  texts().adjusLocalPath = std::move(path);
  adjusLocalPath_ = Source::kOwned;
}

std::string_view IOSPhotoItem::thumbPath() const {
  return read(thumbPath_, texts_ ? &texts_->thumbPath : nullptr);
}

void IOSPhotoItem::setThumbPath(std::string path) {
  texts().thumbPath = std::move(path);
  thumbPath_ = Source::kOwned;
}

std::string_view IOSPhotoItem::resolveThumbPath() const {
  return texts_ && texts_->resolveThumbPath ? std::string_view(*texts_->resolveThumbPath)
                                            : std::string_view();
}

void IOSPhotoItem::setResolveThumbPath(std::string path) {
  texts().resolveThumbPath = std::move(path);
}

const std::shared_ptr<const Image>& IOSPhotoItem::thumb() const {
  Texts& t = texts();
  if (!t.thumb) {
    std::shared_ptr<const Image> image;
    if (std::string_view file = thumbPath(); isFileAt(file)) {
      image = Image::imageWithContentsOfFile(std::string(file));
    }
    if (!image && !isVideo_) {
      if (std::string_view file = localPath(); isFileAt(file)) {
        image = Image::imageWithContentsOfFile(std::string(file));
      }
    }
    t.thumb = std::move(image);
  }
  return *t.thumb;
}

void IOSPhotoItem::setThumb(std::shared_ptr<const Image> thumb) {
  texts().thumb = std::move(thumb);
}

std::string_view IOSPhotoItem::uuid() const {
  return texts_ ? std::string_view(texts_->uuid) : std::string_view();
}
void IOSPhotoItem::setUuid(std::string uuid) {
  texts().uuid = std::move(uuid);
}
std::string_view IOSPhotoItem::imageUrl() const {
  return texts_ ? std::string_view(texts_->imageUrl) : std::string_view();
}
void IOSPhotoItem::setImageUrl(std::string url) {
  texts().imageUrl = std::move(url);
}
std::string_view IOSPhotoItem::thumbUrl() const {
  return texts_ ? std::string_view(texts_->thumbUrl) : std::string_view();
}
void IOSPhotoItem::setThumbUrl(std::string url) {
  texts().thumbUrl = std::move(url);
}

void IOSPhotoItem::setDownloadTimeout(std::chrono::milliseconds timeout) {
  downloadTimeoutMs.store(timeout.count());
}

void IOSPhotoItem::startDownloadAndCompleted(const std::function<void()>& completion) {
  const std::string folder = path::appendingPathComponent(
      path::appendingPathComponent(productDomainPath(), "iCloud"), "tmp");
  createDirectories(folder);
  if (!localPath().empty()) return;
  const std::string url(imageUrl());
  if (url.empty()) return;
  // The name comes from the backup: it may only ever name a file inside the folder.
  const std::string target = path::appendingPathComponent(folder, path::safeComponent(name()));
  if (fileExists(target)) return;

  auto signal = std::make_shared<std::counting_semaphore<>>(0);
  texts().singDis = signal;
  std::weak_ptr<IOSPhotoItem> weakSelf = weak_from_this();
  auto downloader = FileDownloader::initWithURL(urlQueryEncoded(url), target, {}, {});
  std::weak_ptr<FileDownloader> weakDownloader = downloader;
  downloader->setCompletionHandler(
      [weakSelf, weakDownloader, signal, url, target](std::optional<DownloadError> error) {
        if (error) {
          RunLog::write("download failed! URL:{}", url);
        } else if (auto self = weakSelf.lock()) {
          std::string file = target;
          if (auto loader = weakDownloader.lock(); loader && !loader->destinationPath().empty()) {
            file = loader->destinationPath();
          }
          self->setLocalPath(file);
          self->setThumbPath(file);
        }
        signal->release();
      });
  downloader->start();
  if (!signal->try_acquire_for(std::chrono::milliseconds(downloadTimeoutMs.load()))) {
    RunLog::write("download timeout!! URL:{}", url);
  }
  if (completion) completion();
}

std::shared_ptr<const Image> IOSPhotoItem::ATThumbnailImageFromImage(
    const std::shared_ptr<const Image>& image) {
  if (!image || image->height() <= 0) return nullptr;
  std::optional<std::string> png = image->thumbnailPNG(200);
  if (!png) return nullptr;
  return Image::imageWithData(std::move(*png));
}

void IOSPhotoItem::describeIsDeleted(FieldVisitor& visitor) const {
  visitor.field("isDeleted", isDeleted() != 0);
}

void IOSPhotoItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("isAdjustments", isAdjustments());
  visitor.field("isVideo", isVideo());
  visitor.field("duration", duration());
  visitor.field("name", name());
  visitor.field("extension", extension());
  visitor.field("date", date());
  visitor.field("strDate", strDate());
  visitor.field("groupTitle", groupTitle());
  visitor.field("strSize", strSize());
  visitor.field("size", size());
  visitor.field("devicePath", devicePath());
  visitor.field("localPath", localPath());
  visitor.field("adjusDevicePath", adjusDevicePath());
  visitor.field("adjusLocalPath", adjusLocalPath());
  visitor.field("thumbPath", thumbPath());
  visitor.field("resolveThumbPath", resolveThumbPath());
  visitor.field("thumb", thumb());
  visitor.field("strDuration", strDuration());
  visitor.field("uuid", uuid());
  visitor.field("imageUrl", imageUrl());
  visitor.field("thumbUrl", thumbUrl());
  visitor.field("thumbSize", thumbSize());
}

std::shared_ptr<IOSPhotoParser> IOSPhotoParser::parserWithJSONData(JSONData data,
                                                                   bool parseDeleted) {
  auto parser = makeWithJSONData<IOSPhotoParser>(data, parseDeleted, false);
  if (!parser->rawData().isObject()) return parser;
  std::vector<std::string> files;
  for (json::View entry : parser->rawData()["photo_file_path"].elements()) {
    std::string file = entry.stringCopy();
    if (isFileAt(file)) files.push_back(std::move(file));
  }
  // The next batch file decodes while the items of this one are built.
  json::forEachJsonFile(
      files, [&parser](const std::string&, json::Value document, const std::string& error) {
        if (parser->isStopParser()) return false;
        parser->addRecordsOf(document, error);
        return true;
      });
  return parser;
}

void IOSPhotoParser::addRecordsOf(const json::Value& document, const std::string& error) {
  if (!document.present()) {
    SystemLog::write(">>>Photo Parser ERROR: {}", error);
    return;
  }
  json::View records = document["photo_data"];
  if (!records.isArray()) return;
  for (json::View record : records.elements()) {
    if (isStopParser()) return;
    if (!record.isObject()) continue;
    auto item = IOSBaseItem::itemWithDictionary<IOSPhotoItem>(document.sub(record));
    if (!parseDeleted() && item->isDeleted()) continue;
    // The local path is found by a file test; only an untested fallback needs one more look.
    std::string_view local = item->localPath();
    bool onDisk = item->localPathTested() || isFileAt(local) || isFileAt(item->thumbPath());
    if (!onDisk) continue;
    if (item->isVideo()) {
      photoVideos().push_back(std::move(item));
    } else {
      items().push_back(std::move(item));
    }
  }
}

void IOSPhotoParser::addiCloudPhotosJSONData(JSONData data, bool albumIsDeleted,
                                             const std::string& withBackupPath) {
  IOSBaseParser::addJSONData(data);
  const json::Value& album = rawData();
  if (!album.isObject()) return;
  json::View photos = album["photos"];
  if (!photos.isArray()) return;
  for (json::View entry : photos.elements()) {
    if (isStopParser()) return;
    if (!entry.isObject()) continue;
    auto item = makeItem<IOSPhotoItem>();
    item->initWithiCloudPhotoDict(album.sub(entry), withBackupPath);
    item->itemIsDeleted(albumIsDeleted);
    items().push_back(std::move(item));
  }
}

void IOSPhotoParser::addShowPhotoItem(ItemPtr item) {
  auto list =
      showPhotoArr_ ? std::make_shared<ItemList>(*showPhotoArr_) : std::make_shared<ItemList>();
  list->push_back(std::move(item));
  showPhotoArr_ = std::move(list);
}

void IOSPhotoParser::addShowVideoItem(ItemPtr item) {
  auto list = showPhotoVideoArr_ ? std::make_shared<ItemList>(*showPhotoVideoArr_)
                                 : std::make_shared<ItemList>();
  list->push_back(std::move(item));
  showPhotoVideoArr_ = std::move(list);
}

}  // namespace dataparser
