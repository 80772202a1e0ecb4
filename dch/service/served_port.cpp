#include "dch/service/served_port.h"

#include <arpa/inet.h>

#include <stdexcept>

#include "dch/service/configuration_error.h"
#include "dch/service/environment.h"
#include "dch/service/handed_over_port.h"
#include "zordsock/port_choice.h"
#include "zordsock/settings.h"

namespace dch {

namespace {

constexpr char portVariable[] = "ZORA_DCH_PORT";
constexpr char addressVariable[] = "ZOR0_BIND_ADDR";

// Nothing when no address was asked for.
std::optional<in_addr> wantedAddress(const std::optional<std::string>& bindAddress) {
  const std::string text = bindAddress.value_or(variable(addressVariable));
  if (text.empty()) return std::nullopt;
  in_addr address;
  if (inet_pton(AF_INET, text.c_str(), &address) != 1)
    throw std::runtime_error(std::string(addressVariable) + " is not an IPv4 address: " + text);
  return address;
}

[[noreturn]] void refuse(const std::string& handedOver, const std::string& wanted) {
  throw ConfigurationError(
      "sockets of " + handedOver + " were handed over, but " + wanted +
      ": give the socket unit and the server the same ones, or the server none");
}

void requirePort(const PeerAddress& handedOver, std::optional<int> port) {
  const std::string configured = variable(portVariable);
  const std::string text = "port " + std::to_string(ntohs(handedOver.port));
  if (port && *port != 0 && *port != ntohs(handedOver.port))
    refuse(text, "port " + std::to_string(*port) + " is asked for");
  if (!port && !configured.empty() &&
      zordsock::configuredPort(configured.c_str()) != ntohs(handedOver.port))
    refuse(text, std::string(portVariable) + " is " + configured);
}

void requireAddress(const PeerAddress& handedOver, std::optional<in_addr> address) {
  if (!address || address->s_addr == handedOver.address) return;
  refuse(std::string("address ") + handedOver.addressText().data(),
         std::string("address ") + PeerAddress(*address).addressText().data() + " is asked for");
}

}  // namespace

ServedPort openServedPort(std::optional<int> port, const std::optional<std::string>& bindAddress) {
  const std::optional<in_addr> address = wantedAddress(bindAddress);
  std::optional<ServedPort> handedOver = takeHandedOverPort();
  if (!handedOver) return openPort(address.value_or(in_addr{htonl(INADDR_LOOPBACK)}), port);
  requirePort(handedOver->address, port);
  requireAddress(handedOver->address, address);
  return std::move(*handedOver);
}

}  // namespace dch
