// The download runs of the coordinator (IOSDataParser::startDownloadFilesWithType and its
// companions, declared in core/ios_data_parser.h and defined in download_runs.cpp), and the hooks
// around them. The files that the parsed iCloud records only name by URL (calendar attachments,
// note attachments and media, photos, videos and video thumbnails) are fetched one at a time
// into the coordinator's `icloudDownloadPath`, under names derived from md5 so that a second run
// finds them again and makes no request:
//   attachments, photos, videos  {md5(uuid)}.{extension of name}
//   video thumbnails             {md5(name)}.png
// Every finished file and every completed record is reported to the observer.
//
// Threads: every run blocks its caller while each file downloads (FileDownloader delivers on the
// MainQueue), so call them from a worker thread, never from the MainQueue. Downloads are
// serialised by the coordinator's `photoSignal`. `parseStoped` ends a run between files. The
// hooks below may be set from any thread; a listener is called on the MainQueue (finished
// files) or on the run's thread (time-outs).
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "dataparser/parsers/personal/calendar.h"

namespace dataparser::icloud {

// How long one file may take; 1800 seconds unless a test shortens it.
void setDownloadTimeout(std::chrono::milliseconds timeout);

// One file of a run that has finished, failed or timed out, for a host's progress display.
struct DownloadNotice {
  std::string path;        // the target inside the download folder
  std::int64_t bytes = 0;  // size on disk when done, else the size the record announced
  bool done = false;
  std::string error;  // why it failed; empty when done
};
using DownloadListener = std::function<void(const DownloadNotice& notice)>;
// Replaces the listener told about every file that downloadFilesWithURLStr handles; an empty
// function removes it.
void setDownloadListener(DownloadListener listener);

// The transfer that lets a calendar item fetch its own attachment: one FileDownloader for the
// percent-encoded URL, its outcome handed to `done`. The item waits on its own semaphore, so
// these downloads do not take part in the runs' serialisation. setupiCloudParser installs it.
IOSCalendarItem::AttachmentTransfer fileDownloaderTransfer();

}  // namespace dataparser::icloud
