# Finds libyuv. Defines the target LibYUV::LibYUV, LibYUV_FOUND and LibYUV_VERSION.
find_path(LibYUV_INCLUDE_DIR libyuv.h)
find_library(LibYUV_LIBRARY yuv)
mark_as_advanced(LibYUV_INCLUDE_DIR LibYUV_LIBRARY)

if(LibYUV_INCLUDE_DIR)
  include(ReadHeaderVersion)
  nuveq_read_header_version(LibYUV_VERSION ${LibYUV_INCLUDE_DIR}/libyuv/version.h LIBYUV_VERSION)
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(LibYUV
    REQUIRED_VARS LibYUV_LIBRARY LibYUV_INCLUDE_DIR VERSION_VAR LibYUV_VERSION)

if(LibYUV_FOUND AND NOT TARGET LibYUV::LibYUV)
  add_library(LibYUV::LibYUV UNKNOWN IMPORTED)
  set_target_properties(LibYUV::LibYUV PROPERTIES
      IMPORTED_LOCATION ${LibYUV_LIBRARY}
      INTERFACE_INCLUDE_DIRECTORIES ${LibYUV_INCLUDE_DIR})
endif()
