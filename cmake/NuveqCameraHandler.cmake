# Builds the library as a shared library over a given platform.
include_guard()

set(NUVEQ_HOST_LOGGER "" CACHE STRING
    "Library that defines the host's GetLogger (a target, a name or a path); empty: the default logger")

# nuveq_add_camera_handler(TARGET PLATFORM LIBRARY... [DEFAULTS NAME...])
#
# PLATFORM  libraries that define the platform functions
# DEFAULTS  default implementations to build in: Allocation, Module, Thread, Logger. Logger is added unless
#           NUVEQ_HOST_LOGGER names a library.
function(nuveq_add_camera_handler target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "PLATFORM;DEFAULTS")
  set(host_logger ${NUVEQ_HOST_LOGGER})
  if(Logger IN_LIST arg_DEFAULTS)
    set(host_logger)
  elseif(NOT host_logger)
    list(APPEND arg_DEFAULTS Logger)
  endif()
  set(platform ${PROJECT_SOURCE_DIR}/platform)
  if(WIN32)
    set(default_Module ${platform}/windows/Module_windows.cpp)
    set(default_Thread ${platform}/windows/Thread_windows.cpp)
  else()
    set(default_Module ${platform}/linux/Module_linux.cpp)
    set(default_Thread ${platform}/linux/Thread_linux.cpp)
  endif()
  set(default_Allocation ${platform}/default/Allocation.cpp)
  set(default_Logger ${platform}/default/Logger.cpp)
  nuveq_add_library(${target} SHARED)
  foreach(name IN LISTS arg_DEFAULTS)
    target_sources(${target} PRIVATE ${default_${name}})
  endforeach()
  if(WIN32)
    add_dependencies(${target} windows_runtime)
  endif()
  if(MSVC)
    # The file name does not depend on the compiler, because hosts load the library by name.
    set_target_properties(${target} PROPERTIES PREFIX lib)
  endif()
  # An interface library, because CMake exports the names of shared libraries that a target links directly.
  add_library(${target}_platform INTERFACE)
  target_link_libraries(${target}_platform INTERFACE ${host_logger} ${arg_PLATFORM})
  target_link_libraries(${target} PUBLIC $<BUILD_INTERFACE:nuveq_headers>
                        PRIVATE camera_handler_objects ${target}_platform)
  # Exports one symbol. Visibility settings are not enough: template instances of the standard library would stay
  # visible.
  nuveq_export_only(${target} ${PROJECT_SOURCE_DIR}/cmake/nuveqcamerahandler.map)
endfunction()
