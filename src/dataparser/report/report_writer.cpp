#include "dataparser/report/report_writer.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <rapidjson/stringbuffer.h>
#include <sys/uio.h>
#include <unistd.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "dataparser/model/attachment.h"
#include "dataparser/model/conversation.h"
#include "dataparser/model/describable.h"
#include "dataparser/report/viewer_assets.h"
#include "dataparser/util/date.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/image.h"
#include "dataparser/util/path.h"
#include "dataparser/util/sanitizers.h"

namespace dataparser {
namespace {

namespace fs = std::filesystem;

[[maybe_unused]] bool needsEscape(unsigned char byte) {
  return byte < 0x20 || byte == '"' || byte == '\\';
}

// The index of the first byte of `data` from `i` on that JSON escapes, or `size`: sixteen bytes
// at a time where SSE2 is there (every x86-64), else byte by byte.
std::size_t nextEscape(const char* data, std::size_t i, std::size_t size) {
#if defined(__SSE2__)
  const __m128i quotes = _mm_set1_epi8('"');
  const __m128i backslashes = _mm_set1_epi8('\\');
  const __m128i control = _mm_set1_epi8(0x1F);
  auto flagged = [&](const char* block) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block));
    const __m128i hits = _mm_or_si128(
        _mm_or_si128(_mm_cmpeq_epi8(bytes, quotes), _mm_cmpeq_epi8(bytes, backslashes)),
        _mm_cmpeq_epi8(_mm_min_epu8(bytes, control), bytes));
    return static_cast<unsigned>(_mm_movemask_epi8(hits));
  };
  for (; i + 16 <= size; i += 16) {
    if (const unsigned mask = flagged(data + i); mask != 0) {
      return i + static_cast<std::size_t>(std::countr_zero(mask));
    }
  }
  if (i == size) return size;
  // The tail (most keys and short texts are nothing else). Sixteen bytes that stay inside the
  // tail's page can be read whole, the bytes past the text masked off; otherwise (and under the
  // sanitizers, which would flag the bytes past the text) a copy padded with a byte that passes.
  const std::size_t left = size - i;
  unsigned mask;
  if (!kCheckedMemory && reinterpret_cast<std::uintptr_t>(data + i) % 4096 <= 4096 - 16) {
    mask = flagged(data + i) & ((1U << left) - 1);
  } else {
    char block[16];
    std::memset(block, 'a', sizeof block);
    std::memcpy(block, data + i, left);
    mask = flagged(block);
  }
  return mask == 0 ? size : i + static_cast<std::size_t>(std::countr_zero(mask));
#else
  while (i < size && !needsEscape(static_cast<unsigned char>(data[i])))
    ++i;
  return i;
#endif
}

// Appends `text` to `out` as the inside of a JSON string: quote, backslash and control bytes are
// escaped, every other byte (UTF-8 included) is copied as it stands, a run of them in one copy.
void appendEscaped(rapidjson::StringBuffer& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  const char* data = text.data();
  const std::size_t size = text.size();
  std::size_t run = 0;
  for (std::size_t i = nextEscape(data, 0, size); i < size; i = nextEscape(data, run, size)) {
    if (i > run) std::memcpy(out.Push(i - run), data + run, i - run);
    const auto byte = static_cast<unsigned char>(data[i]);
    char* escape = nullptr;
    switch (byte) {
      case '"':
      case '\\':
        escape = out.Push(2);
        escape[1] = static_cast<char>(byte);
        break;
      case '\n':
        escape = out.Push(2);
        escape[1] = 'n';
        break;
      case '\r':
        escape = out.Push(2);
        escape[1] = 'r';
        break;
      case '\t':
        escape = out.Push(2);
        escape[1] = 't';
        break;
      default:
        escape = out.Push(6);
        std::memcpy(escape + 1, "u00", 3);
        escape[4] = kHex[byte >> 4];
        escape[5] = kHex[byte & 0xF];
    }
    escape[0] = '\\';
    run = i + 1;
  }
  if (size > run) std::memcpy(out.Push(size - run), data + run, size - run);
}

// Writes JSON into a buffer, as RapidJSON's writer would, for what the report needs: no checks
// of nesting (the writer's walk keeps it), one flag for the commas, strings through
// `appendEscaped`, and whole numbers of a double (dates are whole seconds) as integers, which
// JavaScript reads the same.
class JsonWriter {
 public:
  JsonWriter() = default;
  explicit JsonWriter(rapidjson::StringBuffer& out) : out_(&out) {}
  void Reset(rapidjson::StringBuffer& out) {
    out_ = &out;
    first_ = true;
  }

  void StartObject() { open('{'); }
  void EndObject() { close('}'); }
  void StartArray() { open('['); }
  void EndArray() { close(']'); }
  void Key(const char* name, std::size_t length) {
    String(name, length);
    out_->Put(':');
    first_ = true;  // the value that follows takes no comma
  }
  void Key(const char* name) { Key(name, std::char_traits<char>::length(name)); }
  void String(const char* text, std::size_t length) {
    comma();
    out_->Put('"');
    appendEscaped(*out_, std::string_view(text, length));
    out_->Put('"');
  }
  void String(const char* text) { String(text, std::char_traits<char>::length(text)); }
  void Int(int number) { Int64(number); }
  void Int64(std::int64_t number) { digits(number); }
  void Uint64(std::uint64_t number) { digits(number); }
  void Double(double number) {
    constexpr double kExact = 9007199254740992.0;  // 2^53: every integer below is exact
    if (number == std::trunc(number) && std::fabs(number) < kExact) {
      digits(static_cast<std::int64_t>(number));
    } else {
      digits(number);  // the shortest text that reads back the same
    }
  }
  void Bool(bool flag) { literal(flag ? std::string_view("true") : std::string_view("false")); }
  void Null() { literal("null"); }
  // `json` is a complete value written earlier by this class.
  void RawValue(const char* json, std::size_t length) { literal(std::string_view(json, length)); }

 private:
  void comma() {
    if (!first_) out_->Put(',');
    first_ = false;
  }
  void open(char bracket) {
    comma();
    out_->Put(bracket);
    first_ = true;
  }
  void close(char bracket) {
    out_->Put(bracket);
    first_ = false;
  }
  void literal(std::string_view text) {
    comma();
    std::memcpy(out_->Push(text.size()), text.data(), text.size());
  }
  template <class Number>
  void digits(Number number) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, number).ptr;
    literal(std::string_view(text, static_cast<std::size_t>(end - text)));
  }

  rapidjson::StringBuffer* out_ = nullptr;
  bool first_ = true;  // nothing written yet in the open object or array
};

constexpr int kThumbnailHeight = 200;

// Fields that mean something only inside a user interface, and views that repeat other fields.
constexpr std::array<std::string_view, 10> kLeftOut = {
    "selected",         "highlighed",      "dragHighlighted",      "visible",
    "selectedItems",    "filteredItems",   "sessionSelectedIndex", "contactsSelectedIndex",
    "selectedContents", "filteredContents"};

// Asked for every field of every item: names of other lengths are answered by one bit test.
bool isLeftOut(std::string_view name) {
  static constexpr std::uint64_t kLengths = [] {
    std::uint64_t bits = 0;
    for (std::string_view left : kLeftOut)
      bits |= std::uint64_t{1} << left.size();
    return bits;
  }();
  if (name.size() >= 64 || ((kLengths >> name.size()) & 1) == 0) return false;
  return std::find(kLeftOut.begin(), kLeftOut.end(), name) != kLeftOut.end();
}

// A field that names a file on this computer: "localPath", "thumbPath", "imagePath", ... but not
// the path the file had on the phone.
bool namesLocalFile(std::string_view name) {
  return name.size() > 4 && name.ends_with("Path") && name != "devicePath";
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
  writer.String(text.data(), text.size());
}

// Lets maps keyed by std::string be searched with a std::string_view.
struct StringHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>()(text);
  }
};

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

  // Writes prefix + body + suffix to `relative` (a name made by the writer), in one call.
  bool write(std::string_view relative, std::string_view prefix, std::string_view body,
             std::string_view suffix) {
    const fs::path path = root_ / relative;
    const int fd =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) return fail("cannot open " + path.string() + " for writing");
    std::array<iovec, 3> parts = {iovec{const_cast<char*>(prefix.data()), prefix.size()},
                                  iovec{const_cast<char*>(body.data()), body.size()},
                                  iovec{const_cast<char*>(suffix.data()), suffix.size()}};
    std::size_t first = 0;
    bool ok = true;
    while (ok && first < parts.size()) {
      const ssize_t written = ::writev(fd, &parts[first], static_cast<int>(parts.size() - first));
      if (written < 0) {
        ok = errno == EINTR;
        continue;
      }
      // Skip what went out; a short write resumes inside its part.
      auto left = static_cast<std::size_t>(written);
      while (first < parts.size() && left >= parts[first].iov_len) {
        left -= parts[first].iov_len;
        ++first;
      }
      if (first < parts.size()) {
        parts[first].iov_base = static_cast<char*>(parts[first].iov_base) + left;
        parts[first].iov_len -= left;
      }
    }
    if (::close(fd) != 0) ok = false;
    return ok || fail("write error on " + path.string());
  }

  // The thumbnail of a picture, made once per picture (a file loaded again while unchanged is
  // the same picture); "" when it cannot be made.
  const std::string& thumbnail(const Image& image) {
    auto [it, inserted] = thumbnails_.try_emplace(&image);
    if (!inserted) return it->second;
    std::optional<std::string> png = image.thumbnailPNG(kThumbnailHeight);
    if (!png) return it->second;
    std::string name = fmt::format("media/t{}.png", ++thumbnailCount_);
    if (write(name, {}, *png, {})) it->second = std::move(name);
    return it->second;
  }

  // The link of a local file (an absolute path of a regular file) as a JSON object,
  // {"href": its file: URL or with copyMedia the path of its copy, "file": its name}; "" for any
  // other path. One look per distinct path.
  const std::string& link(std::string_view path) {
    // A message names its attachment's file twice in a row.
    if (lastLink_ != nullptr && path == lastPath_) return *lastLink_;
    lastPath_.assign(path);
    auto it = links_.find(path);
    if (it != links_.end()) return *(lastLink_ = &it->second);
    std::string file(path);
    std::string link;
    if (!file.empty() && file.front() == '/' && file.find('\0') == std::string::npos &&
        isBackupFile(file)) {
      rapidjson::StringBuffer buffer;
      JsonWriter writer(buffer);
      writer.StartObject();
      writer.Key("href");
      writeString(writer, copyMedia_ ? copy(file) : fileUrl(file));
      writer.Key("file");
      writeString(writer, path::lastPathComponent(file));
      writer.EndObject();
      link.assign(buffer.GetString(), buffer.GetSize());
    }
    return *(lastLink_ = &links_.emplace(std::move(file), std::move(link)).first->second);
  }

  std::string error() const {
    std::lock_guard lock(errorMutex_);
    return error_;
  }
  bool failed() const {
    std::lock_guard lock(errorMutex_);
    return !error_.empty();
  }

 private:
  std::string copy(const std::string& path) {
    std::error_code ec;
    const fs::path files = root_ / "media" / "files";
    fs::create_directories(files, ec);
    std::string name =
        std::to_string(++copies_) + "-" + path::safeComponent(path::lastPathComponent(path));
    fs::copy_file(path, files / name, fs::copy_options::overwrite_existing, ec);
    return ec ? fileUrl(path) : "media/files/" + URLEncodedComponent(name);
  }

  static std::string URLEncodedComponent(std::string_view name) {
    std::string url = fileUrl(name);
    return url.substr(std::string_view("file://").size());
  }

  bool fail(std::string message) {
    std::lock_guard lock(errorMutex_);
    if (error_.empty()) error_ = std::move(message);
    return false;
  }

  fs::path root_;
  bool copyMedia_;
  mutable std::mutex errorMutex_;  // `write` also runs on the page writer's thread
  std::string error_;
  std::unordered_map<const Image*, std::string> thumbnails_;
  std::size_t thumbnailCount_ = 0;
  std::unordered_map<std::string, std::string, StringHash, std::equal_to<>> links_;
  std::string lastPath_;                   // the path of the last `link` call
  const std::string* lastLink_ = nullptr;  // its answer, in `links_`
  std::size_t copies_ = 0;
};

// Writes finished data files on a thread of its own, so that the next page is built while the
// last one goes to disk. At most `kQueued` pages wait; their buffers come back for reuse.
// Failures land in the folder's error. The destructor writes what is queued and joins.
class PageWriter {
 public:
  explicit PageWriter(ReportFolder& folder) : folder_(folder), thread_([this] { run(); }) {}
  ~PageWriter() {
    {
      std::lock_guard lock(mutex_);
      done_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }
  PageWriter(const PageWriter&) = delete;
  PageWriter& operator=(const PageWriter&) = delete;

  // Queues `prefix` + `body` + `suffix` for data/`id`.js; `body` becomes an empty buffer.
  void write(const std::string& id, rapidjson::StringBuffer& body) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return queue_.size() < kQueued; });
    queue_.push_back(Job{id, std::move(body)});
    if (!spare_.empty()) {
      body = std::move(spare_.back());
      spare_.pop_back();
    }
    changed_.notify_all();
  }

 private:
  static constexpr std::size_t kQueued = 4;
  struct Job {
    std::string id;
    rapidjson::StringBuffer body;
  };

  void run() {
    std::unique_lock lock(mutex_);
    for (;;) {
      changed_.wait(lock, [this] { return done_ || !queue_.empty(); });
      if (queue_.empty()) return;
      Job job = std::move(queue_.front());
      queue_.pop_front();
      changed_.notify_all();
      lock.unlock();
      folder_.write("data/" + job.id + ".js", "DP.onData(\"" + job.id + "\",",
                    std::string_view(job.body.GetString(), job.body.GetSize()), ");\n");
      job.body.Clear();
      lock.lock();
      if (spare_.size() < kQueued) spare_.push_back(std::move(job.body));
    }
  }

  ReportFolder& folder_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Job> queue_;
  std::vector<rapidjson::StringBuffer> spare_;
  bool done_ = false;
  std::thread thread_;  // last: starts once the members above exist
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
  // What is written so far (valid until the next write).
  std::string_view bytes() const { return {buffer_.GetString(), buffer_.GetSize()}; }
  void added() { ++count_; }
  std::size_t count() const { return count_; }
  // Ends the array and hands the page to `pages`, which writes it as `DP.onData("id", [...]);`.
  void flush(PageWriter& pages, const std::string& id) {
    writer_.EndArray();
    pages.write(id, buffer_);
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

// Writes lists item by item through their reflection, paging lists and conversations. A named
// field with nothing in it (null, "", false, 0, an empty array) is left out: the viewer reads a
// missing key as empty. Messages carry no class name (their conversation's list says what they
// are).
class ReportFieldWriter final : public FieldVisitor {
 public:
  ReportFieldWriter(ReportFolder& folder, std::size_t pageSize)
      : folder_(folder), pages_(folder), pageSize_(std::max<std::size_t>(pageSize, 1)) {}

  ListSummary writeList(IOSDataType code, const ItemList& items) {
    code_ = code;
    sawContents_ = false;
    sawPicture_ = false;
    sawAttachment_ = false;
    ListSummary summary;
    summary.code = code;
    std::size_t page = 0;
    out_ = &listPage_.start();
    messagePage_.start();
    messageCount_ = 0;
    messageFiles_ = 0;
    for (const ItemPtr& item : items) {
      if (!item) continue;
      if (!writeCaptured(item.get())) {
        depth_ = 0;
        skip_ = 0;
        arrays_.clear();
        openArrays_ = 0;
        session_ = dynamic_cast<const IOSBaseSessionItem*>(item.get());
        field(std::string_view(), static_cast<const Describable*>(item.get()));
      }
      listPage_.added();
      ++summary.count;
      if (listPage_.count() == pageSize_) {
        listPage_.flush(pages_, listId(page++));
        out_ = &listPage_.start();
      }
    }
    if (listPage_.count() > 0 || page == 0) listPage_.flush(pages_, listId(page++));
    if (messagePage_.count() > 0) messagePage_.flush(pages_, messageFileId(messageFiles_++));
    summary.pages = page;
    summary.kind = sawContents_ ? "chat" : (sawPicture_ || sawAttachment_) ? "grid" : "cards";
    return summary;
  }

  // Items of lists written after the conversations: when one of them is a message's attachment,
  // the bytes written for it there are kept and copied into its list, instead of a second walk.
  void expect(const ItemList& items) {
    for (const ItemPtr& item : items) {
      if (dynamic_cast<const IOSAttachmentItem*>(item.get()) != nullptr) wanted_.insert(item.get());
    }
  }

 protected:
  void onNull(std::string_view name) override {
    // Only an array keeps its nulls, so that its entries keep their places.
    if (!name.empty() || skip_ > 0) return;
    if (inMessageList()) {
      ++messageIndex_;  // keeps counting along the conversation's list
      return;
    }
    value(name);
    out_->Null();
  }
  void onString(std::string_view name, std::string_view text) override {
    if (leftOut(name, text.empty())) return;
    if (namesLocalFile(name)) {
      const std::string& link = folder_.link(text);
      if (!link.empty()) {
        value(name);
        out_->RawValue(link.data(), link.size());
        return;
      }
    }
    value(name);
    writeString(*out_, text);
  }
  void onInteger(std::string_view name, std::int64_t number) override {
    if (leftOut(name, number == 0)) return;
    value(name);
    out_->Int64(number);
  }
  void onUnsigned(std::string_view name, std::uint64_t number) override {
    if (leftOut(name, number == 0)) return;
    value(name);
    out_->Uint64(number);
  }
  void onDouble(std::string_view name, double number) override {
    const bool finite = std::isfinite(number);
    if (leftOut(name, !finite || number == 0)) return;
    value(name);
    if (finite) {
      out_->Double(number);
    } else {
      out_->Null();
    }
  }
  void onBool(std::string_view name, bool flag) override {
    if (leftOut(name, !flag)) return;
    value(name);
    out_->Bool(flag);
  }
  void onDate(std::string_view name, Date date) override { onDouble(name, secondsSince1970(date)); }
  void onImage(std::string_view name, const Image& image) override {
    if (leftOut(name, false)) return;
    if (depth_ == 1) sawPicture_ = true;
    if (capturing_ != nullptr && depth_ == captureDepth_ + 1) capturedPicture_ = true;
    const std::string& thumb = folder_.thumbnail(image);
    if (thumb.empty()) {
      if (name.empty()) onNull(name);
      return;
    }
    value(name);
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
    const bool message = inMessageList();
    value(name);
    out_->StartObject();
    if (message) {
      message_ = messageIndex_ < session_->contents().size()
                     ? session_->contents()[messageIndex_].get()
                     : nullptr;
      if (message_ != nullptr && message_->className() != className) message_ = nullptr;
    } else {
      if (itemOut_ != nullptr && depth_ == 2) startCapture(name, className);
      out_->Key("class");
      writeString(*out_, className);
    }
    ++depth_;
  }
  void onObjectEnd() override {
    if (closesIgnored()) return;
    out_->EndObject();
    --depth_;
    if (capturing_ != nullptr && depth_ == captureDepth_) endCapture();
    if (inMessageList()) {
      ++messageIndex_;
      message_ = nullptr;
      messagePage_.added();
      ++messageCount_;
      if (messagePage_.count() == pageSize_) {
        messagePage_.flush(pages_, messageFileId(messageFiles_++));
        out_ = &messagePage_.start();
      }
    }
  }
  void onArrayBegin(std::string_view name) override {
    if (opensIgnored(name)) return;
    if (session_ != nullptr && name == "contents" && depth_ == 1 && itemOut_ == nullptr) {
      // A conversation's messages go to the list's message files.
      itemOut_ = out_;
      out_ = &messagePage_.writer();
      conversationStart_ = messageCount_;
      messageIndex_ = 0;
      return;
    }
    // Opened with its first entry: an empty array is left out.
    arrays_.push_back(name);
    ++depth_;
  }
  void onArrayEnd() override {
    if (closesIgnored()) return;
    if (inMessageList()) {
      // Had the walk not followed `contents()` entry by entry, what it kept may belong to
      // other messages: dropped.
      if (messageIndex_ != session_->contents().size()) {
        for (const Describable* kept : keptHere_)
          captured_.erase(kept);
      }
      keptHere_.clear();
      out_ = itemOut_;
      itemOut_ = nullptr;
      sawContents_ = true;
      out_->Key("contents");
      out_->StartObject();
      out_->Key("at");
      out_->Uint64(conversationStart_);
      out_->Key("count");
      out_->Uint64(messageCount_ - conversationStart_);
      out_->EndObject();
      return;
    }
    if (openArrays_ == arrays_.size()) {
      out_->EndArray();
      --openArrays_;
    }
    arrays_.pop_back();
    --depth_;
  }

 private:
  // A field left out: inside a left-out field, a left-out name, or a named field that is empty.
  bool leftOut(std::string_view name, bool empty) const {
    return skip_ > 0 || (!name.empty() && (empty || isLeftOut(name)));
  }
  bool opensIgnored(std::string_view name) {
    if (skip_ > 0 || isLeftOut(name)) {
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

  // A message's "attachment" begins (its "{" is the last byte written): kept when a later list
  // holds it. The walk of "contents" follows the conversation's `contents()`, so the message is
  // `message_` (checked by class name).
  void startCapture(std::string_view name, std::string_view className) {
    if (name != "attachment" || message_ == nullptr || capturing_ != nullptr) return;
    const Describable* attachment = message_->attachment().get();
    if (attachment == nullptr || attachment->className() != className ||
        !wanted_.contains(attachment) || captured_.contains(attachment)) {
      return;
    }
    if (capturedBytes_.capacity() == 0) capturedBytes_.reserve(wanted_.size() * 384);
    capturing_ = attachment;
    captureDepth_ = depth_;
    captureStart_ = messagePage_.bytes().size() - 1;
    capturedPicture_ = false;
  }
  void endCapture() {
    const std::string_view bytes = messagePage_.bytes().substr(captureStart_);
    captured_.emplace(capturing_, Captured{capturedBytes_.size(), bytes.size(), capturedPicture_});
    capturedBytes_.append(bytes);
    keptHere_.push_back(capturing_);
    capturing_ = nullptr;
  }
  // Writes a list item from the bytes kept for it; false when none were kept.
  bool writeCaptured(const Describable* item) {
    auto it = captured_.find(item);
    if (it == captured_.end()) return false;
    const Captured& kept = it->second;
    out_->RawValue(capturedBytes_.data() + kept.at, kept.size);
    if (kept.picture) sawPicture_ = true;
    if (item->className().find("Attachment") != std::string_view::npos) sawAttachment_ = true;
    return true;
  }

  // Starts a value: opens the arrays still waiting for their first entry, then writes the key.
  void value(std::string_view name) {
    for (; openArrays_ < arrays_.size(); ++openArrays_) {
      key(arrays_[openArrays_]);
      out_->StartArray();
    }
    key(name);
  }
  void key(std::string_view name) {
    if (!name.empty()) out_->Key(name.data(), name.size());
  }
  std::string listId(std::size_t page) const { return fmt::format("l{}-{}", code_, page); }
  std::string messageFileId(std::size_t file) const { return fmt::format("m{}-{}", code_, file); }

  ReportFolder& folder_;
  PageWriter pages_;
  const std::size_t pageSize_;
  IOSDataType code_ = 0;
  DataPage listPage_;
  DataPage messagePage_;
  JsonWriter* out_ = nullptr;
  JsonWriter* itemOut_ = nullptr;  // the list page while a conversation's messages are written
  int depth_ = 0;                  // open objects and arrays of the current item
  int skip_ = 0;                   // open containers of a left-out field
  std::vector<std::string_view> arrays_;         // names of the open arrays, outermost first
  std::size_t openArrays_ = 0;                   // how many of them are written (have an entry)
  const IOSBaseSessionItem* session_ = nullptr;  // the current item when a conversation
  std::size_t messageIndex_ = 0;  // entry of the conversation's `contents()` being walked
  const IOSBaseSingleItem* message_ = nullptr;  // the message being written, when known
  struct Captured {
    std::size_t at = 0;  // in `capturedBytes_`
    std::size_t size = 0;
    bool picture = false;  // has a picture field of its own
  };
  std::unordered_set<const Describable*> wanted_;  // items of the lists still to write
  std::unordered_map<const Describable*, Captured> captured_;
  std::string capturedBytes_;
  std::vector<const Describable*> keptHere_;  // kept in the current conversation
  const Describable* capturing_ = nullptr;    // the attachment being kept
  int captureDepth_ = 0;                      // `depth_` outside it
  std::size_t captureStart_ = 0;              // its "{" in the message page
  bool capturedPicture_ = false;
  std::size_t messageCount_ = 0;       // messages of the list written so far
  std::size_t messageFiles_ = 0;       // message files of the list written so far
  std::size_t conversationStart_ = 0;  // index of the current conversation's first message
  bool sawContents_ = false;
  bool sawPicture_ = false;
  bool sawAttachment_ = false;
};

// A list of conversations (judged by its first item).
bool holdsConversations(const ItemList& items) {
  auto first = std::find_if(items.begin(), items.end(), [](const ItemPtr& item) { return item; });
  return first != items.end() && dynamic_cast<const IOSBaseSessionItem*>(first->get()) != nullptr;
}

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
  // Items name the same files, and the same missing files, many times over (sizes, pictures,
  // links): each is looked at once.
  const RememberedBackupLooks looks;
  // The texts messages work out for the pages are not kept in them.
  const TransientTexts texts;
  std::error_code ec;
  fs::path root = fs::absolute(options.outDir, ec);
  if (ec) return failed("cannot use " + options.outDir + ": " + ec.message());

  ReportFolder folder(root, options.copyMedia);
  if (!folder.prepare()) return failed(folder.error());

  // Conversations first, so that the attachment lists that follow copy what their messages
  // wrote.
  std::vector<std::pair<IOSDataType, const ItemList*>> order;
  for (const auto& [code, items] : lists) {
    if (!items.empty()) order.emplace_back(code, &items);
  }
  std::stable_partition(order.begin(), order.end(),
                        [](const auto& list) { return holdsConversations(*list.second); });
  std::vector<ListSummary> summaries;
  {
    ReportFieldWriter writer(folder, options.pageSize);
    if (!order.empty() && holdsConversations(*order.front().second)) {
      for (const auto& [code, items] : order) {
        if (!holdsConversations(*items)) writer.expect(*items);
      }
    }
    for (const auto& [code, items] : order) {
      summaries.push_back(writer.writeList(code, *items));
      if (folder.failed()) break;
    }
  }  // every data file is written here
  std::sort(summaries.begin(), summaries.end(),
            [](const ListSummary& a, const ListSummary& b) { return a.code < b.code; });
  if (folder.failed()) return failed(folder.error());
  if (!folder.write("data/index.js", {}, indexScript(summaries, status, options), {})) {
    return failed(folder.error());
  }
  return true;
}

}  // namespace dataparser
