#include "dataparser/parsers/personal/safari.h"

namespace dataparser {
namespace {

std::string titleOr(std::string_view title) {
  return title.empty() ? std::string("Unknown") : std::string(title);
}

}  // namespace

const std::string& IOSSafariItem::title() const {
  return texts_.get(kTitle, [&] { return titleOr(rawData()["utf_Title"].string()); });
}

const std::string& IOSSafariItem::location() const {
  return texts_.get(kLocation, [&] { return rawData()["folder"].stringCopy(); });
}

const std::vector<std::string>& IOSSafariItem::locations() const {
  if (!locations_) {
    std::vector<std::string> folders;
    for (json::View folder : rawData()["folders"].elements())
      folders.push_back(folder.stringCopy());
    locations_ = std::move(folders);
  }
  return *locations_;
}

const std::string& IOSSafariItem::url() const {
  return texts_.get(kURL, [&] { return rawData()["Url"].stringCopy(); });
}

void IOSSafariItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("title", title());
  visitor.field("location", location());
  visitor.field("locations", locations());
  visitor.field("url", url());
}

const std::string& IOSSafariHistoryItem::title() const {
  return texts_.get(kTitle, [&] { return titleOr(rawData()["title"].string()); });
}

const std::string& IOSSafariHistoryItem::url() const {
  return texts_.get(kURL, [&] { return rawData()["Url"].stringCopy(); });
}

const std::string& IOSSafariHistoryItem::domain() const {
  return texts_.get(kDomain, [&] { return rawData()["domain"].stringCopy(); });
}

void IOSSafariHistoryItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("title", title());
  visitor.field("url", url());
  visitor.field("domain", domain());
}

std::shared_ptr<IOSSafariParser> IOSSafariParser::parserWithJSONData(JSONData data,
                                                                     bool parseDeleted) {
  auto parser = makeWithJSONData<IOSSafariParser>(data, parseDeleted, false);
  // Folders are not bookmarks, deleted or not. Unlike history, an element that is not an
  // object is not skipped: it is listed as an untitled ("Unknown") bookmark without an address.
  appendEntries<IOSSafariItem>(
      *parser, parser->rawData(), parser->rawData().view(),
      /*skipNonObjects=*/false, /*filterDeleted=*/true,
      [](const IOSSafariItem& item) { return item.rawData()["type"].integer() != 1; });
  return parser;
}

std::shared_ptr<IOSSafariHistoryParser> IOSSafariHistoryParser::parserWithJSONData(
    JSONData data, bool parseDeleted) {
  auto parser = makeWithJSONData<IOSSafariHistoryParser>(data, parseDeleted, false);
  appendEntries<IOSSafariHistoryItem>(*parser, parser->rawData(), parser->rawData().view(),
                                      /*skipNonObjects=*/true, /*filterDeleted=*/true,
                                      [](const IOSSafariHistoryItem&) { return true; });
  return parser;
}

}  // namespace dataparser
