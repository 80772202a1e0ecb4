#include "dch/service/setting_checks.h"

#include <arpa/inet.h>

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

}  // namespace dch
