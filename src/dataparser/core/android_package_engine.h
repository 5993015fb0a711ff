// AndroidPackageEngine: the extraction engine of the Android path, which reads WhatsApp and
// WhatsApp Business from an Android backup and streams them back as JSON text, one block per
// callback.
//
// The coordinator drives it with the engine's own C-style operation names: InitQMDataPackage
// with the log and configuration folders, QMDataFilter with the parameter object (JSON text:
// "package_type", "temp_folder", "primary_file_object" {"msg_file_path"}, "addtional_param"),
// then QMDataPackage, which starts the extraction and calls the callback on a thread of its own.
// Callback codes: 0 an error, 20 WhatsApp, 21 WhatsApp Business; a callback with null text is
// the end of the extraction. QMDataStop asks a running extraction to end early (it still sends
// its end).
//
// Ownership: the coordinator shares the engine (std::shared_ptr).
// Thread safety: QMDataStop may be called from any thread while an extraction runs; the other
// operations come from the thread that starts the extraction.
#pragma once

#include <cstdint>
#include <memory>

namespace dataparser {

// The engine's callback: code, NUL-terminated UTF-8 text or null, and a length the library
// ignores.
using AndroidPackageCallback = std::int32_t (*)(std::int32_t type, const char* data, int len);

class AndroidPackageEngine {
 public:
  virtual ~AndroidPackageEngine() = default;

  virtual void InitQMDataPackage(const char* logFolder, const char* configFolder) = 0;
  // The parameter object as `length` bytes of JSON text.
  virtual void QMDataFilter(const char* text, int length) = 0;
  virtual void QMDataPackage(AndroidPackageCallback callback) = 0;
  virtual void QMDataStop() = 0;
};

// The engine a coordinator starts with: the Android replay engine (defined by the engine layer).
std::shared_ptr<AndroidPackageEngine> makeDefaultAndroidPackageEngine();

}  // namespace dataparser
