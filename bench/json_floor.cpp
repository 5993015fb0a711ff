// json_floor: the floor of a scan's cost. Reads and parses every JSON byte of a recording
// (the stream blocks and every .json file below the folder) with simdjson alone, one document
// at a time, and prints "floor: bytes=N seconds=S".
#include <simdjson.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: json_floor RECORDING\n");
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
  }
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("floor: bytes=%llu seconds=%.3f documents=%llu\n",
              static_cast<unsigned long long>(bytes), seconds,
              static_cast<unsigned long long>(elements));
  return 0;
}
