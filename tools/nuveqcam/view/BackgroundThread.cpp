#include "view/BackgroundThread.h"

#include <exception>
#include <utility>

namespace nuveqcam {
namespace {

// Returns false if the task has thrown: out of memory. Tasks report other failures themselves.
bool Call(const BackgroundTasks::Task& task) {
  try {
    task();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace

bool BackgroundTasks::Add(Task task) {
  {
    const std::lock_guard lock(m_mutex);
    if (m_isEnding) {
      return false;
    }
    m_tasks.push_back(std::move(task));
  }
  m_hasWork.notify_one();
  return true;
}

BackgroundTasks::Task BackgroundTasks::Take() {
  std::unique_lock lock(m_mutex);
  m_hasWork.wait(lock, [this] { return m_isEnding || !m_tasks.empty(); });
  if (m_isEnding) {
    return nullptr;
  }
  Task task = std::move(m_tasks.front());
  m_tasks.pop_front();
  return task;
}

void BackgroundTasks::End() {
  // What the tasks own is destroyed without the lock.
  std::deque<Task> discarded;
  {
    const std::lock_guard lock(m_mutex);
    m_isEnding = true;
    discarded.swap(m_tasks);
  }
  m_hasWork.notify_all();
}

BackgroundThread::~BackgroundThread() {
  m_tasks->End();
  if (m_thread.joinable()) {
    m_thread.join();
  }
}

void BackgroundThread::Run(BackgroundTasks::Task task) {
  if (!m_thread.joinable()) {
    m_thread = std::thread([tasks = m_tasks] {
      while (const BackgroundTasks::Task next = tasks->Take()) {
        Call(next);
      }
    });
  }
  m_tasks->Add(std::move(task));
}

}  // namespace nuveqcam
