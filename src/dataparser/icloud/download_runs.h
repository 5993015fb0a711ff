// Download runs over the coordinator's iCloud parsers: the files that the parsed records only
// name by URL (calendar attachments, note attachments and media, photos, videos and video
// thumbnails) are fetched one at a time into the coordinator's `icloudDownloadPath`, under
// names derived from md5 so that a second run finds them again and makes no request:
//   attachments, photos, videos  {md5(uuid)}.{extension of name}
//   video thumbnails             {md5(name)}.png
// Every finished file and every completed record is reported to the observer.
//
// Threads: every run blocks its caller while each file downloads (FileDownloader delivers on the
// MainQueue), so call them from a worker thread, never from the MainQueue. Downloads are
// serialised by the coordinator's `photoSignal`. `parseStoped` ends a run between files.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace dataparser {

class IOSDataParser;

namespace icloud {

// Byte estimate for a progress display (running sums for notes and photos, as the host's
// progress bar expects).
std::int64_t sizeForWillDownloadAttachment(IOSDataParser& coordinator);

// `type` is a set of download kinds (icloud_codes.h): 0x400 calendar attachments, 0x100 note
// attachments, 0x2 photos, 0x4 videos, run in that order. A non-empty `toPath` becomes the
// coordinator's download folder first.
void startDownloadFilesWithType(IOSDataParser& coordinator, std::uint32_t type,
                                const std::string& toPath);

// One blocking download of `url` to `toPath`. `completed` gets (true, nothing) when the file
// is there, else (false, the error's text). Waits at most `downloadTimeout`; on time-out logs
// "download timeout!! " and returns without calling `completed` (it may still come later).
using DownloadCompleted = std::function<void(bool success, std::optional<std::string> error)>;
void downloadFilesWithURLStr(IOSDataParser& coordinator, const std::string& url,
                             std::int64_t fileSize, const std::string& toPath,
                             const DownloadCompleted& completed);

// How long one file may take; 1800 seconds unless a test shortens it.
void setDownloadTimeout(std::chrono::milliseconds timeout);

}  // namespace icloud
}  // namespace dataparser
