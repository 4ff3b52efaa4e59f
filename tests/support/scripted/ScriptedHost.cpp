// The host's logger and the functions of namespace platform.
#include <log4cplus/appender.h>
#include <log4cplus/spi/loggingevent.h>

#include <cstdlib>

#include "Allocation.h"
#include "Logger.h"
#include "Module.h"
#include "Thread.h"
#include "support/scripted/ScriptedPlatform.h"

using scripted::Platform;

namespace {

// Adds every log message to the journal.
class JournalAppender : public log4cplus::Appender {
 public:
  JournalAppender() = default;
  ~JournalAppender() override { destructorImpl(); }
  void close() override { closed = true; }

 protected:
  void append(const log4cplus::spi::InternalLoggingEvent& event) override {
    const auto narrow = [](const log4cplus::tstring& text) { return std::string(text.begin(), text.end()); };
    Platform::Get().NoteLog({event.getLogLevel(), event.getMessage(), narrow(event.getFile()),
                             event.getLine(), narrow(event.getFunction())});
  }
};

// Identifies the pin; only its address is used.
int pinnedModule = 0;

log4cplus::Logger MakeLogger() {
  log4cplus::Logger logger = log4cplus::Logger::getInstance(L"host");
  logger.setLogLevel(log4cplus::ALL_LOG_LEVEL);
  logger.setAdditivity(false);
  logger.addAppender(log4cplus::SharedAppenderPtr(new JournalAppender));
  return logger;
}

}  // namespace

SCRIPTED_EXPORT log4cplus::Logger GetLogger() {
  Platform::Get().RunBefore("GetLogger");
  static const log4cplus::Logger logger = MakeLogger();
  return logger;
}

namespace platform {

SCRIPTED_EXPORT void* AllocateHostBlock(std::size_t size) {
  const auto answer = Platform::Get().Enter("AllocateHostBlock", std::to_string(size));
  if (answer.null || answer.hr != S_OK) {
    return nullptr;
  }
  void* const block = std::calloc(1, size);
  Platform::Get().Track(block, "block of " + std::to_string(size) + " bytes for the host",
                        [block] { FreeHostBlock(block); });
  return block;
}

SCRIPTED_EXPORT void FreeHostBlock(void* block) {
  Platform::Get().RunBefore("FreeHostBlock");
  if (block != nullptr && !Platform::Get().Untrack(block)) {
    Platform::Get().NoteMisuse("a block for the host is freed twice");
    return;
  }
  std::free(block);
}

SCRIPTED_EXPORT void PinModule() {
  Platform::Get().Enter("PinModule", "");
  Platform::Get().Track(&pinnedModule, "pin of the module", [] { Platform::Get().Untrack(&pinnedModule); });
}

SCRIPTED_EXPORT void UnpinModule(UnpinTiming timing) {
  Platform::Get().Enter("UnpinModule", timing == UnpinTiming::kSoon ? "soon" : "before returning");
  if (!Platform::Get().Untrack(&pinnedModule)) {
    Platform::Get().NoteMisuse("the module is unpinned without being pinned");
  }
}

// Not in the journal: the call runs concurrently with the open, so its position would vary.
SCRIPTED_EXPORT void ConfigureEncoderThread() noexcept {
  Platform::Get().RunBefore("ConfigureEncoderThread");
}

SCRIPTED_EXPORT bool IsProcessEnding() { return Platform::Get().IsProcessEnding(); }

}  // namespace platform
