// test_transport.h: a transport that opens nothing: its endpoint and its receive loop are a test's.
#ifndef ZORDIPC_TEST_TRANSPORT_H
#define ZORDIPC_TEST_TRANSPORT_H

#include <functional>

#include "zordipc/zordipc.h"

class TestTransport : public DCHipc {
 public:
  TestTransport() = default;
  explicit TestTransport(short typeOfService) : DCHipc(typeOfService) {}

  std::function<ZORA_Long()> receiveLoop = [] { return ZORA_Long{0}; };
  std::function<ZORA_Long(void*, ZORA_Long, ZORA_Long)> openEndpoint =
      [](void*, ZORA_Long, ZORA_Long) { return ZORA_Long{0}; };

  ZORA_Long IPCServer() override { return receiveLoop(); }
  ZORA_Long IPCClient(void* clientArg, ZORA_Long connectTo, ZORA_Long typeOfService) override {
    return openEndpoint(clientArg, connectTo, typeOfService);
  }

  ZORA_Long ipcRead(void**, ZORA_Long) override { return 0; }
  ZORA_Long ipcWrite(void*, ZORA_Long, unsigned int) override { return 0; }
  void setClientAddr(void*, ZORA_Long) override {}
  ZORA_Long allocateIPC() override { return 0; }
  ZORA_Long releaseIPC() override { return 0; }
};

#endif  // ZORDIPC_TEST_TRANSPORT_H
