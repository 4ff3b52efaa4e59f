#include "view/HttpParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <string_view>

namespace nuveqcam {
namespace {

using ::testing::Optional;

ParseResult Feed(HttpParser& parser, std::string_view text) {
  return parser.Feed({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

// 200 for a complete request, 0 for an incomplete one, else the status of the error.
unsigned StatusOf(const std::string& text, const HttpParserLimits& limits = {}) {
  HttpParser parser(limits);
  switch (Feed(parser, text)) {
    case ParseResult::kRequest:
      return 200;
    case ParseResult::kMore:
      return 0;
    case ParseResult::kError:
      return parser.ErrorStatus();
  }
  return 0;
}

const std::string kPost =
    "POST /a?b HTTP/1.1\r\nHost: here\r\nX-Twice: 1\r\nx-twice: 2\r\nContent-Length: 5\r\n\r\nhello";

TEST(HttpParser, ReadsARequest) {
  HttpParser parser;
  EXPECT_FALSE(parser.HasBegun());
  ASSERT_EQ(Feed(parser, kPost), ParseResult::kRequest);
  const HttpRequest request = parser.Take();
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.target, "/a?b");
  EXPECT_EQ(request.body, "hello");
  EXPECT_THAT(ValueOf(request, "HOST"), Optional(std::string("here")));
  EXPECT_THAT(ValueOf(request, "X-Twice"), Optional(std::string("1, 2")));
  EXPECT_EQ(ValueOf(request, "X-None"), std::nullopt);
  EXPECT_TRUE(request.keepsConnection);
  EXPECT_FALSE(request.isHttp10);
  EXPECT_FALSE(parser.HasBegun());
}

TEST(HttpDate, IsInTheFormOfHttp) {
  using namespace std::chrono;  // NOLINT(google-build-using-namespace)
  constexpr sys_days kDay = year(1994) / November / 6;
  EXPECT_EQ(HttpDate(kDay + hours(8) + minutes(49) + seconds(37) + milliseconds(900)),
            "Sun, 06 Nov 1994 08:49:37 GMT");
  EXPECT_EQ(HttpDate(sys_days(year(2028) / February / 29)), "Tue, 29 Feb 2028 00:00:00 GMT");
}

TEST(HttpParser, CookiesOfOtherServersFit) {
  EXPECT_EQ(StatusOf("GET / HTTP/1.1\r\nCookie: " + std::string(60000, 'x') + "\r\n\r\n"), 200);
}

TEST(HttpParser, BytesMayArriveOneByOne) {
  HttpParser parser;
  for (const char byte : kPost.substr(0, kPost.size() - 1)) {
    ASSERT_EQ(Feed(parser, {&byte, 1}), ParseResult::kMore);
    EXPECT_TRUE(parser.HasBegun());
  }
  ASSERT_EQ(Feed(parser, kPost.substr(kPost.size() - 1)), ParseResult::kRequest);
  EXPECT_EQ(parser.Take().body, "hello");
}

TEST(HttpParser, KeepsTheBytesOfTheNextRequest) {
  HttpParser parser;
  ASSERT_EQ(Feed(parser, kPost + kPost + "GET /c HT"), ParseResult::kRequest);
  EXPECT_EQ(parser.Take().target, "/a?b");
  EXPECT_TRUE(parser.HasBegun());
  ASSERT_EQ(Feed(parser, ""), ParseResult::kRequest);
  EXPECT_EQ(parser.Take().body, "hello");
  ASSERT_EQ(Feed(parser, ""), ParseResult::kMore);
  ASSERT_EQ(Feed(parser, "TP/1.0\r\n\r\n"), ParseResult::kRequest);
  const HttpRequest last = parser.Take();
  EXPECT_EQ(last.target, "/c");
  EXPECT_TRUE(last.isHttp10);
  EXPECT_FALSE(last.keepsConnection);
}

TEST(HttpParser, ClosesTheConnectionOnRequest) {
  HttpParser parser;
  ASSERT_EQ(Feed(parser, "GET / HTTP/1.1\r\nConnection: close\r\n\r\n"), ParseResult::kRequest);
  EXPECT_FALSE(parser.Take().keepsConnection);
}

TEST(HttpParser, HeaderIsBounded) {
  const std::string begin = "GET / HTTP/1.1\r\nX: ";
  const std::string end = "\r\n\r\n";
  const HttpParserLimits limits{.headerBytes = 1000, .bodyBytes = 10};
  const auto headerOf = [&](std::size_t size) {
    return begin + std::string(size - begin.size() - end.size(), 'x') + end;
  };
  EXPECT_EQ(StatusOf(headerOf(1000), limits), 200);
  EXPECT_EQ(StatusOf(headerOf(1001), limits), 431);
  // The end of the header need not arrive.
  EXPECT_EQ(StatusOf(headerOf(1500).substr(0, 1001), limits), 431);
  EXPECT_EQ(StatusOf("GET /" + std::string(2000, 'x'), limits), 431);
  EXPECT_EQ(StatusOf(std::string(2000, 'x'), limits), 431);
}

TEST(HttpParser, FirstLineCountsAsHeader) {
  const HttpParserLimits limits{.headerBytes = 1000, .bodyBytes = 10};
  EXPECT_EQ(
      StatusOf("GET /" + std::string(900, 'x') + " HTTP/1.1\r\nX: " + std::string(900, 'x') + "\r\n\r\n",
               limits),
      431);
}

TEST(HttpParser, ManyHeaderLinesAreBounded) {
  std::string text = "GET / HTTP/1.1\r\n";
  for (int i = 0; i < 20000; ++i) {
    text += "a:\r\n";
  }
  EXPECT_EQ(StatusOf(text + "\r\n"), 431);
}

TEST(HttpParser, BodyIsBounded) {
  const HttpParserLimits limits{.headerBytes = 1000, .bodyBytes = 10};
  const std::string begin = "POST / HTTP/1.1\r\nContent-Length: ";
  EXPECT_EQ(StatusOf(begin + "10\r\n\r\n0123456789", limits), 200);
  EXPECT_EQ(StatusOf(begin + "10\r\n\r\n012345678", limits), 0);
  // The body need not arrive.
  EXPECT_EQ(StatusOf(begin + "11\r\n\r\n", limits), 413);
  EXPECT_EQ(StatusOf(begin + "18446744073709551615\r\n\r\n", limits), 413);
}

TEST(HttpParser, ChunkedBodiesAreRejected) {
  EXPECT_EQ(StatusOf("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"), 501);
  EXPECT_EQ(StatusOf("POST / HTTP/1.1\r\nTransfer-Encoding: gzip\r\n\r\n"), 501);
}

TEST(HttpParser, MalformedRequestsAreRejected) {
  for (const char* const text :
       {"\r\n\r\n", "GET\r\n\r\n", "GET /\r\n\r\n", " / HTTP/1.1\r\n\r\n", "GET  / HTTP/1.1\r\n\r\n",
        "GET /\x01 HTTP/1.1\r\n\r\n", "GET / HTTP/1.1\r\nHost\r\n\r\n", "GET / HTTP/1.1\r\nA B: c\r\n\r\n",
        "GET / HTTP/1.1\r\nA: \x01\r\n\r\n", "POST / HTTP/1.1\r\nContent-Length: -1\r\n\r\n",
        "POST / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n",
        "POST / HTTP/1.1\r\nContent-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n",
        "\x16\x03\x01\x02\x01\x01\xfc\x03\x03 a TLS client\r\n\r\n"}) {
    EXPECT_EQ(StatusOf(text), 400) << text;
  }
  EXPECT_EQ(StatusOf("GET / HTTP/2.0\r\n\r\n"), 505);
  EXPECT_EQ(StatusOf("GET / HTTP/1.1\nHost: a\n\n"), 505);
}

TEST(HttpParser, NothingIsReadAfterAnError) {
  HttpParser parser;
  ASSERT_EQ(Feed(parser, "GET\r\n\r\n"), ParseResult::kError);
  EXPECT_EQ(Feed(parser, kPost), ParseResult::kError);
}

}  // namespace
}  // namespace nuveqcam
