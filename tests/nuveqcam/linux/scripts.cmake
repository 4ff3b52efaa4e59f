# The program as a person runs it, over the simulated PC.

# Whether a file system can be mounted for one program alone: not in every container.
set(probe ${CMAKE_CURRENT_BINARY_DIR}/mount)
file(MAKE_DIRECTORY ${probe})
set(NUVEQ_CAN_MOUNT FALSE)
foreach(way "-m --propagation unchanged" "-rm")
  separate_arguments(way)
  execute_process(COMMAND unshare ${way} sh -c "mount -t tmpfs none '${probe}' && umount '${probe}'"
                  RESULT_VARIABLE result OUTPUT_QUIET ERROR_QUIET)
  if(result EQUAL 0)
    set(NUVEQ_CAN_MOUNT TRUE)
  endif()
endforeach()
if(NOT NUVEQ_CAN_MOUNT)
  message(STATUS "nuveqcam: no file system can be mounted here; /dev/full and file size limits stand for full disks")
endif()

# One test each for the methods of the scripts, which are read for them.
foreach(script nuveqcam_test.py nuveqcam_record_test.py)
  set(script ${CMAKE_CURRENT_SOURCE_DIR}/${script})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${script})
  file(STRINGS ${script} declarations REGEX "^(class [A-Za-z]+\\(Tool\\)|    def test_)")
  foreach(declaration IN LISTS declarations)
    if(declaration MATCHES "^class ([A-Za-z]+)")
      set(class ${CMAKE_MATCH_1})
    elseif(class STREQUAL FullDisk AND NOT NUVEQ_CAN_MOUNT)
      continue()
    elseif(declaration MATCHES "def (test_[a-z0-9_]+)")
      set(name nuveqcam.${class}.${CMAKE_MATCH_1})
      add_test(NAME ${name} COMMAND ${Python3_EXECUTABLE} -B ${script} ${class}.${CMAKE_MATCH_1})
      set_tests_properties(${name} PROPERTIES
          TIMEOUT 300
          LABELS pipeline
          ENVIRONMENT "NUVEQCAM=$<TARGET_FILE:nuveqcam>;NUVEQCAM_VERSION=${PROJECT_VERSION};NUVEQCAM_MAN=${PROJECT_SOURCE_DIR}/tools/nuveqcam/nuveqcam.1")
    endif()
  endforeach()
endforeach()
