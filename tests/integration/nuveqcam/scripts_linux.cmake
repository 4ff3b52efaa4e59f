# The program with the simulated PC.

# Whether a file system can be mounted in a private mount namespace; some containers forbid it.
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
  message(STATUS "nuveqcam: cannot mount a file system; full disks are tested with /dev/full and file size limits only")
endif()

set(without "")
if(NOT NUVEQ_CAN_MOUNT)
  set(without FullDisk)
endif()
add_executable(interrupt_at_call ${CMAKE_CURRENT_LIST_DIR}/interrupt_at_call.cpp)
set_target_properties(interrupt_at_call PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fixtures)

set(stride 1)
if(NUVEQ_INSTRUMENTATION)
  set(stride 4)
endif()

nuveq_add_python_tests(tests PREFIX nuveqcam
    SCRIPTS nuveqcam_test.py nuveqcam_record_test.py nuveqcam_interrupt_test.py WITHOUT ${without})
set_tests_properties(${tests} PROPERTIES
    TIMEOUT 300
    LABELS pipeline
    ENVIRONMENT "NUVEQCAM=$<TARGET_FILE:nuveqcam>;INTERRUPT_AT_CALL=$<TARGET_FILE:interrupt_at_call>;INTERRUPT_STRIDE=${stride};NUVEQCAM_VERSION=${PROJECT_VERSION};NUVEQCAM_MAN=${PROJECT_SOURCE_DIR}/tools/nuveqcam/nuveqcam.1")
# These run the program several hundred times, two at a time per processor.
set(interrupted ${tests})
list(FILTER interrupted INCLUDE REGEX "InterruptAtCall")
set_tests_properties(${interrupted} PROPERTIES TIMEOUT 900 PROCESSORS 2)
