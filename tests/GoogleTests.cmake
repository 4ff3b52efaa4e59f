# Adds a test for each suite of a GoogleTest program, named PROGRAM.SUITE. A process for each test would spend most of
# the time on starting, especially under Wine. The program is compiled with the precompiled headers of GoogleTest.
#
#   nuveq_add_suites(program [UNOPTIMIZED] [FILTER filter] PROPERTIES property value...)
#
# The name of the program ends in "_tests". UNOPTIMIZED is for tests that compute little: optimising them would take
# longer than they gain. The code under test is optimised. Only tests that match FILTER are added. The reports of
# GoogleTest are in the build folder's gtest-reports.
function(nuveq_add_suites program)
  cmake_parse_arguments(PARSE_ARGV 1 arg UNOPTIMIZED FILTER PROPERTIES)
  if(arg_UNOPTIMIZED AND NUVEQ_UNOPTIMIZED)
    target_compile_options(${program} PRIVATE ${NUVEQ_UNOPTIMIZED})
    target_precompile_headers(${program} REUSE_FROM googletest_headers_unoptimized)
  else()
    target_precompile_headers(${program} REUSE_FROM googletest_headers)
  endif()
  if(NOT arg_FILTER)
    set(arg_FILTER *)
  endif()
  set(reports ${CMAKE_BINARY_DIR}/gtest-reports)
  if(WIN32 AND CMAKE_HOST_UNIX)
    set(reports Z:${reports})
  endif()
  # ctest runs this script, which lists the suites, since the program has to be built first.
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${program}_suites.cmake)
  file(GENERATE OUTPUT ${script} CONTENT
"set(script [[${script}]])
set(cmake [[${CMAKE_COMMAND}]])
set(program ${program})
set(path [[$<TARGET_FILE:${program}>]])
set(emulator [[${CMAKE_CROSSCOMPILING_EMULATOR}]])
set(filter [[${arg_FILTER}]])
set(properties [[${arg_PROPERTIES}]])
set(reports [[${reports}]])
set(list [[${CMAKE_CURRENT_BINARY_DIR}/${program}_tests.txt]])
include([[${PROJECT_SOURCE_DIR}/tests/list_suites.cmake]])
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${script})
endfunction()
