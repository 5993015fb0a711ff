# The recording generator: deterministic large recorded scans for the benchmarks.
find_package(CLI11 CONFIG REQUIRED)
add_executable(generate_recording
  generator/generate_recording.cpp generator/recording_writer.cpp generator/sms_generator.cpp
  generator/contacts_generator.cpp generator/photo_generator.cpp generator/wechat_generator.cpp
  generator/whatsapp_generator.cpp "${PROJECT_SOURCE_DIR}/tests/backup_fixture.cpp")
dataparser_warnings(generate_recording)
target_include_directories(generate_recording PRIVATE "${PROJECT_SOURCE_DIR}")
target_link_libraries(generate_recording PRIVATE fmt::fmt CLI11::CLI11 dataparser_rapidjson
                      dataparser SQLite::SQLite3)

# The floor: simdjson alone over every JSON byte of a recording.
add_executable(json_floor json_floor.cpp)
dataparser_warnings(json_floor)
target_link_libraries(json_floor PRIVATE simdjson::simdjson)

# The whole scan through the coordinator and the replay engine.
add_executable(scan_bench scan_bench.cpp)
dataparser_warnings(scan_bench)
target_link_libraries(scan_bench PRIVATE dataparser)

# The floor of a device backup's messages: one SQLite pass over the joined message rows.
add_executable(backup_floor backup_floor.cpp)
dataparser_warnings(backup_floor)
target_link_libraries(backup_floor PRIVATE dataparser)
