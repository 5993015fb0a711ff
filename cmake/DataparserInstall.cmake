# Install rules: the library, its headers, an exported CMake package (find_package(dataparser))
# and a pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS dataparser EXPORT dataparserTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS dataparser_rapidjson EXPORT dataparserTargets)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/resources/"
        DESTINATION ${CMAKE_INSTALL_DATADIR}/dataparser)
install(EXPORT dataparserTargets NAMESPACE dataparser::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/dataparser)

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/dataparserConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/dataparserConfig.cmake"
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/dataparser)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/dataparserConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/dataparserConfig.cmake"
              "${PROJECT_BINARY_DIR}/dataparserConfigVersion.cmake"
              "${PROJECT_SOURCE_DIR}/cmake/DataparserDependencies.cmake"
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/dataparser)

# The .pc file finds its prefix relative to itself, so the install can be moved.
file(RELATIVE_PATH DATAPARSER_PC_TO_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file("${PROJECT_SOURCE_DIR}/cmake/dataparser.pc.in"
               "${PROJECT_BINARY_DIR}/dataparser.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/dataparser.pc"
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
