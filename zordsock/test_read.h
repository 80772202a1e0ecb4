// test_read.h: a read of an endpoint, and the lines that it writes.
#ifndef ZORDSOCK_TEST_READ_H
#define ZORDSOCK_TEST_READ_H

#include <cerrno>
#include <memory>
#include <string>

#include "suite/sockets.h"
#include "tests/support/trace_lines.h"
#include "zordsock/test_endpoint.h"

struct ReadOutcome {
  ZORA_Long result;
  bool handedOver;  // whether the caller's pointer was set
  const void* pointer;
  std::unique_ptr<char[]> buffer;

  std::string message(std::size_t size) const { return std::string(buffer.get(), size); }
};

inline ReadOutcome readFrom(ipcSock& endpoint, ZORA_Long initialWait) {
  static char untouched;
  void* buffer = &untouched;
  errno = 0;  // which the lines show
  const ZORA_Long result = endpoint.ipcRead(&buffer, initialWait);
  const bool handedOver = buffer != &untouched;
  return {result, handedOver, buffer,
          std::unique_ptr<char[]>(handedOver ? static_cast<char*>(buffer) : nullptr)};
}

// The lines of one read, in their order.
class ReadLines {
 public:
  ReadLines(ipcSock& endpoint, ZORA_Long initialWait) : _endpoint(endpoint), _wait(initialWait) {
    add(entryLine());
    add(detailLine(textOf("[@%p] Passed parms: buffer @{address}, initial wait=%d\n",
                          TRC1_Pointer(&endpoint), initialWait)));
  }

  operator std::vector<TraceLine>() const { return _lines; }

  ReadLines& add(TraceLine line) {
    _lines.push_back(std::move(line));
    return *this;
  }

  // A wait, and what select() answered.
  ReadLines& waited(int count, int systemError = 0) {
    if (_chunks > 0) _wait = 10;
    add(detailLine(textOf("[@%p]Waiting on SELECT: UDP[%d] Port[%d] MaxFD[%d] WaitTime[%d]\n",
                          TRC1_Pointer(&_endpoint), _endpoint.sockUDP(),
                          ZOR0_RetrieveSockPort(_endpoint.sockUDP()), _endpoint.sockUDP() + 1,
                          _wait)));
    add(detailLine(textOf("[@%p] Select returned - count=%d errno=%d\n", TRC1_Pointer(&_endpoint),
                          count, systemError)));
    if (count == -1)
      add(errorLine(textOf("Error: [@%p] select - wait=%d count=-1 errno=%d\n",
                           TRC1_Pointer(&_endpoint), _wait, systemError)));
    return *this;
  }

  ReadLines& tryingAgain() {
    waited(0);
    return add(
        detailLine(textOf("[@%p] select timed out - wait=%d count=0 errno=0...trying again\n",
                          TRC1_Pointer(&_endpoint), _wait)));
  }

  // The last two lines: a read that gives up has no other ending.
  ReadLines& notRetrying(ZORA_Long result) {
    waited(0);
    add(detailLine(textOf("select timed out - wait=%d count=0 errno=0...not retrying\n", _wait)));
    return add(exitLine(result));
  }

  ReadLines& allocated() {
    return add(storageLine(
        textOf("Allocated ipcBuffer @{address} length 8192 in ipcSock @%p, storing in ipcBufArray "
               "at index: %d\n",
               TRC1_Pointer(&_endpoint), _chunks)));
  }

  // A datagram that came, of a message that its first one announces as `totalLength` bytes.
  ReadLines& received(int totalLength, int bytes, int systemError = 0) {
    allocated();
    _chunks += 1;
    _totalRead += bytes;
    return add(detailLine(
        textOf("[@%p] ipcBufCount=%d totalLen=%d, bytesRead=%d, totalRead=%d, "
               "errno=%d\n",
               TRC1_Pointer(&_endpoint), _chunks, totalLength, bytes, _totalRead, systemError)));
  }

  // A receive that gave nothing.
  ReadLines& dropped(int bytesRead) {
    allocated();
    add(storageLine(textOf("Deleting ipcBuffer @{address}, bytesRead: %d\n", bytesRead)));
    return add(detailLine(textOf("Nulling out ipcBuffer at ipcBufArray index %d\n", _chunks)));
  }

  ReadLines& complete() {
    return add(
        detailLine(textOf("recvfrom operation had no more data, totalRead: %d, ipcBufCount: %d\n",
                          _totalRead, _chunks)));
  }

  ReadLines& incomplete(int totalLength, int bytesRead, int systemError = 0) {
    return add(errorLine(textOf("Error: [@%p] totalLen=%d, bytesRead=%d errno=%d\n",
                                TRC1_Pointer(&_endpoint), totalLength, bytesRead, systemError)));
  }

  ReadLines& ended(const ReadOutcome& outcome) {
    add(detailLine(textOf("*readBuffer set to <@%p>", outcome.pointer)));
    return add(exitLine(outcome.result));
  }

 private:
  ipcSock& _endpoint;
  ZORA_Long _wait;
  int _chunks = 0;
  int _totalRead = 0;
  std::vector<TraceLine> _lines;
};

#endif  // ZORDSOCK_TEST_READ_H
