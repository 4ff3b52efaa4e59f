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

# Programs and the shared libraries that they load sit in one folder, on every system.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_BUILD_RPATH $ORIGIN)

set(NUVEQ_INSTRUMENTATION "" CACHE STRING "Compiler and linker options of a sanitizer or of coverage")
add_compile_options(${NUVEQ_INSTRUMENTATION})
add_link_options(${NUVEQ_INSTRUMENTATION})

set(NUVEQ_WARNINGS
    -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wformat=2 -Wundef
    -Wnull-dereference -Wdouble-promotion)
add_compile_options(${NUVEQ_WARNINGS} $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # A library with symbols of this kind can never be unloaded.
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-fno-gnu-unique>)
endif()

# nuveq_export_only(TARGET MAP): the shared library shows what the version script names, and defines all that it uses.
function(nuveq_export_only target map)
  target_link_options(${target} PRIVATE LINKER:--version-script=${map})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${map})
  # The sanitizers' functions come with the program.
  if(NOT NUVEQ_INSTRUMENTATION)
    target_link_options(${target} PRIVATE LINKER:-z,defs)
  endif()
endfunction()
