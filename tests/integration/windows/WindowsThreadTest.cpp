// Name and priority of the encoder thread.
#include <windows.h>

#include <tlhelp32.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "WindowsCameraTest.h"

namespace {

struct CloseAtEnd {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using OwnedHandle = std::unique_ptr<void, CloseAtEnd>;
using GetDescription = HRESULT(WINAPI*)(HANDLE, PWSTR*);

// Priorities of the threads of this process by thread id.
std::map<DWORD, int> ThreadPriorities() {
  std::map<DWORD, int> priorities;
  const OwnedHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  THREADENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  for (BOOL more = Thread32First(snapshot.get(), &entry); more != FALSE;
       more = Thread32Next(snapshot.get(), &entry)) {
    if (entry.th32OwnerProcessID != GetCurrentProcessId()) {
      continue;
    }
    // Fails for a thread that has ended since the snapshot.
    if (const OwnedHandle thread(OpenThread(THREAD_QUERY_INFORMATION, FALSE, entry.th32ThreadID)); thread) {
      priorities[entry.th32ThreadID] = GetThreadPriority(thread.get());
    }
  }
  return priorities;
}

// Null if the system does not support thread names.
GetDescription FindGetThreadDescription() {
  return reinterpret_cast<GetDescription>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "GetThreadDescription")));
}

std::wstring NameOf(DWORD id) {
  const OwnedHandle thread(OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, id));
  PWSTR text = nullptr;
  if (!thread || FindGetThreadDescription()(thread.get(), &text) < 0) {
    return L"(none)";
  }
  const std::wstring name(text);
  LocalFree(text);
  return name;
}

class EncoderThread : public WindowsCameraTest {
 protected:
  // Returns the id of the thread that calls the data callback.
  DWORD OpenAndFindThread() {
    host.InData([this](const Packet&) { m_id = GetCurrentThreadId(); });
    EXPECT_EQ(Query(), 0);
    EXPECT_EQ(Open(), 0);
    EXPECT_TRUE(WaitFor([this] { return m_id != 0; }));
    return m_id;
  }

 private:
  std::atomic<DWORD> m_id = 0;
};

TEST_F(EncoderThread, HasRaisedPriorityWhileTheCameraIsOpen) {
  const std::map<DWORD, int> before = ThreadPriorities();
  const DWORD id = OpenAndFindThread();
  const std::map<DWORD, int> priorities = ThreadPriorities();
  ASSERT_TRUE(priorities.contains(id));
  EXPECT_EQ(priorities.at(id), THREAD_PRIORITY_ABOVE_NORMAL);
  for (const auto& [thread, priority] : priorities) {
    if (before.contains(thread)) {
      EXPECT_EQ(priority, before.at(thread)) << "the priority of a host thread has changed";
    }
  }
  Close();
  EXPECT_FALSE(ThreadPriorities().contains(id));
}

TEST_F(EncoderThread, HasANameIfTheSystemSupportsNames) {
  if (FindGetThreadDescription() == nullptr) {
    GTEST_SKIP() << "DID NOT RUN: this system does not support thread names";
  }
  const DWORD id = OpenAndFindThread();
  EXPECT_EQ(NameOf(id), L"nuveq-encoder");
  EXPECT_NE(NameOf(GetCurrentThreadId()), L"nuveq-encoder");
  Close();
}

}  // namespace
