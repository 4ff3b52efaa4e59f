// The last moments of a close on Windows: the pin is released, and the closing thread has yet to leave the
// library.
#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <thread>

#include "DefaultsTest.h"
#include "support/WaitFor.h"

namespace {

// The address of that imported function in a loaded module. Null if the module does not import it.
void** FindImport(HMODULE module, const char* function) {
  auto* const base = reinterpret_cast<std::uint8_t*>(module);
  const auto* const dosHeader = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* const ntHeaders = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dosHeader->e_lfanew);
  const IMAGE_DATA_DIRECTORY& directory =
      ntHeaders->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  const auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
  for (; library->Name != 0; ++library) {
    const auto* name = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + library->OriginalFirstThunk);
    auto* address = reinterpret_cast<void**>(base + library->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++address) {
      const auto* const import = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
      if (!IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal) && std::strcmp(import->Name, function) == 0) {
        return address;
      }
    }
  }
  return nullptr;
}

template <typename Function>
void ReplaceImport(HMODULE module, const char* name, Function* replacement) {
  void** const address = FindImport(module, name);
  ASSERT_NE(address, nullptr) << name;
  DWORD protection = 0;
  ASSERT_TRUE(VirtualProtect(address, sizeof(*address), PAGE_READWRITE, &protection));
  *address = reinterpret_cast<void*>(replacement);
  VirtualProtect(address, sizeof(*address), protection, &protection);
}

// Keeps the closing thread in its last system call until another thread of the host unloads the library.
class ReturnOfClose : public Defaults {
 protected:
  void SetUp() override {
    Defaults::SetUp();
    current = this;
    const HMODULE module = GetModuleHandleA(NUVEQ_LIBRARY_FILE);
    ASSERT_NE(module, nullptr);
    ASSERT_NO_FATAL_FAILURE(ReplaceImport(module, "CreateThread", &OnCreateThread));
    ASSERT_NO_FATAL_FAILURE(ReplaceImport(module, "CloseHandle", &OnCloseHandle));
    ASSERT_NO_FATAL_FAILURE(ReplaceImport(module, "SetEvent", &OnSetEvent));
  }

  // The library creates a thread with this function only to release the pin.
  static HANDLE WINAPI OnCreateThread(SECURITY_ATTRIBUTES* security, SIZE_T stackSize,
                                      LPTHREAD_START_ROUTINE function, void* parameter, DWORD flags,
                                      DWORD* id) {
    current->closingThread = GetCurrentThreadId();
    return CreateThread(security, stackSize, function, parameter, flags, id);
  }

  static BOOL WINAPI OnCloseHandle(HANDLE handle) {
    ReturnOfClose& test = *current;
    if (test.closingThread == GetCurrentThreadId()) {
      test.pinReleased.Open();
      test.unloadWaitsOrReturned.Wait();
      if (test.hasUnloadReturned) {
        std::cerr << "The library was unmapped while a thread was in it.\n";
        std::_Exit(EXIT_FAILURE);
      }
    }
    return CloseHandle(handle);
  }

  // The unload announces that it waits for the closing thread.
  static BOOL WINAPI OnSetEvent(HANDLE event) {
    if (current->unloadingThread == GetCurrentThreadId()) {
      current->hasUnloadWaited = true;
      current->unloadWaitsOrReturned.Open();
    }
    return SetEvent(event);
  }

  void UnloadOnAnotherThread() {
    unloadingThread = GetCurrentThreadId();
    library.Unload();
    hasUnloadReturned = true;
    unloadWaitsOrReturned.Open();
  }

  inline static ReturnOfClose* current = nullptr;
  std::atomic<DWORD> closingThread = 0;
  std::atomic<DWORD> unloadingThread = 0;
  std::atomic<bool> hasUnloadReturned = false;
  std::atomic<bool> hasUnloadWaited = false;
  Gate pinReleased;
  Gate unloadWaitsOrReturned;
};

TEST_F(ReturnOfClose, UnloadByAnotherThreadWaitsUntilTheClosingThreadHasLeft) {
  QueryAndOpen();
  std::thread unloader([&] {
    EXPECT_TRUE(pinReleased.Wait());
    UnloadOnAnotherThread();
  });
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  unloader.join();
  EXPECT_TRUE(hasUnloadWaited);
  EXPECT_FALSE(library.IsMapped());
}

}  // namespace
