// What the host and the system give the library besides: the logger, memory for the platform, the module, the
// encoder thread's name and priority.
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

// Sends every log line to the platform's journal.
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

// Stands for the module; only its address is used.
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

SCRIPTED_EXPORT void* AllocatePlatformBlock(std::size_t size) {
  const auto answer = Platform::Get().Enter("AllocatePlatformBlock", std::to_string(size));
  if (answer.null || answer.hr != S_OK) {
    return nullptr;
  }
  void* const block = std::calloc(1, size);
  Platform::Get().Born(block, "block of " + std::to_string(size) + " bytes for the platform",
                       [block] { FreePlatformBlock(block); });
  return block;
}

SCRIPTED_EXPORT void FreePlatformBlock(void* block) {
  Platform::Get().RunBefore("FreePlatformBlock");
  if (block != nullptr && !Platform::Get().Gone(block)) {
    Platform::Get().NoteMisuse("a block of the platform's is freed twice");
    return;
  }
  std::free(block);
}

SCRIPTED_EXPORT void PinModule() {
  Platform::Get().Enter("PinModule", "");
  Platform::Get().Born(&pinnedModule, "pin of the module", [] { Platform::Get().Gone(&pinnedModule); });
}

SCRIPTED_EXPORT void UnpinModule(UnpinTiming timing) {
  Platform::Get().Enter("UnpinModule", timing == UnpinTiming::kSoon ? "soon" : "before returning");
  if (!Platform::Get().Gone(&pinnedModule)) {
    Platform::Get().NoteMisuse("the module is unpinned without being pinned");
  }
}

// Not in the journal: it comes on the encoder thread while the open goes on, now before one line, now behind
// it.
SCRIPTED_EXPORT void PrepareEncoderThread() noexcept { Platform::Get().RunBefore("PrepareEncoderThread"); }

SCRIPTED_EXPORT bool IsProcessEnding() { return Platform::Get().IsProcessEnding(); }
