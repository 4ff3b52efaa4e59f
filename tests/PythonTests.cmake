# Python tests run under pytest. Not with Python3_EXECUTABLE, since another Python may precede that of pytest.
find_program(NUVEQ_PYTEST NAMES pytest-3 pytest REQUIRED)

# Adds a test for each test function in Python scripts, named PREFIX.SCRIPT.FUNCTION without "_test" and "test_".
#
#   nuveq_add_python_tests(NAMES PREFIX prefix SCRIPTS script... [WHOLE])
#
# WHOLE: adds one test for each script instead, named PREFIX.SCRIPT, so that its functions share module fixtures.
#
# The scripts are relative to the current folder. NAMES is set to the names of the added tests. A skipped test prints
# "DID NOT RUN: " and the reason, and ctest reports it as skipped.
function(nuveq_add_python_tests names)
  cmake_parse_arguments(PARSE_ARGV 1 arg WHOLE PREFIX SCRIPTS)
  set(command ${NUVEQ_PYTEST} -vv --no-header -p no:cacheprovider)
  set(added "")
  foreach(script IN LISTS arg_SCRIPTS)
    set(path ${CMAKE_CURRENT_SOURCE_DIR}/${script})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${path})
    string(REPLACE _test.py "" group ${script})
    if(arg_WHOLE)
      set(test ${arg_PREFIX}.${group})
      add_test(NAME ${test} COMMAND ${command} ${path})
      list(APPEND added ${test})
      continue()
    endif()
    file(STRINGS ${path} functions REGEX "^def test_")
    list(TRANSFORM functions REPLACE "^def test_([a-z0-9_]+).*" "\\1")
    foreach(function IN LISTS functions)
      set(test ${arg_PREFIX}.${group}.${function})
      add_test(NAME ${test} COMMAND ${command} ${path}::test_${function})
      list(APPEND added ${test})
    endforeach()
  endforeach()
  set_tests_properties(${added} PROPERTIES
      SKIP_RETURN_CODE 77 ENVIRONMENT_MODIFICATION PYTHONDONTWRITEBYTECODE=set:1)
  set(${names} ${added} PARENT_SCOPE)
endfunction()
