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

// Both ends of a stream connection on the loopback interface.
class Connection {
 public:
  Connection() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    listen(listener, 1);
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    _client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    connect(_client, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    server = accept4(listener, reinterpret_cast<sockaddr*>(&address), &length, SOCK_CLOEXEC);
    peer = PeerAddress(address);
    close(listener);
  }
  ~Connection() {
    close(server);
    close(_client);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Sends until the client, which does not read, and the system take no more, also once what was on
  // its way is acknowledged.
  void fill() const {
    constexpr int longestAcknowledgementMilliseconds = 100;
    while (takesMore()) poll(nullptr, 0, longestAcknowledgementMilliseconds);
  }

  std::string receive() const {
    char buffer[65536];
    const ssize_t count = recv(_client, buffer, sizeof buffer, 0);
    return {buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  }

  int server;
  PeerAddress peer;

 private:
  // Sends until nothing more is taken for now. Returns whether anything was.
  bool takesMore() const {
    const std::string block(65536, 'x');
    bool hasTaken = false;
    while (::send(server, block.data(), block.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0)
      hasTaken = true;
    return hasTaken;
  }

  int _client;
};

class AnswersTest : public ::testing::Test {
 protected:
  static IncomingMessage requestOn(const Connection& connection) {
    IncomingMessage request;
    request.connection = static_cast<unsigned int>(connection.server);
    request.sender = connection.peer;
    return request;
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
  const Connection connection;
  _answers.send(requestOn(connection), {Form::status, DCH_STATUS_UNKNOWN_HANDLE, 0});
  EXPECT_EQ(testkit::statusOf(connection.receive()), DCH_STATUS_UNKNOWN_HANDLE);
}

TEST_F(AnswersTest, IsNotSentWhenThereIsNone) {
  _answers.send(IncomingMessage(), Answer());
  EXPECT_EQ(_endpoint.writes, 0);
}

TEST_F(AnswersTest, IsDroppedWhenTheClientDoesNotRead) {
  const Connection connection;
  connection.fill();
  _answers.send(requestOn(connection), {Form::status, DCH_STATUS_OK, 0});
  EXPECT_EQ(_endpoint.writes, 0);
}

TEST_F(AnswersTest, IsDroppedWhenTheDescriptorIsAnotherClientsByNow) {
  const Connection connection;
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
  const Connection connection;
  _answers.send(requestOn(connection), textAnswer(100'000));
  std::string received;
  while (received.size() < 100'010) received += connection.receive();
  EXPECT_EQ(testkit::textOf(received), std::string(100'000, 'x'));
}

TEST_F(AnswersTest, ShutsAConnectionDownThatDoesNotTakeAllOfAText) {
  const Connection connection;
  connection.fill();
  _answers.send(requestOn(connection), textAnswer(100'000));
  // The end comes behind what the client had not read.
  while (!connection.receive().empty()) {
  }
}

}  // namespace
}  // namespace dch
