# The program as a person runs it, over the camera fixtures.
add_executable(use_pc ${CMAKE_CURRENT_LIST_DIR}/use_pc.cpp)
target_link_libraries(use_pc PRIVATE camera_fixtures)
add_executable(code_page ${CMAKE_CURRENT_LIST_DIR}/code_page.cpp)
# It is started by a shell, without the path to the runtime.
target_link_options(code_page PRIVATE -static)
set_target_properties(use_pc code_page PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fixtures)

# One test each for the methods of the scripts, which are read for them.
foreach(script nuveqcam_windows_test.py nuveqcam_windows_record_test.py nuveqcam_windows_console_test.py)
  set(script ${CMAKE_CURRENT_SOURCE_DIR}/${script})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${script})
  file(STRINGS ${script} declarations REGEX "^(class [A-Za-z]+\\(WindowsTool\\)|    def test_)")
  foreach(declaration IN LISTS declarations)
    if(declaration MATCHES "^class ([A-Za-z]+)")
      set(class ${CMAKE_MATCH_1})
    elseif(declaration MATCHES "def (test_[a-z0-9_]+)")
      set(name nuveqcam.${class}.${CMAKE_MATCH_1})
      add_test(NAME ${name} COMMAND ${Python3_EXECUTABLE} -B ${script} ${class}.${CMAKE_MATCH_1})
      set_tests_properties(${name} PROPERTIES
          TIMEOUT 120
          LABELS windows
          RESOURCE_LOCK wine_registry
          FIXTURES_REQUIRED wine_camera
          ENVIRONMENT "NUVEQCAM=$<TARGET_FILE:nuveqcam>;NUVEQCAM_VERSION=${PROJECT_VERSION};NUVEQCAM_RUNNER=${CMAKE_CROSSCOMPILING_EMULATOR};USE_PC=$<TARGET_FILE:use_pc>")
    endif()
  endforeach()
endforeach()
