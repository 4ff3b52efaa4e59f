# The library as a shared library over a given platform.
include_guard()

set(NUVEQ_HOST_LOGGER "" CACHE STRING
    "Library that defines the host's GetLogger (a target, a name or a path); empty: the default logger")

# nuveq_add_camera_handler(TARGET PLATFORM LIBRARY... [DEFAULTS NAME...])
#
# PLATFORM  what the free functions that the library calls come from
# DEFAULTS  which of platform/default are built in, for what the platform does not bring: Allocation, Module,
#           Thread, Logger. The logger is built in anyway unless NUVEQ_HOST_LOGGER names the host's.
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
  add_library(${target} SHARED)
  foreach(name IN LISTS arg_DEFAULTS)
    target_sources(${target} PRIVATE ${default_${name}})
  endforeach()
  if(WIN32)
    add_dependencies(${target} windows_runtime)
  endif()
  if(MSVC)
    # Platforms load it by the same name whoever has built it.
    set_target_properties(${target} PROPERTIES PREFIX lib)
  endif()
  target_link_libraries(${target} PUBLIC nuveq_headers
                        PRIVATE camera_handler_objects ${host_logger} ${arg_PLATFORM})
  # One symbol leaves the library. The compiler's visibility settings cannot say that: they leave instances of
  # the standard library's templates visible.
  nuveq_export_only(${target} ${PROJECT_SOURCE_DIR}/cmake/nuveqcamerahandler.map)
endfunction()
