// Reads HTTP/1.1 requests from bytes, within limits, with Boost.Beast.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "view/Http.h"

namespace nuveqcam {

struct HttpParserLimits {
  // A browser sends the cookies of all servers of this computer, whatever their ports.
  std::size_t headerBytes = std::size_t{64} * 1024;
  std::size_t bodyBytes = 4096;
};

enum class ParseResult { kMore, kRequest, kError };

class HttpParser {
 public:
  explicit HttpParser(const HttpParserLimits& limits = {});
  HttpParser(const HttpParser&) = delete;
  HttpParser& operator=(const HttpParser&) = delete;
  ~HttpParser();

  // Adds bytes, which may be empty. kMore: the request is incomplete. kRequest: call Take. kError: the
  // request is invalid or exceeds a limit; nothing after it can be read.
  ParseResult Feed(std::span<const std::uint8_t> bytes);
  // The request, after kRequest. The bytes behind it remain: call Feed for the next one.
  HttpRequest Take();
  // The status of the response, after kError.
  unsigned ErrorStatus() const;
  // True if a part of the next request has arrived.
  bool HasBegun() const;

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

}  // namespace nuveqcam
