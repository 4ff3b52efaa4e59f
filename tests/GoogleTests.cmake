# Adds a test for each suite of a GoogleTest program, named PROGRAM.SUITE: a process for each test would take most of
# the time to start, above all under Wine.
#
#   nuveq_add_suites(program [FILTER filter] [SEPARATE regex] PROPERTIES property value...)
#
# Adds a test for each test, instead, in suites that match SEPARATE: suites that take long, so that they run in parallel,
# and those whose tests need a process of their own. Adds only tests that match FILTER. The properties apply to each
# test; a list has several labels. The reports of GoogleTest are in the build folder's gtest-reports.
function(nuveq_add_suites program)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "FILTER;SEPARATE" PROPERTIES)
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
"set(program ${program})
set(path [[$<TARGET_FILE:${program}>]])
set(emulator [[${CMAKE_CROSSCOMPILING_EMULATOR}]])
set(filter [[${arg_FILTER}]])
set(separate [[${arg_SEPARATE}]])
set(properties [[${arg_PROPERTIES}]])
set(reports [[${reports}]])
set(list [[${CMAKE_CURRENT_BINARY_DIR}/${program}_tests.txt]])
include([[${PROJECT_SOURCE_DIR}/tests/list_suites.cmake]])
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${script})
endfunction()
