# Debian packages (cpack -G DEB), one for each of the components runtime, dev and tool. They install on the Debian release
# on which they were built: dpkg-shlibdeps finds their dependencies there.
include_guard()

# The version's suffix orders the packages for different releases: an upgrade of Debian upgrades these packages.
cmake_host_system_information(RESULT release QUERY DISTRIB_VERSION_ID)
cmake_host_system_information(RESULT codename QUERY DISTRIB_VERSION_CODENAME)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1~deb${release})
set(NUVEQ_DEBIAN_VERSION ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tool)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
# nuveqcam links libraries of the private folder, whose interfaces may change with each version.
set(CPACK_COMPONENT_TOOL_DEPENDS runtime)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(NUVEQ_MAINTAINER "NUVEQ maintainers <nuveq@example.org>" CACHE STRING "Maintainer of the Debian packages")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${NUVEQ_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SOURCE ${PROJECT_NAME})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY} ${CMAKE_BINARY_DIR}/packaging)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(library_package libnuveqcamerahandler${NUVEQ_SOVERSION})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "library for the PC's built-in camera
A host program loads this library, asks which sizes and frame rates the
PC's built-in camera offers, opens the camera, and receives H.264 packets
through a callback. Only a camera that cannot be unplugged is offered.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libnuveqcamerahandler-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "library for the PC's built-in camera - development files
The header, the CMake package, the pkg-config file, the integrator's guide
and an example for programs that use libnuveqcamerahandler, the library
that delivers H.264 packets of the PC's built-in camera.")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME nuveqcam)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOL_DESCRIPTION "record the PC's built-in camera
This command-line program lists the formats of the PC's built-in camera,
records H.264 video and takes pictures. It explains which camera is
selected, and why others are not. A simulated PC can replace the real one.")

# Control files of the library.
set(control ${CMAKE_BINARY_DIR}/packaging/debian)
file(WRITE ${control}/shlibs "libnuveqcamerahandler ${NUVEQ_SOVERSION} ${library_package}\n")
file(WRITE ${control}/symbols
     "libnuveqcamerahandler.so.${NUVEQ_SOVERSION} ${library_package} #MINVER#\n"
     "* Build-Depends-Package: ${CPACK_DEBIAN_DEV_PACKAGE_NAME}\n"
     " NUVEQGetCameraHandler@Base 1.0.0\n")
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${control}/shlibs ${control}/symbols ${control}/triggers)

# The changelog: the section of this version in CHANGELOG.md.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
             ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_SOURCE_DIR}/packaging/debian/changelog.awk)
execute_process(
    COMMAND awk -f ${PROJECT_SOURCE_DIR}/packaging/debian/changelog.awk -v version=${PROJECT_VERSION}
            -v debian_version=${NUVEQ_DEBIAN_VERSION} -v release=${codename}
            -v "maintainer=${CPACK_DEBIAN_PACKAGE_MAINTAINER}" ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    OUTPUT_FILE ${control}/changelog.Debian RESULT_VARIABLE result ERROR_QUIET)
if(NOT result EQUAL 0)
  message(STATUS "CHANGELOG.md has no section for version ${PROJECT_VERSION}: building works, packing fails")
  foreach(component runtime dev tool)
    install(CODE "message(FATAL_ERROR \"CHANGELOG.md has no section for version ${PROJECT_VERSION}\")"
            COMPONENT ${component} EXCLUDE_FROM_ALL)
  endforeach()
endif()
execute_process(COMMAND gzip -9nf ${control}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)

# Texts that only the Debian packages have.
foreach(component runtime dev tool)
  string(TOUPPER ${component} variable)
  set(package ${CPACK_DEBIAN_${variable}_PACKAGE_NAME})
  set(doc ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package})
  install(FILES ${control}/changelog.Debian.gz DESTINATION ${doc} COMPONENT ${component} EXCLUDE_FROM_ALL)
  set(overrides ${PROJECT_SOURCE_DIR}/packaging/debian/${package}.lintian-overrides)
  if(EXISTS ${overrides})
    install(FILES ${overrides} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides RENAME ${package}
            COMPONENT ${component} EXCLUDE_FROM_ALL)
  endif()
  if(component STREQUAL dev)
    install(FILES ${PROJECT_SOURCE_DIR}/docs/integrating.md DESTINATION ${doc}
            COMPONENT ${component} EXCLUDE_FROM_ALL)
    install(FILES ${PROJECT_SOURCE_DIR}/examples/packets.c DESTINATION ${doc}/examples
            COMPONENT ${component} EXCLUDE_FROM_ALL)
  endif()
  nuveq_describe_contents(${component} ${package} ${doc}/${package}.cdx.json ${doc}/copyright)
endforeach()

list(APPEND CPACK_GENERATOR DEB)
