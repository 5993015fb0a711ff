// writeReport: the offline HTML report of a scan, a folder that people open in a browser.
//
// The folder holds a static viewer (index.html, report.js, report.css, built into the library)
// and the scan's lists as data files that the viewer renders:
//   data/index.js          every reported type with its display name, count and kind of view
//   data/l<CODE>-<PAGE>.js the items of one list, `pageSize` a page
//   data/m<CODE>-<FILE>.js the messages of a list's conversations, one conversation after the
//                          other, `pageSize` a file; a conversation says where its messages
//                          start ("contents": {"at": first, "count": n})
//   media/t<N>.png         picture thumbnails, at most 200 pixels high, made once per picture
//   media/files/...        copies of originals, only with `copyMedia`
// Items are written through their reflection (`Describable`), the same walk the JSON export
// makes, so every data type appears without code of its own. Display-state fields and named
// fields without a value (null, "", false, 0, []) are left out; messages carry no class name; a
// field naming a local file ("...Path") becomes a link to that file (a file: URL, or the copy)
// when it is a regular file. An attachment that a list after its conversation holds again is
// copied there from what its message wrote, not walked twice. Each data file is built in memory
// and written with one call, on a writer thread, while the next one is built.
//
// Texts from a backup are data: they are written as JSON strings and the viewer only ever sets
// them as text. The page forbids every network request (Content-Security-Policy). Nothing is
// written outside `outDir`: every name in it is made here, and copies are named through
// `safeComponent`. An existing `outDir` must be empty or hold an earlier report, whose data/ and
// media/ folders are replaced.
//
// Thread safety: none needed; call it once the scan has ended (items are only read).
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "dataparser/core/data_type.h"
#include "dataparser/model/base_item.h"

namespace dataparser {

struct ReportOptions {
  std::string outDir;
  std::string title = "DataParser report";
  std::string source;            // the scanned folder, shown under the title
  bool deletedIncluded = false;  // deleted items were kept by the scan
  bool copyMedia = false;        // copy originals into media/files instead of linking them
  std::size_t pageSize = 1000;   // items and messages per data file
};

// Writes the report of `lists` (type code -> the last list reported under it) and the scan's
// end `status`. False, with `error`, when the folder cannot be made or written.
bool writeReport(const std::map<IOSDataType, ItemList>& lists, int status,
                 const ReportOptions& options, std::string* error);

}  // namespace dataparser
