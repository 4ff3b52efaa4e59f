#include "view/BackgroundThread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "support/WaitFor.h"

namespace nuveqcam {
namespace {

using ::testing::ElementsAre;

// Notes the thread that destroys it.
class Tracked {
 public:
  explicit Tracked(std::atomic<std::thread::id>& destroyedBy) : m_destroyedBy(destroyedBy) {}
  Tracked(const Tracked&) = delete;
  Tracked& operator=(const Tracked&) = delete;
  ~Tracked() { m_destroyedBy = std::this_thread::get_id(); }

 private:
  std::atomic<std::thread::id>& m_destroyedBy;
};

TEST(BackgroundThread, CallsTheTasksInOrderOnItsOwnThread) {
  Gate isDone;
  std::vector<int> calls;
  std::thread::id thread;
  BackgroundThread background;
  background.Run([&] { calls.push_back(1); });
  background.Run([&] { calls.push_back(2); });
  background.Run([&] {
    thread = std::this_thread::get_id();
    isDone.Open();
  });
  ASSERT_TRUE(isDone.Wait());
  EXPECT_THAT(calls, ElementsAre(1, 2));
  EXPECT_NE(thread, std::this_thread::get_id());
}

TEST(BackgroundThread, ContinuesAfterATaskThatThrows) {
  Gate isDone;
  BackgroundThread background;
  background.Run([] { throw std::bad_alloc(); });
  background.Run([&] { isDone.Open(); });
  EXPECT_TRUE(isDone.Wait());
}

TEST(BackgroundThread, EndDiscardsTheTasksThatWait) {
  Gate hasBegun;
  Gate mayEnd;
  std::atomic<bool> isCalled = false;
  const auto owned = std::make_shared<int>(0);
  std::optional<BackgroundThread> background(std::in_place);
  const std::shared_ptr<BackgroundTasks> tasks = background->Tasks();
  background->Run([&] {
    hasBegun.Open();
    mayEnd.Wait();
  });
  ASSERT_TRUE(hasBegun.Wait());
  background->Run([&, owned] { isCalled = true; });
  std::thread ending([&] { background.reset(); });
  // The end discards the task before it waits for the one that is running.
  EXPECT_TRUE(WaitFor([&] { return owned.use_count() == 1; }));
  mayEnd.Open();
  ending.join();
  EXPECT_FALSE(isCalled);
  EXPECT_FALSE(tasks->Add([&] { isCalled = true; }));
}

TEST(BackgroundThread, DestroysObjectsUntilItEnds) {
  std::atomic<std::thread::id> first;
  std::atomic<std::thread::id> second;
  std::shared_ptr<Tracked> late;
  {
    BackgroundThread background;
    background.Run([] {});
    late = DestroyInBackground(std::make_unique<Tracked>(second), background.Tasks());
    DestroyInBackground(std::make_unique<Tracked>(first), background.Tasks()).reset();
    EXPECT_TRUE(WaitFor([&] { return first.load() != std::thread::id(); }));
    EXPECT_NE(first.load(), std::this_thread::get_id());
  }
  late.reset();
  EXPECT_EQ(second.load(), std::this_thread::get_id());
}

}  // namespace
}  // namespace nuveqcam
