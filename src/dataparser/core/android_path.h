// The Android path's callback: the plain C entry point the Android engine calls, and the table
// of its codes.
//
// `AndroidCallbackFuction` turns each callback into one of four things: code 0 is an engine
// error (status 3 to the observer, answer -1); a callback with null text is the end of the
// extraction (status 1), whatever its code; text of code 20 (WhatsApp) or 21 (WhatsApp Business)
// goes to IOSDataParser::analyzeAndroidData; text of any other code is logged as discarded. Text
// that is not UTF-8 is dropped silently. It keeps no state of its own; everything goes to
// IOSDataParser::shared().
//
// Thread safety: called on the engine's thread; everything happens synchronously there.
#pragma once

#include <cstdint>
#include <string_view>

#include "dataparser/core/data_type.h"

extern "C" {

// One Android engine callback. `data` is NUL-terminated UTF-8 text or null; `len` is ignored.
// -1 (all bits set) for an engine error, else 0.
std::int32_t AndroidCallbackFuction(std::int32_t type, const char* data, int len);
}

namespace dataparser {

struct AndroidRoute {
  std::int32_t code;
  IOSDataType type;          // 0 for none
  std::string_view file;     // computed below the working root, never written; "" for none
  std::int64_t packageType;  // what the engine is asked for to extract this type
  IOSDataType attachments;   // the code its attachments are reported under
};

// The route of an Android callback code; codes without a data type give type 0.
AndroidRoute androidRouteForCode(std::int32_t code);
// The route of an Android data type; type 0 for anything else.
AndroidRoute androidRouteForType(IOSDataType type);

}  // namespace dataparser
