#include "zordsock/port_choice.h"

#include <arpa/inet.h>

#include <cerrno>
#include <cstdlib>

#include "suite/product_settings.h"
#include "zora/zora.h"

namespace zordsock {

namespace {

constexpr int PORT_CANDIDATE_BASE = 46300;
constexpr int defaultPortOffset = 1000;
constexpr int highestPort = 65535;

void openSocket(ZOR0_SocketKind kind, ZOR0_SocketFlag flag, PortChoice* choice,
                PortChoiceSteps& steps) {
  const bool isStream = kind == SOCK_KIND_TCP;
  int* const descriptor = isStream ? &choice->streamSocket : &choice->datagramSocket;
  steps.aboutToOpen();
  *descriptor = steps.open(kind, static_cast<unsigned short>(choice->port), flag, &choice->address,
                           isStream ? &choice->streamError : &choice->datagramError);
  steps.opened(kind, *descriptor, *choice);
}

// Whether the port was had.
bool tryPort(ZOR0_SocketFlag flag, PortChoice* choice, PortChoiceSteps& steps) {
  openSocket(SOCK_KIND_UDP, flag, choice, steps);
  openSocket(SOCK_KIND_TCP, flag, choice, steps);
  if (choice->isBound()) return true;
  steps.failed(*choice);
  choice->datagramSocket = choice->streamSocket = -1;
  return false;
}

PortChoice chooseCandidate(const PortRule& rule, PortChoiceSteps& steps) {
  const char* const configuredOffset = ZOR0_QueryProductSpec(itemPortOffset);
  long long offset = configuredOffset != nullptr ? std::atoi(configuredOffset) : 0;
  steps.readOffset(static_cast<int>(offset));
  if (offset == 0) offset = defaultPortOffset;
  const int base = rule.startsAtConfiguredPort ? 0 : PORT_CANDIDATE_BASE;
  PortChoice choice;
  for (int i = rule.startsAtConfiguredPort ? 0 : 1; i <= highestMultiplier; ++i) {
    const long long port = i * offset + rule.configuredPort + base;
    if (port > highestPort) break;
    choice = PortChoice{};
    choice.port = port;
    choice.offset = i * offset;
    choice.multiplier = i;
    if (tryPort(ZOR0_SOCKET_REUSE, &choice, steps)) break;
  }
  return choice;
}

}  // namespace

unsigned short configuredPort(const char* port) {
  if (port == nullptr) port = ZOR0_QueryProductSpec(itemPort);
  return static_cast<unsigned short>(port != nullptr ? std::atoi(port) : defaultPort);
}

PortRule readPortRule(unsigned short configuredPort) {
  return {configuredPort, *ZORA_GetInstanceName() != '\0',
          ZOR0_QueryProductSpec(itemCandidatePorts) != nullptr};
}

bool PortChoice::isInUse() const {
  return datagramError == EADDRINUSE && streamError == EADDRINUSE;
}

int PortChoiceSteps::open(ZOR0_SocketKind kind, unsigned short port, ZOR0_SocketFlag flag,
                          sockaddr_in* address, int* error) {
  return ZOR0_OpenLocalSocket(kind, htons(port), address, flag, error);
}

void PortChoiceSteps::failed(const PortChoice& choice) {
  ZOR0_CloseTheSocket(choice.datagramSocket);
  ZOR0_CloseTheSocket(choice.streamSocket);
}

PortChoice choosePort(const PortRule& rule, PortChoiceSteps& steps) {
  if (rule.hasCandidates()) return chooseCandidate(rule, steps);
  PortChoice choice;
  choice.port = rule.configuredPort;
  tryPort(ZOR0_SOCKET_PLAIN, &choice, steps);
  return choice;
}

PortChoice choosePort(const PortRule& rule) {
  class : public PortChoiceSteps {
  } silently;
  return choosePort(rule, silently);
}

}  // namespace zordsock
