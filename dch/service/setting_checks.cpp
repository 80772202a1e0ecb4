#include "dch/service/setting_checks.h"

#include <arpa/inet.h>

#include "dch/web/web_port.h"

namespace dch {

namespace {

constexpr std::size_t maxInstanceName = 20;

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
  constexpr char characters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_";
  return !text.empty() && text.find_first_not_of(characters) == std::string::npos
             ? ""
             : "'" + text + "' is not the name of a host, without a port";
}

}  // namespace dch
