// Which port the DCH serves: the configured one, or the first free candidate, which is then
// published so that later clients in the same environment find it.
#include <arpa/inet.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "suite/osv1.h"
#include "suite/product_settings.h"
#include "suite/sockets.h"
#include "zordsock/settings.h"
#include "zordsock/trace_unit.h"
#include "zordsock/zordsock.h"

using namespace zordsock;

namespace {

constexpr int PORT_CANDIDATE_BASE = 46300;
constexpr int defaultPortOffset = 1000;
constexpr int highestMultiplier = 10;
constexpr int highestPort = 65535;
constexpr int fixedPauseSeconds = 2;
constexpr int candidatePauseSeconds = 1;

// Wider than a port, so that no configured offset overflows on the way to the test of the limit.
using Port = long long;

// Opens the server's sockets and publishes the port; lives for one allocateDCHport.
class PortAllocation {
 public:
  PortAllocation(ipcSock& server, const TRC1_Scope& scope)
      : trc1Scope(scope),
        _server(server),
        _product(ZOR0_QueryProductSpec(itemProductName)),
        _startsAtConfiguredPort(ZOR0_QueryProductSpec(itemCandidatePorts) != nullptr) {}

  void allocate();

 private:
  struct OpenErrors {
    int udp = 0;
    int tcp = 0;
    bool bothInUse() const { return udp == EADDRINUSE && tcp == EADDRINUSE; }
  };

  void openFixedPort();
  void openCandidatePort();
  OpenErrors openSockets(Port port, ZOR0_SocketFlag flag, bool clearsAddress);
  ZORA_Long openSocket(ZOR0_SocketKind kind, Port port, ZOR0_SocketFlag flag, int* systemError,
                       const char* name);
  bool socketsOpen() const { return _server._sockUDP >= 1 && _server._sockTCP >= 1; }
  void publishPort(Port port);
  void publishOffset(Port offset);

  const TRC1_Scope& trc1Scope;
  ipcSock& _server;
  const char* const _product;
  const bool _startsAtConfiguredPort;
};

void PortAllocation::allocate() {
  TRC1_DETAIL("At entry, DCH using socket port number %d\n", _envPortNo.load());
  const char* const instance = ZORA_GetInstanceName();
  const bool isInstance = *instance != '\0';
  if (isInstance) TRC1_DETAIL("Instance <%s> of %s is being started\n", instance, _product);
  if ((isInstance && _envPortNo == defaultPort) || _startsAtConfiguredPort)
    openCandidatePort();
  else
    openFixedPort();
  // In the error class, so that every log shows where the server went.
  TRC1_ERROR("Successfully opened %s DCH port %d\n", _product, _envPortNo.load());
}

void PortAllocation::openFixedPort() {
  OSV1_Sleep(fixedPauseSeconds);
  const int port = _envPortNo;
  const OpenErrors errors = openSockets(port, ZOR0_SOCKET_PLAIN, true);
  if (errors.bothInUse()) {
    TRC1_ERROR("Error: Could not open TCP/UDP sockets bound to %s DCH port %d\n", _product, port);
    TRC1_ERROR("Determine if another copy of %s is already active on this system.  Exiting...\n\n",
               _product);
    OSV1_EndProcess(0);
  }
  if (!socketsOpen()) {
    TRC1_ERROR(
        "Error: Could not open TCP/UDP sockets bound to %s DCH port %d, UDP Errno: %d, TCP Errno: "
        "%d.  Exiting...\n\n",
        _product, port, errors.udp, errors.tcp);
    OSV1_EndProcess(0);
  }
  TRC1_DETAIL("Opened DCH port %d _sockUDP[%d] _sockTCP[%d] for %s\n", port, _server._sockUDP,
              _server._sockTCP, _product);
}

void PortAllocation::openCandidatePort() {
  const int base = _startsAtConfiguredPort ? 0 : PORT_CANDIDATE_BASE;
  const char* const configuredOffset = ZOR0_QueryProductSpec(itemPortOffset);
  Port offset = configuredOffset != nullptr ? std::atoi(configuredOffset) : 0;
  TRC1_DETAIL("ZOR2_DP_PORT_OFFSET %d is currently in effect\n", static_cast<int>(offset));
  if (offset == 0) offset = defaultPortOffset;
  const int firstMultiplier = _startsAtConfiguredPort ? 0 : 1;
  OSV1_Sleep(candidatePauseSeconds);
  for (int i = firstMultiplier; i <= highestMultiplier; ++i) {
    const Port port = i * offset + _envPortNo + base;
    if (port > highestPort) break;
    const OpenErrors errors = openSockets(port, ZOR0_SOCKET_REUSE, false);
    if (errors.bothInUse()) {
      if (i < highestMultiplier)
        TRC1_ERROR("DCH port number %d is already in use, retrying...\n", static_cast<int>(port));
    } else if (socketsOpen()) {
      publishPort(port);
      if (!_startsAtConfiguredPort) publishOffset(i * offset);
      return;
    } else {
      TRC1_ERROR(
          "Error: Could not open TCP/UDP sockets bound to %s DCH port %d, UDP Errno: %d, TCP "
          "Errno: %d\n",
          _product, static_cast<int>(port), errors.udp, errors.tcp);
    }
  }
  TRC1_ERROR("Error: Could not open TCP/UDP sockets bound to %s\n", _product);
  TRC1_ERROR("All candidate DCH ports are unavailable.  Exiting...\n\n");
  OSV1_EndProcess(0);
}

PortAllocation::OpenErrors PortAllocation::openSockets(Port port, ZOR0_SocketFlag flag,
                                                       bool clearsAddress) {
  OpenErrors errors;
  if (clearsAddress) _server.setClientAddr(nullptr, 0);
  _server._sockUDP = openSocket(SOCK_KIND_UDP, port, flag, &errors.udp, "_sockUDP");
  if (clearsAddress) _server.setClientAddr(nullptr, 0);
  _server._sockTCP = openSocket(SOCK_KIND_TCP, port, flag, &errors.tcp, "_sockTCP");
  return errors;
}

ZORA_Long PortAllocation::openSocket(ZOR0_SocketKind kind, Port port, ZOR0_SocketFlag flag,
                                     int* systemError, const char* name) {
  const int descriptor = ZOR0_OpenLocalSocket(kind, htons(static_cast<unsigned short>(port)),
                                              &_server._sockAddress, flag, systemError);
  if (trc1Scope.on(TRC1_CLASS_DETAIL)) {
    char label[64];
    std::snprintf(label, sizeof label, "%s[%d] bound to", name, descriptor);
    TRC1_ADDRESS(label, &_server._sockAddress, _server._sockAddrLen);
  }
  return descriptor;
}

void PortAllocation::publishPort(Port port) {
  const int number = static_cast<int>(port);
  _envPortNo = static_cast<unsigned short>(port);
  TRC1_DETAIL("Assigned DCH port number to %d\n", number);
  // putenv keeps the text itself, so it lives as long as the process.
  static char entry[32];
  std::snprintf(entry, sizeof entry, "ZORA_DCH_PORT=%d", number);
  putenv(entry);
  TRC1_DETAIL("ZORA_DCH_PORT environment variable now equals %s\n",
              OSV1_GetEnv("ZORA_DCH_PORT", 0));
  const std::string text = std::to_string(number);
  TRC1_DETAIL("Calling ZOR0_UpdateProductSpec with new port value <%s>\n", text.c_str());
  if (ZOR0_UpdateProductSpec(itemPort, text.c_str()) == 0)
    TRC1_ERROR("Error: Unable to reset port value to <%s>\n", text.c_str());
}

void PortAllocation::publishOffset(Port offset) {
  const std::string text = std::to_string(offset);
  TRC1_DETAIL("Calling ZOR0_UpdateProductSpec with new port offset value <%s>\n", text.c_str());
  if (ZOR0_UpdateProductSpec(itemPortOffset, text.c_str()) == 0)
    TRC1_ERROR("Error: Unable to reset port offset value to <%s>\n", text.c_str());
}

}  // namespace

ZORA_Long ipcSock::allocateDCHport() {
  TRC1_FUNCTION("ipcSock::allocateDCHport");
  PortAllocation(*this, trc1Scope).allocate();
  TRC1_RETURN(ZORA_Long{1});
}
