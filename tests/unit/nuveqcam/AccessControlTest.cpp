#include "view/AccessControl.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace nuveqcam {
namespace {

const std::string kToken = "abcdefghijklmnopqrstuvwxyz-_0123";
const std::string kEntryToken = "0123abcdefghijklmnopqrstuvwxyz-_";

class AccessControlOnPort4711 : public ::testing::Test {
 protected:
  // A request that is permitted.
  static HttpRequest Get(const std::string& target) {
    HttpRequest request;
    request.method = "GET";
    request.target = target;
    request.fields = {{"Host", "127.0.0.1:4711"}};
    return request;
  }
  static HttpRequest Post() {
    HttpRequest request = Get("/" + kToken + "/camera");
    request.method = "POST";
    request.fields.push_back({"X-Nuveqcam", "1"});
    request.fields.push_back({"Content-Type", "application/json"});
    return request;
  }
  static void Set(HttpRequest& request, const std::string& name, const std::string& value) {
    std::erase_if(request.fields, [&](const HttpField& field) { return field.name == name; });
    request.fields.push_back({name, value});
  }
  unsigned StatusWith(const std::string& name, const std::string& value) const {
    HttpRequest request = Get("/" + kToken + "/");
    Set(request, name, value);
    return access.Check(request).status;
  }

  AccessControl access{kToken, 4711, kEntryToken};
};

TEST(Token, HasOnlyCharactersThatAddressesMayHave) {
  const std::string token = MakeToken();
  EXPECT_EQ(token.size(), 32);
  EXPECT_EQ(token.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_"),
            std::string::npos);
}

TEST(Token, IsAlwaysANewOneOfAllCharacters) {
  std::set<std::string> tokens;
  std::set<char> characters;
  for (int i = 0; i < 200; ++i) {
    const std::string token = MakeToken();
    tokens.insert(token);
    characters.insert(token.begin(), token.end());
  }
  EXPECT_EQ(tokens.size(), 200);
  // A missing one has a probability of less than 1e-40.
  EXPECT_EQ(characters.size(), 64);
}

TEST(Token, ComparisonFindsEveryDifference) {
  EXPECT_TRUE(AreEqualInConstantTime(kToken, kToken));
  EXPECT_TRUE(AreEqualInConstantTime("", ""));
  EXPECT_FALSE(AreEqualInConstantTime(kToken, kToken.substr(1)));
  EXPECT_FALSE(AreEqualInConstantTime(kToken, ""));
  for (std::size_t i = 0; i < kToken.size(); ++i) {
    for (const char change : {'\x01', '\x20', '\x80'}) {
      std::string other = kToken;
      other[i] = static_cast<char>(other[i] ^ change);
      EXPECT_FALSE(AreEqualInConstantTime(kToken, other)) << i;
    }
  }
}

TEST_F(AccessControlOnPort4711, AddressHasThePortAndTheToken) {
  EXPECT_EQ(access.Address(), "http://127.0.0.1:4711/" + kToken + "/");
}

TEST_F(AccessControlOnPort4711, EntryAddressWorksOnce) {
  EXPECT_EQ(access.EntryAddress(), "http://127.0.0.1:4711/" + kEntryToken + "/");
  EXPECT_EQ(access.Path(), "/" + kToken + "/");
  EXPECT_FALSE(access.Enter(Get("/" + kToken + "/")));
  EXPECT_TRUE(access.Enter(Get("/" + kEntryToken + "/")));
  EXPECT_FALSE(access.Enter(Get("/" + kEntryToken + "/")));
  EXPECT_FALSE(access.Enter(Get("//")));
}

TEST_F(AccessControlOnPort4711, EntryTokenPermitsNothingElse) {
  EXPECT_EQ(access.Check(Get("/" + kEntryToken + "/")).status, 404);
  EXPECT_EQ(access.Check(Get("/" + kEntryToken + "/state")).status, 404);
  HttpRequest head = Get("/" + kEntryToken + "/");
  head.method = "HEAD";
  HttpRequest rebound = Get("/" + kEntryToken + "/");
  Set(rebound, "Host", "example.org:4711");
  HttpRequest other = Get("/" + kEntryToken + "/");
  Set(other, "Sec-Fetch-Site", "cross-site");
  for (const HttpRequest& request : {Get("/" + kEntryToken), Get("/" + kEntryToken + "/state"),
                                     Get("/" + kEntryToken + "x/"), head, rebound, other}) {
    EXPECT_FALSE(access.Enter(request)) << request.target;
  }
  EXPECT_TRUE(access.Enter(Get("/" + kEntryToken + "/"))) << "the others have not used it up";
}

TEST_F(AccessControlOnPort4711, PageMayBeOpenedByALinkOnAnotherSite) {
  HttpRequest request = Get("/" + kToken + "/");
  Set(request, "Sec-Fetch-Site", "cross-site");
  Set(request, "Sec-Fetch-Mode", "navigate");
  Set(request, "Sec-Fetch-Dest", "document");
  EXPECT_EQ(access.Check(request).status, 200);
  const std::vector<std::pair<std::string, std::string>> changes{{"Sec-Fetch-Mode", "no-cors"},
                                                                 {"Sec-Fetch-Dest", "iframe"},
                                                                 {"Sec-Fetch-Dest", "image"},
                                                                 {"Origin", "http://example.org"}};
  for (const auto& [name, value] : changes) {
    HttpRequest changed = request;
    Set(changed, name, value);
    EXPECT_EQ(access.Check(changed).status, 403) << name << ": " << value;
  }
  request.target += "stream.mp4";
  EXPECT_EQ(access.Check(request).status, 403);
}

TEST_F(AccessControlOnPort4711, ResourceIsThePathBehindTheToken) {
  EXPECT_EQ(access.Check(Get("/" + kToken + "/")).resource, "");
  EXPECT_EQ(access.Check(Get("/" + kToken + "/view.js")).resource, "view.js");
  EXPECT_EQ(access.Check(Get("/" + kToken + "/view.js?a=/b/")).resource, "view.js");
  EXPECT_EQ(access.Check(Get("/" + kToken + "//../x")).resource, "/../x");
  EXPECT_EQ(access.Check(Get("/" + kToken + "/%2e%2e/")).resource, "%2e%2e/");
}

TEST_F(AccessControlOnPort4711, EverythingWithoutTheTokenIsNotFound) {
  const std::vector<std::string> targets{"/",
                                         "",
                                         "*",
                                         "/" + kToken,
                                         kToken + "/",
                                         "//" + kToken + "/",
                                         "/" + kToken.substr(1) + "/",
                                         "/" + kToken + "x/",
                                         "/?/" + kToken + "/",
                                         "/x/" + kToken + "/",
                                         "/ABCDEFGHIJKLMNOPQRSTUVWXYZ-_0123/",
                                         "http://127.0.0.1:4711/" + kToken + "/"};
  for (const std::string& target : targets) {
    const AccessDecision decision = access.Check(Get(target));
    EXPECT_EQ(decision.status, 404) << target;
    EXPECT_EQ(decision.resource, "");
  }
}

TEST_F(AccessControlOnPort4711, OwnHostNamesArePermitted) {
  for (const char* const host : {"127.0.0.1:4711", "localhost:4711", "LocalHost:4711", "[::1]:4711"}) {
    EXPECT_EQ(StatusWith("Host", host), 200) << host;
  }
}

TEST_F(AccessControlOnPort4711, OtherHostNamesAreMisdirected) {
  for (const char* const host : {"", "127.0.0.1", "127.0.0.1:4712", "127.0.0.1:47110", "example.org:4711",
                                 "localhost", "localhost.:4711", "localhost:4711.example.org",
                                 "x@localhost:4711", "[::1]", "::1:4711", "127.0.0.1:4711, 127.0.0.1:4711"}) {
    EXPECT_EQ(StatusWith("Host", host), 421) << host;
  }
}

TEST_F(AccessControlOnPort4711, HostIsRequiredExactlyOnce) {
  HttpRequest request = Get("/" + kToken + "/");
  request.fields.push_back({"host", "127.0.0.1:4711"});
  EXPECT_EQ(access.Check(request).status, 421);
  request.fields.clear();
  EXPECT_EQ(access.Check(request).status, 421);
}

TEST_F(AccessControlOnPort4711, HostIsCheckedBeforeTheToken) {
  HttpRequest request = Get("/");
  Set(request, "Host", "example.org:4711");
  EXPECT_EQ(access.Check(request).status, 421);
}

TEST(AccessControl, DefaultPortMayBeOmitted) {
  const AccessControl access(kToken, 80);
  HttpRequest request;
  request.method = "GET";
  request.target = "/" + kToken + "/";
  request.fields = {{"Host", "localhost"}, {"Origin", "http://localhost"}};
  EXPECT_EQ(access.Check(request).status, 200);
}

TEST_F(AccessControlOnPort4711, OwnOriginIsPermitted) {
  for (const char* const origin : {"http://127.0.0.1:4711", "http://localhost:4711", "http://[::1]:4711"}) {
    EXPECT_EQ(StatusWith("Origin", origin), 200) << origin;
  }
}

TEST_F(AccessControlOnPort4711, OtherOriginsAreForbidden) {
  for (const char* const origin :
       {"", "null", "https://127.0.0.1:4711", "http://127.0.0.1", "http://127.0.0.1:4712",
        "http://example.org", "http://example.org:4711", "http://127.0.0.1:4711/",
        "http://127.0.0.1:4711.example.org", "file://", "http://127.0.0.1:4711, http://example.org"}) {
    EXPECT_EQ(StatusWith("Origin", origin), 403) << origin;
  }
}

TEST_F(AccessControlOnPort4711, RequestsThatAnotherSiteCausesAreForbidden) {
  for (const char* const site : {"same-origin", "none"}) {
    EXPECT_EQ(StatusWith("Sec-Fetch-Site", site), 200) << site;
  }
  for (const char* const site : {"cross-site", "same-site", "", "None", "same-origin, cross-site"}) {
    EXPECT_EQ(StatusWith("Sec-Fetch-Site", site), 403) << site;
  }
}

TEST_F(AccessControlOnPort4711, MethodsThatReadAreGetAndHead) {
  HttpRequest request = Get("/" + kToken + "/state");
  request.method = "HEAD";
  EXPECT_EQ(access.Check(request).status, 200);
  for (const char* const method : {"PUT", "DELETE", "OPTIONS", "TRACE", "CONNECT", "get", "", "BREW"}) {
    request.method = method;
    EXPECT_EQ(access.Check(request).status, 405) << method;
  }
}

TEST_F(AccessControlOnPort4711, PostRequiresTheMarker) {
  EXPECT_EQ(access.Check(Post()).status, 200);
  for (const char* const value : {"", "0", "11", "1, 1"}) {
    HttpRequest request = Post();
    Set(request, "X-Nuveqcam", value);
    EXPECT_EQ(access.Check(request).status, 403) << value;
  }
  HttpRequest request = Post();
  std::erase_if(request.fields, [](const HttpField& field) { return field.name == "X-Nuveqcam"; });
  EXPECT_EQ(access.Check(request).status, 403);
}

TEST_F(AccessControlOnPort4711, PostRequiresJson) {
  for (const char* const type : {"application/json", "Application/JSON", "application/json; charset=utf-8",
                                 "application/json ;charset=utf-8"}) {
    HttpRequest request = Post();
    Set(request, "Content-Type", type);
    EXPECT_EQ(access.Check(request).status, 200) << type;
  }
  for (const char* const type : {"", "text/plain", "application/jsonx", "application/x-www-form-urlencoded",
                                 "text/plain; application/json", "application/json, text/plain"}) {
    HttpRequest request = Post();
    Set(request, "Content-Type", type);
    EXPECT_EQ(access.Check(request).status, 415) << type;
  }
}

TEST(SecurityFields, ForbidEverythingFromElsewhere) {
  std::string text;
  for (const HttpField& field : SecurityFields()) {
    text += field.name + ": " + field.value + "\n";
  }
  EXPECT_EQ(text,
            "Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self'; img-src "
            "'self' blob:; "
            "media-src 'self' blob:; connect-src 'self'; base-uri 'none'; form-action 'none'; "
            "frame-ancestors 'none'\n"
            "X-Content-Type-Options: nosniff\n"
            "Referrer-Policy: no-referrer\n"
            "Cache-Control: no-store\n"
            "Cross-Origin-Resource-Policy: same-origin\n");
}

}  // namespace
}  // namespace nuveqcam
