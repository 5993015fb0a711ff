// The index of a downloaded iCloud folder, "BackupInfo.plist", and the files it names.
//
// `readBackupInfo` turns the property list (XML or binary) into a JSON object so that the shared
// JSON access rules apply to it: strings, numbers, booleans, lists and dictionaries keep their
// kind; dates and raw data become null (no key of the index uses them). Anything that is not a
// property list whose root is a non-empty dictionary gives an absent value.
//
// The file-list rule (`listedFiles`): a string value names one file, a list names one file per
// string entry, in order; anything else names none. Each name is relative to the folder; a name
// that is absolute or climbs out with ".." is refused. `readListedFile` reads one of them: only a
// regular, non-empty file gives bytes.
//
// Thread safety: free functions without shared state.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dataparser/util/json.h"

namespace dataparser::icloud {

inline constexpr std::string_view kBackupInfoFileName = "BackupInfo.plist";

// The property list `bytes` as JSON; absent unless its root is a non-empty dictionary.
json::Value backupInfoFromBytes(std::string_view bytes);
// {folder}/BackupInfo.plist read by backupInfoFromBytes; absent when it is not a regular file.
json::Value readBackupInfo(const std::string& folder);

// The files `value` names inside `folder`. `isList` tells whether the value was a list.
struct ListedFiles {
  std::vector<std::string> paths;
  bool isList = false;
};
ListedFiles listedFiles(const std::string& folder, const json::View& value);
// The bytes of a regular, non-empty file; nothing otherwise.
std::optional<std::string> readListedFile(const std::string& path);

}  // namespace dataparser::icloud
