// Image: a decoded picture (any still format libvips reads: JPEG, PNG, HEIC, WebP, GIF, ...).
//
// Loading checks that the data decodes (header only) and keeps the source; pixels are decoded
// lazily, on first use. Width and height are known after loading.
//
// Thread safety: an Image is immutable after loading; share it as std::shared_ptr<const Image>.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace dataparser {

class Image {
 public:
  // Nothing when the file cannot be read or is not a picture.
  static std::shared_ptr<const Image> imageWithContentsOfFile(const std::string& path);
  // Nothing when the bytes are not a picture.
  static std::shared_ptr<const Image> imageWithData(std::string data);

  int width() const { return width_; }
  int height() const { return height_; }

  // The picture scaled to `height` pixels high (aspect kept), as PNG bytes; nothing on failure.
  std::optional<std::string> thumbnailPNG(int height = 200) const;
  // The whole picture as PNG bytes; nothing on failure.
  std::optional<std::string> pngData() const;

  ~Image();
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

 private:
  Image() = default;
  std::string path_;  // source file, or
  std::string data_;  // source bytes
  int width_ = 0;
  int height_ = 0;
};

}  // namespace dataparser
