#include "view/HttpParser.h"

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include <optional>

namespace nuveqcam {
namespace {

namespace http = boost::beast::http;
using BeastParser = http::request_parser<http::string_body>;

unsigned StatusOf(const boost::system::error_code& error) {
  if (error == http::error::header_limit) {
    return HttpStatus::kHeaderTooLarge;
  }
  if (error == http::error::body_limit) {
    return HttpStatus::kContentTooLarge;
  }
  return error == http::error::bad_version ? HttpStatus::kVersionNotSupported : HttpStatus::kBadRequest;
}

template <typename View>
std::string ToString(const View& text) {
  return std::string(text.data(), text.size());
}

}  // namespace

struct HttpParser::State {
  HttpParserLimits limits;
  std::optional<BeastParser> parser;   // one for each request
  std::vector<std::uint8_t> buffered;  // not yet consumed by the parser
  std::size_t headerBytes = 0;         // consumed
  unsigned errorStatus = 0;

  void Begin() {
    parser.emplace();
    parser->header_limit(static_cast<std::uint32_t>(limits.headerBytes));
    parser->body_limit(limits.bodyBytes);
    headerBytes = 0;
  }

  ParseResult Fail(unsigned status) {
    errorStatus = status;
    return ParseResult::kError;
  }
};

HttpParser::HttpParser(const HttpParserLimits& limits) : m_state(std::make_unique<State>()) {
  m_state->limits = limits;
  m_state->Begin();
}

HttpParser::~HttpParser() = default;

ParseResult HttpParser::Feed(std::span<const std::uint8_t> bytes) {
  State& state = *m_state;
  BeastParser& parser = *state.parser;
  if (state.errorStatus != 0) {
    return ParseResult::kError;
  }
  state.buffered.insert(state.buffered.end(), bytes.begin(), bytes.end());
  while (!state.buffered.empty()) {
    const bool wasInHeader = !parser.is_header_done();
    boost::system::error_code error;
    const std::size_t used = parser.put(boost::asio::buffer(state.buffered), error);
    state.buffered.erase(state.buffered.begin(), state.buffered.begin() + static_cast<std::ptrdiff_t>(used));
    if (error && error != http::error::need_more) {
      return state.Fail(StatusOf(error));
    }
    if (wasInHeader) {
      // The parser's own limit applies to the first line and to the other lines separately.
      state.headerBytes += used;
      const std::size_t unparsed = parser.is_header_done() ? 0 : state.buffered.size();
      if (state.headerBytes + unparsed > state.limits.headerBytes) {
        return state.Fail(HttpStatus::kHeaderTooLarge);
      }
    }
    // Clients of this server send bodies of known length. Chunks would add trailers to the checked fields.
    if (wasInHeader && parser.is_header_done() && parser.get().count(http::field::transfer_encoding) != 0) {
      return state.Fail(HttpStatus::kNotImplemented);
    }
    if (parser.is_done()) {
      return ParseResult::kRequest;
    }
    if (error) {
      break;
    }
  }
  return ParseResult::kMore;
}

HttpRequest HttpParser::Take() {
  const auto& message = m_state->parser->get();
  HttpRequest request;
  request.method = ToString(message.method_string());
  request.target = ToString(message.target());
  for (const auto& field : message) {
    request.fields.push_back({ToString(field.name_string()), ToString(field.value())});
  }
  request.body = message.body();
  request.isHttp10 = message.version() < 11;
  request.keepsConnection = m_state->parser->keep_alive();
  m_state->Begin();
  return request;
}

unsigned HttpParser::ErrorStatus() const { return m_state->errorStatus; }

bool HttpParser::HasBegun() const { return m_state->parser->got_some() || !m_state->buffered.empty(); }

}  // namespace nuveqcam
