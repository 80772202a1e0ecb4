// test_subscription.h: a consumer's subscription in a test.
#ifndef ZORDCHCL_TEST_SUBSCRIPTION_H
#define ZORDCHCL_TEST_SUBSCRIPTION_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/scripted_dch.h"
#include "zordchcl/DCHclient.h"
#include "zordchcl/test_client.h"
#include "zordsock/zordsock.h"

// A message of `size` bytes in all.
inline std::string messageOfSize(std::size_t size) {
  return messageOf([&](DCH_MessageBuilder& message) {
    const std::string filling(size - 10, 'r');
    message.addBytes(DCH_response, filling.data(), static_cast<ZORA_Long>(filling.size()));
  });
}

// A client that has subscribed at a DCH that only pushes.
class Subscription {
 public:
  explicit Subscription(const ScriptedDch& dch) : client(1, 0), _dch(dch) {
    const std::size_t before = dch.requests().size();
    EXPECT_EQ(client.dc_waitOnDataInitialize("HOSTMON", "load"), 0);
    EXPECT_EQ(dch.waitForRequests(before + 1).size(), before + 1);
  }

  // The datagrams are with the client when this returns.
  void push(const std::vector<std::string>& datagrams) const {
    for (const std::string& datagram : datagrams) _dch.push(datagram);
  }

  ZORA_Long wait(std::size_t bufferSize) {
    buffer.assign(bufferSize, '#');
    return client.dc_waitOnData(buffer.data(), static_cast<short>(bufferSize));
  }
  std::string received() const { return std::string(buffer.data(), buffer.size()); }

  Lines waitBegun() {
    auto* const transport = static_cast<ipcSock*>(client._ipcClient);
    return {
        entryLine(),
        detailLine("Waiting for dc_waitOnData response message\n"),
        detailLine(textOf("Waiting for sockUDP[%d] port[%d] and interruptFD[%d]\n",
                          static_cast<int>(transport->sockUDP()), transport->sockPortUDP(),
                          static_cast<int>(client._interruptFD))),
    };
  }

  DCHclient client;
  std::vector<char> buffer;  // of exactly its size, so that a byte too many is a fault

 private:
  const ScriptedDch& _dch;
};

#endif  // ZORDCHCL_TEST_SUBSCRIPTION_H
