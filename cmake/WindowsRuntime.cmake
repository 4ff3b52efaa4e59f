# The target windows_runtime copies the DLLs that the product needs into its folder, without debug information.
#
# NUVEQ_RUNTIME_DLLS  those that the library needs: log4cplus and the compiler's runtime. The runtime is shared because
#                     C++ objects cross DLL boundaries.
# NUVEQ_TOOL_DLLS     those that only nuveqcam needs: FFmpeg
include_guard()

set(NUVEQ_RUNTIME_DLLS)
if(MINGW)
  foreach(name libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name}
                    OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT IS_ABSOLUTE ${file})
      # Part of the C library, whose folder -print-file-name does not search.
      find_file(NUVEQ_${name} ${name} PATHS /usr/x86_64-w64-mingw32/lib REQUIRED)
      set(file ${NUVEQ_${name}})
    endif()
    list(APPEND NUVEQ_RUNTIME_DLLS ${file})
  endforeach()
endif()
get_target_property(log4cplus_dll log4cplus::log4cplus IMPORTED_LOCATION_RELEASE)
list(APPEND NUVEQ_RUNTIME_DLLS ${log4cplus_dll})

set(NUVEQ_TOOL_DLLS)
if(NOT NUVEQ_LIBRARY_ONLY)
  foreach(library avformat avcodec avutil)
    get_target_property(file FFmpeg::${library} IMPORTED_LOCATION)
    list(APPEND NUVEQ_TOOL_DLLS ${file})
  endforeach()
endif()

set(copies)
foreach(file IN LISTS NUVEQ_RUNTIME_DLLS NUVEQ_TOOL_DLLS)
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
