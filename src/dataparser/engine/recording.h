// The recorded-scan format that both replay engines read: a folder whose "stream" subfolder
// holds one file per engine callback, "NNNNNN-CODE.json" (the callback's text) or
// "NNNNNN-CODE.null" (a callback with null text), replayed in name order. "{{ROOT}}" in a block
// becomes the recording folder's absolute path and "{{TEMPLATES}}" the path of a filled-in copy
// of the recording's "templates" folder.
//
// Plain functions without state; safe from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dataparser/core/data_type.h"

namespace dataparser::recording {

struct BlockName {
  CallbackTypeExtend code = 0;
  bool null = false;
};

struct Block {
  std::string name;  // file name, for ordering
  std::string file;  // full path
  CallbackTypeExtend code = 0;
  bool null = false;
};

// "NNNNNN-CODE.json" or "NNNNNN-CODE.null"; nothing for any other name.
std::optional<BlockName> parseBlockName(std::string_view name);

// The folder's absolute, normal path without a trailing "/"; the text itself when that fails.
std::string absoluteFolder(const std::string& folder);

// True when `folder` holds a "stream" folder with at least one block file.
bool isRecording(const std::string& folder);

// The blocks of `root`'s "stream" folder in name order; nothing when that folder cannot be read.
std::optional<std::vector<Block>> streamBlocks(const std::string& root);

// Writes the recording's "templates" folder, with every {{ROOT}} replaced by `root`, into a
// fresh folder below `tempFolder`. The copy's path; "" when there are no templates or they
// cannot be written.
std::string materializeTemplates(const std::string& root, const std::string& tempFolder,
                                 std::uint64_t generation);
// Removes a copy made by materializeTemplates ("" does nothing).
void removeTemplates(const std::string& copy);
// Removes the copies below `tempFolder` left by processes that no longer run (killed before
// their replay ended); copies of running processes, this one included, stay.
void sweepStaleTemplates(const std::string& tempFolder);

// The text a block sends: its file with the tokens filled in; nothing when it cannot be read.
std::optional<std::string> blockText(const Block& block, const std::string& root,
                                     const std::string& templates);

}  // namespace dataparser::recording
