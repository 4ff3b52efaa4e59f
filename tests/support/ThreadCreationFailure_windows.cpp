#include "support/ThreadCreationFailure.h"

#include <windows.h>

#include <cerrno>
#include <cstring>

namespace support {

// std::thread uses winpthreads, which calls _beginthreadex of the C runtime. This code replaces that entry of
// the import table of winpthreads.

namespace {

constexpr const wchar_t* kThreadLibrary = L"libwinpthread-1.dll";

std::uintptr_t RefuseThread(void*, unsigned, unsigned (*)(void*), void*, unsigned, unsigned*) {
  errno = EAGAIN;
  return 0;
}

// Returns a pointer to the T at an offset into a loaded module.
template <typename T>
T* At(HMODULE module, std::size_t offset) {
  return reinterpret_cast<T*>(reinterpret_cast<BYTE*>(module) + offset);
}

// Returns the entry of the module's import table for the function of that name; null if it does not import
// it.
ULONGLONG* FindImport(HMODULE module, const char* name) {
  const auto headerOffset = static_cast<std::size_t>(At<IMAGE_DOS_HEADER>(module, 0)->e_lfanew);
  const IMAGE_DATA_DIRECTORY& imports = At<IMAGE_NT_HEADERS64>(module, headerOffset)
                                            ->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  for (auto* from = At<IMAGE_IMPORT_DESCRIPTOR>(module, imports.VirtualAddress); from->Name != 0; ++from) {
    const auto* named = At<IMAGE_THUNK_DATA64>(module, from->OriginalFirstThunk);
    auto* bound = At<IMAGE_THUNK_DATA64>(module, from->FirstThunk);
    for (; named->u1.AddressOfData != 0; ++named, ++bound) {
      const bool hasName = (named->u1.Ordinal & IMAGE_ORDINAL_FLAG64) == 0;
      if (hasName &&
          std::strcmp(&At<IMAGE_IMPORT_BY_NAME>(module, named->u1.AddressOfData)->Name[0], name) == 0) {
        return &bound->u1.Function;
      }
    }
  }
  return nullptr;
}

void Write(ULONGLONG* place, ULONGLONG value) {
  DWORD protection = 0;
  VirtualProtect(place, sizeof(*place), PAGE_READWRITE, &protection);
  *place = value;
  VirtualProtect(place, sizeof(*place), protection, &protection);
}

}  // namespace

struct ThreadCreationFailure::SavedState {
  ULONGLONG* place = nullptr;
  ULONGLONG function = 0;
};

ThreadCreationFailure::ThreadCreationFailure() : m_savedState(std::make_unique<SavedState>()) {
  const HMODULE library = GetModuleHandleW(kThreadLibrary);
  m_savedState->place = library == nullptr ? nullptr : FindImport(library, "_beginthreadex");
  if (m_savedState->place != nullptr) {
    m_savedState->function = *m_savedState->place;
    Write(m_savedState->place, reinterpret_cast<ULONGLONG>(&RefuseThread));
  }
}

ThreadCreationFailure::~ThreadCreationFailure() {
  if (m_savedState->place != nullptr) {
    Write(m_savedState->place, m_savedState->function);
  }
}

}  // namespace support
