// Helpers shared by the libFuzzer targets.
//
// `FuzzEnvironment::instance()` sets the process up once, before the first input: a private
// temporary folder holds the working root (application support), the caches folder and HOME, so
// no input can make the library write anywhere else; the run log and the system log drop their
// lines, so that logging costs nothing and stderr stays readable. A 1x1 PNG waits at
// "{root}/pictures/pixel.png" for inputs that name a picture. The folder is removed at exit.
//
// `describeAll` reads every field of a model object through its getters, as the CLI's export
// does, so that lazy fields are computed on the fuzz input too.
//
// `check` is the targets' assertion: it aborts, so libFuzzer records the input as a crash even
// in builds without assertions.
//
// Thread safety: instance() is safe to call from any thread; the rest is for the fuzzing
// thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace dataparser {
class Describable;
}

namespace dataparser::fuzz {

class FuzzEnvironment {
 public:
  static FuzzEnvironment& instance();

  // The private folder (absolute, no trailing slash).
  const std::string& root() const { return root_; }
  // Writes `content` to `relative` below root() (parents created); returns the full path.
  std::string writeFile(std::string_view relative, std::string_view content) const;

 private:
  FuzzEnvironment();
  ~FuzzEnvironment();
  FuzzEnvironment(const FuzzEnvironment&) = delete;
  FuzzEnvironment& operator=(const FuzzEnvironment&) = delete;

  std::string root_;
};

// Visits every field of `object` (nested objects and lists included); returns the number of
// fields seen.
std::size_t describeAll(const Describable& object);

// Aborts with `what` on stderr when `condition` is false.
void check(bool condition, const char* what);

// The fuzz input as text (may hold NUL bytes and invalid UTF-8).
inline std::string_view asText(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace dataparser::fuzz
