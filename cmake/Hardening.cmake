# What the compiler and the linker can do against data that means harm: what reaches this project comes from cameras,
# drivers and files of strangers. tests/integration/packaging/hardening_test.py looks for it in everything that is shipped.
#
# Not in instrumented builds: sanitizers find more, and fortified functions would keep some of it from them.
include_guard()
if(NUVEQ_INSTRUMENTATION OR MSVC)
  return()
endif()
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)

if(MINGW)
  # ld's defaults since binutils 2.36. Set all the same: they are promised to integrators. Neither the DLLs nor the
  # programs need more for ASLR; their relocations are kept.
  add_link_options(LINKER:--dynamicbase,--nxcompat,--high-entropy-va)

  # GCC's run-time part, libssp, is another DLL to ship; linked statically it asks the system for random numbers while
  # DLLs are being loaded, when no further ones may be. So ours is part of every DLL and program.
  #
  # Its fortified functions are left out: without libssp there are none here, and the compiler can tell no length in
  # any call of this project's that they would check. What other systems have builds from the same sources.
  add_library(stack_protector STATIC ${CMAKE_CURRENT_LIST_DIR}/../platform/windows/StackProtector.cpp)
  target_compile_options(stack_protector PRIVATE -fno-stack-protector)
  add_compile_options(-fstack-protector-strong)
  link_libraries(stack_protector)
  return()
endif()

add_compile_options(-fstack-protector-strong)
foreach(option -fstack-clash-protection -fcf-protection=full)
  # Not every processor has them.
  string(MAKE_C_IDENTIFIER "NUVEQ_HAS${option}" has)
  check_cxx_compiler_flag(${option} ${has})
  if(${has})
    add_compile_options(${option})
  endif()
endforeach()

# Checked functions need optimisation, and their third level a compiler and a C library that know it.
set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
check_cxx_source_compiles("
    #include <cstring>
    #if __USE_FORTIFY_LEVEL < 3
    #error lower
    #endif
    int main() {}" NUVEQ_HAS_FORTIFY_3)
unset(CMAKE_REQUIRED_FLAGS)
set(level 2)
if(NUVEQ_HAS_FORTIFY_3)
  set(level 3)
endif()
set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
add_compile_options("$<${optimised}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=${level}>")

add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
# Programs without a fixed address: compiled so by CMAKE_POSITION_INDEPENDENT_CODE, and linked so by this.
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)
