# Settings that every target of the project shares.
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
add_compile_options(${NUVEQ_INSTRUMENTATION})
add_link_options(${NUVEQ_INSTRUMENTATION})

if(MSVC)
  # Not part of the automatic builds.
  add_compile_options(/W4 /WX /permissive- /utf-8 /Zc:__cplusplus)
else()
  set(NUVEQ_WARNINGS
      -Wall -Wextra -Wpedantic -Werror -Wconversion -Wsign-conversion -Wcast-qual -Wformat=2 -Wundef
      -Wnull-dereference -Wdouble-promotion)
  if(NOT CMAKE_UNITY_BUILD)
    # In a unity build a local name may hide a name of another source.
    list(APPEND NUVEQ_WARNINGS -Wshadow)
  endif()
  add_compile_options(${NUVEQ_WARNINGS} $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND NOT WIN32)
  # Libraries with GNU unique symbols cannot be unloaded.
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-fno-gnu-unique>)
endif()

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
