// ScanExport: the CLI's JSON record of one scan, as its observer saw it.
//
//   {"status": 1, "began": true, "progress": [0.5, 1.0],
//    "reports": [{"type": 524288, "count": 3}, ...],
//    "lists": {"524288": [ {"class": "IOSSMSSessionItem", ...}, ... ], ...}}
//
// Every item is an object with "class" and every field of its class under the field's own name,
// as its getter returns it; nested items and lists become objects and arrays; dates are seconds
// since 1970-01-01 UTC (null when none); pictures are {"width", "height"} (null when none). Items
// are written straight to the file through a streaming writer: the export never holds a second
// copy of the data. "lists" keeps the last list reported under each code.
//
// Thread safety: the observer side (began/progress/report/finish) may be called from the scan
// thread; write() is called once, after the scan, from any thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "dataparser/model/base_item.h"

namespace dataparser::cli {

class ScanExport {
 public:
  void began();
  void progress(float value);
  void report(std::int64_t type, const ItemList& items);
  void finish(int status);

  // Writes the export to `path`; false (with `error`) when the file cannot be written.
  bool write(const std::string& path, std::string* error) const;
  // Whether `path` can take the export, asked before a scan so that a long scan does not end in
  // an export that cannot be written. An existing file is opened for writing but left as it is;
  // a new one is created and removed again. False (with `error`) for a folder, a missing
  // parent folder or a file system that refuses the write.
  static bool canWrite(const std::string& path, std::string* error);

  // What was recorded, for the summary table.
  struct Report {
    std::int64_t type;
    std::size_t count;
  };
  std::vector<Report> reports() const;
  std::map<std::int64_t, ItemList> lists() const;
  int status() const;

 private:
  mutable std::mutex mutex_;
  int status_ = 0;
  bool began_ = false;
  std::vector<float> progress_;
  std::vector<Report> reports_;
  std::map<std::int64_t, ItemList> lists_;  // ordered by code for a stable file
};

// Writes one Describable as the export's JSON object (exposed for tests).
std::string describeToJson(const Describable& object);

}  // namespace dataparser::cli
