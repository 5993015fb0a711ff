// Fuzzes the character cleaning of Safari-history JSON, through the exported C function and the
// C++ text function behind it.
//
// Checked on every input:
//   - null gives null;
//   - the C function gives the C++ function's result for the text up to its first NUL;
//   - the result is the input with the broken escape texts taken out, pass by pass in the fixed
//     order, each pass removing the occurrences found in the text it was given (a removal that
//     brings two halves of a text together does not remove the new text in the same pass);
//   - nothing is added: the result is never longer than the input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "dataparser/core/callback_bridge.h"
#include "fuzz/harness.h"

namespace {

using dataparser::fuzz::check;

// The same cleaning, written the slow and obvious way as the reference.
std::string referenceCleaning(std::string text) {
  for (std::string_view broken :
       {"\\udeed", "\\udd4a", "\\u000b56", "\\u000b", "\\u000b", "\\u038c", "\\u060aJ"}) {
    std::string out;
    std::size_t i = 0;
    while (i < text.size()) {
      if (text.compare(i, broken.size(), broken) == 0) {
        i += broken.size();
      } else {
        out.push_back(text[i++]);
      }
    }
    text = std::move(out);
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  dataparser::fuzz::FuzzEnvironment::instance();
  check(removeInvalidCharacter(nullptr) == nullptr, "null gives null");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(dataparser::fuzz::asText(data, size));

  const std::string cleaned = dataparser::removeInvalidCharacterText(text);
  check(cleaned.size() <= text.size(), "cleaning never adds");
  check(cleaned == referenceCleaning(text), "cleaning removes exactly the listed texts");

  // The C function reads up to the first NUL, like every C string.
  const std::string upToNul(text.c_str());
  char* fromC = removeInvalidCharacter(upToNul.c_str());
  check(fromC != nullptr, "a text gives a text");
  check(std::string_view(fromC) == dataparser::removeInvalidCharacterText(upToNul),
        "the C function matches the text function");
  std::free(fromC);
  return 0;
}
