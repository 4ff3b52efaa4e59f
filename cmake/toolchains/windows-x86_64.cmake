# Windows x86-64 with mingw-w64. std::thread requires the POSIX thread model. CMake runs programs under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_ASM_NASM_COMPILER nasm)

get_filename_component(wine ${CMAKE_CURRENT_LIST_DIR}/../../scripts/wine.sh ABSOLUTE)
set(CMAKE_CROSSCOMPILING_EMULATOR ${wine})

# Search CMAKE_PREFIX_PATH for cross-built dependencies as well as the toolchain's root.
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
