// What holds for every transport, on the client's and on the server's side, through the interface
// that they share. How they differ stands in transports.h.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "suite/zor0.h"
#include "tests/support/leaks_on_purpose.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/sockets.h"
#include "tests/transports/transports.h"
#include "zordchcl/zordchcl.h"

namespace transports {
namespace {

using testing::Types;

// A message that says how long it is.
const std::string message{"\0\0\0\x0Cmessage!", 12};

template <class Transport>
class Conformance : public testing::Test {
 protected:
  Conformance() { setenv("ZORA_DCH_IPCTYPE", Transport::processType, 1); }

  static ZORA_Long write(DCHipc& endpoint, std::string bytes, unsigned int connection = 0) {
    return endpoint.ipcWrite(bytes.data(), static_cast<ZORA_Long>(bytes.size()), connection);
  }

  // What writing `bytes` is to answer.
  static ZORA_Long countOf(const std::string& bytes) {
    return Transport::carriesMessages ? static_cast<ZORA_Long>(bytes.size()) : 0;
  }

  // Once, or not at all where nothing is carried.
  static void expectArrival(const DatagramSocket& receiver, const std::string& bytes) {
    if (Transport::carriesMessages) {
      EXPECT_EQ(receiver.receive(), bytes);
    }
    EXPECT_FALSE(receiver.hasDatagram());
  }
};
using Transports = Types<Sockets, LocalStub>;
TYPED_TEST_SUITE(Conformance, Transports);

// ---- Construction ------------------------------------------------------------------------------

TYPED_TEST(Conformance, AClientIsReadyWhenItIsMade) {
  const DchSocket peer;
  for (const short service : {SERVICE_CLIENT, SERVICE_UDP_CLIENT}) {
    const auto client = TypeParam::open(service);
    EXPECT_EQ(client->ipcGetError(), 0);
    EXPECT_EQ(client->ipcTypeOfService(), service);
    EXPECT_EQ(client->_dchIpcType, std::atoi(TypeParam::processType));
    EXPECT_EQ(client->ipcGetRetryRead(), 1);
  }
}

TYPED_TEST(Conformance, AnUnknownTypeOfServiceIsAnError) {
  const DchSocket peer;
  EXPECT_EQ(TypeParam::open(0)->ipcGetError(), 1);
  EXPECT_EQ(TypeParam::open(4)->ipcGetError(), 1);
}

TYPED_TEST(Conformance, AnObjectWithoutAServiceIsInError) {
  const typename TypeParam::Endpoint endpoint;
  EXPECT_EQ(endpoint.ipcGetError(), 1);
}

TYPED_TEST(Conformance, AClientCanBeOpenedAgain) {
  const DchSocket peer;
  const auto client = TypeParam::open(SERVICE_UDP_CLIENT);
  client->releaseIPC();
  if constexpr (TypeParam::carriesMessages) ZOR0_CloseTheSocket(client->sockUDP());
  EXPECT_EQ(client->IPCClient(nullptr, 0, SERVICE_UDP_CLIENT), 0);
}

// ---- Settings ----------------------------------------------------------------------------------

TYPED_TEST(Conformance, TheWaitIsThirtySeconds) {
  const DchSocket peer;
  unsetenv("ZORA_DCH_TIMEOUT");
  EXPECT_EQ(TypeParam::open(SERVICE_UDP_CLIENT)->DCHtimeout(), 30);
}

TYPED_TEST(Conformance, TheWaitIsAsSetWhereItCanBeSet) {
  const DchSocket peer;
  setenv("ZORA_DCH_TIMEOUT", "7", 1);
  EXPECT_EQ(TypeParam::open(SERVICE_UDP_CLIENT)->DCHtimeout(),
            TypeParam::hasASettingForItsWait ? 7 : 30);
}

TYPED_TEST(Conformance, TheRetryIsKeptAsItIsSet) {
  const DchSocket peer;
  const auto client = TypeParam::open(SERVICE_UDP_CLIENT);
  client->ipcSetRetryRead(3);
  EXPECT_EQ(client->ipcGetRetryRead(), 3);
  client->ipcSetError(5);
  EXPECT_EQ(client->ipcGetError(), 5);
}

// ---- A client's messages -----------------------------------------------------------------------

TYPED_TEST(Conformance, WhatIsWrittenArrivesWhereMessagesAreCarried) {
  const DchSocket peer;
  const auto client = TypeParam::open(SERVICE_UDP_CLIENT);
  EXPECT_EQ(this->write(*client, message), this->countOf(message));
  this->expectArrival(peer, message);
}

TYPED_TEST(Conformance, AMessageWithoutBytesIsNothing) {
  const DchSocket peer;
  const auto client = TypeParam::open(SERVICE_UDP_CLIENT);
  EXPECT_EQ(this->write(*client, ""), 0);
  EXPECT_FALSE(peer.hasDatagram());
}

TYPED_TEST(Conformance, ANegativeLengthIsNeverSent) {
  const DchSocket peer;
  const auto client = TypeParam::open(SERVICE_UDP_CLIENT);
  char byte = 'x';
  EXPECT_EQ(client->ipcWrite(&byte, -1, 0), TypeParam::negativeLengthResult);
  EXPECT_FALSE(peer.hasDatagram());
}

TYPED_TEST(Conformance, APeerAddressCanBeSet) {
  const DchSocket peer;
  const auto client = TypeParam::open(SERVICE_UDP_CLIENT);
  const DatagramSocket other;
  sockaddr_in address = other.address();
  client->setClientAddr(&address, sizeof address);
  EXPECT_EQ(this->write(*client, message), this->countOf(message));
  this->expectArrival(other, message);
  EXPECT_FALSE(peer.hasDatagram());
}

TYPED_TEST(Conformance, AnAnswerIsReadWholeWhereMessagesAreCarried) {
  const DchSocket peer;
  const auto client = TypeParam::open(SERVICE_UDP_CLIENT);
  if (TypeParam::carriesMessages) peer.sendTo(TypeParam::portOf(*client), message);
  char untouched = 0;
  void* buffer = &untouched;
  const ZORA_Long count = client->ipcRead(&buffer, 20);
  EXPECT_EQ(count, this->countOf(message));
  if (count == 0) {
    EXPECT_EQ(buffer, &untouched);
  } else {
    const std::unique_ptr<char[]> owner(static_cast<char*>(buffer));
    EXPECT_EQ(std::string(owner.get(), message.size()), message);
  }
}

TYPED_TEST(Conformance, SilenceIsNoMessage) {
  const DchSocket peer;
  const auto client = TypeParam::open(SERVICE_UDP_CLIENT);
  client->ipcSetRetryRead(0);
  char untouched = 0;
  void* buffer = &untouched;
  EXPECT_EQ(client->ipcRead(&buffer, 1), 0);
  EXPECT_EQ(buffer, &untouched);
}

TYPED_TEST(Conformance, AnEndpointOutsideOfThePoolCanBeHadAndGivenBack) {
  const DchSocket peer;
  const auto client = TypeParam::open(SERVICE_UDP_CLIENT);
  const ZORA_Long descriptor = client->allocateIPC();
  EXPECT_GE(descriptor, 0);
  if (TypeParam::carriesMessages) ZOR0_CloseTheSocket(descriptor);
  EXPECT_EQ(client->releaseIPC(), 0);
}

TYPED_TEST(Conformance, ARequestIsAnsweredWhereMessagesAreCarried) {
  const ScriptedDch dch(always(statusAnswer(104)));
  ZORA_Long status = -1;
  const int result = dp_offline(&status, 815);
  constexpr int shortWrite = 2;
  EXPECT_EQ(result, TypeParam::carriesMessages ? 0 : 1);
  EXPECT_EQ(status, TypeParam::carriesMessages ? 104 : shortWrite);
  EXPECT_EQ(dch.requests().size(), TypeParam::carriesMessages ? 1U : 0U);
}

// ---- A server ----------------------------------------------------------------------------------

TYPED_TEST(Conformance, AServerHasAQueue) {
  const LeaksOnPurpose leaks;
  Server<TypeParam> server;
  EXPECT_EQ(server.endpoint().ipcGetError(), 0);
  EXPECT_EQ(server.endpoint().ipcTypeOfService(), SERVICE_SERVER);
  ASSERT_NE(server.endpoint()._ipcCircularBuffer, nullptr);
  EXPECT_EQ(server.endpoint()._ipcCircularBuffer->num_full, 0);
}

TYPED_TEST(Conformance, TheQueueKeepsMessagesInOrderWithTheirSenders) {
  const LeaksOnPurpose leaks;
  Server<TypeParam> server;
  const sockaddr_in address = DatagramSocket().address();
  server.endpoint().ipc_put_data(12, message.data(), &address, sizeof address, "127.0.0.1", 7);
  server.endpoint().ipc_put_data(6, "notice", nullptr, 0, nullptr, 0);
  const QueuedMessage first = takeMessage(server.endpoint());
  EXPECT_EQ(first.bytes, message);
  EXPECT_EQ(first.name, "127.0.0.1");
  EXPECT_EQ(first.descriptor, 7U);
  EXPECT_EQ(first.senderLength, static_cast<ZORA_Long>(sizeof address));
  EXPECT_EQ(std::memcmp(&first.sender, &address, sizeof address), 0);
  const QueuedMessage second = takeMessage(server.endpoint());
  EXPECT_EQ(second.bytes, "notice");
  EXPECT_EQ(second.name, blankName);
}

TYPED_TEST(Conformance, ADatagramReachesTheQueueAndIsAnsweredWhereMessagesAreCarried) {
  const LeaksOnPurpose leaks;
  Server<TypeParam> server;
  const DatagramSocket client;
  sockaddr_in sender = client.address();
  if (TypeParam::carriesMessages) {
    client.sendTo(server.datagramPort(), message);
    const QueuedMessage queued = takeMessage(server.endpoint());
    EXPECT_EQ(queued.bytes, message);
    EXPECT_EQ(queued.descriptor, 0U);
    sender = queued.sender;
  }
  server.endpoint().setClientAddr(&sender, sizeof sender);
  EXPECT_EQ(this->write(server.endpoint(), "answer"), this->countOf("answer"));
  this->expectArrival(client, "answer");
}

TYPED_TEST(Conformance, AStreamReachesTheQueueAndIsAnsweredWhereMessagesAreCarried) {
  if constexpr (TypeParam::carriesMessages) {
    Server<TypeParam> server;
    const StreamSocket client(server.streamPort());
    client.send(message);
    const QueuedMessage queued = takeMessage(server.endpoint());
    EXPECT_EQ(queued.bytes, message);
    ASSERT_NE(queued.descriptor, 0U);
    EXPECT_EQ(this->write(server.endpoint(), "answer", queued.descriptor), 6);
    EXPECT_EQ(client.receive(6), "answer");
  } else {
    const LeaksOnPurpose leaks;
    Server<TypeParam> server;
    EXPECT_EQ(this->write(server.endpoint(), "answer", 1), 0) << "not even on standard output";
    EXPECT_EQ(server.endpoint().IPCServer(), 0) << "its loop is over at once";
    EXPECT_EQ(server.endpoint()._ipcCircularBuffer->num_full, 0);
  }
}

}  // namespace
}  // namespace transports
