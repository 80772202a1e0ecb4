// The server's table of stream connections, and which of them are readable.
#include <sys/select.h>

#include <algorithm>

#include "suite/descriptor_set.h"
#include "zordsock/trace_unit.h"
#include "zordsock/zordsock.h"

namespace {

// The scan ends before the last slot, which is handed out and watched but never read.
constexpr ZORA_Long scannedSlots = MAX_TCP_CLIENTS - 1;

// 0 when there is none. Asked at every datagram: a loop like this runs over many slots at a time.
ZORA_Long highestConnection(const ipcSock& server) {
  ZORA_Long highest = 0;
  for (const ZORA_Long descriptor : server._sockClientFD) highest = std::max(highest, descriptor);
  return highest;
}

}  // namespace

ZORA_Long ipcSock::sockSetSelectReadMask(fd_set* readMask) {
  TRC1_FUNCTION("ipcSock::sockSetSelectReadMask");
  const ZORA_Long connections = highestConnection(*this);
  ZOR0_ClearDescriptors(readMask, std::max({_sockTCP, _sockUDP, connections}));
  ZOR0_AddDescriptor(readMask, _sockTCP);
  ZOR0_AddDescriptor(readMask, _sockUDP);
  TRC1_DETAIL("_sockTCP[%d] and _sockUDP[%d] mask set.\n", _sockTCP, _sockUDP);
  ZORA_Long highest = std::max(_sockTCP, _sockUDP);
  const ZORA_Long slots = connections > 0 ? MAX_TCP_CLIENTS : 0;
  for (ZORA_Long slot = 0; slot < slots; ++slot) {
    const ZORA_Long descriptor = _sockClientFD[slot];
    if (descriptor <= 0) continue;
    ZOR0_AddDescriptor(readMask, descriptor);
    highest = std::max(highest, descriptor);
    TRC1_DETAIL("_sockClientFD[%d]=[%d] mask set, max_fd[%d]\n", slot, descriptor, highest);
  }
  TRC1_RETURN(highest + 1);
}

void ipcSock::sockResetIndex() {
  TRC1_FUNCTION("ipcSock::sockResetIndex");
  _sockIndex = 0;
  TRC1_LEAVE();
}

ZORA_Long ipcSock::sockCheckReadMask(fd_set* readMask, ZORA_Long* clientIndex) {
  TRC1_FUNCTION("ipcSock::sockCheckReadMask");
  const ZORA_Long slot = _sockIndex++;
  *clientIndex = -1;
  if (slot >= scannedSlots) TRC1_RETURN(ZORA_Long{-1});
  const ZORA_Long descriptor = _sockClientFD[slot];
  if (descriptor <= 0 || !ZOR0_HasDescriptor(readMask, descriptor)) TRC1_RETURN(ZORA_Long{0});
  *clientIndex = slot;
  TRC1_RETURN(descriptor);
}

ZORA_Long ipcSock::sockGetAvailableIndex() {
  TRC1_FUNCTION("ipcSock::sockGetAvailableIndex");
  const ZORA_Long* const free = std::find(std::begin(_sockClientFD), std::end(_sockClientFD), 0);
  const bool found = free != std::end(_sockClientFD);
  TRC1_RETURN(found ? static_cast<ZORA_Long>(free - _sockClientFD) : ZORA_Long{-1});
}
