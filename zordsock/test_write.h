// test_write.h: the lines of a write.
#ifndef ZORDSOCK_TEST_WRITE_H
#define ZORDSOCK_TEST_WRITE_H

#include <string>
#include <vector>

#include "tests/support/sockets.h"
#include "tests/support/trace_lines.h"
#include "zordsock/test_endpoint.h"

inline ZORA_Long write(ipcSock& endpoint, std::string message, unsigned int connection = 0) {
  return endpoint.ipcWrite(message.data(), static_cast<ZORA_Long>(message.size()), connection);
}

// The lines with which each write begins.
inline std::vector<TraceLine> datagramLines(const ipcSock& endpoint, int length) {
  return {entryLine(),
          detailLine(textOf("[@%p] Using Family=AF_INET, Type=UDP totalLen=%d.\n",
                            TRC1_Pointer(&endpoint), length)),
          detailLine("_sockAddress set to " + tracedAddress(endpoint._sockAddress))};
}

inline std::vector<TraceLine> streamLines(const ipcSock& endpoint, const StreamPair& connection) {
  return {entryLine(),
          detailLine(textOf("[@%p] Using Family=AF_INET, Type=TCP.\n", TRC1_Pointer(&endpoint))),
          detailLine(textOf("connectedSockFD set to %d\n", static_cast<int>(connection.server())))};
}

// And those with which it ends.
inline std::vector<TraceLine> withSuccess(std::vector<TraceLine> lines, const ipcSock& endpoint,
                                          int length) {
  lines.push_back(detailLine(
      textOf("[@%p] Sent %d bytes out of %d\n", TRC1_Pointer(&endpoint), length, length)));
  lines.push_back(exitLine(length));
  return lines;
}

inline std::vector<TraceLine> withFailure(std::vector<TraceLine> lines, const std::string& text) {
  lines.push_back(errorLine(text));
  lines.push_back(exitLine(-1));
  return lines;
}

inline std::string sendFailure(const ipcSock& endpoint, int sent, int length, int systemError) {
  return textOf("Error: [@%p] SEND - Sent %d bytes out of %d: errno=%d\n", TRC1_Pointer(&endpoint),
                sent, length, systemError);
}

inline TraceLine wouldBlockLine(const ipcSock& endpoint, int seconds) {
  return detailLine(textOf("[@%p] SEND would block - waiting on Select for %d seconds.\n",
                           TRC1_Pointer(&endpoint), seconds));
}

#endif  // ZORDSOCK_TEST_WRITE_H
