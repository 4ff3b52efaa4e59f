# The third-party code in the packages: the licences, the index that names each component, and the bill of materials.
#
# A missing licence text is an error only when a package is created, not for builds.
include_guard()
include(ReadHeaderVersion)

# nuveq_licence(NAME CANDIDATE...): installs the first candidate that exists as NAME.txt.
function(nuveq_licence name)
  foreach(candidate IN LISTS ARGN)
    if(EXISTS ${candidate})
      install(FILES ${candidate} DESTINATION ${NUVEQ_INSTALL_LICENCE_DIR} RENAME ${name}.txt COMPONENT archive)
      set_property(GLOBAL PROPERTY NUVEQ_LICENCE_${name} ${candidate})
      return()
    endif()
  endforeach()
  message(STATUS "Licence text of ${name} not found: building works, installing fails")
  string(CONCAT code
      "message(FATAL_ERROR \"Licence text of ${name} not found; searched: ${ARGN}. scripts/bootstrap-deps.sh installs "
      "the texts of the libraries that it builds: remove the dependency's prefix and run the script again\")")
  install(CODE "${code}" ALL_COMPONENTS)
endfunction()

# nuveq_dependency_licence(NAME INCLUDE_FOLDER [CANDIDATE...]): installs the licence of a library from the prefix of its
# headers, where scripts/bootstrap-deps.sh or vcpkg has installed it, or the first candidate that exists.
function(nuveq_dependency_licence name include)
  get_filename_component(prefix ${include} DIRECTORY)
  nuveq_licence(${name} ${prefix}/share/licences/${name}.txt ${prefix}/share/${name}/copyright ${ARGN})
endfunction()

# nuveq_third_party(NAME name VERSION version LICENCE expression [FILES file...] [IN file...] LICENCES name...)
#
# Adds a component to the index and to the bills of materials of the packages that contain it. LICENCE is an SPDX
# expression. FILES are the files of the component, IN binaries of the project that contain its code; both are relative
# to the install prefix. LICENCES are names of nuveq_licence.
function(nuveq_third_party)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "NAME;VERSION;LICENCE" "FILES;IN;LICENCES")
  set(texts)
  foreach(name IN LISTS arg_LICENCES)
    get_property(text GLOBAL PROPERTY NUVEQ_LICENCE_${name})
    list(APPEND texts ${text})
  endforeach()
  set_property(GLOBAL APPEND_STRING PROPERTY NUVEQ_THIRD_PARTY
               "nuveq_component([[${arg_NAME}]] [[${arg_VERSION}]] [[${arg_LICENCE}]] [[${arg_FILES}]] [[${arg_IN}]] [[${texts}]])\n")
  set(places ${arg_FILES} ${arg_IN})
  list(TRANSFORM arg_IN PREPEND "in ")
  list(JOIN arg_FILES ", " files)
  list(JOIN arg_IN ", " in)
  if(files AND in)
    string(APPEND files ", ")
  endif()
  list(TRANSFORM arg_LICENCES APPEND .txt)
  list(JOIN arg_LICENCES ", " licences)
  set_property(GLOBAL APPEND_STRING PROPERTY NUVEQ_THIRD_PARTY_ROWS
               "| ${arg_NAME} | ${arg_VERSION} | ${arg_LICENCE} | ${files}${in} | ${licences} |\n")
endfunction()

# nuveq_package_version(VARIABLE PACKAGE): the version of an installed Debian package; unchanged if it is not known.
function(nuveq_package_version variable package)
  find_program(NUVEQ_DPKG_QUERY dpkg-query)
  mark_as_advanced(NUVEQ_DPKG_QUERY)
  if(NUVEQ_DPKG_QUERY)
    execute_process(COMMAND ${NUVEQ_DPKG_QUERY} -W -f "\${Version}" ${package}
                    OUTPUT_VARIABLE version RESULT_VARIABLE result ERROR_QUIET)
    if(result EQUAL 0)
      set(${variable} ${version} PARENT_SCOPE)
    endif()
  endif()
endfunction()

# nuveq_header_library(NAME PACKAGE LICENCE BINARY...): a library of headers that a Debian package installs, with the
# binaries that contain its code.
function(nuveq_header_library name package licence)
  nuveq_licence(${name} /usr/share/doc/${package}/copyright)
  set(version unknown)
  nuveq_package_version(version ${package})
  nuveq_third_party(NAME ${name} VERSION ${version} LICENCE ${licence} IN ${ARGN} LICENCES ${name})
endfunction()

get_target_property(include log4cplus::log4cplus INTERFACE_INCLUDE_DIRECTORIES)
nuveq_dependency_licence(log4cplus ${include})
if(WIN32)
  set(file bin/liblog4cplus.dll)
else()
  get_target_property(configuration log4cplus::log4cplus IMPORTED_CONFIGURATIONS)
  list(GET configuration 0 configuration)
  get_target_property(soname log4cplus::log4cplus IMPORTED_SONAME_${configuration})
  set(NUVEQ_LOG4CPLUS_FILE ${soname})
  set(file ${NUVEQ_INSTALL_PRIVATE_DIR}/${soname})
endif()
nuveq_third_party(NAME log4cplus VERSION "${log4cplus_VERSION}" LICENCE "BSD-2-Clause AND Apache-2.0"
                  FILES ${file} LICENCES log4cplus)

if(TARGET nuveqcam)
  # A header with the implementation. Debian installs its licence in another place.
  nuveq_dependency_licence(stb ${STB_INCLUDE_DIR} /usr/share/doc/libstb-dev/copyright)
  file(STRINGS ${STB_INCLUDE_DIR}/stb_image_write.h line LIMIT_COUNT 1)
  string(REGEX MATCH "[0-9.]+" version "${line}")
  nuveq_third_party(NAME stb_image_write VERSION "${version}" LICENCE "MIT OR Unlicense"
                    IN bin/nuveqcam${CMAKE_EXECUTABLE_SUFFIX} LICENCES stb)
endif()

if(WIN32)
  set(library bin/libnuveqcamerahandler.dll)
else()
  set(library ${CMAKE_INSTALL_LIBDIR}/libnuveqcamerahandler.so.${PROJECT_VERSION})
endif()
set(tool)
if(TARGET nuveqcam)
  set(tool bin/nuveqcam${CMAKE_EXECUTABLE_SUFFIX})
  nuveq_header_library(cli11 libcli11-dev BSD-3-Clause ${tool})
  nuveq_header_library(nlohmann-json nlohmann-json3-dev MIT ${tool})
endif()
nuveq_header_library(utfcpp libutfcpp-dev BSL-1.0 ${library} ${tool})
if(tool AND NUVEQ_HAS_VIEW)
  find_package(BoostBeast REQUIRED)
  # The name of Debian's package contains the version. Its copyright file has two megabytes; the headers that are used have
  # one licence, whose text is a paragraph of it.
  file(GLOB candidates /usr/share/doc/libboost1.*-dev/copyright)
  set(licence ${CMAKE_BINARY_DIR}/packaging/boost.txt)
  file(REMOVE ${licence})
  set(package)
  if(candidates)
    list(GET candidates -1 copyright)
    get_filename_component(package ${copyright} DIRECTORY)
    get_filename_component(package ${package} NAME)
    file(READ ${copyright} text)
    string(FIND "${text}" "\nLicense: BSL-1.0\n Boost Software License" begin)
    if(NOT begin EQUAL -1)
      string(SUBSTRING "${text}" ${begin} 4000 text)
      string(REGEX REPLACE "^\nLicense: BSL-1.0\n" "" text "${text}")
      string(REGEX REPLACE "\n\n.*" "\n" text "${text}")
      string(REGEX REPLACE "\n [.]" "\n" text "${text}")
      string(REGEX REPLACE "(^|\n) " "\\1" text "${text}")
      file(WRITE ${licence} "${text}")
    endif()
  endif()
  nuveq_licence(boost ${licence})
  set(version ${BoostBeast_VERSION})
  if(package)
    nuveq_package_version(version ${package})
  endif()
  nuveq_third_party(NAME boost VERSION "${version}" LICENCE BSL-1.0 IN ${tool} LICENCES boost)
endif()

set(NUVEQ_THIRD_PARTY_NOTES "")
if(WIN32)
  # Static libraries.
  set(binaries bin/MultiMediaEncoder.dll)
  if(TARGET nuveqcam)
    list(APPEND binaries bin/nuveqcam.exe)
  endif()
  nuveq_dependency_licence(openh264 ${OpenH264_INCLUDE_DIR})
  nuveq_third_party(NAME OpenH264 VERSION ${OpenH264_VERSION} LICENCE BSD-2-Clause IN ${binaries} LICENCES openh264)
  nuveq_dependency_licence(libyuv ${LibYUV_INCLUDE_DIR})
  nuveq_third_party(NAME libyuv VERSION ${LibYUV_VERSION} LICENCE BSD-3-Clause IN ${binaries} LICENCES libyuv)
  file(READ ${PROJECT_SOURCE_DIR}/packaging/openh264-note.md note)
  string(APPEND NUVEQ_THIRD_PARTY_NOTES "${note}")
  # DLLs that only the tool needs.
  get_target_property(include FFmpeg::avformat INTERFACE_INCLUDE_DIRECTORIES)
  nuveq_dependency_licence(ffmpeg ${include})
  list(TRANSFORM NUVEQ_TOOL_DLLS REPLACE ".*/" "bin/" OUTPUT_VARIABLE files)
  nuveq_third_party(NAME FFmpeg VERSION "${FFmpeg_VERSION}" LICENCE LGPL-2.1-or-later FILES ${files} LICENCES ffmpeg)
  file(READ ${PROJECT_SOURCE_DIR}/packaging/ffmpeg-note.md note)
  string(APPEND NUVEQ_THIRD_PARTY_NOTES "\n${note}")
endif()
if(MINGW)
  nuveq_licence(gcc-runtime /usr/share/doc/gcc-mingw-w64-base/copyright)
  nuveq_licence(GPL-3 /usr/share/common-licenses/GPL-3)
  nuveq_licence(mingw-w64 /usr/share/doc/mingw-w64-x86-64-dev/copyright)
  # The compiler reports only its major version.
  set(version ${CMAKE_CXX_COMPILER_VERSION})
  nuveq_package_version(version gcc-mingw-w64-base)
  nuveq_third_party(NAME "GCC runtime libraries" VERSION ${version}
                    LICENCE "GPL-3.0-or-later WITH GCC-exception-3.1"
                    FILES bin/libstdc++-6.dll bin/libgcc_s_seh-1.dll LICENCES gcc-runtime GPL-3)
  find_file(NUVEQ_MINGW_VERSION_HEADER _mingw_mac.h
            PATHS /usr/share/mingw-w64/include /usr/x86_64-w64-mingw32/include REQUIRED)
  mark_as_advanced(NUVEQ_MINGW_VERSION_HEADER)
  nuveq_read_header_version(version ${NUVEQ_MINGW_VERSION_HEADER}
                            __MINGW64_VERSION_MAJOR __MINGW64_VERSION_MINOR __MINGW64_VERSION_BUGFIX)
  nuveq_third_party(NAME "winpthreads, of mingw-w64" VERSION ${version} LICENCE "MIT AND BSD-3-Clause"
                    FILES bin/libwinpthread-1.dll LICENCES mingw-w64)
  nuveq_third_party(NAME "mingw-w64 C runtime start-up" VERSION ${version}
                    LICENCE "ZPL-2.1 AND LicenseRef-Public-Domain"
                    IN ${binaries} bin/libnuveqcamerahandler.dll LICENCES mingw-w64)
  file(READ ${PROJECT_SOURCE_DIR}/packaging/gcc-runtime-note.md note)
  string(REGEX MATCH "^[0-9]+" NUVEQ_GCC ${CMAKE_CXX_COMPILER_VERSION})
  string(CONFIGURE "${note}" note @ONLY)
  string(APPEND NUVEQ_THIRD_PARTY_NOTES "\n${note}")
endif()
if(NOT WIN32)
  file(READ ${PROJECT_SOURCE_DIR}/packaging/linux-libraries-note.md NUVEQ_THIRD_PARTY_NOTES)
endif()

get_property(NUVEQ_THIRD_PARTY_ROWS GLOBAL PROPERTY NUVEQ_THIRD_PARTY_ROWS)
configure_file(${PROJECT_SOURCE_DIR}/packaging/THIRD-PARTY.md.in ${CMAKE_BINARY_DIR}/packaging/THIRD-PARTY.md @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/packaging/THIRD-PARTY.md
        DESTINATION ${NUVEQ_INSTALL_LICENCE_DIR} COMPONENT archive)
get_property(components GLOBAL PROPERTY NUVEQ_THIRD_PARTY)
file(WRITE ${CMAKE_BINARY_DIR}/packaging/third-party.cmake "${components}")

# nuveq_describe_contents(COMPONENT NAME BILL [COPYRIGHT]): writes the bill of materials of the package NAME to the file
# BILL, and the copyright file of a Debian package to COPYRIGHT, when a component is installed (archive: when all are). Must
# come after the other rules of the component.
function(nuveq_describe_contents component name bill)
  set(exclude EXCLUDE_FROM_ALL)
  if(component STREQUAL archive)
    set(exclude)
  endif()
  install(CODE "set(NUVEQ_PACKAGE [[${name}]])
set(NUVEQ_VERSION [[${PROJECT_VERSION}]])
set(NUVEQ_BILL [[${bill}]])
set(NUVEQ_COPYRIGHT [[${ARGN}]])
set(NUVEQ_SCRATCH [[${CMAKE_BINARY_DIR}/packaging/${component}]])
set(NUVEQ_THIRD_PARTY [[${CMAKE_BINARY_DIR}/packaging/third-party.cmake]])
include([[${PROJECT_SOURCE_DIR}/packaging/describe-contents.cmake]])"
          COMPONENT ${component} ${exclude})
endfunction()
