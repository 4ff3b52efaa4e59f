#include "view/AccessControl.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "view/RandomBytes.h"

namespace nuveqcam {
namespace {

constexpr std::string_view kScheme = "http://";

bool IsJson(std::string_view contentType) {
  std::string_view type = contentType.substr(0, contentType.find(';'));
  while (!type.empty() && (type.back() == ' ' || type.back() == '\t')) {
    type.remove_suffix(1);
  }
  return AreEqualIgnoringCase(type, "application/json");
}

// "/token/resource", without the query.
struct SplitPath {
  std::string_view token;
  std::string_view resource;
};

std::optional<SplitPath> Split(std::string_view target) {
  const std::string_view path = target.substr(0, target.find('?'));
  const std::size_t end = path.find('/', 1);
  if (!path.starts_with('/') || end == std::string_view::npos) {
    return std::nullopt;
  }
  return SplitPath{path.substr(1, end - 1), path.substr(end + 1)};
}

// Whether the user opens the address by a link. The site with the link does not see the response.
bool IsOpenedByLink(const HttpRequest& request) {
  return request.method == "GET" && ValueOf(request, "Sec-Fetch-Mode") == "navigate" &&
         ValueOf(request, "Sec-Fetch-Dest") == "document" && !ValueOf(request, "Origin");
}

}  // namespace

std::string MakeToken() {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  static_assert(kDigits.size() == 64);
  std::array<std::uint8_t, 32> random{};
  FillWithRandom(random);
  std::string token;
  for (const std::uint8_t byte : random) {
    token += kDigits[byte % kDigits.size()];
  }
  return token;
}

bool AreEqualInConstantTime(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) {
    return false;
  }
  // volatile: the compiler must not end the loop at the first difference.
  volatile unsigned difference = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    difference = difference | static_cast<unsigned char>(a[i] ^ b[i]);
  }
  return difference == 0;
}

std::vector<HttpField> SecurityFields() {
  return {{"Content-Security-Policy",
           "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; media-src 'self' "
           "blob:; "
           "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
          {"X-Content-Type-Options", "nosniff"},
          {"Referrer-Policy", "no-referrer"},
          {"Cache-Control", "no-store"},
          {"Cross-Origin-Resource-Policy", "same-origin"}};
}

AccessControl::AccessControl(std::string token, std::uint16_t port, std::string entryToken)
    : m_token(std::move(token)), m_entryToken(std::move(entryToken)) {
  constexpr std::uint16_t kDefaultPort = 80;
  for (const char* const name : {"127.0.0.1", "localhost", "[::1]"}) {
    m_hosts.push_back(name + (":" + std::to_string(port)));
    if (port == kDefaultPort) {
      m_hosts.emplace_back(name);
    }
  }
}

std::string AccessControl::Path() const { return "/" + m_token + "/"; }

std::string AccessControl::Address() const { return std::string(kScheme) + m_hosts.front() + Path(); }

std::string AccessControl::EntryAddress() const {
  return std::string(kScheme) + m_hosts.front() + "/" + m_entryToken + "/";
}

bool AccessControl::Enter(const HttpRequest& request) {
  const std::optional<SplitPath> path = Split(request.target);
  if (m_entryToken.empty() || request.method != "GET" || !path || !path->resource.empty() ||
      !AreEqualInConstantTime(path->token, m_entryToken) ||
      !IsOwnHost(ValueOf(request, "Host").value_or("")) || !IsFromOwnPage(request)) {
    return false;
  }
  m_entryToken.clear();
  return true;
}

AccessDecision AccessControl::Check(const HttpRequest& request) const {
  if (!IsOwnHost(ValueOf(request, "Host").value_or(""))) {
    return {HttpStatus::kMisdirectedRequest, {}};
  }
  const std::optional<SplitPath> path = Split(request.target);
  if (!path || !AreEqualInConstantTime(path->token, m_token)) {
    return {HttpStatus::kNotFound, {}};
  }
  if (!IsFromOwnPage(request) && !(path->resource.empty() && IsOpenedByLink(request))) {
    return {HttpStatus::kForbidden, {}};
  }
  if (request.method == "POST") {
    if (ValueOf(request, "X-Nuveqcam") != "1") {
      return {HttpStatus::kForbidden, {}};
    }
    if (!IsJson(ValueOf(request, "Content-Type").value_or(""))) {
      return {HttpStatus::kUnsupportedMediaType, {}};
    }
  } else if (request.method != "GET" && request.method != "HEAD") {
    return {HttpStatus::kMethodNotAllowed, {}};
  }
  return {HttpStatus::kOk, std::string(path->resource)};
}

bool AccessControl::IsOwnHost(std::string_view host) const {
  return std::ranges::any_of(m_hosts,
                             [&](const std::string& own) { return AreEqualIgnoringCase(host, own); });
}

// Browsers send at least one of the two fields with each request that another site could cause.
bool AccessControl::IsFromOwnPage(const HttpRequest& request) const {
  const std::optional<std::string> origin = ValueOf(request, "Origin");
  if (origin &&
      (!origin->starts_with(kScheme) || !IsOwnHost(std::string_view(*origin).substr(kScheme.size())))) {
    return false;
  }
  const std::optional<std::string> site = ValueOf(request, "Sec-Fetch-Site");
  return !site || *site == "same-origin" || *site == "none";
}

}  // namespace nuveqcam
