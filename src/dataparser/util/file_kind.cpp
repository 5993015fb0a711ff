#include "dataparser/util/file_kind.h"

#include <memory>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/image.h"
#include "dataparser/util/path.h"
#include "dataparser/util/regex.h"
#include "dataparser/util/text.h"

namespace dataparser {
namespace {

// The kind patterns, kept exactly as the product has always used them, repeated entries ("ape",
// "mid") and odd members ("acc", "giv") included. "ogg" is both a video and an audio file.
constexpr std::string_view kVideoPattern =
    ".*\\.(avi|flv|mov|mp4|m4v|3gp|3g2|wmv|rm|rmvb|mkv|ogg|mpeg|mpg)$";
constexpr std::string_view kAudioPattern =
    ".*\\.(aac|aiff|m3u|m4a|mid|mp3|wav|wpl|wma|amr|caf|m4r|ape|ogg|ape|mid|acc|m4b|flac|opus)$";
constexpr std::string_view kImagePattern =
    ".*\\.(heic|heif|jpe|jpg|jpeg|tiff|tif|png|bmp|gif|giv|ico|icns|svg|pic|thumb|pic_thum|"
    "video_thum|webp)$";
constexpr std::string_view kDocumentPattern =
    ".*\\.(doc|docx|ppt|pptx|xls|xlsx|key|numbers|pages|pdf|rtf|rtfd|txt|plist|odt|ott|epub|mobi|"
    "csv)$";
constexpr std::string_view kContactPattern = ".*\\.(vcf)$";

// Whole-text, case- and diacritic-insensitive match. Case is left to the regex engine (Unicode
// caseless matching); diacritics are removed from both sides first.
bool matchesFolded(std::string_view text, const regex::Regex& compiled) {
  std::optional<std::string> folded = foldDiacritics(text);
  return folded && compiled.matches(*folded);
}

// One compiled kind pattern, made on first use and shared by all threads.
class KindTest {
 public:
  explicit KindTest(std::string_view pattern)
      : regex_(regex::Regex::compile(pattern, regex::kCaseless)) {}
  bool operator()(std::string_view name) const { return regex_ && matchesFolded(name, *regex_); }

 private:
  std::shared_ptr<const regex::Regex> regex_;
};

}  // namespace

bool DPHelper::validate(std::string_view text, std::string_view pattern) {
  std::optional<std::string> foldedPattern = foldDiacritics(pattern);
  if (!foldedPattern) return false;
  auto compiled = regex::Regex::compile(*foldedPattern, regex::kCaseless);
  return compiled && matchesFolded(text, *compiled);
}

bool DPHelper::isVideo(std::string_view name) {
  static const KindTest test(kVideoPattern);
  return test(name);
}

bool DPHelper::isAudio(std::string_view name) {
  static const KindTest test(kAudioPattern);
  return test(name);
}

bool DPHelper::isImage(std::string_view name) {
  static const KindTest test(kImagePattern);
  return test(name);
}

bool DPHelper::isDocument(std::string_view name) {
  static const KindTest test(kDocumentPattern);
  return test(name);
}

bool DPHelper::isContact(std::string_view name) {
  static const KindTest test(kContactPattern);
  return test(name);
}

std::optional<std::string> DPHelper::decodedWebpWithData(std::string_view data) {
  return Image::pngDataFromWebp(data);
}

std::optional<std::string> DPHelper::decodedWebpWithPath(const std::string& path,
                                                         std::string_view imageName) {
  std::string folder = path::appendingPathComponent(productDomainPath(), "data/thumbnail");
  if (!createDirectories(folder)) return std::nullopt;
  std::string name = path::safeComponent(imageName);
  name = stringByReplacingOccurrences(name, ".webp", ".png");
  std::optional<std::string> webp = readBackupFile(path);
  if (!webp) return std::nullopt;
  std::optional<std::string> png = decodedWebpWithData(*webp);
  if (!png) return std::nullopt;
  std::string output = path::appendingPathComponent(folder, name);
  if (!writeFileAtomically(output, *png)) return std::nullopt;
  return output;
}

}  // namespace dataparser
