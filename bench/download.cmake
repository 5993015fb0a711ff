# The download benchmark's loopback file server (scripts/bench.sh download).
pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
add_executable(dataparser_http_file_server "${CMAKE_CURRENT_LIST_DIR}/http_file_server.cpp")
dataparser_warnings(dataparser_http_file_server)
target_link_libraries(dataparser_http_file_server PRIVATE PkgConfig::HTTPLIB Threads::Threads)
