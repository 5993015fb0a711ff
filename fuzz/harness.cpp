#include "fuzz/harness.h"

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "dataparser/model/describable.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/image.h"
#include "dataparser/util/run_log.h"

namespace dataparser::fuzz {

namespace fs = std::filesystem;

namespace {

// A 1x1 PNG, so that conversation and attachment pictures named by inputs have something real
// to load.
constexpr unsigned char kPixelPNG[] = {
    0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48,
    0x44, 0x52, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x08, 0x06, 0x00, 0x00,
    0x00, 0x1f, 0x15, 0xc4, 0x89, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x44, 0x41, 0x54, 0x78,
    0x9c, 0x63, 0xf8, 0xcf, 0xc0, 0xf0, 0x1f, 0x00, 0x05, 0x00, 0x01, 0xff, 0x89, 0x99,
    0x3d, 0x1d, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};

}  // namespace

FuzzEnvironment& FuzzEnvironment::instance() {
  static FuzzEnvironment environment;
  return environment;
}

FuzzEnvironment::FuzzEnvironment() {
  std::string pattern = (fs::temp_directory_path() / "dataparser-fuzz-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    std::perror("mkdtemp");
    std::abort();
  }
  root_ = pattern;
  fs::create_directories(root_ + "/home");
  // Anything that still asks the environment lands in the private folder too.
  ::setenv("HOME", (root_ + "/home").c_str(), 1);
  ::setenv("XDG_DATA_HOME", (root_ + "/support").c_str(), 1);
  ::setenv("XDG_CACHE_HOME", (root_ + "/caches").c_str(), 1);
  setApplicationSupportRoot(root_ + "/support");
  setCachesRoot(root_ + "/caches");
  RunLog::setSink(makeNullLogSink());
  SystemLog::setSink(makeNullLogSink());
  writeFile("pictures/pixel.png",
            std::string_view(reinterpret_cast<const char*>(kPixelPNG), sizeof(kPixelPNG)));
}

FuzzEnvironment::~FuzzEnvironment() {
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

std::string FuzzEnvironment::writeFile(std::string_view relative, std::string_view content) const {
  fs::path path = fs::path(root_) / relative;
  fs::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  return path.string();
}

namespace {

// Counts fields and touches each value, so that nothing read is optimised away.
class CountingVisitor final : public FieldVisitor {
 public:
  std::size_t fields = 0;
  std::size_t bytes = 0;

 protected:
  void onNull(std::string_view) override { ++fields; }
  void onString(std::string_view, std::string_view value) override {
    ++fields;
    bytes += value.size();
  }
  void onInteger(std::string_view, std::int64_t) override { ++fields; }
  void onUnsigned(std::string_view, std::uint64_t) override { ++fields; }
  void onDouble(std::string_view, double) override { ++fields; }
  void onBool(std::string_view, bool) override { ++fields; }
  void onDate(std::string_view, Date) override { ++fields; }
  void onImage(std::string_view, const Image& image) override {
    ++fields;
    check(image.width() > 0 && image.height() > 0, "a loaded picture has a size");
  }
  void onObjectBegin(std::string_view, std::string_view className) override {
    ++fields;
    check(!className.empty(), "every model object names its class");
  }
  void onObjectEnd() override {}
  void onArrayBegin(std::string_view) override { ++fields; }
  void onArrayEnd() override {}
};

}  // namespace

std::size_t describeAll(const Describable& object) {
  CountingVisitor visitor;
  visitor.field(std::string_view(), &object);
  return visitor.fields;
}

void check(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "fuzz check failed: %s\n", what);
  std::abort();
}

}  // namespace dataparser::fuzz
