#include "suite/sockets.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "suite/cancellation.h"
#include "suite/osv1.h"
#include "suite/trace_unit.h"

namespace {

// The address that a socket is bound to; false when ZOR0_BIND_ADDR decides and is no address. To
// bind elsewhere then would open a server to a network that nobody chose.
bool chooseAddress(unsigned short portInNetworkOrder, int flag, in_addr* chosen) {
  TRC1_QUIET_FUNCTION("ZOR0_OpenLocalSocket");
  chosen->s_addr = htonl(INADDR_LOOPBACK);
  if ((flag & ZOR0_SOCKET_LOOPBACK) != 0) return true;
  if (portInNetworkOrder == 0) {
    chosen->s_addr = htonl(INADDR_ANY);
    return true;
  }
  const char* configured = OSV1_GetEnv("ZOR0_BIND_ADDR", 0);
  if (configured == nullptr || inet_pton(AF_INET, configured, chosen) == 1) return true;
  TRC1_ERROR("Error: ZOR0_BIND_ADDR <%s> is not an IPv4 address\n", configured);
  return false;
}

// Returns 0, or the error number.
int bindSocket(int descriptor, int type, int flag, sockaddr_in* address) {
  const int on = 1;
  socklen_t length = sizeof *address;
  if (type == SOCK_STREAM && (flag & ZOR0_SOCKET_REUSE) != 0 &&
      setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0)
    return errno;
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(address), length) != 0) return errno;
  if (getsockname(descriptor, reinterpret_cast<sockaddr*>(address), &length) != 0) return errno;
  return 0;
}

// Returns the descriptor, or -1 with the error number in `error`.
int openSocket(int kind, unsigned short portInNetworkOrder, int flag, sockaddr_in* address,
               int* error) {
  const int type = kind == SOCK_KIND_TCP ? SOCK_STREAM : SOCK_DGRAM;
  *error = EINVAL;
  if (kind != SOCK_KIND_TCP && kind != SOCK_KIND_UDP) return -1;

  address->sin_family = AF_INET;
  address->sin_port = portInNetworkOrder;
  *error = EADDRNOTAVAIL;
  if (!chooseAddress(portInNetworkOrder, flag, &address->sin_addr)) return -1;

  const int descriptor = socket(AF_INET, type | SOCK_CLOEXEC, 0);
  *error = descriptor < 0 ? errno : bindSocket(descriptor, type, flag, address);
  if (*error == 0 || descriptor < 0) return descriptor;
  ZOR0_CloseTheSocket(descriptor);
  return -1;
}

}  // namespace

int ZOR0_OpenLocalSocket(int kind, unsigned short portInNetworkOrder, sockaddr_in* address,
                         int flag, int* errorOut) {
  sockaddr_in bound{};
  int error = 0;
  const int descriptor = openSocket(kind, portInNetworkOrder, flag, &bound, &error);
  if (errorOut != nullptr) *errorOut = error;
  if (descriptor >= 0 && address != nullptr) *address = bound;
  return descriptor;
}

unsigned short ZOR0_RetrieveSockPort(int descriptor) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
      address.sin_family != AF_INET)
    return 0;
  return ntohs(address.sin_port);
}

void ZOR0_CloseTheSocket(int descriptor) {
  if (descriptor < 0) return;
  const suite::CancellationOff cancellationOff;
  close(descriptor);
}
