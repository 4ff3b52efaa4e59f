#include "recording/OutputKind.h"

namespace {

// The last dot of the file's name and what follows, in lower case. A name that begins with its only dot has
// an extension here: ".mp4" says what it is.
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
