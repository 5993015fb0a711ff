// Helpers for the tests of the chat apps with message files (LINE, Kik, Viber): message files
// written to a temporary folder, JSON pieces, and one-line summaries of what a message or an
// attachment carries, so that tables can compare whole rows.
#pragma once

#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "dataparser/model/attachment.h"
#include "dataparser/model/conversation.h"
#include "dataparser/util/file_helper.h"
#include "tests/test_support.h"

namespace dataparser::testing {

// Points the working root into `dir` for the lifetime of the object, so that what a test
// writes there is its own.
class WorkingRootIn {
 public:
  explicit WorkingRootIn(const TempDir& dir) { setApplicationSupportRoot(dir.str() + "/support"); }
  ~WorkingRootIn() { setApplicationSupportRoot(""); }
  WorkingRootIn(const WorkingRootIn&) = delete;
  WorkingRootIn& operator=(const WorkingRootIn&) = delete;
};

// Writes {"messages": [records...]} to `name` under the folder; returns its path.
inline std::string writeMessageFile(const TempDir& dir, const std::string& name,
                                    const std::vector<std::string>& records) {
  std::string text = "{\"messages\": [";
  for (std::size_t i = 0; i < records.size(); ++i)
    text += (i ? "," : "") + records[i];
  return dir.write(name, text + "]}");
}

// A JSON list of strings: ["a","b"].
inline std::string jsonList(const std::vector<std::string>& paths) {
  std::string text = "[";
  for (std::size_t i = 0; i < paths.size(); ++i)
    text += (i ? ",\"" : "\"") + paths[i] + "\"";
  return text + "]";
}

// "kind:details" of an attachment's payload: "location:A|B" (line feeds as "|"), "contact:N/P",
// "voice:3", "call:2600/2/ViberCallHistory_Missed", "link:T/S/U", "" without a payload.
inline std::string payloadOf(const IOSAttachmentItem& a) {
  if (a.location()) {
    std::string info = a.location()->localInfo();
    for (char& c : info)
      if (c == '\n') c = '|';
    return "location:" + info;
  }
  if (a.contact()) return "contact:" + a.contact()->name() + "/" + a.contact()->phone();
  if (a.voice()) return fmt::format("voice:{}", a.voice()->duration());
  if (a.callDuration()) {
    return fmt::format("call:{}/{}/{}", a.callDuration()->duration(),
                       a.callDuration()->callHistoryType(), a.callDuration()->strCallHistoryType());
  }
  if (a.link())
    return "link:" + a.link()->title() + "/" + a.link()->summary() + "/" + a.link()->url();
  return "";
}

// The texts of a conversation's messages, in order.
inline std::vector<std::string> textsOf(const IOSBaseSessionItem& session) {
  std::vector<std::string> texts;
  for (const MessagePtr& message : session.contents())
    texts.push_back(message->text());
  return texts;
}

// Lines that start with `prefix`.
inline std::size_t countStartingWith(const std::vector<std::string>& lines,
                                     std::string_view prefix) {
  return static_cast<std::size_t>(
      std::count_if(lines.begin(), lines.end(),
                    [&](const std::string& line) { return line.starts_with(prefix); }));
}

// Every regular file below `root` (links not followed), as paths relative to it.
inline std::vector<std::string> filesBelow(const std::filesystem::path& root) {
  std::vector<std::string> files;
  std::error_code error;
  for (auto it = std::filesystem::recursive_directory_iterator(root, error);
       !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
    if (it->is_regular_file()) files.push_back(it->path().lexically_relative(root).string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace dataparser::testing
