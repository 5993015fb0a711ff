// Fuzzes the JSON access layer: decoding through every entry point, walking every element with
// every reader, and writing the text back out.
//
// Checked on every input:
//   - the borrowed-text and the given-up-string parses agree (both fail or give the same text);
//   - the readers keep their shared rules (null counts as absent, a wrong type reads as empty,
//     size() matches the iteration, at(i) and operator[] find what iteration finds);
//   - written text decodes again, and writing that gives the same text (compact and pretty).
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "dataparser/util/json.h"
#include "fuzz/harness.h"

namespace {

using dataparser::fuzz::check;
namespace json = dataparser::json;

// Exercises every reader on `view` and checks the rules that do not depend on the value.
void checkScalarReaders(json::View view) {
  json::Type type = view.type();
  check(view.present() == (type != json::Type::kAbsent && type != json::Type::kNull),
        "present() is false exactly for absent and null");
  check(view.optionalString().has_value() == view.isString(), "optionalString only for strings");
  if (!view.isString()) check(view.string().empty(), "string() of a non-string is empty");
  if (!view.isNumber() && !view.isBoolean()) {
    check(view.integer() == 0, "integer() of a non-number is 0");
    check(view.number() == 0.0, "number() of a non-number is 0");
  }
  if (type == json::Type::kInteger) {
    check(view.number() == static_cast<double>(view.integer()), "integer and number agree");
  }
  if (!view.isString()) {
    check(view.integerFromText() == view.integer(), "integerFromText of a non-string");
  }
  (void)view.numberFromText();
  (void)view.boolean();
  if (type != json::Type::kArray && type != json::Type::kObject) {
    check(view.size() == 0, "size() of a scalar is 0");
    check(view.elements().empty() && view.members().empty(), "scalars have no elements");
    check(view.at(0).type() == json::Type::kAbsent, "at() of a scalar is absent");
    check(view["a"].type() == json::Type::kAbsent, "operator[] of a scalar is absent");
  }
}

void walk(json::View view) {
  checkScalarReaders(view);
  if (view.isArray()) {
    std::size_t count = 0;
    for (json::View element : view.elements()) {
      // at() walks from the front; only probe it for the first elements to stay linear.
      if (count < 8) check(view.at(count) == element, "at(i) is the i-th element");
      walk(element);
      ++count;
    }
    check(count == view.size(), "array size() matches iteration");
    check(view.at(count).type() == json::Type::kAbsent, "at(size()) is absent");
    check(view.members().empty(), "an array has no members");
  } else if (view.isObject()) {
    std::size_t count = 0;
    for (json::Member member : view.members()) {
      // With duplicate keys operator[] finds the first one; it always finds one.
      if (count < 8) check(view[member.key].type() != json::Type::kAbsent, "operator[] finds");
      walk(member.value);
      ++count;
    }
    check(count == view.size(), "object size() matches iteration");
    check(view.elements().empty(), "an object has no elements");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  dataparser::fuzz::FuzzEnvironment::instance();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text = dataparser::fuzz::asText(data, size);

  std::string error;
  json::Value borrowed = json::parse(text, &error);
  // The same text as a string with room for the decoder's padding, and one without.
  std::string roomy;
  roomy.reserve(size + json::paddingBytes());
  roomy.assign(text);
  json::Value given = json::parse(std::move(roomy));
  json::Value tight = json::parse(std::string(text));

  check(borrowed.present() == given.present() && given.present() == tight.present(),
        "every parse entry point agrees on success");
  if (!borrowed.present()) {
    check(borrowed.type() == json::Type::kAbsent, "a failed parse is absent");
    check(!error.empty(), "a failed parse explains itself");
    return 0;
  }
  check(borrowed.isObject() || borrowed.isArray(), "a document is an object or an array");

  walk(borrowed.view());

  std::string compact = borrowed.view().toJsonText();
  check(given.view().toJsonText() == compact, "string&& parse gives the same document");
  check(tight.view().toJsonText() == compact, "tight string parse gives the same document");

  json::Value again = json::parse(compact);
  check(again.present(), "written text decodes again");
  std::string compactAgain = again.view().toJsonText();
  // One write normalises numbers; from then on writing is stable.
  check(json::parse(compactAgain).view().toJsonText() == compactAgain, "writing is stable");

  json::Value pretty = json::parse(borrowed.view().toJsonText(/*pretty=*/true));
  check(pretty.present(), "pretty text decodes again");
  check(pretty.view().toJsonText() == compactAgain, "pretty and compact text agree");
  return 0;
}
