// Tests of CBufferQueue without frames.
#include "CBufferQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <new>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using ::testing::ElementsAre;

// A queue of numbers. Creating the number `fails` returns null or throws.
class NumberQueue : public CBufferQueue<int*> {
 public:
  ~NumberQueue() override { Uninit(); }
  int* CreateBuffer() override {
    const int number = ++made;
    if (number == throws) {
      throw std::bad_alloc();
    }
    if (number == breaksOff) {
      throw std::runtime_error("buffer");
    }
    return number == fails ? nullptr : std::make_unique<int>(number).release();
  }
  void DestroyBuffer(int* buffer) override {
    const std::unique_ptr<int> owner(buffer);
    destroyed.push_back(*owner);
  }

  int fails = 0;
  int throws = 0;
  int breaksOff = 0;
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
  queue.breaksOff = 3;
  EXPECT_FALSE(queue.Init(5));
  EXPECT_THAT(queue.destroyed, ElementsAre(1, 2));
  EXPECT_TRUE(queue.Init(5));
}

TEST(BufferQueue, InitFailsIfABufferCannotBeAllocated) {
  NumberQueue queue;
  queue.throws = 3;
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

TEST(BufferQueue, ManyProducersAndConsumersPassEveryBufferOnce) {
  constexpr int kThreads = 3;
  constexpr int kRounds = 20'000;
  NumberQueue queue;
  ASSERT_TRUE(queue.Init(5));
  std::array<std::atomic<int>, 6> holders{};
  std::atomic<long> produced = 0;
  std::atomic<long> consumed = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        int* const buffer = queue.GetFreeBuffer();
        EXPECT_EQ(++holders.at(static_cast<std::size_t>(*buffer)), 1);
        ++produced;
        --holders.at(static_cast<std::size_t>(*buffer));
        queue.PutDataBuffer(buffer);
      }
    });
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        int* const buffer = queue.GetDataBuffer();
        EXPECT_EQ(++holders.at(static_cast<std::size_t>(*buffer)), 1);
        ++consumed;
        --holders.at(static_cast<std::size_t>(*buffer));
        queue.PutFreeBuffer(buffer);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(produced, kThreads * kRounds);
  EXPECT_EQ(consumed, kThreads * kRounds);
  queue.Stop();
  std::set<int> all;
  while (int* const buffer = queue.GetFreeBuffer()) {
    all.insert(*buffer);
  }
  EXPECT_EQ(all, (std::set<int>{1, 2, 3, 4, 5}));
}

}  // namespace
