// The one way in which src/ takes a pointer out of a COM call.
#pragma once

#include <type_traits>

#include "DirectShow.h"

// Makes a call that hands out a pointer, and stores the pointer if the call returned S_OK. With any other
// result *place stays as it is: what such a call hands out still belongs to the callee and is neither used
// nor released nor freed. The call gets a T**, or a void** if that is what it takes. Returns the call's
// result.
template <typename T, typename Call>
HRESULT Receive(T** place, Call call) {
  std::conditional_t<std::is_invocable_v<Call, void**>, void, T>* received = nullptr;
  const HRESULT hr = call(&received);
  if (hr == S_OK) {
    *place = static_cast<T*>(received);
  }
  return hr;
}
