// What the library logs, as a host's own appender hears it.
#pragma once

#include <log4cplus/logger.h>

#include <memory>
#include <string>
#include <vector>

// Listens to the library's logger from construction to destruction.
class LibraryLines {
 public:
  LibraryLines();
  LibraryLines(const LibraryLines&) = delete;
  LibraryLines& operator=(const LibraryLines&) = delete;
  ~LibraryLines();

  // The lines so far, as "LEVEL file:line text". A line of a message whose line is just where its source has
  // it stands as 0.
  std::vector<std::string> Get() const;
  void Forget();

 private:
  class Appender;
  log4cplus::helpers::SharedObjectPtr<Appender> m_appender;
};
