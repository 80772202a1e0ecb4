// The server's port: chosen by the rule in port_choice.h, and told in the trace step by step.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "suite/osv1.h"
#include "suite/product_settings.h"
#include "zordsock/port_choice.h"
#include "zordsock/settings.h"
#include "zordsock/trace_unit.h"
#include "zordsock/zordsock.h"

using namespace zordsock;

namespace {

constexpr int fixedPauseSeconds = 2;
constexpr int candidatePauseSeconds = 1;

// Opens the server's sockets and publishes the port; lives for one allocateDCHport.
class PortAllocation : private PortChoiceSteps {
 public:
  PortAllocation(ipcSock& server, const TRC1_Scope& scope)
      : trc1Scope(scope),
        _server(server),
        _product(ZOR0_QueryProductSpec(ZOR0_ITEM_PRODUCT_NAME)),
        _rule{_envPortNo, false, ZOR0_QueryProductSpec(itemCandidatePorts) != nullptr} {}

  void allocate();

 private:
  void openFixedPort();
  void openCandidatePort();

  void readOffset(int offset) override;
  void aboutToOpen() override;
  void opened(ZOR0_SocketKind kind, int descriptor, const PortChoice& choice) override;
  void failed(const PortChoice& choice) override;

  void publishPort(int port);
  void publishOffset(long long offset);

  const TRC1_Scope& trc1Scope;
  ipcSock& _server;
  const char* const _product;
  PortRule _rule;
};

void PortAllocation::allocate() {
  TRC1_DETAIL("At entry, DCH using socket port number %d\n", _envPortNo.load());
  const char* const instance = ZORA_GetInstanceName();
  _rule.isInstance = *instance != '\0';
  if (_rule.isInstance) TRC1_DETAIL("Instance <%s> of %s is being started\n", instance, _product);
  if (_rule.hasCandidates())
    openCandidatePort();
  else
    openFixedPort();
  // In the error class, so that every log shows where the server went.
  TRC1_ERROR("Successfully opened %s DCH port %d\n", _product, _envPortNo.load());
}

void PortAllocation::openFixedPort() {
  OSV1_Sleep(fixedPauseSeconds);
  const int port = _rule.configuredPort;
  const PortChoice choice = choosePort(_rule, *this);
  if (choice.isInUse()) {
    TRC1_ERROR("Error: Could not open TCP/UDP sockets bound to %s DCH port %d\n", _product, port);
    TRC1_ERROR("Determine if another copy of %s is already active on this system.  Exiting...\n\n",
               _product);
    OSV1_EndProcess(0);
  }
  if (!choice.isBound()) {
    TRC1_ERROR(
        "Error: Could not open TCP/UDP sockets bound to %s DCH port %d, UDP Errno: %d, TCP Errno: "
        "%d.  Exiting...\n\n",
        _product, port, choice.datagramError, choice.streamError);
    OSV1_EndProcess(0);
  }
  TRC1_DETAIL("Opened DCH port %d _sockUDP[%d] _sockTCP[%d] for %s\n", port, _server._sockUDP,
              _server._sockTCP, _product);
}

void PortAllocation::openCandidatePort() {
  const PortChoice choice = choosePort(_rule, *this);
  if (!choice.isBound()) {
    TRC1_ERROR("Error: Could not open TCP/UDP sockets bound to %s\n", _product);
    TRC1_ERROR("All candidate DCH ports are unavailable.  Exiting...\n\n");
    OSV1_EndProcess(0);
  }
  publishPort(static_cast<int>(choice.port));
  if (!_rule.startsAtConfiguredPort) publishOffset(choice.offset);
}

void PortAllocation::readOffset(int offset) {
  TRC1_DETAIL("ZOR2_DP_PORT_OFFSET %d is currently in effect\n", offset);
  OSV1_Sleep(candidatePauseSeconds);
}

void PortAllocation::aboutToOpen() {
  if (!_rule.hasCandidates()) _server.setClientAddr(nullptr, 0);
}

void PortAllocation::opened(ZOR0_SocketKind kind, int descriptor, const PortChoice& choice) {
  const bool isStream = kind == SOCK_KIND_TCP;
  (isStream ? _server._sockTCP : _server._sockUDP) = descriptor;
  if (descriptor >= 0) _server._sockAddress = choice.address;
  if (trc1Scope.on(TRC1_CLASS_DETAIL)) {
    char label[64];
    std::snprintf(label, sizeof label, "%s[%d] bound to", isStream ? "_sockTCP" : "_sockUDP",
                  descriptor);
    TRC1_ADDRESS(label, &_server._sockAddress, _server._sockAddrLen);
  }
}

// Leaves the socket open that could be had.
void PortAllocation::failed(const PortChoice& choice) {
  if (!_rule.hasCandidates()) return;  // openFixedPort() tells
  const int port = static_cast<int>(choice.port);
  if (!choice.isInUse())
    TRC1_ERROR(
        "Error: Could not open TCP/UDP sockets bound to %s DCH port %d, UDP Errno: %d, TCP "
        "Errno: %d\n",
        _product, port, choice.datagramError, choice.streamError);
  else if (choice.multiplier < highestMultiplier)
    TRC1_ERROR("DCH port number %d is already in use, retrying...\n", port);
}

void PortAllocation::publishPort(int port) {
  _envPortNo = static_cast<unsigned short>(port);
  TRC1_DETAIL("Assigned DCH port number to %d\n", port);
  // putenv keeps the text itself, so it lives as long as the process.
  static char entry[32];
  std::snprintf(entry, sizeof entry, "ZORA_DCH_PORT=%d", port);
  putenv(entry);
  TRC1_DETAIL("ZORA_DCH_PORT environment variable now equals %s\n",
              OSV1_GetEnv("ZORA_DCH_PORT", 0));
  const std::string text = std::to_string(port);
  TRC1_DETAIL("Calling ZOR0_UpdateProductSpec with new port value <%s>\n", text.c_str());
  if (ZOR0_UpdateProductSpec(itemPort, text.c_str()) == 0)
    TRC1_ERROR("Error: Unable to reset port value to <%s>\n", text.c_str());
}

void PortAllocation::publishOffset(long long offset) {
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
