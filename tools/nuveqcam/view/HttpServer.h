// An HTTP/1.1 server for programs on this computer. Runs on one thread. The only part that uses
// Boost.Asio for I/O.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "view/Http.h"
#include "view/HttpParser.h"

namespace nuveqcam {

struct HttpLimits {
  HttpParserLimits parser;
  // A further connection replaces the oldest one that has not made a permitted request. If there is none, its
  // request is answered with 503.
  std::size_t connections = 64;
  // From the first byte of a request, or from the connection, to its last byte.
  std::chrono::milliseconds request{10'000};
  // Between two requests.
  std::chrono::milliseconds idle{30'000};
  // Without any byte of a response accepted by the client.
  std::chrono::milliseconds stalled{60'000};
  // For the client to close the connection after the last response.
  std::chrono::milliseconds linger{1000};
  // Of a socket, in bytes: bounds what the system keeps for a client that has stopped reading.
  int sendBuffer = 256 * 1024;
};

class HttpServer {
 public:
  // Listens on 127.0.0.1 and, if the system has it, ::1. Port 0: any free one. `fields` are part of every
  // response. Throws Failure (kUnexpected).
  HttpServer(std::uint16_t port, const std::vector<HttpField>& fields, const HttpLimits& limits = {});
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;
  // Destroys the body sources that are left.
  ~HttpServer();

  std::uint16_t Port() const;

  // Answers requests until `onTick`, which is called once in each interval, returns false. Then closes all
  // connections. An exception of `onTick` or of a posted task does so, too, and is passed on.
  void Run(HttpHandler handler, std::chrono::milliseconds interval, const std::function<bool()>& onTick);
  // Calls the task on the thread of Run, or never if Run has returned. Thread-safe.
  void Post(std::function<void()> task);

 private:
  class Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace nuveqcam
