# Finds the headers of utfcpp, whose version 3 has no CMake package in Debian, and defines the target UtfCpp::UtfCpp.
set(not_host)
if(CMAKE_CROSSCOMPILING)
  # The build machine's headers include those of its C library.
  set(not_host NO_SYSTEM_ENVIRONMENT_PATH NO_CMAKE_SYSTEM_PATH)
endif()
find_path(UTFCPP_INCLUDE_DIR utf8.h ${not_host})
# The folder of vcpkg.
find_path(UTFCPP_INCLUDE_DIR utf8.h PATH_SUFFIXES utf8cpp ${not_host})
mark_as_advanced(UTFCPP_INCLUDE_DIR)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(UtfCpp REQUIRED_VARS UTFCPP_INCLUDE_DIR)
if(UtfCpp_FOUND AND NOT TARGET UtfCpp::UtfCpp)
  add_library(UtfCpp::UtfCpp INTERFACE IMPORTED)
  set_target_properties(UtfCpp::UtfCpp PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${UTFCPP_INCLUDE_DIR})
endif()
