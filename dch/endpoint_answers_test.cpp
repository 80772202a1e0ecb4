#include "dch/endpoint_answers.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

#include "dch/event_log.h"
#include "dch/push_socket.h"
#include "dch/testkit/clients.h"
#include "tests/support/sockets.h"

namespace dch {
namespace {

// An endpoint that keeps what it is told to write.
class RecordingEndpoint : public DCHipc {
 public:
  RecordingEndpoint() : DCHipc(SERVICE_CLIENT) {}

  ZORA_Long ipcRead(void**, ZORA_Long) override { return -1; }
  ZORA_Long ipcWrite(void* buffer, ZORA_Long length, unsigned int) override {
    ++writes;
    lastMessage.assign(static_cast<const char*>(buffer), static_cast<std::size_t>(length));
    return length;
  }
  void setClientAddr(void* address, ZORA_Long) override {
    receiver = PeerAddress(*static_cast<const sockaddr_in*>(address));
  }
  ZORA_Long IPCServer() override { return 1; }
  ZORA_Long IPCClient(void*, ZORA_Long, ZORA_Long) override { return 1; }
  ZORA_Long allocateIPC() override { return -1; }
  ZORA_Long releaseIPC() override { return 1; }

  int writes = 0;
  std::string lastMessage;
  PeerAddress receiver;
};

class EndpointAnswersTest : public ::testing::Test {
 protected:
  static Origin originOn(const StreamPair& connection) {
    return {PeerAddress(connection.client().address()), connection.server()};
  }

  const EventLog _log{false};
  RecordingEndpoint _endpoint;
  PushSocket _socket{in_addr{htonl(INADDR_LOOPBACK)}};
  PacedSender _pacedSender{_socket, _log, std::chrono::milliseconds(1)};
  Counters _counters;
  EndpointAnswers _answers{_endpoint, _pacedSender, _counters, _log};
};

TEST_F(EndpointAnswersTest, GoesBackToTheSenderOfADatagram) {
  Origin origin;
  origin.peer.address = htonl(INADDR_LOOPBACK);
  origin.peer.port = htons(4711);
  _answers.send(origin, "answer");
  EXPECT_EQ(_endpoint.receiver, origin.peer);
  EXPECT_EQ(_endpoint.lastMessage, "answer");
}

TEST_F(EndpointAnswersTest, GoesBackOnTheConnectionOfItsRequest) {
  const StreamPair connection;
  _answers.send(originOn(connection), "answer");
  EXPECT_EQ(connection.client().tryReceive(), "answer");
}

TEST_F(EndpointAnswersTest, IsDroppedAndCountedWhenTheDescriptorIsAnotherClientsByNow) {
  const StreamPair connection;
  Origin origin = originOn(connection);
  ++origin.peer.port;
  _answers.send(origin, "first");
  EXPECT_EQ(_counters[Counter::answersDropped], 1u);
  _answers.send(originOn(connection), "second");
  EXPECT_EQ(connection.client().tryReceive(), "second");
}

TEST_F(EndpointAnswersTest, IsDroppedAndCountedWhenTheConnectionIsClosed) {
  Origin origin;
  origin.connection = 1'000'000;
  _answers.send(origin, "answer");
  EXPECT_EQ(_counters[Counter::answersDropped], 1u);
}

TEST_F(EndpointAnswersTest, PacesALongerTextAsideTheEndpoint) {
  testkit::UdpClient client(testkit::noServer);
  const std::string message = std::string(maxDatagramBytes, 'x') + 'y';
  _answers.send({client.address()}, message);
  EXPECT_EQ(client.receive(), std::string(maxDatagramBytes, 'x'));
  EXPECT_EQ(client.receive(), "y");
  EXPECT_EQ(_endpoint.writes, 0);
}

TEST_F(EndpointAnswersTest, SendsALongTextOnAConnectionInOnePiece) {
  const StreamPair connection;
  const std::string message(100'000, 'x');
  _answers.send(originOn(connection), message);
  EXPECT_EQ(connection.client().receive(message.size()), message);
}

TEST_F(EndpointAnswersTest, ShutsAConnectionDownWhoseClientDoesNotRead) {
  StreamPair connection;
  connection.fill();
  _answers.send(originOn(connection), "answer");
  EXPECT_EQ(_counters[Counter::answersDropped], 1u);
  // The end comes behind what the client had not read.
  connection.drain();
  EXPECT_EQ(connection.client().tryReceive(), "");
}

}  // namespace
}  // namespace dch
