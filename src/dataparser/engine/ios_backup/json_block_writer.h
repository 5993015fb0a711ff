// JsonBlockWriter: writes the JSON the engine hands on, either into memory (a callback block) or
// straight into a file (the message and contact files a block names), without building a tree.
//
// Text values are written as valid UTF-8 whatever bytes a database holds: invalid bytes become
// U+FFFD, so one bad value never makes the whole file unreadable. A file writer keeps at most
// about a megabyte in memory and writes the rest as it goes.
//
// Thread safety: one thread at a time.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace dataparser {

class JsonBlockWriter {
 public:
  // Into memory: read the result with `text`.
  JsonBlockWriter();
  // Into the file at `path` (created or truncated); check `ok`.
  explicit JsonBlockWriter(const std::string& path);
  ~JsonBlockWriter();
  JsonBlockWriter(const JsonBlockWriter&) = delete;
  JsonBlockWriter& operator=(const JsonBlockWriter&) = delete;

  bool ok() const { return ok_; }

  void startObject();
  void endObject();
  void startArray();
  void endArray();
  void key(std::string_view name);
  void string(std::string_view value);
  void integer(std::int64_t value);
  void real(double value);
  void null();
  // key + value in one call.
  void field(std::string_view name, std::string_view value) {
    key(name);
    string(value);
  }
  void field(std::string_view name, std::int64_t value) {
    key(name);
    integer(value);
  }

  // The whole text of a memory writer.
  std::string text() const;
  // Writes what is left to the file and closes it; false when any write failed.
  bool close();

 private:
  struct Impl;
  void spill();
  std::unique_ptr<Impl> impl_;
  std::FILE* file_ = nullptr;
  bool ok_ = true;
};

}  // namespace dataparser
