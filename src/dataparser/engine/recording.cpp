#include "dataparser/engine/recording.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <filesystem>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/json.h"
#include "dataparser/util/text.h"

namespace dataparser::recording {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kRootToken = "{{ROOT}}";
constexpr std::string_view kTemplatesToken = "{{TEMPLATES}}";

}  // namespace

std::optional<BlockName> parseBlockName(std::string_view name) {
  constexpr std::size_t kDigits = 6;
  if (name.size() < kDigits + 1 + 1 + 5 || name[kDigits] != '-') return std::nullopt;
  if (!std::all_of(name.begin(), name.begin() + kDigits,
                   [](char c) { return c >= '0' && c <= '9'; }))
    return std::nullopt;
  BlockName block;
  std::string_view suffix = name.substr(name.size() - 5);
  if (suffix == ".null") {
    block.null = true;
  } else if (suffix != ".json") {
    return std::nullopt;
  }
  std::string_view code = name.substr(kDigits + 1, name.size() - kDigits - 1 - 5);
  auto [end, error] = std::from_chars(code.data(), code.data() + code.size(), block.code);
  if (error != std::errc() || end != code.data() + code.size() || code.empty()) return std::nullopt;
  return block;
}

std::string absoluteFolder(const std::string& folder) {
  std::error_code error;
  fs::path absolute = fs::absolute(folder, error);
  if (error) return folder;
  std::string text = absolute.lexically_normal().string();
  while (text.size() > 1 && text.back() == '/')
    text.pop_back();
  return text;
}

bool isRecording(const std::string& folder) {
  std::error_code error;
  for (const fs::directory_entry& entry :
       fs::directory_iterator(fs::path(folder) / "stream", error)) {
    if (parseBlockName(entry.path().filename().string()) && entry.is_regular_file(error)) {
      return true;
    }
  }
  return false;
}

std::optional<std::vector<Block>> streamBlocks(const std::string& root) {
  std::error_code error;
  fs::directory_iterator it(fs::path(root) / "stream", error);
  if (error) return std::nullopt;
  std::vector<Block> blocks;
  for (const fs::directory_entry& entry : it) {
    std::string name = entry.path().filename().string();
    std::optional<BlockName> block = parseBlockName(name);
    if (!block || !entry.is_regular_file(error)) continue;
    blocks.push_back(Block{name, entry.path().string(), block->code, block->null});
  }
  std::sort(blocks.begin(), blocks.end(),
            [](const Block& a, const Block& b) { return a.name < b.name; });
  return blocks;
}

std::string materializeTemplates(const std::string& root, const std::string& tempFolder,
                                 std::uint64_t generation) {
  fs::path templates = fs::path(root) / "templates";
  std::error_code error;
  if (tempFolder.empty() || !fs::is_directory(templates, error)) return "";
  static std::atomic<std::uint64_t> counter = 0;
  fs::path copy =
      fs::path(tempFolder) / ("replay-" + std::to_string(::getpid()) + "-" +
                              std::to_string(generation) + "-" + std::to_string(counter++));
  for (fs::recursive_directory_iterator it(templates, error), end; !error && it != end;
       it.increment(error)) {
    if (!it->is_regular_file(error)) continue;
    std::optional<std::string> text = readFile(it->path().string());
    if (!text) continue;
    *text = stringByReplacingOccurrences(*text, kRootToken, json::escapedText(root));
    fs::path target = copy / fs::relative(it->path(), templates, error);
    if (!createDirectories(target.parent_path().string()) ||
        !writeFileAtomically(target.string(), *text)) {
      fs::remove_all(copy, error);
      return "";
    }
  }
  return copy.string();
}

void removeTemplates(const std::string& copy) {
  if (copy.empty()) return;
  std::error_code ignored;
  fs::remove_all(copy, ignored);
}

void sweepStaleTemplates(const std::string& tempFolder) {
  if (tempFolder.empty()) return;
  constexpr std::string_view kPrefix = "replay-";
  std::error_code error;
  std::vector<fs::path> stale;
  for (const fs::directory_entry& entry : fs::directory_iterator(tempFolder, error)) {
    const std::string name = entry.path().filename().string();
    if (!name.starts_with(kPrefix)) continue;
    std::string_view rest = std::string_view(name).substr(kPrefix.size());
    pid_t pid = 0;
    auto [end, failed] = std::from_chars(rest.data(), rest.data() + rest.size(), pid);
    if (failed != std::errc() || end == rest.data() || pid <= 0 || pid == ::getpid()) continue;
    // No such process: nobody will remove this copy any more.
    if (::kill(pid, 0) != 0 && errno == ESRCH) stale.push_back(entry.path());
  }
  for (const fs::path& copy : stale) {
    fs::remove_all(copy, error);
  }
}

std::optional<std::string> blockText(const Block& block, const std::string& root,
                                     const std::string& templates) {
  std::optional<std::string> text = readFile(block.file);
  if (!text) return std::nullopt;
  // The paths go into JSON strings, so they are escaped like any other text there.
  if (!templates.empty()) {
    *text = stringByReplacingOccurrences(*text, kTemplatesToken, json::escapedText(templates));
  }
  *text = stringByReplacingOccurrences(*text, kRootToken, json::escapedText(root));
  return text;
}

}  // namespace dataparser::recording
