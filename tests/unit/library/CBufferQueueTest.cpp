// Tests of CBufferQueue without frames.
#include "CBufferQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <vector>

namespace {

using ::testing::ElementsAre;

// A queue of numbers. Creating the number `throwing` throws.
class NumberQueue : public CBufferQueue<int*> {
 public:
  ~NumberQueue() override { Uninit(); }
  int* CreateBuffer() override {
    const int number = ++made;
    if (number == throwing) {
      throw std::runtime_error("buffer");
    }
    return std::make_unique<int>(number).release();
  }
  void DestroyBuffer(int* buffer) override {
    const std::unique_ptr<int> owner(buffer);
    destroyed.push_back(*owner);
  }

  int throwing = 0;
  int made = 0;
  std::vector<int> destroyed;
};

TEST(BufferQueue, DestroysBuffersInOrderOfCreation) {
  NumberQueue queue;
  EXPECT_TRUE(queue.Init(4));
  int* const first = queue.GetFreeBuffer();
  queue.PutFreeBuffer(first);
  queue.Uninit();
  EXPECT_THAT(queue.destroyed, ElementsAre(1, 2, 3, 4));
}

TEST(BufferQueue, InitFailsWhileAForeignBufferIsQueued) {
  for (const auto put : {&NumberQueue::PutFreeBuffer, &NumberQueue::PutDataBuffer}) {
    NumberQueue queue;
    int stranger = 0;
    EXPECT_TRUE(queue.Init(0));
    (queue.*put)(&stranger);
    queue.Stop();
    EXPECT_FALSE(queue.Init(1));
    queue.Uninit();
    EXPECT_TRUE(queue.Init(1));
  }
}

TEST(BufferQueue, InitFailsIfCreateBufferThrows) {
  NumberQueue queue;
  queue.throwing = 3;
  EXPECT_FALSE(queue.Init(5));
  EXPECT_THAT(queue.destroyed, ElementsAre(1, 2));
  EXPECT_EQ(queue.GetFreeBuffer(), nullptr);
  EXPECT_TRUE(queue.Init(5));
}

unsigned countedAllocations = 0;
unsigned failingAllocation = 0;  // number of the failing allocation; 0: none

// Counts allocations and can fail one.
template <typename T>
struct CountingAllocator : std::allocator<T> {
  using value_type = T;
  template <typename Other>
  struct rebind {
    using other = CountingAllocator<Other>;
  };
  T* allocate(std::size_t count) {
    if (++countedAllocations == failingAllocation) {
      throw std::bad_alloc();
    }
    return std::allocator<T>::allocate(count);
  }
};

class CountedQueue : public CBufferQueue<int*, CountingAllocator<int*>> {
 public:
  CountedQueue() = default;
  CountedQueue(const CountedQueue&) = delete;
  CountedQueue& operator=(const CountedQueue&) = delete;
  ~CountedQueue() override { Uninit(); }
  int* CreateBuffer() override {
    ++alive;
    return &alive;
  }
  void DestroyBuffer(int* /*buffer*/) override { --alive; }

  int alive = 0;
};

TEST(BufferQueue, InitFailsWithoutLeakIfTheListsCannotBeAllocated) {
  CountedQueue queue;
  unsigned number = 0;
  do {
    EXPECT_EQ(queue.alive, 0);
    countedAllocations = 0;
    failingAllocation = ++number;
  } while (!queue.Init(5));
  failingAllocation = 0;
  EXPECT_GT(number, 1U) << "it had to do without memory";
  EXPECT_EQ(queue.alive, 5);
}

TEST(BufferQueue, RunningQueueDoesNotAllocate) {
  countedAllocations = 0;
  CountedQueue queue;
  EXPECT_EQ(countedAllocations, 0U) << "an idle queue needs none";
  EXPECT_TRUE(queue.Init(5));
  const unsigned atFirst = countedAllocations;
  EXPECT_GT(atFirst, 0U);
  for (int i = 0; i < 100'000; ++i) {
    queue.PutDataBuffer(queue.GetFreeBuffer());
    queue.PutFreeBuffer(queue.GetDataBuffer());
  }
  EXPECT_EQ(countedAllocations, atFirst);
}

}  // namespace
