// HTTP requests and responses, independent of the library that transports them.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace nuveqcam {

struct HttpStatus {
  static constexpr unsigned kOk = 200;
  static constexpr unsigned kAccepted = 202;
  static constexpr unsigned kSeeOther = 303;
  static constexpr unsigned kBadRequest = 400;
  static constexpr unsigned kForbidden = 403;
  static constexpr unsigned kNotFound = 404;
  static constexpr unsigned kMethodNotAllowed = 405;
  static constexpr unsigned kConflict = 409;
  static constexpr unsigned kContentTooLarge = 413;
  static constexpr unsigned kUnsupportedMediaType = 415;
  static constexpr unsigned kMisdirectedRequest = 421;
  static constexpr unsigned kHeaderTooLarge = 431;
  static constexpr unsigned kServerError = 500;
  static constexpr unsigned kNotImplemented = 501;
  static constexpr unsigned kUnavailable = 503;
  static constexpr unsigned kVersionNotSupported = 505;
};

struct HttpField {
  std::string name;
  std::string value;
};

// A complete request within the limits of the server. Everything in it is untrusted.
struct HttpRequest {
  std::string method;
  std::string target;  // as sent: "/path?query"
  std::vector<HttpField> fields;
  std::string body;
  bool isHttp10 = false;
  bool keepsConnection = false;  // the client may send another request on the connection
};

// The value of a field, whose name is not case-sensitive. The values of a repeated field are joined with
// commas.
std::optional<std::string> ValueOf(const HttpRequest& request, std::string_view name);

// True if the texts differ at most in the case of ASCII letters.
bool AreEqualIgnoringCase(std::string_view a, std::string_view b);

// The value of the field Date: "Sun, 06 Nov 1994 08:49:37 GMT".
std::string HttpDate(std::chrono::system_clock::time_point time);

// Part of a response's body: `head`, followed by `bytes`, which `owner` keeps alive.
struct BodyPart {
  std::vector<std::uint8_t> head;
  std::span<const std::uint8_t> bytes;
  std::shared_ptr<const void> owner;  // null: `bytes` are part of the program

  std::size_t Size() const { return head.size() + bytes.size(); }
};

enum class BodyState { kPart, kWait, kEnd };

// A body that is produced while it is sent. The server's thread calls all functions.
class BodySource {
 public:
  BodySource() = default;
  BodySource(const BodySource&) = delete;
  BodySource& operator=(const BodySource&) = delete;
  virtual ~BodySource() = default;

  // The size in bytes; nullopt if it is not known before the end.
  virtual std::optional<std::uint64_t> Size() const { return std::nullopt; }
  // Called once, before Next, and not for a HEAD request. The source may call `onReady` at any time and on
  // any thread until it is destroyed.
  virtual void Start(std::function<void()> onReady) = 0;
  // kPart: `part` has the next bytes, at least one. kWait: there are none yet; the source calls onReady once
  // there may be some. kEnd: the body is complete. An exception closes the connection.
  virtual BodyState Next(BodyPart& part) = 0;
};

struct HttpResponse {
  unsigned status = 200;
  // Without those that every response has, and those about length and connection.
  std::vector<HttpField> fields;
  BodyPart body;
  std::shared_ptr<BodySource> source;  // replaces `body` unless null
  // The client has not shown that it may use the server: its connection is closed.
  bool isDenied = false;
};

// Sends the response of one request. Thread-safe; must be called exactly once, while the server exists.
using HttpReply = std::function<void(HttpResponse)>;
// Called by the server's thread. It must return at once; the reply may be called later.
using HttpHandler = std::function<void(const HttpRequest&, const HttpReply&)>;

}  // namespace nuveqcam
