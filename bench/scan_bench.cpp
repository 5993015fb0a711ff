// scan_bench: one whole scan of a recording through IOSDataParser and the replay engine (or of a
// device backup through the backup engine), from
// the start operation to `didParseFinished`, as a host would run it. Prints
//   scan: seconds=S messages=M items=I attachments=A status=X peak_rss_bytes=R
// where messages counts the messages of every reported conversation (last list of each code).
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <future>
#include <map>
#include <memory>
#include <mutex>

#include "dataparser/core/delegate.h"
#include "dataparser/core/ios_data_parser.h"
#include "dataparser/engine/ios_backup/ios_backup_engine.h"
#include "dataparser/model/conversation.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/run_log.h"

int main(int argc, char** argv) {
  using namespace dataparser;
  if (argc != 2) {
    std::fprintf(stderr, "usage: scan_bench RECORDING\n");
    return 2;
  }
  std::string recording = std::filesystem::absolute(argv[1]).string();
  // Keep the working root out of the user's folders.
  std::string work = (std::filesystem::temp_directory_path() / "dataparser-bench-root").string();
  setApplicationSupportRoot(work);
  setBundleIdentifier("org.dataparser.bench");
  RunLog::setSink(makeNullLogSink());

  std::mutex mutex;
  std::map<IOSDataType, ItemList> lists;
  std::promise<int> finished;
  auto observer = std::make_shared<IOSDataParserDelegate>();
  observer->didFetchedData = [&](IOSDataParser&, ItemList items, IOSDataType type) {
    std::lock_guard lock(mutex);
    lists[type] = std::move(items);
  };
  std::atomic<bool> ended = false;
  auto end = [&](IOSDataParser&, int status) {
    if (!ended.exchange(true)) finished.set_value(status);
  };
  observer->didParseFinished = end;
  observer->didParseError = end;

  IOSDataParser& parser = IOSDataParser::shared();
  // A device backup goes through the backup engine, a recording through the replay engine.
  if (IOSBackupEngine::isBackup(recording))
    parser.setPackageEngine(std::make_shared<IOSBackupEngine>());
  parser.setDelegate(observer);
  auto start = std::chrono::steady_clock::now();
  parser.startParseWithBackupPath(recording);
  int status = finished.get_future().get();
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

  std::size_t items = 0;
  std::size_t messages = 0;
  std::size_t attachments = 0;
  {
    std::lock_guard lock(mutex);
    for (const auto& [type, list] : lists) {
      if (type == kResultWeChatSecondReport) continue;  // the same accounts again
      items += list.size();
      if (type == kResultSMSAttachments || type == kResultWeChatAttachments) {
        attachments += list.size();
      }
      for (const ItemPtr& item : list) {
        if (auto* session = dynamic_cast<const IOSBaseSessionItem*>(item.get())) {
          messages += session->contents().size();
        } else if (auto* account = dynamic_cast<const IOSAccountItem*>(item.get())) {
          for (const SessionPtr& accountSession : account->items())
            messages += accountSession->contents().size();
        }
      }
    }
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf(
      "scan: seconds=%.3f messages=%zu items=%zu attachments=%zu status=%d "
      "peak_rss_bytes=%lld\n",
      seconds, messages, items, attachments, status,
      static_cast<long long>(usage.ru_maxrss) * 1024);
  std::fflush(stdout);
  std::_Exit(status == 1 ? 0 : 1);  // the measured lists need no orderly teardown
}
