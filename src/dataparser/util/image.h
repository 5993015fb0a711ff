// Image: a decoded picture (any still format libvips reads: JPEG, PNG, HEIC, WebP, GIF, ...).
//
// Loading checks that the data decodes (header only) and keeps the source (the file's path, or
// a copy of the bytes); pixels are decoded lazily, each time an operation needs them. Width and
// height are known after loading. Pictures above 100 megapixels are refused by the operations
// that decode every pixel, so hostile input cannot exhaust memory.
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
  // Nothing when the file cannot be read or is not a picture. Loading an unchanged file again
  // gives the same Image (or nothing again) without reading it.
  static std::shared_ptr<const Image> imageWithContentsOfFile(const std::string& path);
  // Nothing when the bytes are not a picture.
  static std::shared_ptr<const Image> imageWithData(std::string data);

  int width() const { return width_; }
  int height() const { return height_; }

  // The picture scaled to `height` pixels high (aspect kept), as PNG bytes; nothing on failure.
  std::optional<std::string> thumbnailPNG(int height = 200) const;
  // The whole picture as PNG bytes; nothing on failure.
  std::optional<std::string> pngData() const;

  // Decodes WebP bytes (and only WebP) into PNG bytes; nothing when they do not decode.
  static std::optional<std::string> pngDataFromWebp(std::string_view webp);

  ~Image();
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

 private:
  Image() = default;
  // Reads the header of `image`'s source and fills in its size; nothing when it is no picture.
  static std::shared_ptr<const Image> withHeader(std::shared_ptr<Image> image);
  std::string path_;  // source file, or
  std::string data_;  // source bytes
  int width_ = 0;
  int height_ = 0;
};

}  // namespace dataparser
