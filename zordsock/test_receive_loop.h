// test_receive_loop.h: what the tests of the receive loop share: the lines that its passes write,
// and the comparison of what it queues.
#ifndef ZORDSOCK_TEST_RECEIVE_LOOP_H
#define ZORDSOCK_TEST_RECEIVE_LOOP_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/failing_calls.h"
#include "tests/support/running_server.h"
#include "tests/support/sockets.h"
#include "tests/support/trace_lines.h"
#include "zordsock/test_endpoint.h"

// The function that is traced.
constexpr char loopName[] = "ipcSock::IPCServer";

// Ends the loop of the next server when it waits for the `pass`th time, in a pass or for a piece.
[[nodiscard]] inline FailingCall endAtWait(int pass) {
  return {nthCall(SystemCall::select, pass), EBADF};
}

// The trace of a loop that endAtWait() ends. Start and end are its own; the test adds the passes.
class LoopTrace {
 public:
  explicit LoopTrace(RunningServer& server)
      : LoopTrace(server, detailLine(textOf("listen for _sockTCP %d successful. errno=0\n",
                                            server.endpoint()._sockTCP))) {}
  LoopTrace(RunningServer& server, const TraceLine& lineOfListen)
      : _server(server.endpoint()), _lines{entryLine(), lineOfListen} {}

  LoopTrace& add(std::initializer_list<TraceLine> lines) {
    _lines.insert(_lines.end(), lines);
    return *this;
  }

  // The wait of a pass, when `connection` is the highest of the connections.
  LoopTrace& addPass(ZORA_Long connection = 0) {
    const ZORA_Long highest = std::max({_server._sockUDP, _server._sockTCP, connection});
    return add({detailLine(textOf("[@{address}]Waiting on SELECT: UDP[%d] TCP[%d] MaxFD[%d]",
                                  _server._sockUDP, _server._sockTCP, highest + 1))});
  }

  LoopTrace& addDatagram(const sockaddr_in& sender, int bytes) {
    return add({detailLine(textOf("_sockUDP[%d] SET for reading, clearing workBuffer @{address}\n",
                                  _server._sockUDP)),
                detailLine(textOf("UDP: bytesRead=%d, errno=0\n", bytes)),
                detailLine("sockClientAddr set to" + tracedAddress(sender))});
  }

  LoopTrace& addReadableListener() {
    return add({detailLine(textOf("_sockTCP[%d] SET for reading", _server._sockTCP))});
  }

  LoopTrace& addAccept(const sockaddr_in& peer, int slot, ZORA_Long connection) {
    addReadableListener();
    return add({detailLine(textOf("_sockClientFD[%d]=[%d]", slot, connection)),
                detailLine("sockClientAddr set to" + tracedAddress(peer))});
  }

  LoopTrace& addReadableConnection(int slot, ZORA_Long connection) {
    return add({detailLine(textOf("_sockClientFD[%d]=%d SET for reading\n", slot, connection))});
  }

  // One piece of a message; `read` are the bytes of those before it.
  LoopTrace& addPiece(ZORA_Long connection, int index, int length, int read, int bytes,
                      int systemError = 0) {
    add({detailLine(textOf("[@{address}]Waiting on SELECT: connectedSockFD[%d] MaxFD[%d]\n",
                           connection, connection + 1)),
         index == 0
             ? detailLine("Back from Select, reusing ipcBuffer @{address}\n")
             : storageLine(textOf(
                   "Allocated ipcBuffer @{address}, storing in ipcBufArray at index: %d\n", index)),
         flowLine(
             textOf("ipcBufCount=%d totalLen=%d totalRead=%d bytesRead=%d initRead=%d moreData=1\n",
                    index, index == 0 ? 0 : length, read, bytes, index == 0))});
    if (bytes < 1 && index > 0)
      add({storageLine(textOf("Deleting ipcBuffer @{address}, bytesRead: %d\n", bytes)),
           detailLine(textOf("Nulling out ipcBuffer at ipcBufArray index %d\n", index))});
    return add({detailLine(textOf("TCP: totalLen=%d, bytesRead=%d, totalRead=%d, errno=%d\n",
                                  length, bytes, read + std::max(bytes, 0), systemError))});
  }

  // The last wait, for which `connection` is the highest of the connections, and the end.
  std::vector<TraceLine> end(ZORA_Long connection = 0) {
    addPass(connection);
    return endWithoutWait({errorLine(textOf("Error: select failed. <%d>\n", EBADF))});
  }

  std::vector<TraceLine> endWithoutWait(std::initializer_list<TraceLine> lines = {}) {
    add(lines);
    add({errorLine("Error: IPC errors[2], cannot continue.\n"), exitLine(2)});
    return _lines;
  }

 private:
  ipcSock& _server;
  std::vector<TraceLine> _lines;
};

inline bool operator==(const sockaddr_in& one, const sockaddr_in& other) {
  return std::memcmp(&one, &other, sizeof one) == 0;
}

// What a client's message looks like in the queue, and what a notice without a name.
inline void expectQueued(const QueuedMessage& message, const std::string& bytes,
                         const sockaddr_in& sender, ZORA_Long descriptor,
                         const std::string& name = "127.0.0.1") {
  EXPECT_EQ(message.bytes, bytes);
  EXPECT_TRUE(message.sender == sender);
  EXPECT_EQ(message.senderLength, 16);
  EXPECT_EQ(message.name, name);
  EXPECT_EQ(message.descriptor, static_cast<unsigned>(descriptor));
}

#endif  // ZORDSOCK_TEST_RECEIVE_LOOP_H
