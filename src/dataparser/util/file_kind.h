// File-kind tests by name and the WebP helpers.
//
// Each kind test matches the whole file name against a fixed pattern, case- and
// diacritic-insensitively ("IMG.JPG" and "photo.jpg" are both images; "ogg" is both video and
// audio). Patterns compile once and are safe to use from several threads.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace dataparser {

class DPHelper {
 public:
  // Whole-text match of `pattern`, case- and diacritic-insensitive. An invalid pattern gives
  // false.
  static bool validate(std::string_view text, std::string_view pattern);

  static bool isVideo(std::string_view name);
  static bool isAudio(std::string_view name);
  static bool isImage(std::string_view name);
  static bool isDocument(std::string_view name);
  static bool isContact(std::string_view name);

  // Decodes WebP bytes; the picture as PNG bytes, or nothing when decoding fails.
  static std::optional<std::string> decodedWebpWithData(std::string_view data);
  // Decodes the WebP file at `path` and writes it as PNG, atomically, to
  // {working root}/data/thumbnail/{imageName with ".webp" replaced by ".png"} (the name reduced
  // to one safe component). The written path, or nothing when reading, decoding or writing fails.
  static std::optional<std::string> decodedWebpWithPath(const std::string& path,
                                                        std::string_view imageName);
};

}  // namespace dataparser
