# Every third-party library the project links. Debian 12 packages; scripts/setup.sh installs them.
# The same calls are repeated by the installed dataparserConfig.cmake for consumers.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(simdjson CONFIG REQUIRED)
find_package(fmt CONFIG REQUIRED)
find_package(spdlog CONFIG REQUIRED)
find_package(CURL REQUIRED)
find_package(OpenSSL REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(LibXml2 REQUIRED)
find_package(RapidJSON CONFIG REQUIRED)
pkg_check_modules(PCRE2 REQUIRED IMPORTED_TARGET libpcre2-8)
pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET libutf8proc)
pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(VIPS REQUIRED IMPORTED_TARGET vips-cpp)

# RapidJSON's package only sets variables; give it a target so that it is a SYSTEM include.
if(NOT TARGET dataparser_rapidjson)
  add_library(dataparser_rapidjson INTERFACE)
  target_include_directories(dataparser_rapidjson SYSTEM INTERFACE ${RAPIDJSON_INCLUDE_DIRS})
  # Its writers then copy the plain runs of a string 16 bytes at a time. Every user of RapidJSON
  # links this target, so all of them see the same setting.
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
    target_compile_definitions(dataparser_rapidjson INTERFACE RAPIDJSON_SSE2)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
    target_compile_definitions(dataparser_rapidjson INTERFACE RAPIDJSON_NEON)
  endif()
endif()
