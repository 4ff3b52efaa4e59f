#include "Logger.h"

#include <log4cplus/nullappender.h>

namespace {

log4cplus::Logger MakeLogger() {
  log4cplus::Logger logger = log4cplus::Logger::getInstance(L"nuveq.camera");
  // Without an appender log4cplus prints a warning to stderr if the host has configured none. Messages still
  // reach appenders that the host adds to this logger or to the root logger.
  if (logger.getAllAppenders().empty()) {
    logger.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
  }
  return logger;
}

}  // namespace

log4cplus::Logger GetLogger() {
  static const log4cplus::Logger logger = MakeLogger();
  return logger;
}
