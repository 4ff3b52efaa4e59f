// Pieces of JSON texts.
#pragma once

#include <string>

#include "cli/Text.h"

template <typename List, typename Write>
std::string JsonArray(const List& list, const Write& write) {
  std::string text;
  for (const auto& entry : list) {
    text += (text.empty() ? "" : ",") + write(entry);
  }
  return "[" + text + "]";
}

inline std::string JsonBool(bool value) { return value ? "true" : "false"; }

// null for an empty text.
inline std::string JsonTextOrNull(const std::string& text) {
  return text.empty() ? "null" : JsonString(text);
}
