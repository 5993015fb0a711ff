// RecordingWriter: writes a recorded scan folder (the replay engine's input) and the files its
// blocks name. Shared by every data type's generator.
//
//   {out}/stream/NNNNNN-CODE.json   one engine callback each, replayed in name order
//   {out}/files/...                  message files, attachments
//
// Paths inside blocks use the "{{ROOT}}" token, so a recording can be moved.
#pragma once

#include <rapidjson/filewritestream.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace dataparser::bench {

using JsonWriter = rapidjson::Writer<rapidjson::FileWriteStream>;

// A JSON file written through a streaming writer; closed by the destructor or close().
class JsonFile {
 public:
  explicit JsonFile(const std::filesystem::path& path);
  ~JsonFile();
  JsonWriter& writer() { return *writer_; }
  void close();

 private:
  std::FILE* file_ = nullptr;
  std::vector<char> buffer_;
  std::unique_ptr<rapidjson::FileWriteStream> stream_;
  std::unique_ptr<JsonWriter> writer_;
};

class RecordingWriter {
 public:
  explicit RecordingWriter(std::filesystem::path root);

  const std::filesystem::path& root() const { return root_; }
  // "{{ROOT}}/" + relative: how a block names a file of the recording.
  static std::string rootPath(std::string_view relative);
  // The absolute path of a file of the recording, for files named inside other files (which
  // the replay does not rewrite).
  std::string absolutePath(std::string_view relative) const;
  // Absolute path of a file below the recording (parents created).
  std::filesystem::path file(std::string_view relative) const;
  // Writes the next stream block with callback `code`.
  void block(int code, std::string_view text);

 private:
  std::filesystem::path root_;
  int sequence_ = 0;
};

// "MM-dd-yyyy HH:mm:ss" in UTC: the engine's date texts.
std::string engineDate(std::int64_t secondsSince1970);
// One member of the object being written.
void writeString(JsonWriter& writer, std::string_view key, std::string_view value);
void writeInteger(JsonWriter& writer, std::string_view key, std::int64_t value);

// Deterministic text material.
class TextSource {
 public:
  explicit TextSource(std::uint64_t seed) : random_(seed) {}
  std::mt19937_64& random() { return random_; }
  // A message-like text of `length` bytes at most (UTF-8, never cut inside a character).
  std::string text(std::size_t length);
  std::int64_t between(std::int64_t low, std::int64_t high);  // inclusive
  bool chance(double probability);
  std::string phoneNumber();
  std::string name();

 private:
  std::mt19937_64 random_;
};

}  // namespace dataparser::bench
