// Safari: IOSSafariParser turns the bookmark export into IOSSafariItem objects and
// IOSSafariHistoryParser the history export into IOSSafariHistoryItem objects.
//
// Input: the record itself is the list of entries. Bookmark folders ("type" 1) are never listed;
// history entries that are not objects are skipped. Entries marked deleted are left out unless
// deleted data is asked for. A missing title shows as "Unknown". (History text reaches the
// parser after the callback bridge has removed the engine's invalid escapes.)
//
// Thread safety: built on one thread, read from one thread at a time.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dataparser/model/base_item.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/parsers/personal/record_fields.h"

namespace dataparser {

class IOSSafariItem : public IOSBaseItem {
 public:
  // "utf_Title"; "Unknown" when empty.
  const std::string& title() const;
  void setTitle(std::string title) { texts_.set(kTitle, std::move(title)); }
  // "folder": the bookmark's folder.
  const std::string& location() const;
  void setLocation(std::string location) { texts_.set(kLocation, std::move(location)); }
  // "folders": the folder path, one text per element (empty when it is no list).
  const std::vector<std::string>& locations() const;
  void setLocations(std::vector<std::string> locations) { locations_ = std::move(locations); }
  // "Url".
  const std::string& url() const;
  void setUrl(std::string url) { texts_.set(kURL, std::move(url)); }

  std::string_view className() const override { return "IOSSafariItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  enum Field : std::uint8_t { kTitle, kLocation, kURL, kFieldCount };
  LazyTexts<kFieldCount> texts_;
  mutable std::optional<std::vector<std::string>> locations_;
};

class IOSSafariHistoryItem : public IOSBaseItem {
 public:
  // "title"; "Unknown" when empty.
  const std::string& title() const;
  void setTitle(std::string title) { texts_.set(kTitle, std::move(title)); }
  // "Url".
  const std::string& url() const;
  void setUrl(std::string url) { texts_.set(kURL, std::move(url)); }
  // "domain".
  const std::string& domain() const;
  void setDomain(std::string domain) { texts_.set(kDomain, std::move(domain)); }

  std::string_view className() const override { return "IOSSafariHistoryItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  enum Field : std::uint8_t { kTitle, kURL, kDomain, kFieldCount };
  LazyTexts<kFieldCount> texts_;
};

class IOSSafariParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  static std::shared_ptr<IOSSafariParser> parserWithJSONData(JSONData data, bool parseDeleted);

  std::string_view className() const override { return "IOSSafariParser"; }
};

class IOSSafariHistoryParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  static std::shared_ptr<IOSSafariHistoryParser> parserWithJSONData(JSONData data,
                                                                    bool parseDeleted);

  std::string_view className() const override { return "IOSSafariHistoryParser"; }
};

}  // namespace dataparser
