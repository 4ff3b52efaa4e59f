# The DLLs that the product needs beside it: the compiler's runtime, shared because C++ objects cross between
# the DLLs, and log4cplus. Copied into the folder of the programs, without debug information.
include_guard()

set(NUVEQ_RUNTIME_DLLS)
if(MINGW)
  foreach(name libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name}
                    OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT IS_ABSOLUTE ${file})
      # Belongs to the C library, whose folder the compiler searches for libraries only.
      find_file(NUVEQ_${name} ${name} PATHS /usr/x86_64-w64-mingw32/lib REQUIRED)
      set(file ${NUVEQ_${name}})
    endif()
    list(APPEND NUVEQ_RUNTIME_DLLS ${file})
  endforeach()
endif()
get_target_property(log4cplus_dll log4cplus::log4cplus IMPORTED_LOCATION_RELEASE)
list(APPEND NUVEQ_RUNTIME_DLLS ${log4cplus_dll})

set(copies)
foreach(file IN LISTS NUVEQ_RUNTIME_DLLS)
  get_filename_component(name ${file} NAME)
  set(copy ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name})
  if(MINGW)
    add_custom_command(OUTPUT ${copy} COMMAND ${CMAKE_STRIP} -S -o ${copy} ${file} DEPENDS ${file} VERBATIM)
  else()
    add_custom_command(OUTPUT ${copy} COMMAND ${CMAKE_COMMAND} -E copy ${file} ${copy} DEPENDS ${file} VERBATIM)
  endif()
  list(APPEND copies ${copy})
endforeach()
add_custom_target(windows_runtime ALL DEPENDS ${copies})
