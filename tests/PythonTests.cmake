# One test each for the methods of Python's unittest scripts, which are read for them: PREFIX.CLASS.METHOD.
#
#   nuveq_add_python_tests(NAMES PREFIX prefix SCRIPTS script... [WITHOUT class...])
#
# The scripts are those of the folder; NAMES is set to the tests' names, for their properties. Classes after WITHOUT
# have none. Python3_EXECUTABLE has to be known.
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
