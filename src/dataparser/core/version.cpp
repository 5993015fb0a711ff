#include "dataparser/core/version.h"

#include "dataparser/version.h"

extern "C" {
const char DataParserVersionString[] = DATAPARSER_VERSION_STRING;
const double DataParserVersionNumber = DATAPARSER_VERSION_NUMBER;
}
