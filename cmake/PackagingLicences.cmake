# Licences of the third-party code in the packages, and the index that names each component.
#
# A missing licence text is an error only when a package is created, not for builds.
include_guard()
include(ReadHeaderVersion)

# nuveq_licence(NAME CANDIDATE...): installs the first candidate that exists as NAME.txt.
function(nuveq_licence name)
  foreach(candidate IN LISTS ARGN)
    if(EXISTS ${candidate})
      install(FILES ${candidate} DESTINATION ${NUVEQ_INSTALL_LICENCE_DIR} RENAME ${name}.txt)
      return()
    endif()
  endforeach()
  message(STATUS "Licence text of ${name} not found: building works, installing fails")
  string(CONCAT code
      "message(FATAL_ERROR \"Licence text of ${name} not found; searched: ${ARGN}. scripts/bootstrap-deps.sh installs "
      "the texts of the libraries that it builds: remove the dependency's prefix and run the script again\")")
  install(CODE "${code}")
endfunction()

# nuveq_dependency_licence(NAME INCLUDE_FOLDER [CANDIDATE...]): installs the licence of a library from the prefix of its
# headers, where scripts/bootstrap-deps.sh or vcpkg has installed it, or the first candidate that exists.
function(nuveq_dependency_licence name include)
  get_filename_component(prefix ${include} DIRECTORY)
  nuveq_licence(${name} ${prefix}/share/licences/${name}.txt ${prefix}/share/${name}/copyright ${ARGN})
endfunction()

# nuveq_third_party(COMPONENT VERSION LICENCE FILES TEXTS): adds a row to the index.
function(nuveq_third_party component version licence files texts)
  set_property(GLOBAL APPEND_STRING PROPERTY NUVEQ_THIRD_PARTY
               "| ${component} | ${version} | ${licence} | ${files} | ${texts} |\n")
endfunction()

get_target_property(include log4cplus::log4cplus INTERFACE_INCLUDE_DIRECTORIES)
nuveq_dependency_licence(log4cplus ${include})
if(WIN32)
  set(file bin/$<TARGET_FILE_NAME:log4cplus::log4cplus>)
else()
  set(file ${NUVEQ_INSTALL_PRIVATE_DIR}/$<TARGET_SONAME_FILE_NAME:log4cplus::log4cplus>)
endif()
nuveq_third_party(log4cplus "${log4cplus_VERSION}" "BSD-2-Clause or Apache-2.0, by file" ${file} log4cplus.txt)

if(TARGET nuveqcam)
  # A header with the implementation. Debian installs its licence in another place.
  nuveq_dependency_licence(stb ${STB_INCLUDE_DIR} /usr/share/doc/libstb-dev/copyright)
  file(STRINGS ${STB_INCLUDE_DIR}/stb_image_write.h line LIMIT_COUNT 1)
  string(REGEX MATCH "[0-9.]+" version "${line}")
  nuveq_third_party(stb_image_write "${version}" "MIT or public domain" "in bin/$<TARGET_FILE_NAME:nuveqcam>" stb.txt)
endif()

set(NUVEQ_THIRD_PARTY_NOTES "")
if(WIN32)
  # Static libraries.
  set(files "in bin/MultiMediaEncoder.dll")
  if(TARGET nuveqcam)
    string(APPEND files ", in bin/nuveqcam.exe")
  endif()
  nuveq_dependency_licence(openh264 ${OpenH264_INCLUDE_DIR})
  nuveq_third_party(OpenH264 ${OpenH264_VERSION} BSD-2-Clause "${files}" openh264.txt)
  nuveq_dependency_licence(libyuv ${LibYUV_INCLUDE_DIR})
  nuveq_third_party(libyuv ${LibYUV_VERSION} BSD-3-Clause "${files}" libyuv.txt)
  file(READ ${PROJECT_SOURCE_DIR}/packaging/openh264-note.md note)
  string(APPEND NUVEQ_THIRD_PARTY_NOTES "${note}")
  # DLLs that only the tool needs.
  get_target_property(include FFmpeg::avformat INTERFACE_INCLUDE_DIRECTORIES)
  nuveq_dependency_licence(ffmpeg ${include})
  list(TRANSFORM NUVEQ_TOOL_DLLS REPLACE ".*/" "bin/" OUTPUT_VARIABLE files)
  list(JOIN files ", " files)
  nuveq_third_party(FFmpeg "${FFmpeg_VERSION}" LGPL-2.1-or-later "${files}" ffmpeg.txt)
  file(READ ${PROJECT_SOURCE_DIR}/packaging/ffmpeg-note.md note)
  string(APPEND NUVEQ_THIRD_PARTY_NOTES "\n${note}")
endif()
if(MINGW)
  nuveq_licence(gcc-runtime /usr/share/doc/gcc-mingw-w64-base/copyright)
  nuveq_licence(GPL-3 /usr/share/common-licenses/GPL-3)
  nuveq_licence(mingw-w64 /usr/share/doc/mingw-w64-x86-64-dev/copyright)
  # The compiler reports only its major version.
  set(version ${CMAKE_CXX_COMPILER_VERSION})
  find_program(NUVEQ_DPKG_QUERY dpkg-query)
  mark_as_advanced(NUVEQ_DPKG_QUERY)
  if(NUVEQ_DPKG_QUERY)
    execute_process(COMMAND ${NUVEQ_DPKG_QUERY} -W -f "\${Version}" gcc-mingw-w64-base
                    OUTPUT_VARIABLE debian_version RESULT_VARIABLE result ERROR_QUIET)
    if(result EQUAL 0)
      set(version ${debian_version})
    endif()
  endif()
  nuveq_third_party("GCC runtime libraries" ${version}
                    "GPL-3.0 with GCC Runtime Library Exception 3.1"
                    "bin/libstdc++-6.dll, bin/libgcc_s_seh-1.dll" "gcc-runtime.txt, GPL-3.txt")
  find_file(NUVEQ_MINGW_VERSION_HEADER _mingw_mac.h
            PATHS /usr/share/mingw-w64/include /usr/x86_64-w64-mingw32/include REQUIRED)
  mark_as_advanced(NUVEQ_MINGW_VERSION_HEADER)
  nuveq_read_header_version(version ${NUVEQ_MINGW_VERSION_HEADER}
                            __MINGW64_VERSION_MAJOR __MINGW64_VERSION_MINOR __MINGW64_VERSION_BUGFIX)
  nuveq_third_party("winpthreads, of mingw-w64" ${version} "MIT and BSD-3-Clause" bin/libwinpthread-1.dll
                    mingw-w64.txt)
  nuveq_third_party("mingw-w64 C runtime start-up" ${version} "public domain and ZPL-2.1"
                    "in every binary of this project" mingw-w64.txt)
  file(READ ${PROJECT_SOURCE_DIR}/packaging/gcc-runtime-note.md note)
  string(APPEND NUVEQ_THIRD_PARTY_NOTES "\n${note}")
endif()
if(NOT WIN32)
  file(READ ${PROJECT_SOURCE_DIR}/packaging/linux-libraries-note.md NUVEQ_THIRD_PARTY_NOTES)
endif()

get_property(NUVEQ_THIRD_PARTY GLOBAL PROPERTY NUVEQ_THIRD_PARTY)
configure_file(${PROJECT_SOURCE_DIR}/packaging/THIRD-PARTY.md.in ${CMAKE_BINARY_DIR}/packaging/THIRD-PARTY.md.in @ONLY)
file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/packaging/THIRD-PARTY.md
     INPUT ${CMAKE_BINARY_DIR}/packaging/THIRD-PARTY.md.in)
install(FILES ${CMAKE_BINARY_DIR}/packaging/THIRD-PARTY.md DESTINATION ${NUVEQ_INSTALL_LICENCE_DIR})
