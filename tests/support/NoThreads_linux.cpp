#include "support/NoThreads.h"

#include <pthread.h>

#include <cstddef>

// The attributes of threads that are started without any.
struct NoThreads::Before {
  pthread_attr_t attributes{};
};

NoThreads::NoThreads() : m_before(std::make_unique<Before>()) {
  pthread_getattr_default_np(&m_before->attributes);
  // None can have a stack of that size.
  pthread_attr_t huge;
  pthread_attr_init(&huge);
  constexpr std::size_t kStack = std::size_t{1} << 47;
  pthread_attr_setstacksize(&huge, kStack);
  pthread_setattr_default_np(&huge);
  pthread_attr_destroy(&huge);
}

NoThreads::~NoThreads() {
  pthread_setattr_default_np(&m_before->attributes);
  pthread_attr_destroy(&m_before->attributes);
}
