#include "view/HttpServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "cli/Failure.h"
#include "support/WaitFor.h"

namespace nuveqcam {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using std::chrono::milliseconds;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr milliseconds kTick{5};

// A server on its own thread.
class RunningServer {
 public:
  explicit RunningServer(HttpHandler handler, const HttpLimits& limits = {})
      : m_server(0, {{"X-Every", "response"}}, limits), m_thread([this, handler = std::move(handler)] {
          try {
            m_server.Run(handler, kTick, [this] { return OnTick(); });
          } catch (const std::runtime_error&) {
            m_hasThrown = true;
          }
        }) {}
  RunningServer(const RunningServer&) = delete;
  RunningServer& operator=(const RunningServer&) = delete;
  ~RunningServer() { End(); }

  std::uint16_t Port() const { return m_server.Port(); }
  void Post(std::function<void()> task) { m_server.Post(std::move(task)); }
  void End() {
    m_isEnding = true;
    if (m_thread.joinable()) {
      m_thread.join();
    }
  }
  // Makes onTick throw. Returns whether Run has passed the exception on.
  bool Fail() {
    m_isFailing = true;
    m_thread.join();
    return m_hasThrown;
  }
  // Each tick is at least kTick after the previous one.
  bool WaitForTicks(int count) const {
    return WaitFor([end = m_ticks + count, this] { return m_ticks >= end; });
  }

 private:
  bool OnTick() {
    ++m_ticks;
    if (m_isFailing) {
      throw std::runtime_error("tick");
    }
    return !m_isEnding;
  }

  HttpServer m_server;
  std::atomic<int> m_ticks = 0;
  std::atomic<bool> m_isEnding = false;
  std::atomic<bool> m_isFailing = false;
  std::atomic<bool> m_hasThrown = false;
  std::thread m_thread;
};

// A connection to the server. Waits end after a timeout, which is a failure of the test.
class Client {
 public:
  explicit Client(const RunningServer& server,
                  const asio::ip::address& address = asio::ip::address_v4::loopback())
      : m_socket(m_context) {
    m_socket.connect({address, server.Port()});
  }

  // Returns false if the server has closed the connection.
  bool Send(std::string_view text) {
    error_code error;
    asio::write(m_socket, asio::buffer(text.data(), text.size()), error);
    return !error;
  }
  // Everything up to the end of the connection.
  std::string ReceiveAll() {
    while (ReceiveSome()) {
    }
    return std::exchange(m_received, {});
  }
  // Everything up to the given text, which the server sends.
  std::string ReceiveThrough(const std::string& end) {
    std::size_t at = m_received.find(end);
    while (at == std::string::npos && ReceiveSome()) {
      at = m_received.find(end);
    }
    EXPECT_NE(at, std::string::npos) << m_received;
    std::string text = m_received.substr(0, at + end.size());
    m_received.erase(0, text.size());
    return text;
  }
  // Ends the sending side only.
  void ShutdownSend() { m_socket.shutdown(tcp::socket::shutdown_send); }
  // Makes the system send a reset instead of the end of the stream.
  void Reset() {
    m_socket.set_option(asio::socket_base::linger(true, 0));
    m_socket.close();
  }
  void SetReceiveBuffer(int size) { m_socket.set_option(asio::socket_base::receive_buffer_size(size)); }

 private:
  // False at the end of the connection.
  bool ReceiveSome() {
    std::array<char, 4096> bytes{};
    bool isDone = false;
    bool hasBytes = false;
    m_socket.async_read_some(asio::buffer(bytes), [&](const error_code& error, std::size_t count) {
      isDone = true;
      hasBytes = !error;
      m_received.append(bytes.data(), count);
    });
    m_context.restart();
    m_context.run_for(kWaitTimeout);
    if (!isDone) {
      ADD_FAILURE() << "the server has neither sent anything nor closed the connection";
      m_socket.close();
      m_context.restart();
      m_context.run();
    }
    return hasBytes;
  }

  asio::io_context m_context;
  tcp::socket m_socket;
  std::string m_received;
};

HttpResponse TextResponse(const std::string& text) {
  HttpResponse response;
  response.fields = {{"X-Own", "field"}};
  response.body.head.assign(text.begin(), text.end());
  return response;
}

HttpResponse SourceResponse(std::shared_ptr<BodySource> source) {
  HttpResponse response;
  response.source = std::move(source);
  return response;
}

// Repeats the target.
void Echo(const HttpRequest& request, const HttpReply& reply) { reply(TextResponse(request.target)); }

std::string Get(const std::string& target) { return "GET " + target + " HTTP/1.1\r\n\r\n"; }

// A body that the test controls. Thread-safe.
class ScriptedBody : public BodySource {
 public:
  explicit ScriptedBody(std::optional<std::uint64_t> size = std::nullopt) : m_size(size) {}

  std::optional<std::uint64_t> Size() const override { return m_size; }
  void Start(std::function<void()> onReady) override {
    const std::lock_guard lock(m_mutex);
    m_onReady = std::move(onReady);
  }
  BodyState Next(BodyPart& part) override {
    const std::lock_guard lock(m_mutex);
    if (!m_text.empty()) {
      part.head.assign(m_text.begin(), m_text.end());
      m_text.clear();
      return BodyState::kPart;
    }
    return m_hasEnded ? BodyState::kEnd : BodyState::kWait;
  }

  bool HasStarted() const {
    const std::lock_guard lock(m_mutex);
    return m_onReady != nullptr;
  }
  void Add(const std::string& text) {
    const std::lock_guard lock(m_mutex);
    m_text += text;
    if (m_onReady) {
      m_onReady();
    }
  }
  void End() {
    const std::lock_guard lock(m_mutex);
    m_hasEnded = true;
    if (m_onReady) {
      m_onReady();
    }
  }

 private:
  const std::optional<std::uint64_t> m_size;
  mutable std::mutex m_mutex;
  std::function<void()> m_onReady;
  std::string m_text;
  bool m_hasEnded = false;
};

// A body without an end, which always has a part.
class EndlessBody : public BodySource {
 public:
  void Start(std::function<void()> /*onReady*/) override {}
  BodyState Next(BodyPart& part) override {
    part.head.assign(std::size_t{64} * 1024, 'x');
    return BodyState::kPart;
  }
};

// Makes one source for each request and watches its lifetime.
template <typename Source>
class SourceHandler {
 public:
  HttpHandler Handler() {
    return [this](const HttpRequest& /*request*/, const HttpReply& reply) {
      auto source = std::make_shared<Source>();
      {
        const std::lock_guard lock(m_mutex);
        m_latest = source;
        ++m_count;
      }
      reply(SourceResponse(std::move(source)));
    };
  }
  std::shared_ptr<Source> Latest() const {
    const std::lock_guard lock(m_mutex);
    return m_latest.lock();
  }
  bool WaitUntilCreated() const {
    return WaitFor([this] {
      const std::lock_guard lock(m_mutex);
      return m_count > 0;
    });
  }
  bool WaitUntilDestroyed() const {
    return WaitFor([this] { return Latest() == nullptr; });
  }

 private:
  mutable std::mutex m_mutex;
  std::weak_ptr<Source> m_latest;
  int m_count = 0;
};

TEST(HttpServer, ResponseHasTheFieldsAndTheBody) {
  const RunningServer server(Echo);
  Client client(server);
  client.Send("GET /hello HTTP/1.1\r\nConnection: close\r\n\r\n");
  const std::string received = client.ReceiveAll();
  EXPECT_THAT(received, StartsWith("HTTP/1.1 200 OK\r\nDate: "));
  EXPECT_THAT(received, EndsWith(" GMT\r\nX-Every: response\r\nX-Own: field\r\nContent-Length: "
                                 "6\r\nConnection: close\r\n\r\n/hello"));
}

TEST(HttpServer, ListensOnBothLoopbackAddresses) {
  const RunningServer server(Echo);
  asio::io_context context;
  tcp::acceptor probe(context);
  error_code error;
  probe.open(tcp::v6(), error);
  if (!error) {
    probe.bind({asio::ip::address_v6::loopback(), 0}, error);
  }
  if (error) {
    GTEST_SKIP() << "DID NOT RUN: this system has no IPv6";
  }
  Client client(server, asio::ip::address_v6::loopback());
  client.Send(Get("/six"));
  client.ReceiveThrough("/six");
}

TEST(HttpServer, HeadIsAnsweredWithoutTheBody) {
  const RunningServer server(Echo);
  Client client(server);
  client.Send("HEAD /hello HTTP/1.1\r\nConnection: close\r\n\r\n");
  EXPECT_THAT(client.ReceiveAll(), EndsWith("Content-Length: 6\r\nConnection: close\r\n\r\n"));
}

TEST(HttpServer, HeadKeepsTheConnection) {
  const RunningServer server(Echo);
  Client client(server);
  client.Send("HEAD /hello HTTP/1.1\r\n\r\n" + Get("/next"));
  EXPECT_THAT(client.ReceiveThrough("\r\n\r\n"), EndsWith("Content-Length: 6\r\n\r\n"));
  EXPECT_THAT(client.ReceiveThrough("/next"), StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST(HttpServer, EmptyBodyKeepsTheConnection) {
  const RunningServer server([](const HttpRequest& request, const HttpReply& reply) {
    reply(TextResponse(request.target == "/empty" ? "" : request.target));
  });
  Client client(server);
  client.Send(Get("/empty") + Get("/next"));
  EXPECT_THAT(client.ReceiveThrough("\r\n\r\n"), EndsWith("Content-Length: 0\r\n\r\n"));
  EXPECT_THAT(client.ReceiveThrough("/next"), StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST(HttpServer, HeadDoesNotStartASource) {
  const auto body = std::make_shared<ScriptedBody>();
  const RunningServer server(
      [&](const HttpRequest&, const HttpReply& reply) { reply(SourceResponse(body)); });
  Client client(server);
  client.Send("HEAD / HTTP/1.1\r\n\r\n");
  EXPECT_THAT(client.ReceiveAll(), EndsWith("\r\n\r\n"));
  EXPECT_FALSE(body->HasStarted());
}

TEST(HttpServer, PipelinedRequestsAreAnsweredInOrder) {
  const RunningServer server(Echo);
  Client client(server);
  std::string requests;
  for (int i = 0; i < 100; ++i) {
    requests += Get("/" + std::to_string(i));
  }
  client.Send(requests + "GET /last HTTP/1.1\r\nConnection: close\r\n\r\n");
  for (int i = 0; i < 100; ++i) {
    EXPECT_THAT(client.ReceiveThrough("\r\n\r\n/" + std::to_string(i)), StartsWith("HTTP/1.1 200 OK\r\n"));
  }
  EXPECT_THAT(client.ReceiveAll(), EndsWith("/last"));
}

// Keeps the replies of the requests "/" and answers the others at once.
class KeptReplies {
 public:
  HttpHandler Handler() {
    return [this](const HttpRequest& request, const HttpReply& reply) {
      const std::lock_guard lock(m_mutex);
      if (request.target == "/") {
        m_replies.push_back(reply);
      } else {
        Echo(request, reply);
      }
    };
  }
  bool WaitForRequests(std::size_t count) {
    return WaitFor([&] {
      const std::lock_guard lock(m_mutex);
      return m_replies.size() >= count;
    });
  }
  // Answers a request from the calling thread.
  void Reply(std::size_t index, const std::string& text) {
    ASSERT_TRUE(WaitForRequests(index + 1));
    const std::lock_guard lock(m_mutex);
    m_replies[index](TextResponse(text));
  }

 private:
  std::mutex m_mutex;
  std::vector<HttpReply> m_replies;
};

TEST(HttpServer, ReplyMayComeLaterFromAnotherThread) {
  KeptReplies kept;
  const RunningServer server(kept.Handler());
  Client client(server);
  client.Send(Get("/"));
  kept.Reply(0, "late");
  client.ReceiveThrough("late");
}

TEST(HttpServer, OnlyTheFirstReplyToARequestCounts) {
  KeptReplies kept;
  const RunningServer server(kept.Handler());
  Client client(server);
  client.Send(Get("/"));
  kept.Reply(0, "first");
  kept.Reply(0, "second");
  client.ReceiveThrough("first");
  client.Send("GET /next HTTP/1.1\r\nConnection: close\r\n\r\n");
  EXPECT_THAT(client.ReceiveAll(), Not(HasSubstr("second")));
}

TEST(HttpServer, ReplyToAnEarlierRequestIsIgnored) {
  KeptReplies kept;
  const RunningServer server(kept.Handler());
  Client client(server);
  client.Send(Get("/"));
  kept.Reply(0, "first");
  client.ReceiveThrough("first");
  client.Send(Get("/"));
  ASSERT_TRUE(kept.WaitForRequests(2));
  kept.Reply(0, "again");
  kept.Reply(1, "second");
  EXPECT_THAT(client.ReceiveThrough("second"), Not(HasSubstr("again")));
}

TEST(HttpServer, ReplyToAClosedConnectionIsIgnored) {
  KeptReplies kept;
  const RunningServer server(kept.Handler());
  {
    Client client(server);
    client.Send(Get("/"));
    ASSERT_TRUE(kept.WaitForRequests(1));
    client.Reset();
  }
  kept.Reply(0, "nobody");
  Client other(server);
  other.Send(Get("/other"));
  other.ReceiveThrough("/other");
}

TEST(HttpServer, BodyOfUnknownSizeIsSentInChunks) {
  SourceHandler<ScriptedBody> sources;
  const RunningServer server(sources.Handler());
  Client client(server);
  client.Send(Get("/"));
  EXPECT_THAT(client.ReceiveThrough("\r\n\r\n"),
              HasSubstr("Transfer-Encoding: chunked\r\nConnection: close\r\n"));
  const std::shared_ptr<ScriptedBody> body = sources.Latest();
  // Each part is sent at once.
  body->Add("hello");
  client.ReceiveThrough("5\r\nhello\r\n");
  body->Add(std::string(20, 'x'));
  client.ReceiveThrough("14\r\n" + std::string(20, 'x') + "\r\n");
  body->End();
  EXPECT_EQ(client.ReceiveAll(), "0\r\n\r\n");
}

TEST(HttpServer, BodyOfUnknownSizeIsNotChunkedForHttp10) {
  SourceHandler<ScriptedBody> sources;
  const RunningServer server(sources.Handler());
  Client client(server);
  client.Send("GET / HTTP/1.0\r\n\r\n");
  const std::string head = client.ReceiveThrough("\r\n\r\n");
  EXPECT_THAT(head, StartsWith("HTTP/1.0 200 OK\r\n"));
  EXPECT_THAT(head, Not(HasSubstr("chunked")));
  sources.Latest()->Add("hello");
  client.ReceiveThrough("hello");
  sources.Latest()->End();
  EXPECT_EQ(client.ReceiveAll(), "");
}

TEST(HttpServer, BodyOfKnownSizeKeepsTheConnection) {
  const RunningServer server([](const HttpRequest& request, const HttpReply& reply) {
    if (request.target == "/known") {
      const auto body = std::make_shared<ScriptedBody>(5);
      body->Add("hello");
      body->End();
      reply(SourceResponse(body));
    } else {
      Echo(request, reply);
    }
  });
  Client client(server);
  client.Send(Get("/known"));
  EXPECT_THAT(client.ReceiveThrough("\r\n\r\nhello"), EndsWith("Content-Length: 5\r\n\r\nhello"));
  client.Send(Get("/next"));
  client.ReceiveThrough("/next");
}

TEST(HttpServer, BodyOfTheWrongSizeClosesTheConnection) {
  const std::vector<std::pair<std::string, std::string>> cases{{"four", "\r\n\r\nfour"},
                                                               {"sixsix", "\r\n\r\n"}};
  for (const auto& [text, end] : cases) {
    const auto body = std::make_shared<ScriptedBody>(5);
    body->Add(text);
    body->End();
    const RunningServer server(
        [&](const HttpRequest&, const HttpReply& reply) { reply(SourceResponse(body)); });
    Client client(server);
    client.Send(Get("/"));
    const std::string received = client.ReceiveAll();
    EXPECT_THAT(received, HasSubstr("Content-Length: 5\r\n"));
    EXPECT_THAT(received, EndsWith(end));
  }
}

// A source that breaks its contract.
class EmptyPartBody : public BodySource {
 public:
  void Start(std::function<void()> /*onReady*/) override {}
  BodyState Next(BodyPart& /*part*/) override { return BodyState::kPart; }
};

TEST(HttpServer, EmptyPartDoesNotEndTheBody) {
  const RunningServer server([&](const HttpRequest&, const HttpReply& reply) {
    reply(SourceResponse(std::make_shared<EmptyPartBody>()));
  });
  Client client(server);
  client.Send(Get("/"));
  EXPECT_THAT(client.ReceiveAll(), EndsWith("\r\n\r\n"));
}

TEST(HttpServer, SourcesThatAreReadyTogetherContinueIfOneOfThemFails) {
  // The second one is too long.
  const std::array bodies{std::make_shared<ScriptedBody>(), std::make_shared<ScriptedBody>(1),
                          std::make_shared<ScriptedBody>()};
  RunningServer server([&](const HttpRequest& request, const HttpReply& reply) {
    reply(SourceResponse(bodies.at(static_cast<std::size_t>(std::stoi(request.target.substr(1))))));
  });
  std::array clients{Client(server), Client(server), Client(server)};
  for (std::size_t i = 0; i < bodies.size(); ++i) {
    clients.at(i).Send(Get("/" + std::to_string(i)));
    ASSERT_TRUE(WaitFor([&] { return bodies.at(i)->HasStarted(); }));
  }
  // On the server's thread, so that none continues before all are ready.
  server.Post([&] { std::ranges::for_each(bodies, [](const auto& body) { body->Add("part"); }); });
  clients.front().ReceiveThrough("part");
  clients.back().ReceiveThrough("part");
  EXPECT_THAT(clients.at(1).ReceiveAll(), EndsWith("\r\n\r\n"));
}

TEST(HttpServer, ExceptionClosesOnlyItsConnection) {
  const RunningServer server([](const HttpRequest& request, const HttpReply& reply) {
    if (request.target == "/bad") {
      throw std::runtime_error("bad");
    }
    Echo(request, reply);
  });
  Client good(server);
  Client bad(server);
  bad.Send(Get("/bad"));
  EXPECT_EQ(bad.ReceiveAll(), "");
  good.Send(Get("/good"));
  good.ReceiveThrough("/good");
}

TEST(HttpServer, InvalidRequestIsAnsweredAndEndsTheConnection) {
  HttpLimits limits;
  limits.parser = {.headerBytes = 1000, .bodyBytes = 10};
  const RunningServer server(Echo, limits);
  const std::vector<std::pair<std::string, std::string>> cases{
      {"GET\r\n\r\n" + Get("/next"), "400 Bad Request"},
      {"POST / HTTP/1.1\r\nContent-Length: 100000\r\n\r\n" + std::string(100000, 'x'),
       "413 Payload Too Large"},
      {Get("/" + std::string(100000, 'x')), "431 Request Header Fields Too Large"}};
  for (const auto& [request, response] : cases) {
    Client client(server);
    // The response arrives although not everything is read.
    client.Send(request);
    client.ShutdownSend();
    const std::string received = client.ReceiveAll();
    EXPECT_THAT(received, StartsWith("HTTP/1.1 " + response + "\r\n"));
    EXPECT_THAT(received, HasSubstr("X-Every: response\r\n"));
    EXPECT_THAT(received, EndsWith("Connection: close\r\n\r\n" + response + "\n"));
  }
}

TEST(HttpServer, RequestThatTakesTooLongIsDropped) {
  HttpLimits limits;
  limits.request = milliseconds(200);
  const RunningServer server(Echo, limits);
  for (const char* const begin :
       {"", "GET / HTTP/1.1\r\nX: ", "POST / HTTP/1.1\r\nContent-Length: 4000\r\n\r\n"}) {
    Client client(server);
    client.Send(begin);
    // One byte at a time, so that the connection is never idle for long. Nothing for the first case.
    EXPECT_TRUE(*begin == '\0' || WaitFor([&] {
      std::this_thread::sleep_for(milliseconds(1));
      return !client.Send("x");
    }));
    EXPECT_EQ(client.ReceiveAll(), "");
  }
}

TEST(HttpServer, IdleConnectionIsClosed) {
  HttpLimits limits;
  limits.idle = milliseconds(50);
  const RunningServer server(Echo, limits);
  Client client(server);
  client.Send(Get("/one"));
  client.ReceiveThrough("/one");
  EXPECT_EQ(client.ReceiveAll(), "");
}

TEST(HttpServer, ClientThatStopsReadingIsDisconnected) {
  HttpLimits limits;
  limits.stalled = milliseconds(100);
  limits.sendBuffer = 4096;
  SourceHandler<EndlessBody> sources;
  const RunningServer server(sources.Handler(), limits);
  Client client(server);
  client.SetReceiveBuffer(4096);
  client.Send(Get("/"));
  ASSERT_TRUE(sources.WaitUntilCreated());
  EXPECT_TRUE(sources.WaitUntilDestroyed());
}

TEST(HttpServer, ClientThatWaitsForTheBodyIsNotDisconnected) {
  HttpLimits limits;
  limits.idle = limits.stalled = milliseconds(300);
  SourceHandler<ScriptedBody> sources;
  const RunningServer server(sources.Handler(), limits);
  Client client(server);
  client.Send(Get("/"));
  client.ReceiveThrough("\r\n\r\n");
  // There is nothing to send for longer than the limits.
  ASSERT_TRUE(server.WaitForTicks(static_cast<int>(limits.idle / kTick) + 20));
  ASSERT_NE(sources.Latest(), nullptr);
  sources.Latest()->Add("hello");
  client.ReceiveThrough("hello");
}

TEST(HttpServer, EndOfTheClientIsNoticedWhileNothingIsSent) {
  SourceHandler<ScriptedBody> sources;
  const RunningServer server(sources.Handler());
  const std::vector<void (*)(Client&)> ends{[](Client& client) { client.ShutdownSend(); },
                                            [](Client& client) { client.Reset(); }};
  for (const auto& end : ends) {
    Client client(server);
    client.Send(Get("/"));
    client.ReceiveThrough("\r\n\r\n");
    ASSERT_NE(sources.Latest(), nullptr);
    end(client);
    EXPECT_TRUE(sources.WaitUntilDestroyed());
  }
}

TEST(HttpServer, ClientThatKeepsSendingDuringAnEndlessResponseIsDisconnected) {
  SourceHandler<ScriptedBody> sources;
  const RunningServer server(sources.Handler());
  Client client(server);
  client.Send(Get("/"));
  client.ReceiveThrough("\r\n\r\n");
  const std::string text(4096, 'x');
  EXPECT_TRUE(WaitFor([&] { return !client.Send(text); }));
  EXPECT_TRUE(sources.WaitUntilDestroyed());
}

// Denies the request "/denied".
void EchoUnlessDenied(const HttpRequest& request, const HttpReply& reply) {
  HttpResponse response = TextResponse(request.target);
  response.isDenied = request.target == "/denied";
  reply(response);
}

TEST(HttpServer, DeniedRequestClosesTheConnection) {
  const RunningServer server(EchoUnlessDenied);
  Client client(server);
  client.Send(Get("/denied") + Get("/next"));
  EXPECT_THAT(client.ReceiveAll(), EndsWith("Connection: close\r\n\r\n/denied"));
}

TEST(HttpServer, ConnectionBeyondTheLimitReplacesTheOldestOneWithoutAPermittedRequest) {
  HttpLimits limits;
  limits.connections = 3;
  const RunningServer server(EchoUnlessDenied, limits);
  Client permitted(server);
  permitted.Send(Get("/first"));
  permitted.ReceiveThrough("/first");
  // The server accepts connections in their order.
  Client silent(server);
  Client incomplete(server);
  incomplete.Send("GET / HTTP/1.1\r\n");
  Client next(server);
  next.Send(Get("/next"));
  next.ReceiveThrough("/next");
  EXPECT_EQ(silent.ReceiveAll(), "");
  Client last(server);
  last.Send(Get("/last"));
  last.ReceiveThrough("/last");
  EXPECT_EQ(incomplete.ReceiveAll(), "");
  permitted.Send(Get("/second"));
  permitted.ReceiveThrough("/second");
}

TEST(HttpServer, ConnectionBeyondTheLimitIsRefusedIfAllOthersArePermitted) {
  HttpLimits limits;
  limits.connections = 2;
  const RunningServer server(Echo, limits);
  Client first(server);
  first.Send(Get("/first"));
  first.ReceiveThrough("/first");
  {
    Client second(server);
    second.Send(Get("/second"));
    second.ReceiveThrough("/second");
    for (int i = 0; i < 2; ++i) {
      Client third(server);
      third.Send(Get("/third"));
      EXPECT_THAT(third.ReceiveAll(), StartsWith("HTTP/1.1 503 Service Unavailable\r\n"));
    }
    first.Send(Get("/again"));
    first.ReceiveThrough("/again");
  }
  // There is room again once the server has noticed the end of the second one.
  EXPECT_TRUE(WaitFor([&] {
    Client client(server);
    client.Send("GET /again HTTP/1.1\r\nConnection: close\r\n\r\n");
    return client.ReceiveAll().ends_with("/again");
  }));
}

TEST(HttpServer, ConnectionWhoseRequestIsBeingHandledIsNotReplaced) {
  HttpLimits limits;
  limits.connections = 1;
  KeptReplies kept;
  const RunningServer server(kept.Handler(), limits);
  Client waiting(server);
  waiting.Send(Get("/"));
  ASSERT_TRUE(kept.WaitForRequests(1));
  Client other(server);
  other.Send(Get("/other"));
  EXPECT_THAT(other.ReceiveAll(), StartsWith("HTTP/1.1 503 "));
  kept.Reply(0, "late");
  waiting.ReceiveThrough("late");
}

TEST(HttpServer, ExceptionOfTheTickEndsRunAndClosesAllConnections) {
  SourceHandler<ScriptedBody> sources;
  RunningServer server(sources.Handler());
  Client idle(server);
  Client viewer(server);
  viewer.Send(Get("/"));
  viewer.ReceiveThrough("\r\n\r\n");
  EXPECT_TRUE(server.Fail());
  EXPECT_EQ(idle.ReceiveAll(), "");
  EXPECT_EQ(viewer.ReceiveAll(), "");
  EXPECT_EQ(sources.Latest(), nullptr);
}

TEST(HttpServer, EndClosesAllConnections) {
  SourceHandler<ScriptedBody> sources;
  RunningServer server(sources.Handler());
  Client idle(server);
  Client viewer(server);
  viewer.Send(Get("/"));
  viewer.ReceiveThrough("\r\n\r\n");
  server.End();
  EXPECT_EQ(idle.ReceiveAll(), "");
  EXPECT_EQ(viewer.ReceiveAll(), "");
  EXPECT_EQ(sources.Latest(), nullptr);
}

TEST(HttpServer, PostedTasksRunOnTheThreadOfTheHandler) {
  Gate isDone;
  std::atomic<std::thread::id> handlerThread;
  std::atomic<std::thread::id> taskThread;
  RunningServer server([&](const HttpRequest& request, const HttpReply& reply) {
    handlerThread = std::this_thread::get_id();
    Echo(request, reply);
  });
  server.Post([&] {
    taskThread = std::this_thread::get_id();
    isDone.Open();
  });
  EXPECT_TRUE(isDone.Wait());
  Client client(server);
  client.Send(Get("/x"));
  client.ReceiveThrough("/x");
  EXPECT_EQ(handlerThread.load(), taskThread.load());
  EXPECT_NE(taskThread.load(), std::this_thread::get_id());
}

TEST(HttpServer, PortInUseIsReportedWithTheNextStep) {
  const RunningServer server(Echo);
  try {
    const HttpServer second(server.Port(), {});
    FAIL() << "two servers have the same port";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.what(),
              "port " + std::to_string(server.Port()) + " is in use; choose another one with --port");
  }
}

}  // namespace
}  // namespace nuveqcam
