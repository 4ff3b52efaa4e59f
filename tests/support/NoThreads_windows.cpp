#include "support/NoThreads.h"

#include <windows.h>

#include <cerrno>
#include <cstring>

// The standard library's threads are made by a library that asks the C runtime for them. While threads are
// refused, that request ends up here.

namespace {

constexpr const wchar_t* kThreadLibrary = L"libwinpthread-1.dll";

std::uintptr_t RefuseThread(void*, unsigned, unsigned (*)(void*), void*, unsigned, unsigned*) {
  errno = EAGAIN;
  return 0;
}

// What stands at an offset into a loaded module.
template <typename What>
What* At(HMODULE module, std::size_t offset) {
  return reinterpret_cast<What*>(reinterpret_cast<BYTE*>(module) + offset);
}

// Where the module keeps the address of the function that it imports under that name; null: it imports none.
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

struct NoThreads::Before {
  ULONGLONG* place = nullptr;
  ULONGLONG function = 0;
};

NoThreads::NoThreads() : m_before(std::make_unique<Before>()) {
  const HMODULE library = GetModuleHandleW(kThreadLibrary);
  m_before->place = library == nullptr ? nullptr : FindImport(library, "_beginthreadex");
  if (m_before->place != nullptr) {
    m_before->function = *m_before->place;
    Write(m_before->place, reinterpret_cast<ULONGLONG>(&RefuseThread));
  }
}

NoThreads::~NoThreads() {
  if (m_before->place != nullptr) {
    Write(m_before->place, m_before->function);
  }
}
