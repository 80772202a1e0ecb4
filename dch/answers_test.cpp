#include "dch/answers.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"

namespace dch {
namespace {

using Form = Answer::Form;

// An endpoint that keeps what it is told to write, and writes it when it is for a connection.
class RecordingEndpoint : public DCHipc {
 public:
  RecordingEndpoint() : DCHipc(SERVICE_CLIENT) {}

  ZORA_Long ipcRead(void**, ZORA_Long) override { return -1; }
  ZORA_Long ipcWrite(void* buffer, ZORA_Long length, unsigned int connection) override {
    ++writes;
    lastMessage.assign(static_cast<const char*>(buffer), static_cast<std::size_t>(length));
    if (connection == 0) return length;
    return static_cast<ZORA_Long>(
        ::send(static_cast<int>(connection), buffer, static_cast<std::size_t>(length), 0));
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

class AnswersTest : public ::testing::Test {
 protected:
  static IncomingMessage requestOn(const StreamPair& connection) {
    IncomingMessage request;
    request.connection = connection.server();
    request.sender = PeerAddress(connection.client().address());
    return request;
  }

  static std::string receivedOn(const StreamPair& connection) {
    return connection.client().tryReceive().value_or("");
  }

  const EventLog _log{false};
  RecordingEndpoint _endpoint;
  PushSocket _socket{in_addr{htonl(INADDR_LOOPBACK)}};
  PacedSender _pacedSender{_socket, _log, std::chrono::milliseconds(1)};
  Answers _answers{_endpoint, _pacedSender, _log};
};

TEST_F(AnswersTest, GoesBackToTheSenderOfADatagram) {
  IncomingMessage request;
  request.sender.address = htonl(INADDR_LOOPBACK);
  request.sender.port = htons(4711);
  _answers.send(request, {Form::statusAndHandle, DCH_STATUS_OK, 17});
  EXPECT_EQ(_endpoint.receiver, request.sender);
  EXPECT_EQ(testkit::onlineAnswerOf(_endpoint.lastMessage), (testkit::OnlineAnswer{0, 17}));
}

TEST_F(AnswersTest, GoesBackOnTheConnectionOfItsRequest) {
  const StreamPair connection;
  _answers.send(requestOn(connection), {Form::status, DCH_STATUS_UNKNOWN_HANDLE, 0});
  EXPECT_EQ(testkit::statusOf(receivedOn(connection)), DCH_STATUS_UNKNOWN_HANDLE);
}

TEST_F(AnswersTest, IsNotSentWhenThereIsNone) {
  _answers.send(IncomingMessage(), Answer());
  EXPECT_EQ(_endpoint.writes, 0);
}

TEST_F(AnswersTest, IsDroppedWhenTheClientDoesNotRead) {
  StreamPair connection;
  connection.fill();
  _answers.send(requestOn(connection), {Form::status, DCH_STATUS_OK, 0});
  EXPECT_EQ(_endpoint.writes, 0);
}

TEST_F(AnswersTest, IsDroppedWhenTheDescriptorIsAnotherClientsByNow) {
  const StreamPair connection;
  IncomingMessage request = requestOn(connection);
  ++request.sender.port;
  _answers.send(request, {Form::status, DCH_STATUS_OK, 0});
  EXPECT_EQ(_endpoint.writes, 0);
}

TEST_F(AnswersTest, IsDroppedWhenTheConnectionIsClosed) {
  IncomingMessage request;
  request.connection = 1'000'000;
  _answers.send(request, {Form::status, DCH_STATUS_OK, 0});
  EXPECT_EQ(_endpoint.writes, 0);
}

Answer textAnswer(std::size_t length) {
  return {Form::text, DCH_STATUS_OK, 0, std::string(length, 'x')};
}

// The longest text whose answer is one datagram.
constexpr std::size_t oneDatagramText = 8192 - 4 - 6;

TEST_F(AnswersTest, SendsATextOfOneDatagramFromTheEndpoint) {
  IncomingMessage request;
  for (const std::size_t length : {std::size_t{0}, std::size_t{1}, oneDatagramText}) {
    _answers.send(request, textAnswer(length));
    EXPECT_EQ(testkit::textOf(_endpoint.lastMessage), std::string(length, 'x'));
  }
  EXPECT_EQ(_endpoint.writes, 3);
}

TEST_F(AnswersTest, PacesALongerTextAsideTheEndpoint) {
  testkit::UdpClient client(9);
  IncomingMessage request;
  request.sender = client.address();
  _answers.send(request, textAnswer(oneDatagramText + 1));
  const std::string first = client.receive().value_or("");
  EXPECT_EQ(first.size(), 8192u);
  EXPECT_EQ(testkit::textOf(first + client.receive().value_or("")),
            std::string(oneDatagramText + 1, 'x'));
  EXPECT_EQ(_endpoint.writes, 0);
}

TEST_F(AnswersTest, SendsATextOnAConnectionInOnePiece) {
  const StreamPair connection;
  _answers.send(requestOn(connection), textAnswer(100'000));
  std::string received;
  while (received.size() < 100'010) received += receivedOn(connection);
  EXPECT_EQ(testkit::textOf(received), std::string(100'000, 'x'));
}

TEST_F(AnswersTest, ShutsAConnectionDownThatDoesNotTakeAllOfAText) {
  StreamPair connection;
  connection.fill();
  _answers.send(requestOn(connection), textAnswer(100'000));
  // The end comes behind what the client had not read.
  while (!receivedOn(connection).empty()) {
  }
}

}  // namespace
}  // namespace dch
