// Fuzzes every parser of the dispatch table the way a scan reaches it: the block goes through the
// engine callback (CallbackFuction) with the data type's callback code, so the bridge's checks,
// the coordinator's dispatch (made, fed and media rows, attachment merging, reports) and the
// observer all run as in a scan. A parser joins the day its row or slot gets its class.
//
// Input layout:
//   byte 0        the row: DispatchTable::standard().rows()[byte % row count]; (byte / row count)
//                 bit 0 sets parseDeleted, bit 1 deviceBackup
//   the rest      sections separated by the line "\n%%\n": the block text, then one section per
//                 file. A file section's first line is the file's name (reduced to a safe
//                 name; "file<k>" when empty), the rest its bytes.
// In the block and in every file, "{{FILEk}}" (k = 0..9) becomes the absolute path of file k,
// "{{DIR}}" the folder holding the files and "{{ROOT}}" the fuzz folder (a 1x1 PNG waits at
// "{{ROOT}}/pictures/pixel.png"). Files are written to a fresh private folder for each input.
//
// Seeds: with FUZZ_PARSERS_SEEDS=OUT and FUZZ_PARSERS_SOURCES=DIR[:DIR...] set, the target writes
// seeds to OUT and exits instead of fuzzing: every block of every recording (DIR/stream/
// NNNNNN-CODE.json, any DIR holding a stream/ folder one or two levels down) becomes a seed of its
// row, with the files its "{{ROOT}}/..." and "{{TEMPLATES}}/..." paths name (and the files those
// name) as file sections; every other *.json file below a DIR becomes a block for every row that
// has a parser. scripts/fuzz.sh builds the corpus this way from samples/ and tests/fixtures.
//
// Checked on every input: the callback answers 0; the observer gets only non-empty lists of
// existing items, and every field of every item reads.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "dataparser/core/callback_bridge.h"
#include "dataparser/core/data_type.h"
#include "dataparser/core/dispatch.h"
#include "dataparser/core/ios_data_parser.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/text.h"
#include "fuzz/harness.h"

namespace {

using dataparser::fuzz::check;
using dataparser::fuzz::FuzzEnvironment;
namespace dp = dataparser;
namespace fs = std::filesystem;

constexpr std::string_view kSeparator = "\n%%\n";
constexpr std::size_t kMaxFiles = 10;

// The callback code that carries a data type's blocks; 0 when the engine has none.
dp::CallbackTypeExtend codeOf(dp::IOSDataType type) {
  for (const dp::CallbackRoute& route : dp::callbackRoutes()) {
    if (route.type == type && route.outcome == dp::CallbackOutcome::kData) return route.code;
  }
  return 0;
}

// A file name made of [A-Za-z0-9._-] only, never "." or "..", at most 64 characters.
std::string safeName(std::string_view name, std::size_t index) {
  std::string out;
  for (char c : name.substr(0, 64)) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '.' || c == '_' || c == '-';
    out.push_back(plain ? c : '_');
  }
  if (out.empty() || out == "." || out == "..") out = "file" + std::to_string(index);
  return out;
}

std::vector<std::string_view> split(std::string_view text) {
  std::vector<std::string_view> sections;
  std::size_t start = 0;
  for (std::size_t at = text.find(kSeparator); at != std::string_view::npos;
       at = text.find(kSeparator, start)) {
    sections.push_back(text.substr(start, at - start));
    start = at + kSeparator.size();
  }
  sections.push_back(text.substr(start));
  return sections;
}

struct Setup {
  std::shared_ptr<dp::IOSDataParserDelegate> observer =
      std::make_shared<dp::IOSDataParserDelegate>();
  dp::DispatchTable table = dp::DispatchTable::standard();
  std::vector<dp::CallbackTypeExtend> codes;  // per row
  std::string inputs;                         // the per-input folder
};

Setup& setup() {
  static Setup instance = [] {
    Setup made;
    made.observer->didFetchedData = [](dp::IOSDataParser&, dp::ItemList items, dp::IOSDataType) {
      check(!items.empty(), "reported lists are never empty");
      for (const dp::ItemPtr& item : items) {
        check(item != nullptr, "reported items exist");
        dp::fuzz::describeAll(*item);
      }
    };
    for (const dp::DispatchRow& row : made.table.rows())
      made.codes.push_back(codeOf(row.type));
    made.inputs = FuzzEnvironment::instance().root() + "/input";
    dp::IOSDataParser& coordinator = dp::IOSDataParser::shared();
    coordinator.setDispatchTable(made.table);
    coordinator.setDelegate(made.observer);
    return made;
  }();
  return instance;
}

// Replaces the placeholders of one section.
std::string fill(std::string_view text, const std::vector<std::string>& paths,
                 const std::string& folder) {
  std::string out =
      dp::stringByReplacingOccurrences(text, "{{ROOT}}", FuzzEnvironment::instance().root());
  out = dp::stringByReplacingOccurrences(out, "{{DIR}}", folder);
  for (std::size_t k = 0; k < kMaxFiles; ++k) {
    const std::string token = "{{FILE" + std::to_string(k) + "}}";
    if (out.find(token) == std::string::npos) continue;
    out = dp::stringByReplacingOccurrences(
        out, token, k < paths.size() ? paths[k] : folder + "/missing" + std::to_string(k));
  }
  return out;
}

// ---- seeds ------------------------------------------------------------------------------------

struct SeedFiles {
  std::vector<std::pair<std::string, std::string>> files;  // name, bytes
  std::map<std::string, std::size_t> index;                // source path -> file number
};

// Replaces every "{{ROOT}}/..." and "{{TEMPLATES}}/..." path of `text` by a file placeholder,
// adding the file it names (and, one level down, the files that one names).
std::string collect(std::string_view text, const fs::path& recording, SeedFiles& seed, int depth) {
  std::string out;
  std::size_t position = 0;
  while (position < text.size()) {
    const std::size_t root = text.find("{{ROOT}}/", position);
    const std::size_t templates = text.find("{{TEMPLATES}}/", position);
    const std::size_t at = std::min(root, templates);
    if (at == std::string_view::npos) break;
    const bool isTemplate = at == templates;
    const std::size_t start = at + (isTemplate ? 14 : 9);
    std::size_t end = start;
    while (end < text.size() && text[end] != '"' && text[end] != '\\' && text[end] != '\n')
      ++end;
    out.append(text.substr(position, at - position));
    const fs::path source = (isTemplate ? recording / "templates" : recording) /
                            std::string(text.substr(start, end - start));
    std::error_code error;
    const bool usable = depth < 2 && fs::is_regular_file(source, error) &&
                        fs::file_size(source, error) <= 64 * 1024;
    auto known = seed.index.find(source.string());
    if (known == seed.index.end() && usable && seed.files.size() < kMaxFiles) {
      const std::size_t number = seed.files.size();
      known = seed.index.emplace(source.string(), number).first;
      seed.files.emplace_back(source.filename().string(), std::string());
      std::string body = dp::readFile(source.string()).value_or("");
      seed.files[number].second = collect(body, recording, seed, depth + 1);
    }
    if (known != seed.index.end()) {
      out += "{{FILE" + std::to_string(known->second) + "}}";
    } else {
      out += "{{DIR}}/missing";
    }
    position = end;
  }
  out.append(text.substr(position));
  return out;
}

void writeSeed(const fs::path& folder, const std::string& name, std::size_t row,
               const std::string& block, const SeedFiles& seed) {
  std::string bytes(1, static_cast<char>(row));
  bytes += block;
  for (const auto& [fileName, body] : seed.files) {
    bytes += kSeparator;
    bytes += fileName;
    bytes += '\n';
    bytes += body;
  }
  dp::writeFileAtomically((folder / name).string(), bytes);
}

bool rowHasParser(const dp::DispatchTable& table, const dp::DispatchRow& row) {
  if (row.kind == dp::RowKind::kMade) return static_cast<bool>(row.factory);
  return static_cast<bool>(table.slotMaker(row.slot));
}

int writeSeeds(const char* out, const char* sources) {
  Setup& state = setup();
  const auto rows = state.table.rows();
  fs::create_directories(out);
  std::size_t written = 0;
  std::string_view list(sources);
  while (!list.empty()) {
    const std::size_t colon = list.find(':');
    const fs::path source(std::string(list.substr(0, colon)));
    list = colon == std::string_view::npos ? std::string_view() : list.substr(colon + 1);
    std::error_code error;
    for (fs::recursive_directory_iterator it(source, error), end; !error && it != end;
         it.increment(error)) {
      const fs::path file = it->path();
      if (!it->is_regular_file(error) || file.extension() != ".json") continue;
      const std::string text = dp::readFile(file.string()).value_or("");
      const std::string stem = file.stem().string();
      std::string tag = std::to_string(written) + "-" + safeName(stem, written);
      if (file.parent_path().filename() == "stream") {
        const std::size_t dash = stem.find('-');
        if (dash == std::string::npos) continue;
        const auto code = static_cast<dp::CallbackTypeExtend>(std::atoi(stem.c_str() + dash + 1));
        for (std::size_t row = 0; row < rows.size(); ++row) {
          if (state.codes[row] != code || code == 0) continue;
          SeedFiles seed;
          const std::string block = collect(text, file.parent_path().parent_path(), seed, 0);
          writeSeed(out, tag, row, block, seed);
          ++written;
        }
        continue;
      }
      if (file.string().find("/templates/") != std::string::npos) continue;  // reached via blocks
      for (std::size_t row = 0; row < rows.size(); ++row) {
        if (!rowHasParser(state.table, rows[row])) continue;
        SeedFiles seed;
        writeSeed(out, tag + "-" + std::to_string(row), row, text, seed);
        ++written;
      }
    }
  }
  std::fprintf(stderr, "fuzz_parsers: %zu seeds written to %s\n", written, out);
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  FuzzEnvironment::instance();
  setup();
  const char* seeds = std::getenv("FUZZ_PARSERS_SEEDS");
  const char* sources = std::getenv("FUZZ_PARSERS_SOURCES");
  if (seeds != nullptr && sources != nullptr) std::exit(writeSeeds(seeds, sources));
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  Setup& state = setup();
  const auto rows = state.table.rows();
  if (rows.empty()) return 0;
  const std::size_t row = data[0] % rows.size();
  const std::size_t switches = data[0] / rows.size();

  // A fresh folder for this input's files.
  std::error_code ignored;
  fs::remove_all(state.inputs, ignored);
  const std::vector<std::string_view> sections = split(dp::fuzz::asText(data + 1, size - 1));
  std::vector<std::string> paths;
  for (std::size_t k = 1; k < sections.size() && paths.size() < kMaxFiles; ++k) {
    const std::size_t newline = sections[k].find('\n');
    const std::string_view name = sections[k].substr(0, newline);
    paths.push_back("input/" + std::to_string(k - 1) + "/" + safeName(name, k - 1));
  }
  const FuzzEnvironment& environment = FuzzEnvironment::instance();
  for (std::string& path : paths)
    path = environment.root() + "/" + path;
  for (std::size_t k = 0; k < paths.size(); ++k) {
    const std::size_t newline = sections[k + 1].find('\n');
    const std::string_view body = newline == std::string_view::npos
                                      ? std::string_view()
                                      : sections[k + 1].substr(newline + 1);
    environment.writeFile(std::string_view(paths[k]).substr(environment.root().size() + 1),
                          fill(body, paths, state.inputs));
  }
  const std::string block = fill(sections[0], paths, state.inputs);

  dp::IOSDataParser& coordinator = dp::IOSDataParser::shared();
  coordinator.setParseDeleted((switches & 1) != 0);
  coordinator.setDeviceBackup((switches & 2) != 0);
  coordinator.setupParser();
  if (const dp::CallbackTypeExtend code = state.codes[row]; code != 0) {
    check(CallbackFuction(code, block.c_str(), static_cast<int>(block.size())) == 0,
          "the callback answers 0");
    // The bridge keeps a copy of some blocks in the working root, some appended: drop them.
    fs::remove_all(dp::productDomainPath() + "/data", ignored);
  } else {
    coordinator.analyzeData(std::string_view(block), rows[row].type);
  }
  coordinator.resetParser();
  return 0;
}
