# The test from outside: install the build into a temporary prefix, build the
# consumer project against it (MODE find_package or pkg-config) and run its
# program. In pkg-config mode the compile line of README is tried too.
# The installed keel tool is run once as well.
#
#   cmake -DKEEL_BINARY_DIR=... -DCONSUMER_SOURCE_DIR=... -DWORK_DIR=... -DMODE=... -P run.cmake
function(run)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${WORK_DIR} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    string(REPLACE ";" " " line "${ARGN}")
    message(FATAL_ERROR "failed (${result}): ${line}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
run(${CMAKE_COMMAND} --install ${KEEL_BINARY_DIR} --prefix ${prefix})
file(GLOB_RECURSE pc_files ${prefix}/*/keel.pc)
list(GET pc_files 0 pc_file)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
get_filename_component(lib_dir ${pc_dir} DIRECTORY)

# The installed tool finds the installed library by its run path, and works.
run(${prefix}/bin/keel --help)
file(WRITE ${WORK_DIR}/tool-in.txt "cafe\n")
run(${prefix}/bin/keel text convert --from utf8 --to utf16le ${WORK_DIR}/tool-in.txt ${WORK_DIR}/tool-out.txt)
file(SIZE ${WORK_DIR}/tool-out.txt tool_out_size)
if(NOT tool_out_size EQUAL 12)
  message(FATAL_ERROR "keel text convert wrote ${tool_out_size} bytes, not 12")
endif()
run(readelf -d ${prefix}/bin/keel)
if(NOT last_output MATCHES "\\$ORIGIN/\\.\\./")
  message(FATAL_ERROR "the installed keel has no run path relative to itself:\n${last_output}")
endif()

set(configure ${CMAKE_COMMAND} -S ${CONSUMER_SOURCE_DIR} -B ${WORK_DIR}/build -G ${CMAKE_GENERATOR}
  -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=RelWithDebInfo)
if(MODE STREQUAL "find_package")
  run(${configure} -DCMAKE_PREFIX_PATH=${prefix} -DKEEL_CONSUMER_WITH=find_package)
else()
  run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir} ${configure} -DKEEL_CONSUMER_WITH=pkg-config)
endif()
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/wordfreq)
message(STATUS "wordfreq:\n${last_output}")

if(MODE STREQUAL "pkg-config")
  # README's line: c++ -std=c++17 app.cpp $(pkg-config --cflags --libs keel-toolkit)
  run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir} pkg-config --cflags --libs keel-toolkit)
  string(STRIP "${last_output}" flags)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  run(${CXX} -std=c++17 -Wall -Wextra -Werror ${CONSUMER_SOURCE_DIR}/wordfreq.cpp ${flags}
    -Wl,-rpath,${lib_dir} -o ${WORK_DIR}/wordfreq-by-hand)
  run(${WORK_DIR}/wordfreq-by-hand)
endif()
