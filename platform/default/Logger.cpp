#include "Logger.h"

#include <log4cplus/nullappender.h>

namespace {

log4cplus::Logger MakeLogger() {
  log4cplus::Logger logger = log4cplus::Logger::getInstance(L"nuveq.camera");
  // Without any appender log4cplus complains on the standard error stream of a host that configured none.
  // Messages still reach whatever the host attaches here or to the root.
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
