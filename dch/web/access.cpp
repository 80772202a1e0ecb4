#include "dch/web/access.h"

#include <arpa/inet.h>

#include <algorithm>

#include "dch/web/text_parts.h"

namespace dch {

namespace {

bool isPort(std::string_view text) {
  return !text.empty() && text.size() <= 5 && std::all_of(text.begin(), text.end(), [](char each) {
    return each >= '0' && each <= '9';
  });
}

// The host without its port, nothing when that is none.
std::string_view withoutPort(std::string_view host) {
  const std::size_t bracket = host.find(']');
  const std::size_t colon = host.find(':', bracket == std::string_view::npos ? 0 : bracket);
  if (colon == std::string_view::npos) return host;
  return isPort(host.substr(colon + 1)) ? host.substr(0, colon) : std::string_view();
}

bool isAddress(std::string_view host) {
  if (host.find('\0') != std::string_view::npos) return false;  // the system would end there
  in6_addr address;
  if (host.size() > 2 && host.front() == '[' && host.back() == ']')
    return inet_pton(AF_INET6, std::string(host.substr(1, host.size() - 2)).c_str(), &address) == 1;
  return inet_pton(AF_INET, std::string(host).c_str(), &address) == 1;
}

bool isSameSecret(std::string_view shown, std::string_view secret) {
  if (shown.size() != secret.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < shown.size(); ++i)
    difference |= static_cast<unsigned char>(shown[i]) ^ static_cast<unsigned char>(secret[i]);
  return difference == 0;
}

// What follows the scheme; nothing for another scheme.
std::string_view bearerOf(std::string_view authorization) {
  constexpr std::string_view scheme = "bearer ";
  if (!isSameName(authorization.substr(0, scheme.size()), scheme)) return {};
  return trimmed(authorization.substr(scheme.size()));
}

std::string_view cookieIn(std::string_view cookies, std::string_view name) {
  while (!cookies.empty()) {
    const std::string_view each = trimmed(takeUpTo(';', &cookies));
    if (each.starts_with(name) && each.substr(name.size()).starts_with('='))
      return each.substr(name.size() + 1);
  }
  return {};
}

}  // namespace

bool Access::allowsHost(std::string_view host) const {
  const std::string_view name = withoutPort(host);
  return isAddress(name) || isSameName(name, "localhost") ||
         (!name.empty() && std::any_of(hosts.begin(), hosts.end(), [&](const std::string& each) {
           return isSameName(name, each);
         }));
}

bool Access::allowsToken(std::string_view authorization, std::string_view cookies) const {
  return !token || isSameSecret(bearerOf(authorization), *token) ||
         isSameSecret(cookieIn(cookies, tokenCookie), *token) ||
         isSameSecret(percentDecoded(cookieIn(cookies, tokenCookie)).value_or(""), *token);
}

bool Access::showsToken(std::string_view authorization, std::string_view cookies) {
  return !bearerOf(authorization).empty() || !cookieIn(cookies, tokenCookie).empty();
}

}  // namespace dch
