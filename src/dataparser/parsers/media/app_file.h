// IOSAppFileParser: the photos, videos, audio files and documents that the engine extracted from
// applications' own folders, one IOSAppFileItem per record.
//
// The coordinator keeps four long-lived parsers (app photos, videos, audio, documents) and feeds
// each its batches through `addJSONData`. A batch is {"media_file": [{"backup_path": ...,
// "relative_path": ..., "type": "AppDomain-com.example.Notes"}, ...]}; every object entry becomes
// an item, in order, with nothing filtered out (the files are not checked here).
//
// An item keeps no record: it holds the two paths and the application's short name; its name,
// extension and size are worked out on first use and kept.
//
// Thread safety: built and fed on one thread; an item's getters from one thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "dataparser/model/base_item.h"
#include "dataparser/model/base_parser.h"

namespace dataparser {

class IOSAppFileItem : public IOSBaseItem {
 public:
  // Keeps `dictionary` as rawData (when an object); `size` starts unmeasured (-1).
  void initWithDictionary(const json::Value& dictionary) override;

  // Last path component of `devicePath`, on first use.
  const std::string& name() const;
  void setName(std::string name) { name_ = std::move(name); }
  // Path extension of `devicePath`, on first use.
  const std::string& extension() const;
  void setExtension(std::string extension) { extension_ = std::move(extension); }
  const std::string& appDomain() const { return appDomain_; }
  void setAppDomain(std::string domain) { appDomain_ = std::move(domain); }
  const std::string& devicePath() const { return devicePath_; }
  void setDevicePath(std::string path) { devicePath_ = std::move(path); }
  const std::string& localPath() const { return localPath_; }
  void setLocalPath(std::string path) { localPath_ = std::move(path); }
  // `size` in the file style of the byte-count formatter (unmeasured shows as 1 byte).
  const std::string& strSize() const;
  void setStrSize(std::string strSize) { strSize_ = std::move(strSize); }
  // Bytes of the file at `localPath`, measured once while it is -1 and `localPath` is set; -1
  // with an empty `localPath`. A measured 0 stays 0.
  std::int64_t size() const;
  void setSize(std::int64_t size) { size_ = size; }
  const std::string& resolvedThumbPath() const { return resolvedThumbPath_; }
  void setResolvedThumbPath(std::string path) { resolvedThumbPath_ = std::move(path); }

  // The short application name of a "type" text: its last "."-separated piece, "Unknown" when
  // that piece is empty.
  static std::string appDomainOfType(std::string_view type);

  std::string_view className() const override { return "IOSAppFileItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  mutable std::string name_;
  mutable std::string extension_;
  std::string appDomain_;
  std::string devicePath_;
  std::string localPath_;
  mutable std::string strSize_;
  mutable std::int64_t size_ = -1;
  std::string resolvedThumbPath_;
};

class IOSAppFileParser : public IOSBaseParser {
 public:
  std::string_view className() const override { return "IOSAppFileParser"; }

  // Base handling (the batch becomes rawData), then one item per object of "media_file" is
  // appended to `items`.
  void addJSONData(JSONData data) override;
};

}  // namespace dataparser
