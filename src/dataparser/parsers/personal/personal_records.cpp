#include "dataparser/parsers/personal/personal_records.h"

#include "dataparser/util/file_scope.h"

#include <filesystem>
#include <system_error>

#include "dataparser/util/path.h"
#include "dataparser/util/text.h"

namespace dataparser::personal {

DateParts datePartsOf(json::View value) {
  DateParts parts;
  if (value.isArray()) {
    parts.year = value.at(1).integer();
    parts.month = value.at(2).integer();
    parts.day = value.at(3).integer();
    parts.hour = value.at(4).integer();
    parts.minute = value.at(5).integer();
  } else if (value.isObject()) {
    auto [year, month, day, hour, minute, second] =
        value.fields({"year", "month", "day", "hour", "minute", "second"});
    parts.year = year.integer();
    parts.month = month.integer();
    parts.day = day.integer();
    parts.hour = hour.integer();
    parts.minute = minute.integer();
    parts.second = second.integer();
  }
  return parts;
}

bool hasDateParts(json::View value) {
  return value.isArray() || value.isObject();
}

std::string downloadedFileName(std::string_view uuid, std::string_view extension) {
  return md5String(uuid) + std::string(extension);
}

std::string existingDownloadedFile(std::string_view folder, std::string_view name) {
  if (folder.empty() || name.empty()) return {};
  std::string file = path::appendingPathComponent(folder, path::safeComponent(name));
  return isBackupFile(file) ? file : std::string();
}

}  // namespace dataparser::personal
