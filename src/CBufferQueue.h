// A fixed pool of buffers that circulate between a producer and a consumer thread.
//
// The producer takes an empty buffer (GetFreeBuffer), fills it and passes it on (PutDataBuffer); the consumer
// takes it (GetDataBuffer), uses it and gives it back (PutFreeBuffer). Gets wait; nothing is ever dropped, so
// a slow consumer slows the producer down. A buffer that is never put back leaves circulation until Uninit.
//
//   Idle --Init--> Running --Stop--> Stopping --Uninit--> Idle
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

// T is a pointer type. All operations may be called from any thread. The lists' memory comes from the
// allocator.
template <typename T, typename Allocator = std::allocator<T>>
class CBufferQueue {
 public:
  // There are thread libraries that set a condition up when it is first waited on, under a lock of the whole
  // process. A process that ends just then, and with it the waiting thread, leaves that lock taken for
  // whoever comes later. So the conditions are waited on once before any thread is there, for no time.
  CBufferQueue() {
    std::mutex nobodys;
    std::unique_lock lock(nobodys);
    freeCond.wait_for(lock, std::chrono::nanoseconds(0));
    dataCond.wait_for(lock, std::chrono::nanoseconds(0));
  }
  CBufferQueue(const CBufferQueue&) = delete;
  CBufferQueue& operator=(const CBufferQueue&) = delete;

  // A derived class calls Uninit in its own destructor: here its DestroyBuffer is no longer there.
  virtual ~CBufferQueue() = default;

  // Makes one buffer, or answers null.
  virtual T CreateBuffer() = 0;
  // Frees one buffer that CreateBuffer made.
  virtual void DestroyBuffer(T buffer) = 0;

  // Makes count buffers, all or none. False, and nothing changed, while a pool exists; false, and no pool,
  // when a buffer cannot be made.
  bool Init(unsigned count) {
    const std::lock_guard freeLock(freeMutex);
    const std::lock_guard dataLock(dataMutex);
    if (!stopped) {
      return false;
    }
    if (!allBuffers.empty() || !freeQueue.empty() || !dataQueue.empty()) {
      return false;
    }
    if (!CreateBuffers(count)) {
      Release();
      return false;
    }
    stopped = false;
    return true;
  }

  // The next empty buffer, waiting for one. Null once the queue is stopped and no buffer is left in it.
  T GetFreeBuffer() { return Get(freeQueue, freeMutex, freeCond); }
  // Puts a buffer back. Null is ignored; so is any buffer once the queue is stopped.
  void PutFreeBuffer(T buffer) { Put(buffer, freeQueue, freeMutex, freeCond); }

  // The same for filled buffers.
  T GetDataBuffer() { return Get(dataQueue, dataMutex, dataCond); }
  void PutDataBuffer(T buffer) { Put(buffer, dataQueue, dataMutex, dataCond); }

  // Ends all waiting, now and later. Harmless when stopped.
  void Stop() {
    const std::lock_guard freeLock(freeMutex);
    const std::lock_guard dataLock(dataMutex);
    StopLocked();
  }

  // Stops and frees every buffer, also those that somebody still holds: no thread may use one any more.
  // Harmless when idle.
  void Uninit() {
    const std::lock_guard freeLock(freeMutex);
    const std::lock_guard dataLock(dataMutex);
    StopLocked();
    Release();
  }

 private:
  // In the order in which they come out. Room for the whole pool is made with it, so that a running queue
  // neither touches the heap nor loses a buffer when there is no memory. There are few: moving up is cheap.
  using Buffers = std::vector<T, Allocator>;

  T Get(Buffers& queue, std::mutex& mutex, std::condition_variable& cond) {
    std::unique_lock lock(mutex);
    cond.wait(lock, [&] { return !queue.empty() || stopped; });
    // Buffers that were queued before the stop are still handed out.
    if (queue.empty()) {
      return nullptr;
    }
    T buffer = queue.front();
    queue.erase(queue.begin());
    return buffer;
  }

  void Put(T buffer, Buffers& queue, std::mutex& mutex, std::condition_variable& cond) {
    if (buffer == nullptr) {
      return;
    }
    const std::lock_guard lock(mutex);
    if (stopped) {
      return;
    }
    queue.push_back(buffer);
    // Under the mutex: who waits cannot have taken the buffer and be done with the queue before the signal.
    cond.notify_one();
  }

  // Whatever is thrown on the way counts as a buffer that could not be made: half a pool is none.
  bool CreateBuffers(unsigned count) try {
    allBuffers.reserve(count);
    freeQueue.reserve(count);
    dataQueue.reserve(count);
    while (allBuffers.size() < count) {
      T buffer = CreateBuffer();
      if (buffer == nullptr) {
        return false;
      }
      allBuffers.push_back(buffer);
      freeQueue.push_back(buffer);
    }
    return true;
  } catch (...) {
    return false;
  }

  void StopLocked() {
    if (stopped) {
      return;
    }
    stopped = true;
    freeCond.notify_all();
    dataCond.notify_all();
  }

  void Release() {
    freeQueue.clear();
    dataQueue.clear();
    for (T buffer : allBuffers) {
      DestroyBuffer(buffer);
    }
    allBuffers.clear();
  }

  // Written under both mutexes, read under either. Where both are taken, freeMutex comes first.
  bool stopped = true;
  Buffers allBuffers;  // the owner; the queues borrow
  Buffers freeQueue;
  Buffers dataQueue;
  std::mutex freeMutex;
  std::condition_variable freeCond;
  std::mutex dataMutex;
  std::condition_variable dataCond;
};
