// Photos and videos of the camera roll: IOSPhotoParser turns the engine's photo batches and the
// iCloud album files into IOSPhotoItem objects.
//
// Engine input: an object whose "photo_file_path" lists JSON files; each file's "photo_data"
// lists one object per picture or video. An item is kept when a file exists at its local path
// or, failing that, at its thumbnail path; deleted ones only when deleted data is asked for.
// Pictures go to `items`, videos to `photoVideos`, in file and record order.
//
// iCloud input (`addiCloudPhotosJSONData`): one album's {"photos": [...]}; every picture and
// video goes to `items`, marked deleted when the album is the deleted-pictures album. Such an
// item can fetch its own file (`startDownloadAndCompleted`); the download run adds the items
// whose files arrived to the show lists, which are replaced (never changed in place) on each
// addition, so a list handed out earlier stays as it was.
//
// Items keep their record as rawData and read everything shown from it on first use. Paths that
// come straight from the record are views into it; nothing is decoded to build a list: pictures
// are read only when `thumb` is asked for.
//
// Thread safety: a parser is built on one thread; stopParser() may be called from any thread.
// An item's getters from one thread at a time. `startDownloadAndCompleted` blocks its caller
// and must not run on the MainQueue.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <string_view>

#include "dataparser/model/base_item.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/util/date.h"
#include "dataparser/util/image.h"

namespace dataparser {

class IOSPhotoItem : public IOSBaseItem, public std::enable_shared_from_this<IOSPhotoItem> {
 public:
  IOSPhotoItem();
  ~IOSPhotoItem() override;

  // Engine record: flags, size, duration and thumbnail path; the rest is read on first use.
  void initWithDictionary(const json::Value& dictionary) override;
  // iCloud record: every field is read at once. With a non-empty `withBackupPath`, a downloaded
  // file {md5(uuid)}.{extension} there becomes `localPath`, and {md5(name)}.png `thumbPath`.
  void initWithiCloudPhotoDict(const json::Value& dictionary, const std::string& withBackupPath);

  std::int64_t isDeleted() const override { return deleted_ ? 1 : 0; }
  void itemIsDeleted(bool flag) { deleted_ = flag; }
  bool isAdjustments() const { return isAdjustments_; }
  void setIsAdjustments(bool value) { isAdjustments_ = value; }
  bool isVideo() const { return isVideo_; }
  void setIsVideo(bool value) { isVideo_ = value; }
  float duration() const { return duration_; }
  void setDuration(float duration) { duration_ = duration; }
  std::int64_t size() const { return size_; }
  void setSize(std::int64_t size) { size_ = size; }
  std::int64_t thumbSize() const { return thumbSize_; }
  void setThumbSize(std::int64_t size) { thumbSize_ = size; }

  // --- read on first use (a setter overrides) ---
  // "name", else the last component of "other_file_path".
  std::string_view name() const;
  void setName(std::string name);
  std::string_view extension() const;
  void setExtension(std::string extension);
  // "date" in the engine's date format (UTC).
  const OptionalDate& date() const;
  void setDate(OptionalDate date);
  // `date` in the engine's date format, and as "yyyy-MM-dd" (both UTC); "" without a date.
  std::string_view strDate() const;
  void setStrDate(std::string text);
  std::string_view groupTitle() const;
  void setGroupTitle(std::string text);
  // `size` as a file byte count; a negative size shows as 1 byte.
  std::string_view strSize() const;
  void setStrSize(std::string text);
  // `duration` as a time text ("00:00", "0:1:5").
  std::string_view strDuration() const;
  void setStrDuration(std::string text);
  // "origin_file_path", else "other_file_path".
  std::string_view devicePath() const;
  void setDevicePath(std::string path);
  // "origin_file_path" when a file exists there, else "other_video_path" under the same test,
  // else "other_file_path" untested.
  std::string_view localPath() const;
  void setLocalPath(std::string path);
  // "mutation_device_path", else "other_file_path".
  std::string_view adjusDevicePath() const;
  void setAdjusDevicePath(std::string path);
  // "mutation_backup_path" when a file exists there, else "other_file_path".
  std::string_view adjusLocalPath() const;
  void setAdjusLocalPath(std::string path);
  // "thumb_file_path" as stored.
  std::string_view thumbPath() const;
  void setThumbPath(std::string path);
  std::string_view resolveThumbPath() const;
  void setResolveThumbPath(std::string path);
  // The picture at `thumbPath`; failing that, for a photo, the picture at `localPath`; nothing
  // for a video without a thumbnail or when no file decodes. Loaded on first use.
  const std::shared_ptr<const Image>& thumb() const;
  void setThumb(std::shared_ptr<const Image> thumb);

  // --- iCloud ---
  std::string_view uuid() const;
  void setUuid(std::string uuid);
  std::string_view imageUrl() const;
  void setImageUrl(std::string url);
  std::string_view thumbUrl() const;
  void setThumbUrl(std::string url);

  // Downloads the full file of an iCloud item into {working root}/iCloud/tmp/{name} and waits
  // for it (at most 1800 seconds); then calls `completion`. Returns at once, without calling
  // `completion`, when `localPath` is set, `imageUrl` is empty or the file is there already.
  // On success both `localPath` and `thumbPath` name the downloaded file. A download that ends
  // after the wait gave up may still set them later, from the MainQueue.
  void startDownloadAndCompleted(const std::function<void()>& completion);
  // How long `startDownloadAndCompleted` waits; 1800 seconds unless changed.
  static void setDownloadTimeout(std::chrono::milliseconds timeout);

  // `image` scaled to 200 pixels high, width in proportion; nothing when it does not decode.
  static std::shared_ptr<const Image> ATThumbnailImageFromImage(
      const std::shared_ptr<const Image>& image);

  std::string_view className() const override { return "IOSPhotoItem"; }
  void describe(FieldVisitor& visitor) const override;

 protected:
  void describeIsDeleted(FieldVisitor& visitor) const override;

 private:
  // Which member of the record a field reads.
  enum class Source : std::uint8_t {
    kUnread,
    kNone,
    kOwned,  // computed or set: the text lives in `texts_`
    kName,
    kOriginFile,
    kOtherVideo,
    kOtherFile,
    kMutationDevice,
    kMutationBackup,
    kThumbFile,
  };
  struct Texts;
  Texts& texts() const;
  std::string_view read(Source source, const std::optional<std::string>* owned) const;
  std::string_view recordText(Source source) const;

  mutable std::unique_ptr<Texts> texts_;
  std::int64_t size_ = 0;
  std::int64_t thumbSize_ = 0;
  float duration_ = 0;
  bool isAdjustments_ = false;
  bool isVideo_ = false;
  bool deleted_ = false;
  mutable bool dateRead_ = false;
  mutable Source name_ = Source::kUnread;
  mutable Source devicePath_ = Source::kUnread;
  mutable Source localPath_ = Source::kUnread;
  mutable Source adjusDevicePath_ = Source::kUnread;
  mutable Source adjusLocalPath_ = Source::kUnread;
  Source thumbPath_ = Source::kNone;
  mutable OptionalDate date_;

  friend class IOSPhotoParser;
  // True when `localPath` was found by a file test, so the file is known to exist.
  bool localPathTested() const;
};

class IOSPhotoParser : public IOSBaseParser {
 public:
  std::string_view className() const override { return "IOSPhotoParser"; }

  // The engine's photo batch list: pictures into `items`, videos into `photoVideos`.
  static std::shared_ptr<IOSPhotoParser> parserWithJSONData(JSONData data, bool parseDeleted);

  // Appends the pictures of one iCloud album file; `albumIsDeleted` marks them all deleted.
  // Stops between pictures when the parser is asked to stop.
  void addiCloudPhotosJSONData(JSONData data, bool albumIsDeleted,
                               const std::string& withBackupPath);
  // The same for an album item, whose `isDeleted` decides.
  template <class Album>
  void addiCloudPhotosJSONData(JSONData data, const Album& forAlbumItem,
                               const std::string& withBackupPath) {
    addiCloudPhotosJSONData(data, static_cast<bool>(forAlbumItem.isDeleted()), withBackupPath);
  }

  using ShowList = std::shared_ptr<const ItemList>;
  // Absent (nullptr) until the first addition; each addition replaces the list.
  const ShowList& showPhotoArr() const { return showPhotoArr_; }
  const ShowList& showPhotoVideoArr() const { return showPhotoVideoArr_; }
  void addShowPhotoItem(ItemPtr item);
  void addShowVideoItem(ItemPtr item);

 private:
  void addRecordsOf(const json::Value& document, const std::string& error);

  ShowList showPhotoArr_;
  ShowList showPhotoVideoArr_;
};

}  // namespace dataparser
