# Settings of all targets of the project.
include_guard()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)

set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# Programs and shared libraries go to one folder on every system.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_BUILD_RPATH $ORIGIN)

set(NUVEQ_INSTRUMENTATION "" CACHE STRING "Compiler and linker options of a sanitizer or for coverage")

# The options that nuveq_add_library and nuveq_add_executable add to a target. Warnings are errors in the presets.
set(NUVEQ_COMPILE_OPTIONS ${NUVEQ_INSTRUMENTATION})
set(NUVEQ_LINK_OPTIONS ${NUVEQ_INSTRUMENTATION})
set(NUVEQ_LINK_LIBRARIES)

if(MSVC)
  # Not part of the automatic builds.
  list(APPEND NUVEQ_COMPILE_OPTIONS /W4 /permissive- /utf-8 /Zc:__cplusplus)
else()
  list(APPEND NUVEQ_COMPILE_OPTIONS
       -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wcast-qual -Wformat=2 -Wundef -Wnull-dereference
       -Wdouble-promotion $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>)
  if(NOT CMAKE_UNITY_BUILD)
    # In a unity build a local name may hide a name of another source.
    list(APPEND NUVEQ_COMPILE_OPTIONS -Wshadow)
  endif()
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND NOT WIN32)
  # Libraries with GNU unique symbols cannot be unloaded.
  list(APPEND NUVEQ_COMPILE_OPTIONS $<$<COMPILE_LANGUAGE:CXX>:-fno-gnu-unique>)
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # With the default of 128 MiB, the compiler's garbage collection takes a tenth of its time. In KiB.
  list(APPEND NUVEQ_COMPILE_OPTIONS "SHELL:--param ggc-min-heapsize=400000")
endif()

# nuveq_add_library(NAME TYPE SOURCE...): add_library with the options above.
function(nuveq_add_library target)
  add_library(${target} ${ARGN})
  nuveq_set_build_options(${target})
endfunction()

# nuveq_add_executable(NAME SOURCE...): add_executable with the options above.
function(nuveq_add_executable target)
  add_executable(${target} ${ARGN})
  nuveq_set_build_options(${target})
endfunction()

function(nuveq_set_build_options target)
  target_compile_options(${target} PRIVATE ${NUVEQ_COMPILE_OPTIONS})
  get_target_property(type ${target} TYPE)
  if(type MATCHES "EXECUTABLE|SHARED_LIBRARY|MODULE_LIBRARY")
    target_link_options(${target} PRIVATE ${NUVEQ_LINK_OPTIONS})
    target_link_libraries(${target} PRIVATE ${NUVEQ_LINK_LIBRARIES})
  endif()
endfunction()

include(Hardening)

# nuveq_export_only(TARGET MAP): makes the shared library export only the symbols of the version script, and makes
# undefined symbols a link error. No effect on Windows, where the sources mark exports and undefined symbols are
# always errors.
function(nuveq_export_only target map)
  if(WIN32)
    return()
  endif()
  target_link_options(${target} PRIVATE LINKER:--version-script=${map})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${map})
  # The program provides the sanitizers' runtime.
  if(NOT NUVEQ_INSTRUMENTATION)
    target_link_options(${target} PRIVATE LINKER:-z,defs)
  endif()
endfunction()

# nuveq_link_cli11(TARGET): links CLI11 to the code of a target, but not to its users.
function(nuveq_link_cli11 target)
  find_package(CLI11 CONFIG REQUIRED)
  target_link_libraries(${target} PRIVATE CLI11::CLI11)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # False positives in code of CLI11 that gcc inlines.
    target_compile_options(${target} PRIVATE -Wno-null-dereference)
  endif()
endfunction()

# nuveq_describe(TARGET TEXT): adds the version resource of the file on Windows.
function(nuveq_describe target text)
  if(NOT WIN32)
    return()
  endif()
  set(NUVEQ_FILE_DESCRIPTION ${text})
  set(NUVEQ_FILE_NAME $<TARGET_FILE_NAME:${target}>)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL EXECUTABLE)
    set(NUVEQ_FILE_TYPE VFT_APP)
  else()
    set(NUVEQ_FILE_TYPE VFT_DLL)
  endif()
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${script}.in @ONLY)
  file(GENERATE OUTPUT ${script} INPUT ${script}.in)
  target_sources(${target} PRIVATE ${script})
endfunction()
