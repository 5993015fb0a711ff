// iCloud photo albums: iCloudiOSAlbumParser reads an album list ({"albums": [...]}) into
// iCloudiOSAlbumItem objects, one per entry that is an object, in order.
//
// An album carries its guid, name, type, photo count and its creation and modification times
// (milliseconds since 1970; a value of 0 or below, or a missing one, leaves the date empty). The
// service's album of recently deleted pictures is the one whose guid is
// "CPLAssetDeletedAndMasterByExpungedDate": it is kept, reports `isDeleted`, and the photos read
// for it are marked deleted.
//
// Ownership: items are shared. Thread safety: built on one thread, then read-only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "dataparser/model/base_item.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/util/date.h"

namespace dataparser {

class iCloudiOSAlbumItem : public IOSBaseItem {
 public:
  static constexpr std::string_view kDeletedAlbumGuid = "CPLAssetDeletedAndMasterByExpungedDate";

  void initWithDictionary(const json::Value& record) override;

  // The deleted-pictures album.
  std::int64_t isDeleted() const override { return guid_ == kDeletedAlbumGuid ? 1 : 0; }

  const std::string& guid() const { return guid_; }
  void setGuid(std::string value) { guid_ = std::move(value); }
  const std::string& name() const { return name_; }
  void setName(std::string value) { name_ = std::move(value); }
  std::int32_t type() const { return type_; }
  void setType(std::int32_t value) { type_ = value; }
  std::int32_t photoCount() const { return photoCount_; }
  void setPhotoCount(std::int32_t value) { photoCount_ = value; }
  const OptionalDate& createdDate() const { return createdDate_; }
  const std::string& strCreatedDate() const { return strCreatedDate_; }
  const OptionalDate& modifiedDate() const { return modifiedDate_; }
  const std::string& strModifiedDate() const { return strModifiedDate_; }

  std::string_view className() const override { return "iCloudiOSAlbumItem"; }
  void describe(FieldVisitor& visitor) const override;

 protected:
  void describeIsDeleted(FieldVisitor& visitor) const override;

 private:
  std::string guid_;
  std::string name_;
  std::int32_t type_ = 0;
  std::int32_t photoCount_ = 0;
  OptionalDate createdDate_, modifiedDate_;
  std::string strCreatedDate_, strModifiedDate_;
};

using AlbumPtr = std::shared_ptr<iCloudiOSAlbumItem>;

class iCloudiOSAlbumParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  // `parseDeleted` is ignored: the deleted-pictures album is always kept.
  static std::shared_ptr<iCloudiOSAlbumParser> parserWithJSONData(JSONData data, bool parseDeleted,
                                                                  bool deviceBackup);

  std::string_view className() const override { return "iCloudiOSAlbumParser"; }
};

}  // namespace dataparser
