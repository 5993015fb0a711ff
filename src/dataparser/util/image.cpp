#include "dataparser/util/image.h"

#include <vips/vips8>

#include <unistd.h>

#include <cstdint>
#include <stdexcept>

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
  std::shared_ptr<Image> image(new Image);
  image->path_ = path;
  return withHeader(std::move(image));
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
