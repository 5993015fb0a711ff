#include "dataparser/icloud/backup_info.h"

#include <plist/plist.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/path.h"

namespace dataparser::icloud {

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

struct PlistFree {
  void operator()(plist_t node) const { plist_free(node); }
};

void writeNode(plist_t node, Writer& writer);

void writeDict(plist_t node, Writer& writer) {
  writer.StartObject();
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  for (;;) {
    char* key = nullptr;
    plist_t value = nullptr;
    plist_dict_next_item(node, iterator, &key, &value);
    if (key == nullptr) break;
    writer.Key(key);
    free(key);  // NOLINT: allocated by libplist
    writeNode(value, writer);
  }
  free(iterator);  // NOLINT: allocated by libplist
  writer.EndObject();
}

void writeNode(plist_t node, Writer& writer) {
  switch (plist_get_node_type(node)) {
    case PLIST_DICT:
      writeDict(node, writer);
      return;
    case PLIST_ARRAY: {
      writer.StartArray();
      std::uint32_t count = plist_array_get_size(node);
      for (std::uint32_t index = 0; index < count; ++index) {
        writeNode(plist_array_get_item(node, index), writer);
      }
      writer.EndArray();
      return;
    }
    case PLIST_STRING: {
      std::uint64_t length = 0;
      const char* text = plist_get_string_ptr(node, &length);
      writer.String(text != nullptr ? text : "", static_cast<rapidjson::SizeType>(length));
      return;
    }
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      plist_get_bool_val(node, &value);
      writer.Bool(value != 0);
      return;
    }
    case PLIST_UINT: {
      std::uint64_t value = 0;
      plist_get_uint_val(node, &value);
      // Values above the signed range are negative integers stored unsigned.
      writer.Int64(static_cast<std::int64_t>(value));
      return;
    }
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(node, &value);
      if (value != value || value > std::numeric_limits<double>::max() ||
          value < -std::numeric_limits<double>::max()) {
        writer.Null();
      } else {
        writer.Double(value);
      }
      return;
    }
    default:
      writer.Null();
      return;
  }
}

}  // namespace

json::Value backupInfoFromBytes(std::string_view bytes) {
  if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max()) return {};
  plist_t raw = nullptr;
  plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &raw);
  std::unique_ptr<void, PlistFree> root(raw);
  if (raw == nullptr || plist_get_node_type(raw) != PLIST_DICT || plist_dict_get_size(raw) == 0) {
    return {};
  }
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  writeNode(raw, writer);
  return json::parse(std::string_view(buffer.GetString(), buffer.GetSize()));
}

json::Value readBackupInfo(const std::string& folder) {
  std::string path = path::appendingPathComponent(folder, kBackupInfoFileName);
  if (!isRegularFile(path)) return {};
  std::optional<std::string> bytes = readFile(path);
  return bytes ? backupInfoFromBytes(*bytes) : json::Value();
}

namespace {

// `relative` joined to `folder`, unless it is empty, absolute or has a ".." component.
std::optional<std::string> joinInside(const std::string& folder, std::string_view relative) {
  if (relative.empty() || relative.front() == '/' || relative.find('\0') != relative.npos) {
    return std::nullopt;
  }
  std::size_t start = 0;
  while (start <= relative.size()) {
    std::size_t end = relative.find('/', start);
    if (end == relative.npos) end = relative.size();
    if (relative.substr(start, end - start) == "..") return std::nullopt;
    start = end + 1;
  }
  return path::appendingPathComponent(folder, relative);
}

}  // namespace

ListedFiles listedFiles(const std::string& folder, const json::View& value) {
  ListedFiles files;
  if (value.isString()) {
    if (auto path = joinInside(folder, value.string())) files.paths.push_back(std::move(*path));
  } else if (value.isArray()) {
    files.isList = true;
    for (json::View entry : value.elements()) {
      if (!entry.isString()) continue;
      if (auto path = joinInside(folder, entry.string())) files.paths.push_back(std::move(*path));
    }
  }
  return files;
}

std::optional<std::string> readListedFile(const std::string& path) {
  std::optional<std::string> bytes = readBackupFile(path);
  if (!bytes || bytes->empty()) return std::nullopt;
  return bytes;
}

}  // namespace dataparser::icloud
