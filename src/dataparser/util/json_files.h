// Reading a list of JSON files with one file of read-ahead.
//
// `forEachJsonFile` decodes the files in order on a helper thread, one file ahead of the caller,
// and hands each result to `visit` on the calling thread, in list order: the caller builds items
// from one document while the next is being decoded. Results, their order and anything `visit`
// logs are exactly those of reading the files one by one on the calling thread.
//
// Ownership: each document is handed to `visit` and then belongs to whoever keeps it.
// Thread safety: `visit` runs only on the calling thread. Returning false from it stops the walk;
// the helper thread is always joined before the function returns.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "dataparser/util/json.h"

namespace dataparser::json {

// `document` is absent when the file could not be read or decoded; `error` then says why.
using FileVisitor =
    std::function<bool(const std::string& path, Value document, const std::string& error)>;

void forEachJsonFile(const std::vector<std::string>& paths, const FileVisitor& visit);

}  // namespace dataparser::json
