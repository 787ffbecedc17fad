# GoogleTest: the installed package first (Debian's libgtest-dev); where none
# fits this build, from the sources Debian ships in /usr/src/googletest, built
# with this build's own flags. The i386 build always takes the second way:
# Debian installs GoogleTest for the native architecture only, and its
# package version file refuses a build whose pointers are 4 bytes.
if(NOT KEEL_M32)
  find_package(GTest CONFIG QUIET)
endif()
if(TARGET GTest::gtest_main)
  message(STATUS "GoogleTest: installed package ${GTest_DIR}")
else()
  set(KEEL_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest sources")
  if(NOT EXISTS ${KEEL_GTEST_SOURCE}/CMakeLists.txt)
    message(FATAL_ERROR "GoogleTest sources not found in ${KEEL_GTEST_SOURCE}; install Debian's googletest package")
  endif()
  message(STATUS "GoogleTest: built from ${KEEL_GTEST_SOURCE}")
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
  # GoogleTest keeps its own warning flags; ours are not imposed on it.
  set(CMAKE_COMPILE_WARNING_AS_ERROR OFF)
  add_subdirectory(${KEEL_GTEST_SOURCE} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  unset(CMAKE_COMPILE_WARNING_AS_ERROR)
  if(NOT TARGET GTest::gtest_main)
    add_library(GTest::gtest_main ALIAS gtest_main)
  endif()
endif()
include(GoogleTest)
