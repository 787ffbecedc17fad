# What `cmake --install` puts in place: the shared object with its SONAME
# link, the keel command-line tool in bin/ (its run path finds the library
# in ../lib), the SDK headers, the toolkit archive, a CMake package (targets
# keel::keel and keel::toolkit, with a version file) and pkg-config files.
include(CMakePackageConfigHelpers)

set(KEEL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/keel)
set(KEEL_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS keel keel_toolkit EXPORT keelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS keel_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/keel
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")
install(EXPORT keelTargets NAMESPACE keel:: DESTINATION ${KEEL_CMAKE_DIR} COMPONENT development)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/keelConfig.cmake.in
  ${PROJECT_BINARY_DIR}/keelConfig.cmake INSTALL_DESTINATION ${KEEL_CMAKE_DIR})
# The library keeps its binary interface within a major version.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/keelConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/keelConfig.cmake ${PROJECT_BINARY_DIR}/keelConfigVersion.cmake
  DESTINATION ${KEEL_CMAKE_DIR} COMPONENT development)

# The pkg-config files find the prefix from their own place (${pcfiledir}),
# so an install with `cmake --install --prefix` anywhere gives right paths.
file(RELATIVE_PATH KEEL_PC_TO_PREFIX /keelroot/${KEEL_PKGCONFIG_DIR} /keelroot)
string(REGEX REPLACE "/$" "" KEEL_PC_TO_PREFIX "${KEEL_PC_TO_PREFIX}")
foreach(pc keel keel-toolkit)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc DESTINATION ${KEEL_PKGCONFIG_DIR} COMPONENT development)
endforeach()
