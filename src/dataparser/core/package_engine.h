// PackageEngine: the extraction engine that walks a backup and streams its content back as JSON
// text, one block per callback.
//
// The coordinator drives the engine only through this interface, with the engine's own C-style
// operation names. The engine reports only through the plain function registered with
// `StartPackage` (the library registers `CallbackFuction`), on a thread of its own, exactly as
// the closed engine would; a host that owns that engine plugs it in behind this interface.
//
// A scan as the coordinator runs it: InitPackageData, StartPackage, then the input (folders,
// scan types, single files) and AddPackageFileFinish to end the input. StopPackage asks a running
// scan to end early; UninitPackageData releases the engine.
//
// Ownership: the coordinator shares the engine (std::shared_ptr) with anything that must keep it
// alive, such as the delayed release after callback code 89.
// Thread safety: implementations must accept StopPackage and UninitPackageData from any thread
// while a scan runs; the other operations come from the thread that starts the scan.
#pragma once

#include <memory>
#include <string>

#include "dataparser/core/data_type.h"

namespace dataparser {

// The engine's callback: code, NUL-terminated UTF-8 text or null, and a length the library
// ignores. Always answers 0.
using PackageCallback = int (*)(CallbackTypeExtend type, const char* data, int len);

class PackageEngine {
 public:
  virtual ~PackageEngine() = default;

  virtual void InitPackageData(const std::string& logFolder, const std::string& configFolder,
                               const std::string& tempFolder) = 0;
  virtual void StartPackage(PackageCallback callback) = 0;
  virtual void StopPackage() = 0;
  virtual void UninitPackageData() = 0;

  virtual void AddBackupFolder(const std::string& path) = 0;
  virtual void AddTypeBackupFolder(const std::string& path) = 0;
  virtual void AddPhotoBackupFolder(const std::string& path) = 0;
  virtual void AddVoiceMemosBackupFolder(const std::string& path) = 0;
  virtual void AddTypeNeedScan(ScanType type) = 0;
  // One file of a device backup, described by a small JSON text of `length` bytes.
  virtual void AddPackageFile(const char* text, int length) = 0;
  // Ends the input: the scan may run to its end.
  virtual void AddPackageFileFinish() = 0;
};

// The engine a coordinator uses until the host installs its own. The engine layer defines it
// (a ReplayEngine), so that this layer names only the interface.
std::shared_ptr<PackageEngine> makeDefaultPackageEngine();

}  // namespace dataparser
