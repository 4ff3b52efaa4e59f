# Adds one test for each test method in Python unittest scripts, named PREFIX.CLASS.METHOD.
#
#   nuveq_add_python_tests(NAMES PREFIX prefix SCRIPTS script... [WITHOUT class...])
#
# The scripts are relative to the current folder. NAMES is set to the names of the added tests. Classes after WITHOUT
# are omitted. Requires Python3_EXECUTABLE.
function(nuveq_add_python_tests names)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" PREFIX "SCRIPTS;WITHOUT")
  set(added "")
  foreach(script IN LISTS arg_SCRIPTS)
    set(script ${CMAKE_CURRENT_SOURCE_DIR}/${script})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${script})
    file(STRINGS ${script} declarations REGEX "^(class [A-Za-z]+\\(|    def test_)")
    foreach(declaration IN LISTS declarations)
      if(declaration MATCHES "^class ([A-Za-z]+)")
        set(class ${CMAKE_MATCH_1})
      elseif(declaration MATCHES "def (test_[a-z0-9_]+)" AND NOT class IN_LIST arg_WITHOUT)
        set(method ${CMAKE_MATCH_1})
        list(APPEND added ${arg_PREFIX}.${class}.${method})
        add_test(NAME ${arg_PREFIX}.${class}.${method}
                 COMMAND ${Python3_EXECUTABLE} -B ${script} ${class}.${method})
      endif()
    endforeach()
  endforeach()
  set(${names} ${added} PARENT_SCOPE)
endfunction()
