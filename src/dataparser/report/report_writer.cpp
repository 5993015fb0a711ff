#include "dataparser/report/report_writer.h"

#include <fmt/format.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "dataparser/model/describable.h"
#include "dataparser/report/viewer_assets.h"
#include "dataparser/util/date.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/image.h"
#include "dataparser/util/path.h"

namespace dataparser {
namespace {

namespace fs = std::filesystem;
using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

constexpr int kThumbnailHeight = 200;

// Fields that mean something only inside a user interface, and views that repeat other fields.
constexpr std::array<std::string_view, 10> kLeftOut = {
    "selected",         "highlighed",      "dragHighlighted",      "visible",
    "selectedItems",    "filteredItems",   "sessionSelectedIndex", "contactsSelectedIndex",
    "selectedContents", "filteredContents"};

bool leftOut(std::string_view name) {
  return std::find(kLeftOut.begin(), kLeftOut.end(), name) != kLeftOut.end();
}

// A field that names a file on this computer: "localPath", "thumbPath", "imagePath", ... but not
// the path the file had on the phone.
bool namesLocalFile(std::string_view name) {
  return name.size() > 4 && name.ends_with("Path") && name != "devicePath";
}

// An absolute path of a regular file.
bool isLocalFile(std::string_view path) {
  return !path.empty() && path.front() == '/' && path.find('\0') == std::string_view::npos &&
         isBackupFile(std::string(path));
}

// "file://" and the path with every byte but unreserved ones and "/" percent-escaped.
std::string fileUrl(std::string_view path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string url = "file://";
  url.reserve(url.size() + path.size() * 3);
  for (char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                       c == '-' || c == '.' || c == '_' || c == '~' || c == '/';
    if (plain) {
      url += c;
    } else {
      url += '%';
      url += kHex[byte >> 4];
      url += kHex[byte & 0xF];
    }
  }
  return url;
}

void writeString(JsonWriter& writer, std::string_view text) {
  writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

// The report folder: every file of the report is written through it, under names made here.
class ReportFolder {
 public:
  ReportFolder(fs::path root, bool copyMedia) : root_(std::move(root)), copyMedia_(copyMedia) {}

  // Makes the folder (replacing an earlier report's data); false with `error_` set.
  bool prepare() {
    std::error_code ec;
    if (fs::exists(root_, ec)) {
      if (!fs::is_directory(root_, ec)) return fail(root_.string() + " is not a folder");
      const bool empty = fs::is_empty(root_, ec);
      const bool earlierReport = fs::is_regular_file(root_ / "index.html", ec) &&
                                 fs::is_regular_file(root_ / "data" / "index.js", ec);
      if (!empty && !earlierReport) {
        return fail(root_.string() + " is not empty and holds no earlier report");
      }
      for (const char* own : {"data", "media"}) {
        const fs::path folder = root_ / own;
        if (fs::is_symlink(folder, ec)) return fail(folder.string() + " is a symbolic link");
        fs::remove_all(folder, ec);
        if (ec) return fail("cannot remove " + folder.string() + ": " + ec.message());
      }
    }
    for (const fs::path& folder : {root_ / "data", root_ / "media"}) {
      fs::create_directories(folder, ec);
      if (ec) return fail("cannot create " + folder.string() + ": " + ec.message());
    }
    for (const ViewerAsset& asset : viewerAssets()) {
      if (!write(asset.name, {}, asset.content, {})) return false;
    }
    return true;
  }

  // Writes prefix + body + suffix to `relative` (a name made by the writer).
  bool write(std::string_view relative, std::string_view prefix, std::string_view body,
             std::string_view suffix) {
    const fs::path path = root_ / relative;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "wb"),
                                                         &std::fclose);
    if (!file) return fail("cannot open " + path.string() + " for writing");
    for (std::string_view part : {prefix, body, suffix}) {
      if (!part.empty() && std::fwrite(part.data(), 1, part.size(), file.get()) != part.size()) {
        return fail("write error on " + path.string());
      }
    }
    if (std::fflush(file.get()) != 0) return fail("write error on " + path.string());
    return true;
  }

  // The thumbnail of a picture, made once per picture; "" when it cannot be made.
  std::string thumbnail(const Image& image) {
    auto [it, inserted] = thumbnails_.try_emplace(&image);
    if (!inserted) return it->second;
    std::optional<std::string> png = image.thumbnailPNG(kThumbnailHeight);
    if (!png) return {};
    std::string name = fmt::format("media/t{}.png", thumbnails_.size());
    if (write(name, {}, *png, {})) it->second = std::move(name);
    return it->second;
  }

  // The link of a local file: its file: URL, or with copyMedia the path of its copy.
  std::string link(const std::string& path) {
    if (!copyMedia_) return fileUrl(path);
    auto [it, inserted] = copies_.try_emplace(path);
    if (!inserted) return it->second;
    std::error_code ec;
    const fs::path files = root_ / "media" / "files";
    fs::create_directories(files, ec);
    std::string name =
        std::to_string(copies_.size()) + "-" + path::safeComponent(path::lastPathComponent(path));
    fs::copy_file(path, files / name, fs::copy_options::overwrite_existing, ec);
    it->second = ec ? fileUrl(path) : "media/files/" + URLEncodedComponent(name);
    return it->second;
  }

  const std::string& error() const { return error_; }
  bool failed() const { return !error_.empty(); }

 private:
  static std::string URLEncodedComponent(std::string_view name) {
    std::string url = fileUrl(name);
    return url.substr(std::string_view("file://").size());
  }

  bool fail(std::string message) {
    if (error_.empty()) error_ = std::move(message);
    return false;
  }

  fs::path root_;
  bool copyMedia_;
  std::string error_;
  std::unordered_map<const Image*, std::string> thumbnails_;
  std::unordered_map<std::string, std::string> copies_;
};

// One data file in the making: a JSON array of objects.
class DataPage {
 public:
  JsonWriter& start() {
    buffer_.Clear();
    writer_.Reset(buffer_);
    writer_.StartArray();
    count_ = 0;
    return writer_;
  }
  JsonWriter& writer() { return writer_; }
  void added() { ++count_; }
  std::size_t count() const { return count_; }
  // Ends the array and writes the page as `DP.onData("id", [...]);`.
  bool flush(ReportFolder& folder, const std::string& id) {
    writer_.EndArray();
    std::string prefix = "DP.onData(\"" + id + "\",";
    return folder.write("data/" + id + ".js", prefix,
                        std::string_view(buffer_.GetString(), buffer_.GetSize()), ");\n");
  }

 private:
  rapidjson::StringBuffer buffer_;
  JsonWriter writer_;
  std::size_t count_ = 0;
};

// What the index says of one list.
struct ListSummary {
  IOSDataType code = 0;
  std::size_t count = 0;
  std::size_t pages = 0;
  const char* kind = "cards";
};

// Writes lists item by item through their reflection, paging lists and conversations.
class ReportFieldWriter final : public FieldVisitor {
 public:
  ReportFieldWriter(ReportFolder& folder, std::size_t pageSize)
      : folder_(folder), pageSize_(std::max<std::size_t>(pageSize, 1)) {}

  ListSummary writeList(IOSDataType code, const ItemList& items) {
    code_ = code;
    sawContents_ = false;
    sawPicture_ = false;
    sawAttachment_ = false;
    ListSummary summary;
    summary.code = code;
    std::size_t page = 0;
    out_ = &listPage_.start();
    for (const ItemPtr& item : items) {
      if (!item) continue;
      depth_ = 0;
      skip_ = 0;
      field(std::string_view(), static_cast<const Describable*>(item.get()));
      ++conversation_;
      listPage_.added();
      ++summary.count;
      if (listPage_.count() == pageSize_) {
        listPage_.flush(folder_, listId(page++));
        out_ = &listPage_.start();
      }
    }
    if (listPage_.count() > 0 || page == 0) listPage_.flush(folder_, listId(page++));
    conversation_ = 0;
    summary.pages = page;
    summary.kind = sawContents_ ? "chat" : (sawPicture_ || sawAttachment_) ? "grid" : "cards";
    return summary;
  }

 protected:
  void onNull(std::string_view name) override {
    if (ignored(name) || inMessageList()) return;
    key(name);
    out_->Null();
  }
  void onString(std::string_view name, std::string_view value) override {
    if (ignored(name)) return;
    key(name);
    if (namesLocalFile(name) && isLocalFile(value)) {
      std::string path(value);
      out_->StartObject();
      out_->Key("href");
      writeString(*out_, folder_.link(path));
      out_->Key("file");
      writeString(*out_, path::lastPathComponent(path));
      out_->EndObject();
      return;
    }
    writeString(*out_, value);
  }
  void onInteger(std::string_view name, std::int64_t value) override {
    if (ignored(name)) return;
    key(name);
    out_->Int64(value);
  }
  void onUnsigned(std::string_view name, std::uint64_t value) override {
    if (ignored(name)) return;
    key(name);
    out_->Uint64(value);
  }
  void onDouble(std::string_view name, double value) override {
    if (ignored(name)) return;
    key(name);
    if (std::isfinite(value)) {
      out_->Double(value);
    } else {
      out_->Null();
    }
  }
  void onBool(std::string_view name, bool value) override {
    if (ignored(name)) return;
    key(name);
    out_->Bool(value);
  }
  void onDate(std::string_view name, Date value) override {
    onDouble(name, secondsSince1970(value));
  }
  void onImage(std::string_view name, const Image& image) override {
    if (ignored(name)) return;
    if (depth_ == 1) sawPicture_ = true;
    key(name);
    std::string thumb = folder_.thumbnail(image);
    if (thumb.empty()) {
      out_->Null();
      return;
    }
    out_->StartObject();
    out_->Key("thumb");
    writeString(*out_, thumb);
    out_->Key("width");
    out_->Int(image.width());
    out_->Key("height");
    out_->Int(image.height());
    out_->EndObject();
  }
  void onObjectBegin(std::string_view name, std::string_view className) override {
    if (opensIgnored(name)) return;
    if (depth_ == 0 && className.find("Attachment") != std::string_view::npos) {
      sawAttachment_ = true;
    }
    key(name);
    out_->StartObject();
    out_->Key("class");
    writeString(*out_, className);
    ++depth_;
  }
  void onObjectEnd() override {
    if (closesIgnored()) return;
    out_->EndObject();
    --depth_;
    if (inMessageList()) {
      messagePage_.added();
      ++messageCount_;
      if (messagePage_.count() == pageSize_) {
        messagePage_.flush(folder_, messageId(messagePages_++));
        out_ = &messagePage_.start();
      }
    }
  }
  void onArrayBegin(std::string_view name) override {
    if (opensIgnored(name)) return;
    if (name == "contents" && depth_ == 1 && itemOut_ == nullptr) {
      // A conversation's messages go to pages of their own.
      itemOut_ = out_;
      out_ = &messagePage_.start();
      messageCount_ = 0;
      messagePages_ = 0;
      return;
    }
    key(name);
    out_->StartArray();
    ++depth_;
  }
  void onArrayEnd() override {
    if (closesIgnored()) return;
    if (inMessageList()) {
      if (messagePage_.count() > 0) messagePage_.flush(folder_, messageId(messagePages_++));
      out_ = itemOut_;
      itemOut_ = nullptr;
      sawContents_ = true;
      out_->Key("contents");
      out_->StartObject();
      out_->Key("id");
      writeString(*out_, messageId());
      out_->Key("count");
      out_->Uint64(messageCount_);
      out_->Key("pages");
      out_->Uint64(messagePages_);
      out_->EndObject();
      return;
    }
    out_->EndArray();
    --depth_;
  }

 private:
  // Inside a left-out field, or a left-out scalar.
  bool ignored(std::string_view name) const { return skip_ > 0 || leftOut(name); }
  bool opensIgnored(std::string_view name) {
    if (skip_ > 0 || leftOut(name)) {
      ++skip_;
      return true;
    }
    return false;
  }
  bool closesIgnored() {
    if (skip_ == 0) return false;
    --skip_;
    return true;
  }
  // Directly inside a conversation's message list (between messages).
  bool inMessageList() const { return itemOut_ != nullptr && depth_ == 1; }

  void key(std::string_view name) {
    if (!name.empty()) out_->Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
  }
  std::string listId(std::size_t page) const { return fmt::format("l{}-{}", code_, page); }
  std::string messageId() const { return fmt::format("m{}-{}", code_, conversation_); }
  std::string messageId(std::size_t page) const {
    return fmt::format("m{}-{}-{}", code_, conversation_, page);
  }

  ReportFolder& folder_;
  const std::size_t pageSize_;
  IOSDataType code_ = 0;
  DataPage listPage_;
  DataPage messagePage_;
  JsonWriter* out_ = nullptr;
  JsonWriter* itemOut_ = nullptr;  // the list page while a conversation's messages are written
  int depth_ = 0;                  // open objects and arrays of the current item
  int skip_ = 0;                   // open containers of a left-out field
  std::size_t conversation_ = 0;   // index of the current item in its list
  std::size_t messageCount_ = 0;
  std::size_t messagePages_ = 0;
  bool sawContents_ = false;
  bool sawPicture_ = false;
  bool sawAttachment_ = false;
};

std::string indexScript(const std::vector<ListSummary>& lists, int status,
                        const ReportOptions& options) {
  rapidjson::StringBuffer buffer;
  JsonWriter writer(buffer);
  writer.StartObject();
  writer.Key("title");
  writeString(writer, options.title);
  writer.Key("source");
  writeString(writer, options.source);
  writer.Key("status");
  writer.Int(status);
  writer.Key("deleted");
  writer.Bool(options.deletedIncluded);
  writer.Key("pageSize");
  writer.Uint64(std::max<std::size_t>(options.pageSize, 1));
  writer.Key("types");
  writer.StartArray();
  for (const ListSummary& list : lists) {
    writer.StartObject();
    writer.Key("code");
    writer.Int64(list.code);
    writer.Key("name");
    std::string_view name = IOSDataTypeName(list.code);
    writeString(writer, name.empty() ? "Type " + std::to_string(list.code) : std::string(name));
    writer.Key("count");
    writer.Uint64(list.count);
    writer.Key("pages");
    writer.Uint64(list.pages);
    writer.Key("kind");
    writer.String(list.kind);
    writer.EndObject();
  }
  writer.EndArray();
  writer.EndObject();
  return "window.DP = window.DP || {};\nDP.index = " +
         std::string(buffer.GetString(), buffer.GetSize()) + ";\n";
}

}  // namespace

bool writeReport(const std::map<IOSDataType, ItemList>& lists, int status,
                 const ReportOptions& options, std::string* error) {
  auto failed = [error](const std::string& message) {
    if (error) *error = message;
    return false;
  };
  if (options.outDir.empty()) return failed("no report folder given");
  std::error_code ec;
  fs::path root = fs::absolute(options.outDir, ec);
  if (ec) return failed("cannot use " + options.outDir + ": " + ec.message());

  ReportFolder folder(root, options.copyMedia);
  if (!folder.prepare()) return failed(folder.error());

  ReportFieldWriter writer(folder, options.pageSize);
  std::vector<ListSummary> summaries;
  for (const auto& [code, items] : lists) {
    if (items.empty()) continue;
    summaries.push_back(writer.writeList(code, items));
    if (folder.failed()) return failed(folder.error());
  }
  if (!folder.write("data/index.js", {}, indexScript(summaries, status, options), {})) {
    return failed(folder.error());
  }
  return true;
}

}  // namespace dataparser
