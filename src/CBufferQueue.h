// A fixed pool of buffers that circulate between a producer and a consumer thread.
//
// The producer takes an empty buffer (GetFreeBuffer), fills it and queues it (PutDataBuffer). The consumer
// takes it (GetDataBuffer), uses it and returns it (PutFreeBuffer). Both getters block. No buffer is dropped,
// so a slow consumer slows the producer down. A buffer that is not returned is unavailable until Uninit.
//
//   Idle --Init--> Running --Stop--> Stopping --Uninit--> Idle
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

// T is a pointer type. All operations are thread-safe. Allocator provides the memory of the internal lists.
template <typename T, typename Allocator = std::allocator<T>>
class CBufferQueue {
 public:
  // winpthreads initialises a condition variable at the first wait, under a process-wide lock. If the process
  // ends while a thread holds that lock, the lock is never released and code that runs later deadlocks. So
  // both conditions are waited on once here, with a zero timeout, before another thread can use them.
  CBufferQueue() {
    std::mutex unshared;
    std::unique_lock lock(unshared);
    freeCond.wait_for(lock, std::chrono::nanoseconds(0));
    dataCond.wait_for(lock, std::chrono::nanoseconds(0));
  }
  CBufferQueue(const CBufferQueue&) = delete;
  CBufferQueue& operator=(const CBufferQueue&) = delete;

  // Derived classes call Uninit in their destructor: DestroyBuffer is no longer available here.
  virtual ~CBufferQueue() = default;

  // Creates one buffer. Null on failure.
  virtual T CreateBuffer() = 0;
  // Frees a buffer that CreateBuffer returned.
  virtual void DestroyBuffer(T buffer) = 0;

  // Creates count buffers and starts the queue. False if a pool exists, which stays as it is, or if a buffer
  // cannot be created; the queue is then empty.
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

  // Waits for the next empty buffer. Null once the queue is stopped and holds no empty buffer.
  T GetFreeBuffer() { return Get(freeQueue, freeMutex, freeCond); }
  // Returns a buffer to the pool. Ignores null, and every buffer once the queue is stopped.
  void PutFreeBuffer(T buffer) { Put(buffer, freeQueue, freeMutex, freeCond); }

  // As above, for filled buffers.
  T GetDataBuffer() { return Get(dataQueue, dataMutex, dataCond); }
  void PutDataBuffer(T buffer) { Put(buffer, dataQueue, dataMutex, dataCond); }

  // Wakes all waiting threads; later calls do not wait. No effect if stopped.
  void Stop() {
    const std::lock_guard freeLock(freeMutex);
    const std::lock_guard dataLock(dataMutex);
    StopLocked();
  }

  // Stops the queue and frees every buffer, including those that a thread has taken: no thread may use one
  // any more. No effect if idle.
  void Uninit() {
    const std::lock_guard freeLock(freeMutex);
    const std::lock_guard dataLock(dataMutex);
    StopLocked();
    Release();
  }

 private:
  // In FIFO order. Capacity for the whole pool is reserved by Init, so a running queue never allocates and
  // never loses a buffer when memory runs out. Pools are small: erasing the first element is cheap.
  using Buffers = std::vector<T, Allocator>;

  T Get(Buffers& queue, std::mutex& mutex, std::condition_variable& cond) {
    std::unique_lock lock(mutex);
    cond.wait(lock, [&] { return !queue.empty() || stopped; });
    // Buffers that were queued before the stop are still returned.
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
    // Under the mutex: otherwise the waiting thread could take the buffer and destroy the queue before the
    // notification.
    cond.notify_one();
  }

  // All or none. An exception counts as a failure.
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

  // Written under both mutexes, read under either. Lock order: freeMutex, dataMutex.
  bool stopped = true;
  Buffers allBuffers;  // owns the buffers
  Buffers freeQueue;
  Buffers dataQueue;
  std::mutex freeMutex;
  std::condition_variable freeCond;
  std::mutex dataMutex;
  std::condition_variable dataCond;
};
