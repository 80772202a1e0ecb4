#include "tools/common/transport_check.h"

#include <sysexits.h>

#include <cstdlib>
#include <string>

#include "suite/names.h"
#include "tools/common/failure.h"
#include "tools/common/printable.h"
#include "zora/zora.h"

namespace tools {

void checkTransport() {
  if (ZORA_GetIPCtype() != IPC_TYPE_SOCKET)
    throw Failure(EX_UNAVAILABLE, "ZORA_DCH_IPCTYPE is " + std::to_string(ZORA_GetIPCtype()) +
                                      ", but the DCH is reached over sockets only (" +
                                      std::to_string(IPC_TYPE_SOCKET) + ")");
  const char* host = std::getenv("ZORA_DCH_ADDR");
  sockaddr_in address{};
  if (host != nullptr && ZOR0_ConvertNameToAddr(host, 0, &address) == 0)
    throw Failure(EX_UNAVAILABLE, "ZORA_DCH_ADDR names an unknown host: " + inQuotes(host));
}

}  // namespace tools
