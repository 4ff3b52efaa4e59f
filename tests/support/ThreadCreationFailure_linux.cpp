#include "support/ThreadCreationFailure.h"

#include <pthread.h>

#include <cstddef>

namespace support {

// The default attributes of new threads.
struct ThreadCreationFailure::SavedState {
  pthread_attr_t attributes{};
};

ThreadCreationFailure::ThreadCreationFailure() : m_savedState(std::make_unique<SavedState>()) {
  pthread_getattr_default_np(&m_savedState->attributes);
  // No thread can be created with a stack of this size.
  pthread_attr_t huge;
  pthread_attr_init(&huge);
  constexpr std::size_t kStack = std::size_t{1} << 47;
  pthread_attr_setstacksize(&huge, kStack);
  pthread_setattr_default_np(&huge);
  pthread_attr_destroy(&huge);
}

ThreadCreationFailure::~ThreadCreationFailure() {
  pthread_setattr_default_np(&m_savedState->attributes);
  pthread_attr_destroy(&m_savedState->attributes);
}

}  // namespace support
