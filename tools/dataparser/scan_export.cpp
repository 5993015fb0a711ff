#include "tools/dataparser/scan_export.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <rapidjson/filewritestream.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>

#include "dataparser/model/conversation.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/image.h"

namespace dataparser::cli {
namespace {

// Display state of a user interface, meaningless in an export.
bool isDisplayState(std::string_view name) {
  return name == "selected" || name == "highlighed" || name == "dragHighlighted" ||
         name == "visible";
}

// A progress value as a person would write it: 0.3, not 0.30000001192092896.
double roundedProgress(float value) {
  return std::round(static_cast<double>(value) * 10000.0) / 10000.0;
}

// A FieldVisitor that writes JSON through a RapidJSON writer; display state is left out.
template <class Writer>
class JsonFieldWriter final : public FieldVisitor {
 public:
  explicit JsonFieldWriter(Writer& writer) : writer_(writer) {}

  void object(const Describable& object) { field(std::string_view(), &object); }

 protected:
  void onNull(std::string_view name) override {
    if (isDisplayState(name)) return;
    key(name);
    writer_.Null();
  }
  void onString(std::string_view name, std::string_view value) override {
    key(name);
    writer_.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
  }
  void onInteger(std::string_view name, std::int64_t value) override {
    if (isDisplayState(name)) return;
    key(name);
    writer_.Int64(value);
  }
  void onUnsigned(std::string_view name, std::uint64_t value) override {
    key(name);
    writer_.Uint64(value);
  }
  void onDouble(std::string_view name, double value) override {
    key(name);
    if (std::isfinite(value)) {
      writer_.Double(value);
    } else {
      writer_.Null();  // JSON has no NaN or infinity
    }
  }
  void onBool(std::string_view name, bool value) override {
    if (isDisplayState(name)) return;
    key(name);
    writer_.Bool(value);
  }
  void onDate(std::string_view name, Date value) override {
    onDouble(name, secondsSince1970(value));
  }
  void onImage(std::string_view name, const Image& image) override {
    key(name);
    writer_.StartObject();
    writer_.Key("width");
    writer_.Int(image.width());
    writer_.Key("height");
    writer_.Int(image.height());
    writer_.EndObject();
  }
  void onObjectBegin(std::string_view name, std::string_view className) override {
    key(name);
    writer_.StartObject();
    writer_.Key("class");
    writer_.String(className.data(), static_cast<rapidjson::SizeType>(className.size()));
  }
  void onObjectEnd() override { writer_.EndObject(); }
  void onArrayBegin(std::string_view name) override {
    key(name);
    writer_.StartArray();
  }
  void onArrayEnd() override { writer_.EndArray(); }

 private:
  void key(std::string_view name) {
    if (!name.empty()) writer_.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
  }
  Writer& writer_;
};

}  // namespace

void ScanExport::began() {
  std::lock_guard lock(mutex_);
  began_ = true;
}

void ScanExport::progress(float value) {
  std::lock_guard lock(mutex_);
  progress_.push_back(value);
}

void ScanExport::report(std::int64_t type, const ItemList& items) {
  std::lock_guard lock(mutex_);
  reports_.push_back(Report{type, items.size()});
  lists_[type] = items;
}

void ScanExport::finish(int status) {
  std::lock_guard lock(mutex_);
  status_ = status;
}

std::vector<ScanExport::Report> ScanExport::reports() const {
  std::lock_guard lock(mutex_);
  return reports_;
}

std::map<std::int64_t, ItemList> ScanExport::lists() const {
  std::lock_guard lock(mutex_);
  return lists_;
}

int ScanExport::status() const {
  std::lock_guard lock(mutex_);
  return status_;
}

bool ScanExport::canWrite(const std::string& path, std::string* error) {
  auto fail = [&](int code) {
    if (error)
      *error = fmt::format("cannot write the JSON export to {}: {}", path, std::strerror(code));
    return false;
  };
  if (path.empty()) return fail(ENOENT);
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) {
    if (S_ISDIR(status.st_mode)) return fail(EISDIR);
    int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor < 0) return fail(errno);
    ::close(descriptor);
    return true;
  }
  int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (descriptor < 0) return fail(errno);
  ::close(descriptor);
  ::unlink(path.c_str());
  return true;
}

bool ScanExport::write(const std::string& path, std::string* error) const {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "wb"),
                                                       &std::fclose);
  if (!file) {
    if (error) *error = "cannot open " + path + " for writing";
    return false;
  }
  // Each look at a file is taken once, and the texts messages work out are not kept in them.
  const RememberedBackupLooks looks;
  const TransientTexts texts;
  std::array<char, 1 << 16> buffer;
  rapidjson::FileWriteStream stream(file.get(), buffer.data(), buffer.size());
  rapidjson::Writer<rapidjson::FileWriteStream> writer(stream);
  JsonFieldWriter fields(writer);

  std::lock_guard lock(mutex_);
  writer.StartObject();
  writer.Key("status");
  writer.Int(status_);
  writer.Key("began");
  writer.Bool(began_);
  writer.Key("progress");
  writer.StartArray();
  for (float value : progress_)
    writer.Double(roundedProgress(value));
  writer.EndArray();
  writer.Key("reports");
  writer.StartArray();
  for (const Report& report : reports_) {
    writer.StartObject();
    writer.Key("type");
    writer.Int64(report.type);
    writer.Key("count");
    writer.Uint64(report.count);
    writer.EndObject();
  }
  writer.EndArray();
  writer.Key("lists");
  writer.StartObject();
  for (const auto& [type, items] : lists_) {
    std::string code = std::to_string(type);
    writer.Key(code.c_str(), static_cast<rapidjson::SizeType>(code.size()));
    writer.StartArray();
    for (const ItemPtr& item : items) {
      if (item) {
        fields.object(*item);
      } else {
        writer.Null();
      }
    }
    writer.EndArray();
  }
  writer.EndObject();
  writer.EndObject();
  stream.Put('\n');
  stream.Flush();
  if (std::ferror(file.get()) != 0) {
    if (error) *error = "write error on " + path;
    return false;
  }
  return true;
}

std::string describeToJson(const Describable& object) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  JsonFieldWriter fields(writer);
  fields.object(object);
  return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace dataparser::cli
