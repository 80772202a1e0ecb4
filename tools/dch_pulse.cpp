#include "tools/dch_pulse.h"

#include <poll.h>
#include <sys/socket.h>
#include <sysexits.h>

#include "tools/common/failure.h"
#include "zordchcl/messages.h"

namespace tools {

DchPulse::DchPulse() : _socket(SERVICE_UDP_CLIENT, 0, 0) {
  if (_socket.ipcGetError() != 0) throw Failure(EX_UNAVAILABLE, "cannot open a socket");
}

void DchPulse::ask() {
  char buffer[64];
  while (recv(_socket.sockUDP(), buffer, sizeof buffer, MSG_DONTWAIT) >= 0) continue;
  // No application has an empty name, so the answer is short.
  DCH_MessageBuilder question(buffer, sizeof buffer);
  question.add(DCH_requestType, short{DCH_REQUEST_HELP}).add(DCH_applName, "");
  _socket.ipcWrite(buffer, question.length(), 0);
}

bool DchPulse::answered(int milliseconds) {
  pollfd answer{_socket.sockUDP(), POLLIN, 0};
  return poll(&answer, 1, milliseconds) > 0;
}

}  // namespace tools
