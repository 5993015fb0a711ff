#include "dataparser/parsers/personal/book.h"

#include <algorithm>
#include <limits>

#include "dataparser/util/byte_count.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/path.h"

namespace dataparser {

const std::string& IOSBookItem::localPath() const {
  return texts_.get(kLocalPath, [&] { return rawData()["book_file_path"].stringCopy(); });
}

const std::string& IOSBookItem::extension() const {
  return texts_.get(kExtension, [&] { return path::pathExtension(localPath()); });
}

const std::string& IOSBookItem::name() const {
  return texts_.get(kName, [&] {
    std::string name = rawData()["book_name"].stringCopy();
    if (!extension().empty()) name += "." + extension();
    return name;
  });
}

std::int64_t IOSBookItem::size() const {
  if (!size_) {
    std::uint64_t bytes = backupFileSize(localPath());
    constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    size_ = static_cast<std::int64_t>(std::min(bytes, kMax));
  }
  return *size_;
}

const std::string& IOSBookItem::strSize() const {
  return texts_.get(kStrSize, [&] { return formattedByteCount(size()); });
}

void IOSBookItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("localPath", localPath());
  visitor.field("extension", extension());
  visitor.field("name", name());
  visitor.field("size", size());
  visitor.field("strSize", strSize());
}

std::shared_ptr<IOSBookParser> IOSBookParser::parserWithJSONData(JSONData data, bool parseDeleted) {
  auto parser = makeWithJSONData<IOSBookParser>(data, parseDeleted, false);
  appendEntries<IOSBookItem>(*parser, parser->rawData(), parser->rawData()["book_items"],
                             /*skipNonObjects=*/true, /*filterDeleted=*/true,
                             [](const IOSBookItem&) { return true; });
  return parser;
}

}  // namespace dataparser
