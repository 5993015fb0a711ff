// Books: IOSBookParser turns the engine's book export into IOSBookItem objects (name, file,
// size).
//
// Input: an object whose "book_items" lists book records; entries that are not objects are
// skipped, and entries marked deleted are left out unless deleted data is asked for. A book
// whose file is missing has size 0; a negative size (set by a caller) shows as one byte.
//
// Thread safety: built on one thread, read from one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "dataparser/model/base_item.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/parsers/personal/record_fields.h"

namespace dataparser {

class IOSBookItem : public IOSBaseItem {
 public:
  // "book_file_path".
  const std::string& localPath() const;
  void setLocalPath(std::string path) { texts_.set(kLocalPath, std::move(path)); }
  // The extension of `localPath`.
  const std::string& extension() const;
  void setExtension(std::string extension) { texts_.set(kExtension, std::move(extension)); }
  // "book_name" with `extension` added as a file extension.
  const std::string& name() const;
  void setName(std::string name) { texts_.set(kName, std::move(name)); }
  // Bytes of the book file (or of a book kept as a folder); 0 when it is missing.
  std::int64_t size() const;
  void setSize(std::int64_t size) { size_ = size; }
  // `size` in the file-size style ("1.5 MB"); a negative size shows as one byte.
  const std::string& strSize() const;
  void setStrSize(std::string text) { texts_.set(kStrSize, std::move(text)); }

  std::string_view className() const override { return "IOSBookItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  enum Field : std::uint8_t { kLocalPath, kExtension, kName, kStrSize, kFieldCount };
  LazyTexts<kFieldCount> texts_;
  mutable std::optional<std::int64_t> size_;
};

class IOSBookParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  static std::shared_ptr<IOSBookParser> parserWithJSONData(JSONData data, bool parseDeleted);

  std::string_view className() const override { return "IOSBookParser"; }
};

}  // namespace dataparser
