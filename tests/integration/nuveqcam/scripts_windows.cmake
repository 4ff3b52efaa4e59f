# The program under Wine with the camera fixtures.
add_executable(use_pc ${CMAKE_CURRENT_LIST_DIR}/use_pc.cpp)
target_link_libraries(use_pc PRIVATE camera_fixtures)
add_executable(code_page ${CMAKE_CURRENT_LIST_DIR}/code_page.cpp)
# Static, because a shell starts it without the path to the runtime DLLs.
target_link_options(code_page PRIVATE -static)
set_target_properties(use_pc code_page PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fixtures)

nuveq_add_python_tests(tests PREFIX nuveqcam
    SCRIPTS nuveqcam_windows_test.py nuveqcam_windows_record_test.py nuveqcam_windows_console_test.py)
set_tests_properties(${tests} PROPERTIES
    TIMEOUT 300
    LABELS windows
    RESOURCE_LOCK wine_registry
    FIXTURES_REQUIRED wine_camera
    ENVIRONMENT "NUVEQCAM=$<TARGET_FILE:nuveqcam>;NUVEQCAM_VERSION=${PROJECT_VERSION};NUVEQCAM_RUNNER=${CMAKE_CROSSCOMPILING_EMULATOR};USE_PC=$<TARGET_FILE:use_pc>")
