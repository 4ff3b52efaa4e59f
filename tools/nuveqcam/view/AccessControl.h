// Decides which requests the server of `view` may answer. The camera's pictures must not reach other sites
// that are open in the browser, nor programs of other users. docs/decisions/0031 describes the design.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "view/Http.h"

namespace nuveqcam {

// An unguessable text of 32 characters (A-Z, a-z, 0-9, - and _) with 192 random bits. Throws Failure
// (kUnexpected).
std::string MakeToken();

// Compares secrets of equal length in a time that does not depend on their content.
bool AreEqualInConstantTime(std::string_view a, std::string_view b);

// The fields of every response. They forbid the browser to load anything from elsewhere, to show the page
// within another one, to guess content types, and to pass on or keep anything.
std::vector<HttpField> SecurityFields();

struct AccessDecision {
  unsigned status = HttpStatus::kOk;  // kOk: permitted; else the status of the response
  std::string resource;               // with kOk: the path behind the token, without the query
};

class AccessControl {
 public:
  // `entryToken`, of the same form as the token, is that of the entry address; empty: there is none.
  AccessControl(std::string token, std::uint16_t port, std::string entryToken = {});

  // The page's address; every other one is relative to it.
  std::string Address() const;
  // The path of the page's address.
  std::string Path() const;
  // An address that leads to the page once, for the browser's command line, which other users can read.
  std::string EntryAddress() const;

  // True for the first GET request of the entry address, which is to be answered with the page's path. Check
  // denies these requests.
  bool Enter(const HttpRequest& request);

  // 421: sent to another host name, as by a page whose name was rebound to this computer. 404: without the
  // token. 403: sent by another site, unless it opens the page by a link, or a POST without the marker that a
  // form cannot send. 405: unknown method. 415: a POST whose body is not JSON.
  AccessDecision Check(const HttpRequest& request) const;

 private:
  bool IsOwnHost(std::string_view host) const;
  bool IsFromOwnPage(const HttpRequest& request) const;

  std::string m_token;
  std::string m_entryToken;  // empty once it was used
  std::vector<std::string> m_hosts;
};

}  // namespace nuveqcam
