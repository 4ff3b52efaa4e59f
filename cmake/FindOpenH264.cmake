# Finds OpenH264. Defines the target OpenH264::OpenH264, OpenH264_FOUND and OpenH264_VERSION.
find_path(OpenH264_INCLUDE_DIR wels/codec_api.h)
find_library(OpenH264_LIBRARY openh264)
mark_as_advanced(OpenH264_INCLUDE_DIR OpenH264_LIBRARY)

if(OpenH264_INCLUDE_DIR)
  include(ReadHeaderVersion)
  nuveq_read_header_version(OpenH264_VERSION ${OpenH264_INCLUDE_DIR}/wels/codec_ver.h
                            OPENH264_MAJOR OPENH264_MINOR OPENH264_REVISION)
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenH264
    REQUIRED_VARS OpenH264_LIBRARY OpenH264_INCLUDE_DIR VERSION_VAR OpenH264_VERSION)

if(OpenH264_FOUND AND NOT TARGET OpenH264::OpenH264)
  add_library(OpenH264::OpenH264 UNKNOWN IMPORTED)
  set_target_properties(OpenH264::OpenH264 PROPERTIES
      IMPORTED_LOCATION ${OpenH264_LIBRARY}
      INTERFACE_INCLUDE_DIRECTORIES ${OpenH264_INCLUDE_DIR})
endif()
