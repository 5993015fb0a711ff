// Reading a list of JSON files with read-ahead.
//
// `FileReadAhead` decodes a list of files in order on a helper thread, a bounded number of files
// ahead of the caller, who takes the results one by one in list order: the caller builds items
// from one document while the next ones are being decoded. Nothing is logged on the helper
// thread: a result says whether its text was mended, and the caller writes that line
// (json::logMendedFile) when it consumes the file, so the log reads as in a serial run.
//
// `forEachJsonFile` is the common walk: each result is handed to `visit` on the calling thread,
// in list order. Results, their order and anything `visit` logs are exactly those of reading the
// files one by one on the calling thread.
//
// Ownership: each document belongs to whoever takes it. Results not taken are dropped with the
// read-ahead.
// Thread safety: one FileReadAhead is used by one thread (the one that takes); the admission test
// runs on the helper thread and must be safe there. The helper thread is always joined before
// the destructor returns; it stops after the file it is decoding.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dataparser/util/file_scope.h"
#include "dataparser/util/json.h"

namespace dataparser::json {

// One file's outcome.
struct DecodedFile {
  // Absent when the file was refused, could not be read or did not decode.
  Value document;
  // Why it did not decode (naming the file); "" when it was refused.
  std::string error;
  // The admission test refused the file: it was not opened.
  bool refused = false;
  // The text decoded only after mending; the run log's line is still to be written.
  bool mended = false;
  // Backup files the document names, looked up ahead by the read-ahead's preparation.
  KnownBackupFiles files;
  // The preparation ran on the file.
  bool prepared = false;
};

// Decodes one file on the calling thread, exactly as the read-ahead does on its helper.
DecodedFile decodeFile(const std::string& path,
                       const std::function<bool(const std::string&)>& admit = {});

class FileReadAhead {
 public:
  // Says whether a path may be opened; an empty test admits every path.
  using Admission = std::function<bool(const std::string& path)>;
  // Runs once on every file that decoded, before it is handed over: on the helper thread while
  // the caller has a file waiting, otherwise on the caller's thread in take(). The two threads
  // share the work that way when the decoding alone keeps the helper busy.
  using Preparation = std::function<void(DecodedFile& file)>;

  // Starts decoding `paths` in order, keeping at most `depth` (at least 1) decoded files ready.
  // A list of fewer than two files is decoded on the caller's thread as it is taken.
  explicit FileReadAhead(std::vector<std::string> paths, Admission admit = {},
                         std::size_t depth = 1, Preparation prepare = {});
  ~FileReadAhead();
  FileReadAhead(const FileReadAhead&) = delete;
  FileReadAhead& operator=(const FileReadAhead&) = delete;

  const std::vector<std::string>& paths() const { return paths_; }
  // The index of the file that take() hands out next.
  std::size_t next() const { return taken_; }
  // The outcome of paths()[next()], waiting for it. Requires next() < paths().size().
  DecodedFile take();

 private:
  void decodeAll();
  DecodedFile takeReady();
  void prepareOnce(DecodedFile& file) const;

  const std::vector<std::string> paths_;
  const Admission admit_;
  const std::size_t depth_;
  const Preparation prepare_;
  std::size_t taken_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<DecodedFile> ready_;  // the outcomes of paths_[taken_ ...], in order
  bool stopped_ = false;
  // Who sleeps on `changed_`: each side wakes the other only when it does.
  bool decoderWaiting_ = false;
  bool readerWaiting_ = false;
  std::thread decoder_;
};

// `document` is absent when the file could not be read or decoded; `error` then says why.
using FileVisitor =
    std::function<bool(const std::string& path, Value document, const std::string& error)>;

// Visits every file of `paths` in order, one file of read-ahead; returning false from `visit`
// stops the walk.
void forEachJsonFile(const std::vector<std::string>& paths, const FileVisitor& visit);

}  // namespace dataparser::json
