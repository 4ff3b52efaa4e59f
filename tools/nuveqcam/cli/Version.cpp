#include "cli/Version.h"

#include <libyuv/version.h>
#include <log4cplus/version.h>
#include <wels/codec_api.h>
#include <CLI/Version.hpp>
#include <nlohmann/json_fwd.hpp>

#include <sstream>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
}

namespace nuveqcam {

std::string LibraryVersions() {
  std::ostringstream text;
  text << "log4cplus " << log4cplus::versionStr << '\n';
  const OpenH264Version openH264 = WelsGetCodecVersion();
  text << "OpenH264 " << openH264.uMajor << '.' << openH264.uMinor << '.' << openH264.uRevision << '\n';
  text << "libyuv " << LIBYUV_VERSION << '\n';
  const auto print = [&text](const char* name, unsigned version) {
    text << name << ' ' << AV_VERSION_MAJOR(version) << '.' << AV_VERSION_MINOR(version) << '.'
         << AV_VERSION_MICRO(version) << '\n';
  };
  print("libavcodec", avcodec_version());
  print("libavformat", avformat_version());
  print("libavutil", avutil_version());
  text << "CLI11 " << CLI11_VERSION << '\n';
  text << "nlohmann-json " << NLOHMANN_JSON_VERSION_MAJOR << '.' << NLOHMANN_JSON_VERSION_MINOR << '.'
       << NLOHMANN_JSON_VERSION_PATCH << '\n';
  text << ViewLibraryVersions();
  return text.str();
}

}  // namespace nuveqcam
