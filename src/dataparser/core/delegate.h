// IOSDataParserDelegate: the observer of the coordinator. Ten operations, each optional.
//
// An operation is implemented when its slot holds a function; the coordinator asks
// `responds(...)` before every call and skips the operations that are not there. The first
// argument is always the coordinator.
//
//   auto observer = std::make_shared<IOSDataParserDelegate>();
//   observer->didFetchedData = [](IOSDataParser&, ItemList items, IOSDataType type) { ... };
//   IOSDataParser::shared().setDelegate(observer);
//
// Ownership: the coordinator holds its observer weakly; the host keeps it alive.
// Threads: scan reports (began, progress, fetched, finished, error) come on the engine's thread,
// backup reports on the backup manager's thread, always synchronously; moving work to a user
// interface thread is the observer's business. Fill the slots before handing the observer over
// and leave them alone while a scan runs.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "dataparser/core/data_type.h"
#include "dataparser/model/base_item.h"

namespace dataparser {

class IOSDataParser;

struct IOSDataParserDelegate {
  enum class Operation : std::uint8_t {
    kDataParseDidBegined,
    kParseProgress,
    kDidFetchedData,
    kDidParseFinished,
    kDidParseError,
    kBackupDidReadyBegined,
    kBackupDidReadyCompleted,
    kBackupBegin,
    kBackupProgress,
    kBackupFinished,
  };

  // The engine reports the start of the scan.
  std::function<void(IOSDataParser&)> dataParseDidBegined;
  // Scan progress, 0 to 1.
  std::function<void(IOSDataParser&, float)> parseProgress;
  // A result list (a copy taken at the moment of the report; never empty) and its type code.
  std::function<void(IOSDataParser&, ItemList, IOSDataType)> didFetchedData;
  // The scan ended: 1 finished, 2 stopped by the user.
  std::function<void(IOSDataParser&, int)> didParseFinished;
  // The scan failed: 3, or 2 when the user had stopped it.
  std::function<void(IOSDataParser&, int)> didParseError;
  std::function<void(IOSDataParser&)> backupDidReadyBegined;
  std::function<void(IOSDataParser&)> backupDidReadyCompleted;
  // The device backup begins into this folder.
  std::function<void(IOSDataParser&, const std::string&)> backupBegin;
  std::function<void(IOSDataParser&, float)> backupProgress;
  // The device backup ended with this result and the backup manager's error code.
  std::function<void(IOSDataParser&, bool, std::int32_t)> backupFinished;

  bool responds(Operation operation) const {
    switch (operation) {
      case Operation::kDataParseDidBegined:
        return static_cast<bool>(dataParseDidBegined);
      case Operation::kParseProgress:
        return static_cast<bool>(parseProgress);
      case Operation::kDidFetchedData:
        return static_cast<bool>(didFetchedData);
      case Operation::kDidParseFinished:
        return static_cast<bool>(didParseFinished);
      case Operation::kDidParseError:
        return static_cast<bool>(didParseError);
      case Operation::kBackupDidReadyBegined:
        return static_cast<bool>(backupDidReadyBegined);
      case Operation::kBackupDidReadyCompleted:
        return static_cast<bool>(backupDidReadyCompleted);
      case Operation::kBackupBegin:
        return static_cast<bool>(backupBegin);
      case Operation::kBackupProgress:
        return static_cast<bool>(backupProgress);
      case Operation::kBackupFinished:
        return static_cast<bool>(backupFinished);
    }
    return false;
  }
};

}  // namespace dataparser
