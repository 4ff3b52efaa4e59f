# Installation and packages (cpack): a zip archive on Windows, a tar archive elsewhere. All paths are relative, so that
# the folder can be moved.
#
# The shared libraries have no version in their names, because hosts load them by name. The handler table's layout is
# fixed.
include_guard()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

if(WIN32)
  # The archive is unpacked into a folder of its own: README.md goes to the top.
  set(NUVEQ_INSTALL_README_DIR .)
  set(NUVEQ_INSTALL_DOC_DIR docs)
  set(NUVEQ_INSTALL_LICENCE_DIR share/licences)
else()
  set(NUVEQ_INSTALL_README_DIR ${CMAKE_INSTALL_DOCDIR})
  set(NUVEQ_INSTALL_DOC_DIR ${CMAKE_INSTALL_DOCDIR})
  set(NUVEQ_INSTALL_LICENCE_DIR ${CMAKE_INSTALL_DOCDIR}/licences)
endif()
set(NUVEQ_INSTALL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/nuveqcamerahandler)
# A private folder, because Debian's log4cplus (with narrow characters) has the same file name.
set(private_dir nuveqcamerahandler)
set(NUVEQ_INSTALL_PRIVATE_DIR ${CMAKE_INSTALL_LIBDIR}/${private_dir})

include(PackagingLicences)

# The libraries and the tool. The encoder library has no import library: only the camera library links it.
install(TARGETS nuveqcamerahandler
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS MultiMediaEncoder
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TARGET nuveqcam)
  install(TARGETS nuveqcam RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

if(WIN32)
  foreach(file IN LISTS NUVEQ_RUNTIME_DLLS)
    get_filename_component(name ${file} NAME)
    list(APPEND NUVEQ_RUNTIME_NAMES ${name})
  endforeach()
  foreach(file IN LISTS NUVEQ_RUNTIME_DLLS NUVEQ_TOOL_DLLS)
    get_filename_component(name ${file} NAME)
    # The copy in the build folder has no debug information.
    install(FILES ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name} DESTINATION ${CMAKE_INSTALL_BINDIR})
  endforeach()
  # For compilers that cannot use mingw-w64's import library.
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/libnuveqcamerahandler.def DESTINATION ${CMAKE_INSTALL_LIBDIR})
else()
  install(TARGETS nuveqplatform nuveqsimulated LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(PROGRAMS $<TARGET_FILE:log4cplus::log4cplus> DESTINATION ${NUVEQ_INSTALL_PRIVATE_DIR}
          RENAME $<TARGET_SONAME_FILE_NAME:log4cplus::log4cplus>)
  file(RELATIVE_PATH lib_dir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(MultiMediaEncoder nuveqplatform nuveqsimulated PROPERTIES INSTALL_RPATH $ORIGIN)
  set_target_properties(nuveqcamerahandler PROPERTIES INSTALL_RPATH "$ORIGIN;$ORIGIN/${private_dir}")
  set_target_properties(nuveqcam PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_dir};$ORIGIN/${lib_dir}/${private_dir}")
  install(FILES ${PROJECT_SOURCE_DIR}/tools/nuveqcam/nuveqcam.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${PROJECT_SOURCE_DIR}/examples/packets.c DESTINATION ${NUVEQ_INSTALL_DOC_DIR}/examples)
endif()

# Header and documentation.
install(FILES ${PROJECT_SOURCE_DIR}/include/NUVEQCameraHandler.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/packaging/package-readme.md DESTINATION ${NUVEQ_INSTALL_README_DIR} RENAME README.md)
install(FILES ${PROJECT_SOURCE_DIR}/docs/integrating.md DESTINATION ${NUVEQ_INSTALL_DOC_DIR})

# find_package(nuveqcamerahandler CONFIG).
list(JOIN NUVEQ_RUNTIME_NAMES " " NUVEQ_RUNTIME_NAMES)
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/packaging/nuveqcamerahandler-config.cmake.in
    ${CMAKE_BINARY_DIR}/packaging/nuveqcamerahandler-config.cmake
    INSTALL_DESTINATION ${NUVEQ_INSTALL_CMAKE_DIR}
    PATH_VARS CMAKE_INSTALL_BINDIR CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR
    NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(
    ${CMAKE_BINARY_DIR}/packaging/nuveqcamerahandler-config-version.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES
        ${CMAKE_BINARY_DIR}/packaging/nuveqcamerahandler-config.cmake
        ${CMAKE_BINARY_DIR}/packaging/nuveqcamerahandler-config-version.cmake
        DESTINATION ${NUVEQ_INSTALL_CMAKE_DIR})

if(NOT WIN32)
  set(pkgconfig_dir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
  file(RELATIVE_PATH NUVEQ_PC_PREFIX ${pkgconfig_dir} ${CMAKE_INSTALL_PREFIX})
  file(RELATIVE_PATH NUVEQ_PC_LIBDIR ${pkgconfig_dir} ${CMAKE_INSTALL_FULL_LIBDIR})
  file(RELATIVE_PATH NUVEQ_PC_INCLUDEDIR ${pkgconfig_dir} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
  configure_file(${PROJECT_SOURCE_DIR}/packaging/nuveqcamerahandler.pc.in
                 ${CMAKE_BINARY_DIR}/packaging/nuveqcamerahandler.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/packaging/nuveqcamerahandler.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()

# One archive with one folder, named after product, version and system.
string(TOLOWER ${CMAKE_SYSTEM_NAME} system)
string(TOLOWER ${CMAKE_SYSTEM_PROCESSOR} processor)
if(processor STREQUAL amd64)
  set(processor x86_64)
endif()
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VENDOR NUVEQ)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "The PC's built-in camera as a source of H.264 packets")
set(NUVEQ_PACKAGE_NAME ${PROJECT_NAME}-${PROJECT_VERSION}-${system}-${processor})
set(CPACK_PACKAGE_FILE_NAME ${NUVEQ_PACKAGE_NAME})
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_VERBATIM_VARIABLES ON)
# The build folder keeps the debug information.
set(CPACK_STRIP_FILES ON)
if(WIN32)
  set(CPACK_GENERATOR ZIP)
else()
  set(CPACK_GENERATOR TGZ)
endif()
include(CPack)
