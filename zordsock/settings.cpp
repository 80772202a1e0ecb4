#include "zordsock/settings.h"

#include <cstdlib>
#include <cstring>

#include "suite/names.h"
#include "suite/osv1.h"
#include "zordsock/port_choice.h"
#include "zordsock/trace_unit.h"
#include "zordsock/zordsock.h"

namespace zordsock {

std::atomic<short> _envVarsInit{0};
std::atomic<int> _envDCHUDPInit{0};
char _envDCHname[hostNameSize];
std::atomic<unsigned short> _envPortNo{0};
int _envDCHtimeout;
int _envTRAPEMIT;
int _envDCHUDPSocks;
bool _envStrictAnswers;

namespace {

int decimalOr(const char* text, int fallback) {
  return text != nullptr ? std::atoi(text) : fallback;
}

bool saysYes(const char* text) {
  return text != nullptr && (*text == 'Y' || *text == 'y');
}

}  // namespace
}  // namespace zordsock

using namespace zordsock;

void ipcSock::getEnvVariables() {
  TRC1_FUNCTION("ipcSock::getEnvVariables");
  const char* const address = OSV1_GetEnv("ZORA_DCH_ADDR", 0);
  const char* const port = OSV1_GetEnv("ZORA_DCH_PORT", 0);
  const char* const timeout = OSV1_GetEnv("ZORA_DCH_TIMEOUT", 0);
  const char* const trapEmit = OSV1_GetEnv("ZORA_DCH_TRAPEMIT", 0);
  const char* const poolSockets = OSV1_GetEnv("ZORA_DCH_UDP_SOCKETS_IN_POOL", 0);
  TRC1_DETAIL("DCHIpc instance @%p and _envVarsInit=%d\n", TRC1_Pointer(this), _envVarsInit.load());

  std::memset(_envDCHname, 0, sizeof _envDCHname);
  const char* const host = address != nullptr ? address : ZOR0_LocalHostNameString();
  if (host != nullptr) {
    std::strncpy(_envDCHname, host, sizeof _envDCHname - 1);
  } else {
    TRC1_ERROR("Error: ZOR0_LocalHostNameString failed.\n");
    setSockError(1);
  }
  _envPortNo = configuredPort(port);
  TRC1_DETAIL("Assigned DCH port number to %d\n", _envPortNo.load());
  _envDCHtimeout = decimalOr(timeout, defaultTimeoutSeconds);
  _envDCHUDPSocks = decimalOr(poolSockets, defaultPoolSockets);
  _envTRAPEMIT = saysYes(trapEmit) ? 1 : 0;
  TRC1_DETAIL("_envDCHname[%s] _envPortNo[%d] _envDCHtimeout[%d] _envTRAPEMIT[%d]\n", _envDCHname,
              _envPortNo.load(), _envDCHtimeout, _envTRAPEMIT);
  _envStrictAnswers = saysYes(OSV1_GetEnv("ZOR0_STRICT_ANSWERS", 0));
  if (_envStrictAnswers) TRC1_DETAIL("ZOR0_STRICT_ANSWERS is on\n");
  TRC1_LEAVE();
}

short ipcSock::DCHtimeout() {
  return static_cast<short>(_envDCHtimeout);
}
