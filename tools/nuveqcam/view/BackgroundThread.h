// A thread for tasks that take too long for the server's thread.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

namespace nuveqcam {

// The tasks of a background thread, which it may outlive. Thread-safe.
class BackgroundTasks {
 public:
  using Task = std::function<void()>;

  BackgroundTasks() = default;
  BackgroundTasks(const BackgroundTasks&) = delete;
  BackgroundTasks& operator=(const BackgroundTasks&) = delete;
  ~BackgroundTasks() = default;

  // The thread calls the task after the earlier ones, and destroys it. Returns false, without keeping the
  // task, if the thread has ended or ends. An exception of the task is ignored.
  bool Add(Task task);

 private:
  friend class BackgroundThread;

  // Waits for a task; empty at the end.
  Task Take();
  void End();

  std::mutex m_mutex;
  std::condition_variable m_hasWork;
  std::deque<Task> m_tasks;
  bool m_isEnding = false;
};

// Not thread-safe.
class BackgroundThread {
 public:
  BackgroundThread() = default;
  BackgroundThread(const BackgroundThread&) = delete;
  BackgroundThread& operator=(const BackgroundThread&) = delete;
  // Waits for the task that is running, and discards the others.
  ~BackgroundThread();

  // Adds a task. The first call starts the thread.
  void Run(BackgroundTasks::Task task);
  // The tasks wait until the thread is started.
  const std::shared_ptr<BackgroundTasks>& Tasks() const { return m_tasks; }

 private:
  const std::shared_ptr<BackgroundTasks> m_tasks = std::make_shared<BackgroundTasks>();
  std::thread m_thread;
};

// Lets the background thread destroy the object, or the caller if the thread has ended.
template <typename T>
std::shared_ptr<T> DestroyInBackground(std::unique_ptr<T> object, std::shared_ptr<BackgroundTasks> tasks) {
  return {object.release(), [tasks = std::move(tasks)](T* released) noexcept {
            std::unique_ptr<T> owner(released);
            try {
              // std::function requires a copyable task.
              tasks->Add([shared = std::shared_ptr<T>(std::move(owner))] {});
            } catch (const std::bad_alloc&) {
              owner.reset();
            }
          }};
}

}  // namespace nuveqcam
