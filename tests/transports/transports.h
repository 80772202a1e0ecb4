// transports.h: the transports that one suite of tests runs over, and how they differ.
#ifndef TESTS_TRANSPORTS_TRANSPORTS_H
#define TESTS_TRANSPORTS_TRANSPORTS_H

#include <memory>

#include "tests/support/running_server.h"
#include "zordlpc/zordlpc.h"
#include "zordsock/test_endpoint.h"

namespace transports {

struct Sockets {
  using Endpoint = ipcSock;
  static constexpr char processType[] = "1";

  static std::unique_ptr<ipcSock> open(short service) {
    return std::make_unique<ipcSock>(service, 0, 0);
  }
  static unsigned short portOf(ipcSock& endpoint) { return endpoint.sockPortUDP(); }

  // Messages leave, arrive and are counted.
  static constexpr bool carriesMessages = true;
  // What cannot be sent is a failure.
  static constexpr ZORA_Long negativeLengthResult = -1;
  // ZORA_DCH_TIMEOUT is the default wait.
  static constexpr bool hasASettingForItsWait = true;
};

// Carries nothing: everything succeeds at once and nothing moves. These are all its deviations.
struct LocalStub {
  using Endpoint = ipcLPC;
  static constexpr char processType[] = "2";

  static std::unique_ptr<ipcLPC> open(short service) {
    return std::make_unique<ipcLPC>(service, nullptr, 0);
  }
  static unsigned short portOf(ipcLPC&) { return 0; }

  static constexpr bool carriesMessages = false;
  static constexpr ZORA_Long negativeLengthResult = 0;
  static constexpr bool hasASettingForItsWait = false;
};

// A server with its queue; the loop of a transport that carries messages runs.
template <class Transport>
class Server;

template <>
class Server<Sockets> {
 public:
  Server() { EXPECT_EQ(_server.start().bytes.substr(0, 16), SERVER_NOTICE_READY); }
  DCHipc& endpoint() { return _server.endpoint(); }
  unsigned short datagramPort() { return _server.datagramPort(); }
  unsigned short streamPort() { return _server.streamPort(); }

 private:
  RunningServer _server;
};

template <>
class Server<LocalStub> {
 public:
  DCHipc& endpoint() { return _endpoint; }
  unsigned short datagramPort() const { return 0; }
  unsigned short streamPort() const { return 0; }

 private:
  // Its thread is never awaited, so it stays.
  ipcLPC& _endpoint = *new ipcLPC(SERVICE_SERVER, nullptr, 0);
};

}  // namespace transports

#endif  // TESTS_TRANSPORTS_TRANSPORTS_H
