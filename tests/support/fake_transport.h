// fake_transport.h: a client whose transport is a test's: writes and reads end as the test says, at
// once, and what was asked of the transport is kept.
#ifndef TESTS_SUPPORT_FAKE_TRANSPORT_H
#define TESTS_SUPPORT_FAKE_TRANSPORT_H

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "zordchcl/DCHclient.h"

class FakeTransport final : public DCHipc {
 public:
  FakeTransport() : DCHipc(SERVICE_UDP_CLIENT) {}

  // The messages that reads hand over, in order. Without one a read answers `failedRead`.
  std::deque<std::string> answers;
  ZORA_Long failedRead = 0;
  std::optional<ZORA_Long> writeResult;  // what a write answers instead of the whole length

  std::function<void()> whileReading;  // called at the start of each read

  std::vector<std::string> written;
  std::vector<unsigned int> flags;  // of each write
  std::vector<ZORA_Long> waits;     // of each read

  ZORA_Long ipcRead(void** readBuffer, ZORA_Long initialWait) override {
    waits.push_back(initialWait);
    if (whileReading) whileReading();
    if (answers.empty()) return failedRead;
    const std::string answer = answers.front();
    answers.pop_front();
    auto* const message = new char[answer.size()];
    answer.copy(message, answer.size());
    *readBuffer = message;
    return static_cast<ZORA_Long>(answer.size());
  }

  ZORA_Long ipcWrite(void* buffer, ZORA_Long length, unsigned int connectedSockFD) override {
    written.emplace_back(static_cast<const char*>(buffer), static_cast<std::size_t>(length));
    flags.push_back(connectedSockFD);
    return writeResult.value_or(length);
  }

  void setClientAddr(void*, ZORA_Long) override {}
  ZORA_Long IPCServer() override { return 0; }
  ZORA_Long IPCClient(void*, ZORA_Long, ZORA_Long) override { return 0; }
  ZORA_Long allocateIPC() override { return 0; }
  ZORA_Long releaseIPC() override { return 0; }
};

// A client on sockets that uses a fake transport between its construction and its destruction.
class FakedClient {
 public:
  FakedClient() : client(0, 1), _ownTransport(client._ipcClient) { client._ipcClient = &transport; }
  ~FakedClient() { client._ipcClient = _ownTransport; }
  FakedClient(const FakedClient&) = delete;
  FakedClient& operator=(const FakedClient&) = delete;

  DCHclient client;
  FakeTransport transport;

 private:
  DCHipc* const _ownTransport;
};

#endif  // TESTS_SUPPORT_FAKE_TRANSPORT_H
