// The library's exported version symbols.
#pragma once

extern "C" {
// The library's version text, for example "0.1.0".
extern const char DataParserVersionString[];
// The library's version as a number: major * 10000 + minor * 100 + patch.
extern const double DataParserVersionNumber;
}
