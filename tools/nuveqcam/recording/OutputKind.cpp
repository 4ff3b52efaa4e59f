#include "recording/OutputKind.h"

namespace nuveqcam {
namespace {

// The last dot of the file's name and the rest, in lower case. A leading dot starts an extension, too: the
// extension of ".mp4" is ".mp4".
std::string ExtensionOf(const std::string& name) {
  const std::size_t dot = name.find_last_of("./");
  if (dot == std::string::npos || name[dot] != '.') {
    return {};
  }
  std::string extension = name.substr(dot);
  for (char& character : extension) {
    if (character >= 'A' && character <= 'Z') {
      character = static_cast<char>(character - 'A' + 'a');
    }
  }
  return extension;
}

}  // namespace

OutputKind KindOfRecording(const std::string& name) {
  const std::string extension = ExtensionOf(name);
  if (extension == ".mp4") {
    return OutputKind::kMp4;
  }
  if (name == "-" || extension == ".h264" || extension == ".264") {
    return OutputKind::kRawH264;
  }
  return OutputKind::kUnknown;
}

OutputKind KindOfPicture(const std::string& name) {
  return name == "-" || ExtensionOf(name) == ".png" ? OutputKind::kPng : OutputKind::kUnknown;
}

}  // namespace nuveqcam
