// json_floor: the floor of a scan's cost. Reads and parses every JSON byte of a recording
// (the stream blocks and every .json file below the folder) with simdjson alone, one document
// at a time, and prints "floor: bytes=N seconds=S".
//
//   json_floor RECORDING [--stat KEY[,KEY...]]
//
// With --stat, the floor also asks the file system about every file that a string member named
// by one of the KEYs names, anywhere in the documents (one stat each): the least a scan that
// checks its files must do.
#include <simdjson.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace {

// Stats the file of every string member named by one of `keys` below `element`; counts the
// files found.
void statNamedFiles(simdjson::dom::element element, const std::vector<std::string>& keys,
                    std::uint64_t& stats, std::uint64_t& found) {
  if (element.is_array()) {
    simdjson::dom::array array = element.get_array().value_unsafe();
    for (simdjson::dom::element child : array) {
      statNamedFiles(child, keys, stats, found);
    }
  } else if (element.is_object()) {
    simdjson::dom::object object = element.get_object().value_unsafe();
    for (simdjson::dom::key_value_pair member : object) {
      bool named = std::find(keys.begin(), keys.end(), member.key) != keys.end();
      if (named && member.value.is_string()) {
        std::string path(member.value.get_string().value_unsafe());
        struct stat info {};
        ++stats;
        if (::stat(path.c_str(), &info) == 0) ++found;
      } else {
        statNamedFiles(member.value, keys, stats, found);
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> statKeys;
  if (argc == 4 && std::string_view(argv[2]) == "--stat") {
    std::string_view list = argv[3];
    for (std::size_t at = 0; at <= list.size();) {
      std::size_t comma = std::min(list.find(',', at), list.size());
      if (comma > at) statKeys.emplace_back(list.substr(at, comma - at));
      at = comma + 1;
    }
  }
  if (argc != 2 && statKeys.empty()) {
    std::fprintf(stderr, "usage: json_floor RECORDING [--stat KEY[,KEY...]]\n");
    return 2;
  }
  namespace fs = std::filesystem;
  std::vector<fs::path> files;
  for (const auto& entry : fs::recursive_directory_iterator(argv[1])) {
    if (entry.is_regular_file() && entry.path().extension() == ".json") {
      files.push_back(entry.path());
    }
  }
  auto start = std::chrono::steady_clock::now();
  simdjson::dom::parser parser;
  std::uint64_t bytes = 0;
  std::uint64_t elements = 0;
  std::uint64_t stats = 0;
  std::uint64_t found = 0;
  for (const fs::path& file : files) {
    simdjson::padded_string text;
    if (simdjson::padded_string::load(file.string()).get(text) != simdjson::SUCCESS) {
      std::fprintf(stderr, "json_floor: cannot read %s\n", file.c_str());
      return 1;
    }
    bytes += text.size();
    simdjson::dom::element root;
    if (parser.parse(text).get(root) != simdjson::SUCCESS) {
      std::fprintf(stderr, "json_floor: %s is not JSON\n", file.c_str());
      return 1;
    }
    elements += root.is_object() ? 1 : 0;
    if (!statKeys.empty()) statNamedFiles(root, statKeys, stats, found);
  }
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("floor: bytes=%llu seconds=%.3f documents=%llu stats=%llu files=%llu\n",
              static_cast<unsigned long long>(bytes), seconds,
              static_cast<unsigned long long>(elements), static_cast<unsigned long long>(stats),
              static_cast<unsigned long long>(found));
  return 0;
}
