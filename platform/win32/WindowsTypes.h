// Scalar types, GUID and result codes of the Windows API for other systems. Sizes are those of 64-bit
// Windows, except WCHAR, which is the system's wchar_t.
#pragma once

#include <cstdint>
#include <cstring>

// NOLINTNEXTLINE(bugprone-reserved-identifier): the type's name on Windows
using __int64 = long long;

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using LONGLONG = __int64;
using ULONG_PTR = std::uintptr_t;
using HRESULT = std::int32_t;
using WCHAR = wchar_t;
using LPOLESTR = WCHAR*;
using LPCOLESTR = const WCHAR*;
using LPVOID = void*;
using HANDLE = void*;

constexpr BOOL FALSE = 0;
constexpr BOOL TRUE = 1;
constexpr DWORD INFINITE = 0xFFFFFFFF;

struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
static_assert(sizeof(GUID) == 16);

using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

inline bool IsEqualGUID(REFGUID a, REFGUID b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }
inline bool operator==(REFGUID a, REFGUID b) { return IsEqualGUID(a, b); }

struct tagSIZE {
  LONG cx;
  LONG cy;
};
using SIZE = tagSIZE;

struct RECT {
  LONG left;
  LONG top;
  LONG right;
  LONG bottom;
};

// Calling conventions. Empty: the system's standard one.
#define STDMETHODCALLTYPE
#define WINAPI

constexpr HRESULT ResultCode(std::uint32_t bits) { return static_cast<HRESULT>(bits); }

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = ResultCode(0x80004001);
constexpr HRESULT E_NOINTERFACE = ResultCode(0x80004002);
constexpr HRESULT E_POINTER = ResultCode(0x80004003);
constexpr HRESULT E_ABORT = ResultCode(0x80004004);
constexpr HRESULT E_FAIL = ResultCode(0x80004005);
constexpr HRESULT E_UNEXPECTED = ResultCode(0x8000FFFF);
constexpr HRESULT E_ACCESSDENIED = ResultCode(0x80070005);
constexpr HRESULT E_OUTOFMEMORY = ResultCode(0x8007000E);
constexpr HRESULT E_INVALIDARG = ResultCode(0x80070057);
constexpr HRESULT REGDB_E_CLASSNOTREG = ResultCode(0x80040154);
constexpr HRESULT VFW_E_CANNOT_CONNECT = ResultCode(0x80040217);
constexpr HRESULT VFW_E_WRONG_STATE = ResultCode(0x80040227);
