// A program outside the project that uses the installed library: built by CI against an install
// prefix, once through find_package and once through pkg-config.
#include <cstdio>

#include "dataparser/core/ios_data_parser.h"
#include "dataparser/core/version.h"
#include "dataparser/util/json.h"

int main() {
  dataparser::json::Value value = dataparser::json::parse(R"({"a": 1})");
  std::printf("dataparser %s %lld\n", DataParserVersionString,
              static_cast<long long>(value["a"].integer()));
  return value["a"].integer() == 1 && &dataparser::IOSDataParser::shared() != nullptr ? 0 : 1;
}
