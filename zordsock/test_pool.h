// test_pool.h: the lines of borrowing and giving back a pooled socket.
#ifndef ZORDSOCK_TEST_POOL_H
#define ZORDSOCK_TEST_POOL_H

#include <string>
#include <vector>

#include "tests/support/trace_lines.h"
#include "zordsock/test_endpoint.h"

// A pool is asked for once per process, before its first endpoint.
inline void setPoolSize(int sockets) {
  setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", std::to_string(sockets).c_str(), 1);
}

// A pooled endpoint, which gives its socket back.
struct Borrower {
  ~Borrower() { endpoint.releaseIPC(); }
  ipcSock endpoint{SERVICE_UDP_CLIENT, 0, 1};
};

// Which elements are taken, 1 for one that is.
inline std::vector<int> inUse() {
  using namespace zordsock;
  std::vector<int> flags;
  for (int i = 0; i < _envDCHUDPSocks; ++i) flags.push_back(_UDPSockList[i].inUse);
  return flags;
}

inline const void* poolLock() {
  return TRC1_Pointer(&zordsock::_UDPSockLock);
}

// The lines with which both operations of a pooled endpoint begin.
inline std::vector<TraceLine> poolLines() {
  return {entryLine(), flowLine(textOf("_useFromSockPool[1] _UDPSockLock[@%p]\n", poolLock()))};
}

inline TraceLine tryLine() {
  return flowLine(textOf("Try to get _UDPSockLock[@%p]\n", poolLock()));
}

// An allocation up to its first look for a free element.
inline std::vector<TraceLine> allocationLines() {
  std::vector<TraceLine> lines = poolLines();
  lines.push_back(tryLine());
  lines.push_back(flowLine(textOf("_UDPSockLock[@%p] taken.\n", poolLock())));
  return lines;
}

inline TraceLine availableLine(int index, int descriptor) {
  return detailLine(textOf("[%d] UDP Socket %d is available\n", index, descriptor));
}

inline TraceLine freedLine(int index, int descriptor) {
  return detailLine(textOf("[%d] UDP Socket %d made available for use.\n", index, descriptor));
}

inline TraceLine waitingLine() {
  return detailLine("No UDP sockets available yet. Waiting on signal.\n");
}

inline TraceLine signalledLine() {
  return detailLine("Signal received that UDP socket has become available.\n");
}

inline TraceLine signallingLine() {
  return detailLine("Signaling UDP socket waiters.\n");
}

inline std::vector<TraceLine> with(std::vector<TraceLine> lines,
                                   const std::vector<TraceLine>& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

#endif  // ZORDSOCK_TEST_POOL_H
