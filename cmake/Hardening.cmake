# Exploit mitigations of the compiler and the linker: input comes from cameras, drivers and files that are not trusted.
# tests/integration/packaging/hardening_test.py checks all shipped binaries.
#
# Disabled in instrumented builds: sanitizers detect more, and fortified functions would hide errors from them.
include_guard()
if(NUVEQ_INSTRUMENTATION OR MSVC)
  return()
endif()
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)

if(MINGW)
  # The defaults of ld since binutils 2.36, set explicitly because the documentation guarantees them.
  list(APPEND NUVEQ_LINK_OPTIONS LINKER:--dynamicbase,--nxcompat,--high-entropy-va)

  # StackProtector.cpp replaces libssp, GCC's runtime for the stack protector. As a DLL, libssp would have to be shipped;
  # as a static library, it loads the system's random number provider from a constructor, where no DLL may be loaded.
  #
  # Fortified functions are not available without libssp. No call in this project would use one: the compiler knows none
  # of the buffer sizes.
  list(APPEND NUVEQ_COMPILE_OPTIONS -fstack-protector-strong)
  nuveq_add_library(stack_protector STATIC ${CMAKE_CURRENT_LIST_DIR}/../platform/windows/StackProtector.cpp)
  target_compile_options(stack_protector PRIVATE -fno-stack-protector)
  list(APPEND NUVEQ_LINK_LIBRARIES stack_protector)
  return()
endif()

list(APPEND NUVEQ_COMPILE_OPTIONS -fstack-protector-strong)
foreach(option -fstack-clash-protection -fcf-protection=full)
  # Not available on every architecture.
  string(MAKE_C_IDENTIFIER "NUVEQ_HAS${option}" has)
  check_cxx_compiler_flag(${option} ${has})
  if(${has})
    list(APPEND NUVEQ_COMPILE_OPTIONS ${option})
  endif()
endforeach()

# Fortified functions require optimisation; level 3 requires support by the compiler and the C library.
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
list(APPEND NUVEQ_COMPILE_OPTIONS
     $<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=${level}>)

list(APPEND NUVEQ_LINK_OPTIONS LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
# Links programs as position-independent; CMAKE_POSITION_INDEPENDENT_CODE compiles them as such.
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)
