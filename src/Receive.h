// Receives output pointers of COM calls.
#pragma once

#include <type_traits>

#include "DirectShow.h"

// Makes a call that has an output pointer and returns its result. Stores the pointer in *out if the result is
// S_OK. Otherwise *out is unchanged: the pointer still belongs to the callee and must not be used, released
// or freed. The call takes a T** or a void**.
template <typename T, typename Call>
HRESULT Receive(T** out, Call call) {
  std::conditional_t<std::is_invocable_v<Call, void**>, void, T>* received = nullptr;
  const HRESULT hr = call(&received);
  if (hr == S_OK) {
    *out = static_cast<T*>(received);
  }
  return hr;
}
