// The package engine's callback bridge: the plain C entry points the engine calls.
//
// `CallbackFuction` turns each callback into one of six things, by the code table of
// data_type.h: JSON for the data type's parser (IOSDataParser::analyzeData), a progress report,
// scan began, scan finished (status 1), scan failed (status 3), or the release of the engine one
// second later (code 89). It keeps no state of its own; everything goes to
// IOSDataParser::shared(). The data folder (working root + "data") is created on every call.
//
// Thread safety: called on the engine's thread; does everything synchronously there except the
// delayed engine release, which runs on a background thread and keeps the engine alive until it
// is done.
#pragma once

#include <string>
#include <string_view>

#include "dataparser/core/data_type.h"

extern "C" {

// One engine callback. `data` is NUL-terminated UTF-8 text or null; `len` is ignored. Always 0.
int CallbackFuction(dataparser::CallbackTypeExtend type, const char* data, int len);

// The write hook: receives the file path, the text, its length and the open mode of each block.
// It writes nothing on purpose; the text reaches the parsers in memory.
void writeJsonData(const char* path, const char* data, int len, const char* mode);

// The character cleaning of Safari-history JSON. Returns a malloc'ed NUL-terminated copy of
// `text` with the broken escapes removed (free it with free()); null for null.
char* removeInvalidCharacter(const char* text);
}

namespace dataparser {

// Removes, in this order and each time every occurrence, the literal escape texts "\udeed",
// "\udd4a", "\u000b56", "\u000b", "\u000b", "\u038c", "\u060aJ" (as they stand in the JSON
// text, not the characters they denote).
std::string removeInvalidCharacterText(std::string_view text);

}  // namespace dataparser
