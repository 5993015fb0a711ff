#include "dataparser/util/image.h"

#include <vips/vips8>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <unordered_map>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"

namespace dataparser {
namespace {

using vips::VImage;
using vips::VSource;

constexpr std::int64_t kMaxDecodedPixels = 100'000'000;
// No phone picture comes near this; anything bigger is not read at all.
constexpr std::uint64_t kMaxFileBytes = 512ull << 20;
constexpr int kUnboundedWidth = 10'000'000;  // thumbnails are bounded by their height only

void dropMessage(const gchar*, GLogLevelFlags, const gchar*, gpointer) {}

// Starts libvips once per process. Its operation cache is switched off: it keys loads by file
// name, so a picture rewritten at the same path would come back stale. Its warnings about
// damaged pictures are dropped: a damaged picture is an ordinary input here, and the calls
// report it by giving nothing.
bool vipsReady() {
  static const bool ready = [] {
    if (VIPS_INIT("dataparser") != 0) return false;
    vips_cache_set_max(0);
    g_log_set_handler("VIPS", G_LOG_LEVEL_WARNING, dropMessage, nullptr);
    return true;
  }();
  return ready;
}

// Runs a libvips operation; its errors become "nothing". libvips keeps error texts in a global
// buffer, which is cleared so that it cannot grow.
template <class Operation>
auto guarded(Operation&& operation) -> decltype(operation()) {
  if (!vipsReady()) return std::nullopt;
  try {
    return operation();
  } catch (const vips::VError&) {
  } catch (const std::exception&) {
  }
  vips_error_clear();
  return std::nullopt;
}

std::optional<std::string> pngBytes(const VImage& image) {
  if (static_cast<std::int64_t>(image.width()) * image.height() > kMaxDecodedPixels) {
    return std::nullopt;
  }
  void* buffer = nullptr;
  std::size_t size = 0;
  image.write_to_buffer(".png", &buffer, &size);
  std::string bytes(static_cast<const char*>(buffer), size);
  g_free(buffer);
  return bytes;
}

// A source over the file or the bytes. Paths are opened as they are: no option syntax
// ("name.jpg[page=1]") is read from them. Only a regular file within the size limit is opened
// (a pipe would block, a device never end); anything else throws, which reads as "no picture".
VSource sourceOf(const std::string& path, const std::string& data) {
  if (path.empty()) return VSource::new_from_memory(data.data(), data.size());
  std::uint64_t size = 0;
  int fd = openBackupFile(path, &size);
  if (fd < 0) throw std::runtime_error("not a regular file");
  if (size == 0 || size > kMaxFileBytes) {
    ::close(fd);
    throw std::runtime_error("picture too large");
  }
  // The source keeps a duplicate of the descriptor.
  VSource source = VSource::new_from_descriptor(fd);
  ::close(fd);
  return source;
}

VImage load(const VSource& source) {
  return VImage::new_from_source(source, "",
                                 VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
}

// What a file was when it was last read: a file rewritten in place reads again.
struct FileStamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  std::int64_t modifiedNanoseconds = 0;
  bool operator==(const FileStamp&) const = default;
};

std::optional<FileStamp> regularFileStamp(const std::string& path) {
  struct stat status {};
  if (!rememberedStat(path, &status) || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  return FileStamp{
      status.st_dev, status.st_ino, status.st_size,
      static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec};
}

// Pictures loaded from files, and files found to hold none, by path. A backup names one file
// from many items (every forward of a photo, the message and its attachment list); each would
// otherwise be sniffed by every libvips loader again. An entry counts only while its file is
// unchanged. Bounded: emptied when full. Thread-safe.
class LoadedPictures {
 public:
  template <class Load>
  std::shared_ptr<const Image> get(const std::string& path, Load&& load) {
    std::optional<FileStamp> stamp = regularFileStamp(path);
    if (!stamp) return nullptr;
    {
      std::lock_guard lock(mutex_);
      auto it = entries_.find(path);
      if (it != entries_.end() && it->second.stamp == *stamp) return it->second.image;
    }
    std::shared_ptr<const Image> image = load();
    std::lock_guard lock(mutex_);
    if (entries_.size() >= kCapacity) entries_.clear();
    entries_.insert_or_assign(path, Entry{*stamp, image});
    return image;
  }

 private:
  static constexpr std::size_t kCapacity = 4096;
  struct Entry {
    FileStamp stamp;
    std::shared_ptr<const Image> image;
  };
  std::mutex mutex_;
  std::unordered_map<std::string, Entry> entries_;
};

LoadedPictures& loadedPictures() {
  static LoadedPictures* pictures = new LoadedPictures;  // never destroyed: used until exit
  return *pictures;
}

}  // namespace

Image::~Image() = default;

std::shared_ptr<const Image> Image::withHeader(std::shared_ptr<Image> image) {
  auto size = guarded([&]() -> std::optional<std::pair<int, int>> {
    VImage header = load(sourceOf(image->path_, image->data_));
    return std::make_pair(header.width(), header.height());
  });
  if (!size) return nullptr;
  image->width_ = size->first;
  image->height_ = size->second;
  return image;
}

std::shared_ptr<const Image> Image::imageWithContentsOfFile(const std::string& path) {
  if (path.empty()) return nullptr;
  return loadedPictures().get(path, [&path] {
    std::shared_ptr<Image> image(new Image);
    image->path_ = path;
    return withHeader(std::move(image));
  });
}

std::shared_ptr<const Image> Image::imageWithData(std::string data) {
  if (data.empty()) return nullptr;
  std::shared_ptr<Image> image(new Image);
  image->data_ = std::move(data);
  return withHeader(std::move(image));
}

std::optional<std::string> Image::thumbnailPNG(int height) const {
  if (height <= 0) return std::nullopt;
  return guarded([&]() -> std::optional<std::string> {
    VImage thumbnail = VImage::thumbnail_source(sourceOf(path_, data_), kUnboundedWidth,
                                                VImage::option()->set("height", height));
    return pngBytes(thumbnail);
  });
}

std::optional<std::string> Image::pngData() const {
  return guarded(
      [&]() -> std::optional<std::string> { return pngBytes(load(sourceOf(path_, data_))); });
}

std::optional<std::string> Image::pngDataFromWebp(std::string_view webp) {
  if (webp.empty()) return std::nullopt;
  return guarded([&]() -> std::optional<std::string> {
    VSource source = VSource::new_from_memory(webp.data(), webp.size());
    return pngBytes(VImage::webpload_source(source));
  });
}

}  // namespace dataparser
