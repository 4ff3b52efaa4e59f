# Installation and packages (cpack): a zip archive on Windows; a tar archive and Debian packages elsewhere. All paths are
# relative, so that the folder can be moved. The layout is the same in the tar archive and the Debian packages.
#
# Components: runtime (the library), dev (for building hosts), tool (nuveqcam). The component archive has the texts of the
# archives; PackagingDebian.cmake installs those of the Debian packages.
#
include_guard()
# Increment when the exported function or its table changes.
set(NUVEQ_SOVERSION 1)
if(NOT WIN32 AND EXISTS /etc/debian_version AND CMAKE_LIBRARY_ARCHITECTURE)
  # GNUInstallDirs chooses lib for all prefixes but /usr, and keeps it in the cache.
  if(NOT DEFINED CMAKE_INSTALL_LIBDIR OR CMAKE_INSTALL_LIBDIR STREQUAL lib)
    set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE})
  endif()
endif()
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
# The libraries that only this project's binaries use. A private folder, because Debian's log4cplus (with narrow
# characters) has the same file name.
set(private_dir nuveqcamerahandler)
set(NUVEQ_INSTALL_PRIVATE_DIR ${CMAKE_INSTALL_LIBDIR}/${private_dir})

include(PackagingLicences)

# The libraries and the tool. The encoder library has no import library: only the camera library links it.
set_target_properties(nuveqcamerahandler PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${NUVEQ_SOVERSION})
# Hosts load the library by its name without a version: that link belongs to the component runtime, too.
install(TARGETS nuveqcamerahandler EXPORT nuveqcamerahandler
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS MultiMediaEncoder
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
        LIBRARY DESTINATION ${NUVEQ_INSTALL_PRIVATE_DIR} COMPONENT runtime)
if(TARGET nuveqcam)
  install(TARGETS nuveqcam RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
endif()

if(WIN32)
  foreach(file IN LISTS NUVEQ_RUNTIME_DLLS)
    get_filename_component(name ${file} NAME)
    list(APPEND NUVEQ_RUNTIME_NAMES ${name})
  endforeach()
  foreach(file IN LISTS NUVEQ_RUNTIME_DLLS NUVEQ_TOOL_DLLS)
    get_filename_component(name ${file} NAME)
    # The copy in the build folder has no debug information.
    install(FILES ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
  endforeach()
  # For compilers that cannot use mingw-w64's import library.
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/libnuveqcamerahandler.def
          DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
else()
  install(TARGETS nuveqplatform LIBRARY DESTINATION ${NUVEQ_INSTALL_PRIVATE_DIR} COMPONENT runtime)
  install(TARGETS nuveqsimulated LIBRARY DESTINATION ${NUVEQ_INSTALL_PRIVATE_DIR} COMPONENT tool)
  # A copy without symbols.
  set(log4cplus ${CMAKE_BINARY_DIR}/packaging/${NUVEQ_LOG4CPLUS_FILE})
  add_custom_command(OUTPUT ${log4cplus}
                     COMMAND ${CMAKE_STRIP} --strip-unneeded -o ${log4cplus} $<TARGET_FILE:log4cplus::log4cplus>
                     DEPENDS $<TARGET_FILE:log4cplus::log4cplus> VERBATIM)
  # Identical input gives identical output (-n).
  set(man_page ${CMAKE_BINARY_DIR}/packaging/nuveqcam.1.gz)
  add_custom_command(OUTPUT ${man_page}
                     COMMAND sh -c "gzip -9nc \"$1\" >\"$2\"" sh ${PROJECT_SOURCE_DIR}/tools/nuveqcam/nuveqcam.1 ${man_page}
                     DEPENDS ${PROJECT_SOURCE_DIR}/tools/nuveqcam/nuveqcam.1 VERBATIM)
  add_custom_target(packaging_files ALL DEPENDS ${log4cplus} ${man_page})
  install(FILES ${log4cplus} DESTINATION ${NUVEQ_INSTALL_PRIVATE_DIR} COMPONENT runtime)
  install(FILES ${man_page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
  install(FILES ${PROJECT_SOURCE_DIR}/examples/packets.c
          DESTINATION ${NUVEQ_INSTALL_DOC_DIR}/examples COMPONENT archive)

  file(RELATIVE_PATH lib_dir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(MultiMediaEncoder nuveqplatform nuveqsimulated PROPERTIES INSTALL_RPATH $ORIGIN)
  set_target_properties(nuveqcamerahandler PROPERTIES INSTALL_RPATH $ORIGIN/${private_dir})
  set_target_properties(nuveqcam PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_dir};$ORIGIN/${lib_dir}/${private_dir}")
endif()

# Header and documentation.
install(FILES ${PROJECT_SOURCE_DIR}/include/NUVEQCameraHandler.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/package-readme.md
        DESTINATION ${NUVEQ_INSTALL_README_DIR} RENAME README.md COMPONENT archive)
install(FILES ${PROJECT_SOURCE_DIR}/docs/integrating.md DESTINATION ${NUVEQ_INSTALL_DOC_DIR} COMPONENT archive)

# find_package(nuveqcamerahandler CONFIG).
install(EXPORT nuveqcamerahandler NAMESPACE nuveqcamerahandler:: FILE nuveqcamerahandler-targets.cmake
        DESTINATION ${NUVEQ_INSTALL_CMAKE_DIR} COMPONENT dev)
list(JOIN NUVEQ_RUNTIME_NAMES " " NUVEQ_RUNTIME_NAMES)
string(TOUPPER "${CMAKE_BUILD_TYPE}" NUVEQ_CONFIG)
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/packaging/nuveqcamerahandler-config.cmake.in
    ${CMAKE_BINARY_DIR}/packaging/nuveqcamerahandler-config.cmake
    INSTALL_DESTINATION ${NUVEQ_INSTALL_CMAKE_DIR}
    PATH_VARS CMAKE_INSTALL_BINDIR CMAKE_INSTALL_LIBDIR
    NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(
    ${CMAKE_BINARY_DIR}/packaging/nuveqcamerahandler-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
        ${CMAKE_BINARY_DIR}/packaging/nuveqcamerahandler-config.cmake
        ${CMAKE_BINARY_DIR}/packaging/nuveqcamerahandler-config-version.cmake
        DESTINATION ${NUVEQ_INSTALL_CMAKE_DIR} COMPONENT dev)

if(NOT WIN32)
  set(pkgconfig_dir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
  file(RELATIVE_PATH NUVEQ_PC_PREFIX ${pkgconfig_dir} ${CMAKE_INSTALL_PREFIX})
  file(RELATIVE_PATH NUVEQ_PC_LIBDIR ${pkgconfig_dir} ${CMAKE_INSTALL_FULL_LIBDIR})
  file(RELATIVE_PATH NUVEQ_PC_INCLUDEDIR ${pkgconfig_dir} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
  configure_file(${PROJECT_SOURCE_DIR}/packaging/nuveqcamerahandler.pc.in
                 ${CMAKE_BINARY_DIR}/packaging/nuveqcamerahandler.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/packaging/nuveqcamerahandler.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endif()

# One archive with one folder, named after product, version and system.
string(TOLOWER ${CMAKE_SYSTEM_NAME} system)
string(TOLOWER ${CMAKE_SYSTEM_PROCESSOR} processor)
if(processor STREQUAL amd64)
  set(processor x86_64)
endif()
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VENDOR NUVEQ)
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
# These rules read the installed files, so they come last.
nuveq_describe_contents(archive ${NUVEQ_PACKAGE_NAME} ${NUVEQ_INSTALL_DOC_DIR}/${PROJECT_NAME}.cdx.json)
if(NOT WIN32 AND EXISTS /etc/debian_version)
  include(PackagingDebian)
endif()
include(CPack)
