#include "bench/generator/recording_writer.h"

#include <array>
#include <chrono>
#include <fstream>
#include <stdexcept>

#include <fmt/format.h>

namespace dataparser::bench {
namespace fs = std::filesystem;

JsonFile::JsonFile(const fs::path& path) : buffer_(1 << 20) {
  fs::create_directories(path.parent_path());
  file_ = std::fopen(path.c_str(), "wb");
  if (file_ == nullptr) throw std::runtime_error("cannot write " + path.string());
  stream_ = std::make_unique<rapidjson::FileWriteStream>(file_, buffer_.data(), buffer_.size());
  writer_ = std::make_unique<JsonWriter>(*stream_);
}

JsonFile::~JsonFile() {
  close();
}

void JsonFile::close() {
  if (file_ == nullptr) return;
  stream_->Flush();
  std::fclose(file_);
  file_ = nullptr;
}

RecordingWriter::RecordingWriter(fs::path root) : root_(std::move(root)) {
  fs::create_directories(root_ / "stream");
}

std::string RecordingWriter::rootPath(std::string_view relative) {
  return fmt::format("{{{{ROOT}}}}/{}", relative);
}

std::string RecordingWriter::absolutePath(std::string_view relative) const {
  return (fs::absolute(root_) / relative).lexically_normal().string();
}

fs::path RecordingWriter::file(std::string_view relative) const {
  fs::path path = root_ / relative;
  fs::create_directories(path.parent_path());
  return path;
}

void RecordingWriter::block(int code, std::string_view text) {
  fs::path path = root_ / "stream" / fmt::format("{:06}-{}.json", ++sequence_, code);
  std::ofstream out(path, std::ios::binary);
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
  if (!out) throw std::runtime_error("cannot write " + path.string());
}

namespace {

// Words of several scripts, so that texts exercise multi-byte UTF-8 throughout.
constexpr std::array<std::string_view, 24> kWords = {
    "the",   "meeting", "tomorrow", "ok",       "see",    "you",     "soon",   "café",
    "naïve", "über",    "señor",    "größe",    "привет", "спасибо", "日本語", "你好",
    "明天",  "見る",    "😀",        "👍🏽", "مرحبا",  "שלום",    "Ελλάδα", "lunch"};

}  // namespace

std::string engineDate(std::int64_t secondsSince1970) {
  using namespace std::chrono;
  sys_seconds time{seconds(secondsSince1970)};
  sys_days day = floor<days>(time);
  year_month_day ymd(day);
  hh_mm_ss clock(time - day);
  return fmt::format("{:02}-{:02}-{:04} {:02}:{:02}:{:02}", unsigned(ymd.month()),
                     unsigned(ymd.day()), int(ymd.year()), clock.hours().count(),
                     clock.minutes().count(), clock.seconds().count());
}

void writeString(JsonWriter& writer, std::string_view key, std::string_view value) {
  writer.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
  writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
}

void writeInteger(JsonWriter& writer, std::string_view key, std::int64_t value) {
  writer.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
  writer.Int64(value);
}

std::int64_t TextSource::between(std::int64_t low, std::int64_t high) {
  return std::uniform_int_distribution<std::int64_t>(low, high)(random_);
}

bool TextSource::chance(double probability) {
  return std::uniform_real_distribution<double>(0.0, 1.0)(random_) < probability;
}

std::string TextSource::text(std::size_t length) {
  std::string out;
  out.reserve(length);
  while (true) {
    std::string_view word = kWords[static_cast<std::size_t>(between(0, kWords.size() - 1))];
    std::size_t extra = (out.empty() ? 0 : 1) + word.size();
    if (out.size() + extra > length) break;
    if (!out.empty()) out.push_back(chance(0.05) ? '\n' : ' ');
    out.append(word);
  }
  return out;
}

std::string TextSource::phoneNumber() {
  return fmt::format("+1555{:07}", between(0, 9999999));
}

std::string TextSource::name() {
  static constexpr std::array<std::string_view, 10> kNames = {
      "Ann", "Bob", "Chloé", "Dmitri", "Emi", "Farah", "Günther", "Hana", "Iván", "Jun"};
  return std::string(kNames[static_cast<std::size_t>(between(0, kNames.size() - 1))]);
}

}  // namespace dataparser::bench
