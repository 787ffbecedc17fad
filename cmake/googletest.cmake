# GoogleTest is built from the sources Debian ships in /usr/src/googletest, so
# that the i386 and sanitizer builds get a library made with their own flags.
set(KEEL_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest sources")
if(NOT EXISTS ${KEEL_GTEST_SOURCE}/CMakeLists.txt)
  message(FATAL_ERROR "GoogleTest sources not found in ${KEEL_GTEST_SOURCE}; install Debian's googletest package")
endif()
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
add_subdirectory(${KEEL_GTEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
include(GoogleTest)
