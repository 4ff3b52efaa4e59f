#include "view/HttpServer.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/status.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "cli/Failure.h"
#include "cli/Text.h"
#include "recording/PacketQueue.h"
#include "view/LocalSocket.h"

namespace nuveqcam {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;

constexpr std::size_t kReadBytes = 4096;
// How much a client may send that is not read: while it receives an endless response, and after the last one.
constexpr std::size_t kMaxDiscardedBytes = std::size_t{256} * 1024;
constexpr Clock::time_point kNever = Clock::time_point::max();
// For the completion of cancelled operations.
constexpr std::chrono::seconds kCleanupTime{1};
constexpr int kPortAttempts = 16;

// The body of a message for Beast's serializer, which requires the names: parts that follow each other.
struct PartBody {
  struct value_type {
    std::optional<BodyPart> part;  // the next one
    bool hasMore = false;          // others may follow it
  };

  class writer {
   public:
    using const_buffers_type = std::array<asio::const_buffer, 2>;

    template <bool isRequest, class Fields>
    writer(const http::header<isRequest, Fields>& /*header*/, const value_type& value) : m_value(value) {}

    void init(error_code& error) { error = {}; }

    // The part is sent before the next call, which asks for another one.
    boost::optional<std::pair<const_buffers_type, bool>> get(error_code& error) {
      error = {};
      if (!std::exchange(m_isWritten, false) && m_value.part) {
        m_isWritten = true;
        const BodyPart& part = *m_value.part;
        const const_buffers_type buffers{asio::buffer(part.head),
                                         asio::buffer(part.bytes.data(), part.bytes.size())};
        return {{buffers, m_value.hasMore}};
      }
      if (m_value.hasMore) {
        error = http::error::need_buffer;
      }
      return boost::none;
    }

   private:
    const value_type& m_value;
    bool m_isWritten = false;
  };
};

// For what the handler does not answer: "431 Request Header Fields Too Large".
HttpResponse StatusResponse(unsigned status) {
  const auto reason = http::obsolete_reason(http::int_to_status(status));
  const std::string text = std::to_string(status) + " " + std::string(reason.data(), reason.size()) + "\n";
  HttpResponse response;
  response.status = status;
  response.fields = {{"Content-Type", "text/plain"}};
  response.body.head.assign(text.begin(), text.end());
  return response;
}

class Connection;

// What the connections share. They do not outlive it.
struct Shared {
  HttpLimits limits;
  std::vector<HttpField> fields;  // of every response
  HttpHandler handler;
  // Its handlers own connections, too.
  asio::io_context context{1};
  // The oldest first. Their sockets must not outlive the context.
  std::vector<std::shared_ptr<Connection>> connections;
  // A call of ContinueReady is posted: one for all connections that a packet makes ready.
  std::atomic<bool> isContinuing = false;
};

// Lets the connections whose sources are ready continue.
void ContinueReady(Shared& shared);

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(Shared& shared, tcp::socket socket)
      : m_shared(shared), m_socket(std::move(socket)), m_parser(shared.limits.parser) {}

  // `isRefused`: its request is answered with 503.
  void Start(bool isRefused) {
    m_isRefused = isRefused;
    m_socket.set_option(tcp::no_delay(true));
    m_socket.set_option(asio::socket_base::send_buffer_size(m_shared.limits.sendBuffer));
    m_deadline = Clock::now() + m_shared.limits.request;
    m_isReceiving = true;
    Read();
  }

  void CloseIfExpired(Clock::time_point now) {
    if (now >= m_deadline) {
      Close();
    }
  }

  // Its source may have a part.
  void ContinueIfReady() {
    if (m_isReady->exchange(false)) {
      Do({}, [this] { OnReady(); });
    }
  }

  // Whether it has not shown that it may use the server. The answer to a request that is not permitted comes
  // at once, so one that is waited for belongs to a permitted request.
  bool IsUnknown() const { return !m_isPermitted && !m_awaitsReply; }

  // The memory of a write in progress, which the message and the serializer have, stays valid until its
  // handler has run.
  void Close() {
    // Keeps the object alive when it leaves the list.
    const auto self = shared_from_this();
    error_code ignored;
    m_socket.close(ignored);
    m_source.reset();
    std::erase(m_shared.connections, self);
  }

 private:
  // A completion handler, which keeps the connection alive. An error or an exception closes the connection.
  template <typename Step>
  auto Then(Step step) {
    return [self = shared_from_this(), step](const error_code& error, std::size_t count) {
      self->Do(error, [&] { step(count); });
    };
  }

  template <typename Step>
  void Do(const error_code& error, const Step& step) {
    if (!m_socket.is_open()) {
      return;
    }
    if (error) {
      Close();
      return;
    }
    try {
      step();
    } catch (const std::exception&) {
      // Out of memory, or a body source that has failed. The client notices that the response is incomplete.
      Close();
    }
  }

  // Requests

  void Read() {
    m_socket.async_read_some(asio::buffer(m_input), Then([this](std::size_t count) {
                               Parse({m_input.data(), count});
                             }));
  }

  void Parse(std::span<const std::uint8_t> bytes) {
    switch (m_parser.Feed(bytes)) {
      case ParseResult::kMore:
        if (!m_isReceiving && m_parser.HasBegun()) {
          m_isReceiving = true;
          m_deadline = Clock::now() + m_shared.limits.request;
        }
        Read();
        return;
      case ParseResult::kRequest:
        Handle(m_parser.Take());
        return;
      case ParseResult::kError:
        m_keepsConnection = false;
        Respond(StatusResponse(m_parser.ErrorStatus()));
        return;
    }
  }

  void Handle(const HttpRequest& request) {
    m_keepsConnection = request.keepsConnection;
    m_isHead = request.method == "HEAD";
    m_isHttp10 = request.isHttp10;
    if (m_isRefused) {
      m_keepsConnection = false;
      Respond(StatusResponse(HttpStatus::kUnavailable));
      return;
    }
    // The handler bounds the time.
    m_deadline = kNever;
    m_awaitsReply = true;
    ++m_requestNumber;
    // The handler may call the reply on another thread, after the connection was closed, and, against the
    // rules, more than once.
    m_shared.handler(request, [weak = weak_from_this(), &context = m_shared.context,
                               number = m_requestNumber](const HttpResponse& response) {
      asio::post(context, [weak, number, response] {
        if (const auto self = weak.lock()) {
          self->Do({}, [&] { self->OnReply(number, response); });
        }
      });
    });
  }

  // Responses

  void OnReply(std::uint64_t number, const HttpResponse& response) {
    if (number != m_requestNumber || !std::exchange(m_awaitsReply, false)) {
      return;
    }
    if (response.isDenied) {
      m_keepsConnection = false;
    } else {
      m_isPermitted = true;
    }
    Respond(response);
  }

  void Respond(const HttpResponse& response) {
    const std::optional<std::uint64_t> size =
        response.source ? response.source->Size() : response.body.Size();
    // An endless response is the last one of its connection.
    m_keepsConnection = m_keepsConnection && size;
    m_remaining = size;
    m_source = m_isHead ? nullptr : response.source;
    MakeMessage(response, size);
    if (m_source && !size) {
      Discard();
    }
    Write();
    if (m_source) {
      m_source->Start(ReadyFunction());
    }
  }

  void MakeMessage(const HttpResponse& response, std::optional<std::uint64_t> size) {
    constexpr unsigned kVersion10 = 10;
    constexpr unsigned kVersion11 = 11;
    m_serializer.reset();
    auto& message =
        m_message.emplace(http::int_to_status(response.status), m_isHttp10 ? kVersion10 : kVersion11);
    message.insert(http::field::date, HttpDate(std::chrono::system_clock::now()));
    const auto insert = [&](const HttpField& field) { message.insert(field.name, field.value); };
    std::ranges::for_each(m_shared.fields, insert);
    std::ranges::for_each(response.fields, insert);
    if (size) {
      message.content_length(*size);
    } else if (!m_isHttp10) {
      message.chunked(true);
    }
    message.keep_alive(m_keepsConnection);
    message.body().hasMore = m_source != nullptr;
    if (!m_isHead && !response.source && response.body.Size() != 0) {
      message.body().part = response.body;
    }
    m_serializer.emplace(message);
    // The header does not wait for the first part of a source. A response to HEAD ends with it.
    m_serializer->split(m_isHead || m_source);
  }

  // The source may call it often, and on another thread.
  std::function<void()> ReadyFunction() {
    return [&shared = m_shared, isReady = m_isReady] {
      *isReady = true;
      if (shared.isContinuing.exchange(true)) {
        return;
      }
      try {
        asio::post(shared.context, [&shared] { ContinueReady(shared); });
      } catch (...) {
        // Out of memory: the next call tries again, for all connections.
        shared.isContinuing = false;
        throw;
      }
    };
  }

  void OnReady() {
    if (std::exchange(m_isWaiting, false)) {
      SendNextPart();
    }
  }

  // Sends what is left of the header and of the part, then the next part.
  void Write() {
    m_deadline = Clock::now() + m_shared.limits.stalled;
    bool isWriting = false;
    error_code error;
    m_serializer->next(error, [&](error_code& result, const auto& buffers) {
      result = {};
      isWriting = true;
      m_socket.async_write_some(buffers, Then([this](std::size_t count) { OnWritten(count); }));
    });
    if (isWriting) {
      return;
    }
    if (error == http::error::need_buffer) {
      SendNextPart();
    } else if (error) {
      throw boost::system::system_error(error);
    } else {
      FinishResponse();
    }
  }

  void OnWritten(std::size_t count) {
    m_serializer->consume(count);
    if (m_serializer->is_done() || (m_isHead && m_serializer->is_header_done())) {
      FinishResponse();
    } else {
      Write();
    }
  }

  void SendNextPart() {
    PartBody::value_type& body = m_message->body();
    body.part.reset();
    BodyPart part;
    switch (m_source->Next(part)) {
      case BodyState::kPart:
        NotePart(part.Size());
        body.part = std::move(part);
        Write();
        return;
      case BodyState::kWait:
        m_isWaiting = true;
        m_deadline = kNever;
        return;
      case BodyState::kEnd:
        if (m_remaining.value_or(0) != 0) {
          throw std::runtime_error("the body is too short");
        }
        m_source.reset();
        body.hasMore = false;
        Write();
        return;
    }
  }

  void NotePart(std::size_t size) {
    if (size == 0) {
      // An empty chunk would end the body.
      throw std::runtime_error("a part of the body is empty");
    }
    if (m_remaining) {
      if (size > *m_remaining) {
        throw std::runtime_error("the body is too long");
      }
      *m_remaining -= size;
    }
  }

  void FinishResponse() {
    m_serializer.reset();
    m_message.reset();
    if (m_keepsConnection) {
      m_isReceiving = false;
      m_deadline = Clock::now() + m_shared.limits.idle;
      // There may be another request in the parser.
      Parse({});
      return;
    }
    // Closing a socket with unread input would discard the response.
    error_code ignored;
    m_socket.shutdown(tcp::socket::shutdown_send, ignored);
    m_deadline = Clock::now() + m_shared.limits.linger;
    if (!m_isDiscarding) {
      Discard();
    }
  }

  // Reads until the client closes the connection, or at least its sending side. That is also noticed while
  // nothing is sent.
  void Discard() {
    m_isDiscarding = true;
    m_socket.async_read_some(asio::buffer(m_input), Then([this](std::size_t count) {
                               m_discarded += count;
                               if (m_discarded > kMaxDiscardedBytes) {
                                 Close();
                                 return;
                               }
                               Discard();
                             }));
  }

  Shared& m_shared;
  tcp::socket m_socket;
  Clock::time_point m_deadline = kNever;

  HttpParser m_parser;
  std::array<std::uint8_t, kReadBytes> m_input{};
  bool m_isReceiving = false;  // a part of a request has arrived
  bool m_isDiscarding = false;
  bool m_isRefused = false;
  bool m_isPermitted = false;  // a request was not denied
  bool m_awaitsReply = false;
  std::uint64_t m_requestNumber = 0;
  std::size_t m_discarded = 0;

  bool m_keepsConnection = false;
  bool m_isHead = false;
  bool m_isHttp10 = false;
  bool m_isWaiting = false;  // for the source
  const std::shared_ptr<std::atomic<bool>> m_isReady = std::make_shared<std::atomic<bool>>(false);
  std::shared_ptr<BodySource> m_source;
  std::optional<std::uint64_t> m_remaining;  // of a body of known size

  // Unchanged during a write.
  std::optional<http::response<PartBody>> m_message;
  std::optional<http::response_serializer<PartBody>> m_serializer;
};

void ContinueReady(Shared& shared) {
  shared.isContinuing = false;
  // Without a copy of the list, which could lack memory. A connection that fails leaves it.
  for (std::size_t i = 0; i < shared.connections.size();) {
    const std::shared_ptr<Connection> connection = shared.connections[i];
    connection->ContinueIfReady();
    if (i < shared.connections.size() && shared.connections[i] == connection) {
      ++i;
    }
  }
}

tcp::acceptor Listen(asio::io_context& context, const tcp::endpoint& endpoint, error_code& error) {
  tcp::acceptor acceptor(context);
  acceptor.open(endpoint.protocol(), error);
  if (!error && endpoint.protocol() == tcp::v6()) {
    acceptor.set_option(asio::ip::v6_only(true), error);
  }
  if (!error) {
    PrepareListener(static_cast<std::intptr_t>(acceptor.native_handle()));
    acceptor.bind(endpoint, error);
  }
  if (!error) {
    acceptor.listen(asio::socket_base::max_listen_connections, error);
  }
  return acceptor;
}

bool IsInUse(const error_code& error) { return error == asio::error::address_in_use; }

[[noreturn]] void ThrowListenFailure(std::uint16_t port, const error_code& error) {
  const std::string name = "port " + std::to_string(port);
  throw Failure(ExitCode::kUnexpected,
                (IsInUse(error) ? name + " is in use"
                                : "cannot use " + name + ": " + SanitizeForTerminal(error.message())) +
                    "; choose another one with --port");
}

// Both addresses have the same port, so that "localhost" reaches this program with either.
std::vector<tcp::acceptor> ListenOnBoth(asio::io_context& context, std::uint16_t port) {
  for (int attempt = 0;; ++attempt) {
    error_code error;
    std::vector<tcp::acceptor> acceptors;
    acceptors.push_back(Listen(context, {asio::ip::address_v4::loopback(), port}, error));
    if (error) {
      ThrowListenFailure(port, error);
    }
    const std::uint16_t chosen = acceptors.front().local_endpoint().port();
    tcp::acceptor second = Listen(context, {asio::ip::address_v6::loopback(), chosen}, error);
    if (!error) {
      acceptors.push_back(std::move(second));
    } else if (IsInUse(error) && port == 0 && attempt < kPortAttempts) {
      continue;
    } else if (IsInUse(error)) {
      ThrowListenFailure(chosen, error);
    }
    // Another error: the system has no IPv6.
    return acceptors;
  }
}

}  // namespace

class HttpServer::Impl {
 public:
  Impl(std::uint16_t port, const std::vector<HttpField>& fields, const HttpLimits& limits) {
    m_shared.limits = limits;
    m_shared.fields = fields;
    for (tcp::acceptor& acceptor : ListenOnBoth(m_shared.context, port)) {
      m_listeners.push_back({std::move(acceptor), false});
    }
  }

  std::uint16_t Port() const { return m_listeners.front().acceptor.local_endpoint().port(); }

  void Run(HttpHandler handler, std::chrono::milliseconds interval, const std::function<bool()>& onTick) {
    m_shared.handler = std::move(handler);
    try {
      // Waiting up to a time costs less than a timer, which Asio sets twice for each tick.
      const auto work = asio::make_work_guard(m_shared.context);
      while (onTick()) {
        AcceptOnAll();
        CloseExpired();
        m_shared.context.run_for(interval);
      }
    } catch (...) {
      CloseAll();
      throw;
    }
    CloseAll();
  }

  void Post(std::function<void()> task) { asio::post(m_shared.context, std::move(task)); }

 private:
  struct Listener {
    tcp::acceptor acceptor;
    bool isAccepting = false;
  };

  void AcceptOnAll() {
    for (Listener& listener : m_listeners) {
      // Accepting stops after an error, for example a lack of descriptors.
      if (!listener.isAccepting) {
        Accept(listener);
      }
    }
  }

  void CloseExpired() const {
    const auto now = Clock::now();
    // A copy, because closing removes them from the list.
    for (const auto& connection : std::vector(m_shared.connections)) {
      connection->CloseIfExpired(now);
    }
  }

  void Accept(Listener& listener) {
    listener.isAccepting = true;
    listener.acceptor.async_accept([this, &listener](const error_code& error, tcp::socket socket) {
      listener.isAccepting = false;
      // The acceptor may have been closed after it has accepted.
      if (!error && listener.acceptor.is_open()) {
        Add(std::move(socket));
        Accept(listener);
      }
    });
  }

  void Add(tcp::socket socket) {
    std::shared_ptr<Connection> connection;
    try {
      connection = std::make_shared<Connection>(m_shared, std::move(socket));
      const bool isRefused = !MakeRoom();
      m_shared.connections.push_back(connection);
      connection->Start(isRefused);
    } catch (const std::exception&) {
      // Out of memory, or the client has already closed the connection.
      if (connection) {
        connection->Close();
      }
    }
  }

  // Clients that may not use the server must not keep the others away. Returns false if there is only room to
  // refuse a connection.
  bool MakeRoom() {
    std::vector<std::shared_ptr<Connection>>& connections = m_shared.connections;
    if (connections.size() >= m_shared.limits.connections) {
      const auto oldest =
          std::ranges::find_if(connections, [](const auto& connection) { return connection->IsUnknown(); });
      if (oldest != connections.end()) {
        // A copy, because closing removes it from the list.
        // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): it leaves the list when it is closed
        const std::shared_ptr<Connection> closed = *oldest;
        closed->Close();
      }
    }
    return connections.size() < m_shared.limits.connections;
  }

  void CloseAll() {
    for (Listener& listener : m_listeners) {
      error_code ignored;
      listener.acceptor.close(ignored);
    }
    for (const auto& connection : std::vector(m_shared.connections)) {
      connection->Close();
    }
    m_shared.context.restart();
    m_shared.context.run_for(kCleanupTime);
  }

  Shared m_shared;
  std::vector<Listener> m_listeners;
};

HttpServer::HttpServer(std::uint16_t port, const std::vector<HttpField>& fields, const HttpLimits& limits)
    : m_impl(std::make_unique<Impl>(port, fields, limits)) {}

HttpServer::~HttpServer() = default;

std::uint16_t HttpServer::Port() const { return m_impl->Port(); }

void HttpServer::Run(HttpHandler handler, std::chrono::milliseconds interval,
                     const std::function<bool()>& onTick) {
  m_impl->Run(std::move(handler), interval, onTick);
}

void HttpServer::Post(std::function<void()> task) { m_impl->Post(std::move(task)); }

}  // namespace nuveqcam
