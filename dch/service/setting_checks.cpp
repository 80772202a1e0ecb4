#include "dch/service/setting_checks.h"

#include <arpa/inet.h>

#include <charconv>
#include <string_view>

#include "dch/link/link_settings.h"
#include "dch/web/web_port.h"

namespace dch {

namespace {

constexpr std::size_t maxInstanceName = 20;

constexpr char nameCharacters[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_";

bool isName(std::string_view text) {
  return !text.empty() && text.find_first_not_of(nameCharacters) == std::string_view::npos;
}

bool isPort(std::string_view text) {
  unsigned port = 0;
  const auto [stopped, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && stopped == text.data() + text.size() && port > 0 && port <= 65'535;
}

// An address of IPv6 is in brackets.
bool isHost(std::string_view text) {
  if (!text.starts_with('[')) return isName(text);
  in6_addr address;
  return text.ends_with(']') &&
         inet_pton(AF_INET6, std::string(text.substr(1, text.size() - 2)).c_str(), &address) == 1;
}

bool isLinkServer(std::string_view text) {
  for (const std::string_view scheme : {"nats://", "tls://"}) {
    if (!text.starts_with(scheme)) continue;
    text.remove_prefix(scheme.size());
    const std::size_t colon = text.rfind(':');
    return colon != std::string_view::npos && isPort(text.substr(colon + 1)) &&
           isHost(text.substr(0, colon));
  }
  return false;
}

}  // namespace

std::string checkAddress(const std::string& text) {
  in_addr address;
  return inet_pton(AF_INET, text.c_str(), &address) == 1
             ? ""
             : "'" + text + "' is not an IPv4 address such as 127.0.0.1";
}

std::string checkInstanceName(const std::string& text) {
  if (text.find_first_not_of(' ') == std::string::npos) return "the name is empty";
  return text.size() <= maxInstanceName ? "" : "'" + text + "' has more than 20 characters";
}

std::string checkFileName(const std::string& text) {
  return text.empty() ? "the name is empty" : "";
}

std::string checkWebAddress(const std::string& text) {
  return parseWebAddress(text)
             ? ""
             : "'" + text + "' is not an address and port such as 127.0.0.1:1980 or [::1]:1980";
}

std::string checkHostName(const std::string& text) {
  return isName(text) ? "" : "'" + text + "' is not the name of a host, without a port";
}

std::string checkSiteName(const std::string& text) {
  return isName(text) && text.size() <= longestSiteName
             ? ""
             : "'" + text + "' is not a name of up to 64 letters, digits, '.', '-' and '_'";
}

// User and password have no place in it: it is shown.
std::string checkLinkServer(const std::string& text) {
  return isLinkServer(text) ? "" : "'" + text + "' is not a server such as nats://host:4222";
}

}  // namespace dch
