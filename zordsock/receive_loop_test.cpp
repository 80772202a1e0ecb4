// The receive loop: its start, datagrams, and the table of its connections.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/resource.h>

#include <chrono>
#include <memory>

#include "tests/support/sockets.h"
#include "tests/support/trace_capture.h"
#include "zordsock/test_receive_loop.h"

namespace {

// Connects so many clients, each after the one before it is accepted, so that none waits for room
// in the backlog.
std::vector<std::unique_ptr<StreamSocket>> connectClients(RunningServer& server,
                                                          const CallCounter& waits, int count) {
  std::vector<std::unique_ptr<StreamSocket>> clients;
  for (int i = 1; i <= count; ++i) {
    clients.push_back(std::make_unique<StreamSocket>(server.streamPort()));
    EXPECT_TRUE(waits.waitFor(i + 1));
  }
  return clients;
}

TEST(ServerStart, QueuesTheReadyNotice) {
  RunningServer server;
  const QueuedMessage ready = server.start();
  server.stop();
  EXPECT_EQ(ready.bytes.size(), 16u);
  expectQueued(ready, "IPC-SERVER_READY", server.endpoint()._sockAddress, 0, blankName);
  EXPECT_EQ(ntohs(ready.sender.sin_port), server.streamPort());
}

TEST(ServerStart, FreesEverySlotAndListens) {
  expectTrace(loopName, [] {
    const FailingCall end = endAtWait(1);
    RunningServer server;
    for (ZORA_Long& connection : server.endpoint()._sockClientFD) connection = -7;
    server.start();
    EXPECT_EQ(server.waitForEnd(), 2);
    EXPECT_THAT(server.endpoint()._sockClientFD, testing::Each(0));
    return LoopTrace(server).end();
  });
}

TEST(ServerStart, WithTheErrorThatEndsTheLoopWaitsForNothing) {
  expectTrace(loopName, [] {
    const FailingCall end = endAtWait(1);
    RunningServer server;
    server.endpoint()._sockError = 2;
    EXPECT_EQ(server.start().bytes, "IPC-SERVER_READY");
    EXPECT_EQ(server.waitForEnd(), 2);
    EXPECT_EQ(end.count(), 0);
    return LoopTrace(server).endWithoutWait();
  });
}

TEST(ServerStart, KeepsAnErrorThatDoesNotEndTheLoop) {
  const FailingCall end = endAtWait(1);
  RunningServer server;
  server.endpoint()._sockError = 1;
  server.start();
  EXPECT_EQ(server.waitForEnd(), 2);
  EXPECT_EQ(end.count(), 1);
}

TEST(ServerDatagram, IsQueuedWithItsSender) {
  expectTrace(loopName, [] {
    const FailingCall end = endAtWait(2);
    RunningServer server;
    server.start();
    const DatagramSocket client;
    client.sendTo(server.datagramPort(), messageBytes(10, 10));
    expectQueued(server.next(), messageBytes(10, 10), client.address(), 0);
    EXPECT_EQ(server.waitForEnd(), 2);
    EXPECT_EQ(server.endpoint()._ipcCircularBuffer->num_full, 0);
    return LoopTrace(server).addPass().addDatagram(client.address(), 10).end();
  });
}

// While the queue is full the rest of the burst gathers in the socket, behind as many waits as
// there are messages that the loop has received by then, and some more until it looks for what is
// there.
TEST(ServerDatagram, OfABurstIsReceivedWithoutAWaitOfItsOwn) {
  TRC1_Configure("0");
  const CallCounter waits({SystemCall::select});
  RunningServer server;
  server.start();
  const DatagramSocket client;
  const StreamSocket connection(server.streamPort());
  constexpr int burst = 40;
  for (int i = 0; i < burst; ++i)
    client.sendTo(server.datagramPort(), "number " + std::to_string(i));
  connection.send(messageBytes(8, 8));
  for (int i = 0; i < burst; ++i)
    expectQueued(server.next(), "number " + std::to_string(i), client.address(), 0);
  EXPECT_EQ(server.next().bytes, messageBytes(8, 8));
  EXPECT_LT(waits.count(), burst / 2);
}

TEST(ServerDatagram, OfABurstWithoutBytesIsReportedAndDropped) {
  TRC1_Configure("0");
  RunningServer server;
  server.start();
  const DatagramSocket client;
  for (int i = 0; i < 10; ++i)
    client.sendTo(server.datagramPort(), i % 2 != 0 ? "" : "number " + std::to_string(i));
  for (int i = 0; i < 10; i += 2) EXPECT_EQ(server.next().bytes, "number " + std::to_string(i));
  client.sendTo(server.datagramPort(), "last");
  EXPECT_EQ(server.next().bytes, "last");
  EXPECT_EQ(server.endpoint()._sockError, 1);
}

TEST(ServerDatagram, IsOneMessageWhateverItsLengthWordSays) {
  RunningServer server;
  server.start();
  const DatagramSocket client;
  for (const std::string& datagram :
       {std::string("a"), messageBytes(10, 9), messageBytes(10, 5000), messageBytes(10, 0)}) {
    client.sendTo(server.datagramPort(), datagram);
    expectQueued(server.next(), datagram, client.address(), 0);
  }
}

TEST(ServerDatagram, IsCutAt4096Bytes) {
  RunningServer server;
  server.start();
  const DatagramSocket client;
  for (const std::size_t size : {4095u, 4096u, 4097u, 60000u}) {
    const std::string datagram = messageBytes(size, static_cast<unsigned>(size));
    client.sendTo(server.datagramPort(), datagram);
    expectQueued(server.next(), datagram.substr(0, 4096), client.address(), 0);
  }
}

TEST(ServerDatagram, WithoutBytesIsReportedAndDropped) {
  expectTrace(loopName, [] {
    const FailingCall end = endAtWait(3);
    RunningServer server;
    server.start();
    const DatagramSocket client;
    client.sendTo(server.datagramPort(), "");
    client.sendTo(server.datagramPort(), "next");
    expectQueued(server.next(), "next", client.address(), 0);
    EXPECT_EQ(server.waitForEnd(), 2);
    LoopTrace trace(server);
    trace.addPass().add(
        {detailLine(textOf("_sockUDP[%d] SET for reading, clearing workBuffer @{address}\n",
                           server.endpoint()._sockUDP)),
         detailLine("UDP: bytesRead=0, errno=0\n"),
         errorLine("Error: UDP - recvfrom failed. bytesRead <0>, sockerr <0>\n")});
    return trace.addPass().addDatagram(client.address(), 4).end();
  });
}

TEST(ServerDatagram, WithoutBytesLeavesAnErrorThatDoesNotEndTheLoop) {
  RunningServer server;
  server.start();
  const DatagramSocket client;
  client.sendTo(server.datagramPort(), "");
  for (int i = 0; i < 3; ++i) {
    client.sendTo(server.datagramPort(), "next");
    EXPECT_EQ(server.next().bytes, "next");
    EXPECT_EQ(server.endpoint()._sockError, 1);
  }
}

TEST(ServerConnection, IsAcceptedIntoTheFirstFreeSlot) {
  expectTrace(loopName, [] {
    const FailingCall end = endAtWait(3);
    RunningServer server;
    server.start();
    const auto clients = connectClients(server, end, 2);
    EXPECT_EQ(server.waitForEnd(), 2);
    const ZORA_Long* const connections = server.endpoint()._sockClientFD;
    EXPECT_TRUE(isOpen(connections[0]) && isOpen(connections[1]));
    EXPECT_EQ(connections[2], 0);
    EXPECT_EQ(server.endpoint()._ipcCircularBuffer->num_full, 0);
    return LoopTrace(server)
        .addPass()
        .addAccept(clients[0]->address(), 0, connections[0])
        .addPass(connections[0])
        .addAccept(clients[1]->address(), 1, connections[1])
        .end(std::max(connections[0], connections[1]));
  });
}

TEST(ServerConnection, IsCloseOnExec) {
  const FailingCall end = endAtWait(2);
  RunningServer server;
  server.start();
  const StreamSocket client(server.streamPort());
  server.waitForEnd();
  EXPECT_EQ(fcntl(server.endpoint()._sockClientFD[0], F_GETFD), FD_CLOEXEC);
}

// Nothing is taken from the queue before all is sent, so the loop, which holds the fifth datagram
// and has no room for it, finds the sixth and the connection ready at once.
// With details each datagram has a wait of its own, by whose number the loop is ended.
TEST(ServerConnection, WaitsWhileThereIsADatagram) {
  using testing::HasSubstr;
  const TraceCapture trace("0x10");
  const FailingCall end = endAtWait(8);
  RunningServer server;
  server.start();
  const DatagramSocket sender;
  for (int i = 0; i < 6; ++i) sender.sendTo(server.datagramPort(), std::to_string(i));
  const StreamSocket client(server.streamPort());
  for (int i = 0; i < 6; ++i) EXPECT_EQ(server.next().bytes, std::to_string(i));
  EXPECT_EQ(server.waitForEnd(), 2);
  std::vector<testing::Matcher<std::string>> expected{HasSubstr("listen for _sockTCP")};
  for (int i = 0; i < 6; ++i)
    expected.insert(expected.end(),
                    {HasSubstr("Waiting on SELECT"), HasSubstr("SET for reading, clearing"),
                     HasSubstr("UDP: bytesRead=1"), HasSubstr("sockClientAddr set to")});
  expected.insert(
      expected.end(),
      {HasSubstr("Waiting on SELECT"), HasSubstr("_sockTCP"), HasSubstr("_sockClientFD[0]"),
       HasSubstr("sockClientAddr set to"), HasSubstr("Waiting on SELECT")});
  EXPECT_THAT(trace.textsOf(loopName), testing::ElementsAreArray(expected));
}

TEST(ServerConnection, BeyondTheSixtyFourthIsNotAccepted) {
  expectTrace(loopName, [] {
    const FailingCall end = endAtWait(68);
    const CallCounter accepts({SystemCall::acceptConnection});
    RunningServer server;
    server.start();
    const auto clients = connectClients(server, end, 64);
    const StreamSocket oneTooMany(server.streamPort());
    EXPECT_EQ(server.waitForEnd(), 2);
    EXPECT_EQ(accepts.count(), 64);
    const ZORA_Long* const connections = server.endpoint()._sockClientFD;
    LoopTrace trace(server);
    ZORA_Long highest = 0;
    for (int i = 0; i < 64; ++i) {
      trace.addPass(highest).addAccept(clients[static_cast<std::size_t>(i)]->address(), i,
                                       connections[i]);
      highest = std::max(highest, connections[i]);
    }
    for (int i = 0; i < 3; ++i)
      trace.addPass(highest).addReadableListener().add(
          {errorLine("Error: Maximum of 64 TCP clients has been reached.\n")});
    return trace.end(highest);
  });
}

// It keeps the listening socket readable: without a pause the loop would do nothing else.
TEST(ServerConnection, BeyondTheSixtyFourthIsLookedAtTenTimesASecond) {
  const std::string told = "Error: Maximum of 64 TCP clients has been reached.\n";
  const TraceCapture trace("0,*/ipcSock::IPCServer=0x80");
  const CallCounter waits({SystemCall::select});
  RunningServer server;
  server.start();
  const auto clients = connectClients(server, waits, 64);
  const StreamSocket oneTooMany(server.streamPort());
  ASSERT_TRUE(trace.waitFor(told));
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(trace.waitFor(told, 5));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(350));
  const DatagramSocket sender;
  sender.sendTo(server.datagramPort(), "datagram");
  EXPECT_EQ(server.next().bytes, "datagram");
  server.stop();
}

TEST(ServerConnection, InTheLastSlotIsNeverRead) {
  const TraceCapture trace("0,*/ipcSock::IPCServer=0x10");
  const CallCounter waits({SystemCall::select});
  RunningServer server;
  server.start();
  const auto clients = connectClients(server, waits, 64);
  clients[63]->send(messageBytes(8, 8));
  clients[62]->send(messageBytes(9, 9));
  EXPECT_EQ(server.next().bytes, messageBytes(9, 9));
  const DatagramSocket sender;
  sender.sendTo(server.datagramPort(), "datagram");
  EXPECT_EQ(server.next().bytes, "datagram");
  server.stop();
  const ZORA_Long* const connections = server.endpoint()._sockClientFD;
  int unread = 0;
  EXPECT_EQ(ioctl(connections[63], FIONREAD, &unread), 0);
  EXPECT_EQ(unread, 8);
  EXPECT_EQ(trace.count(textOf("_sockClientFD[62]=%d SET for reading\n", connections[62])), 1);
  EXPECT_EQ(trace.count(textOf("_sockClientFD[63]=%d SET for reading\n", connections[63])), 0);
}

// So many open descriptors that a plain set does not reach the next ones.
class BeyondThePlainSet {
 public:
  BeyondThePlainSet() {
    getrlimit(RLIMIT_NOFILE, &_before);
    rlimit raised = _before;
    raised.rlim_cur = std::min<rlim_t>(FD_SETSIZE + 100, _before.rlim_max);
    setrlimit(RLIMIT_NOFILE, &raised);
    while (_open.empty() || (_open.back() >= 0 && _open.back() < FD_SETSIZE))
      _open.push_back(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
  }
  ~BeyondThePlainSet() {
    for (const int descriptor : _open) close(descriptor);
    setrlimit(RLIMIT_NOFILE, &_before);
  }
  bool isReached() const { return _open.back() >= FD_SETSIZE; }

 private:
  rlimit _before{};
  std::vector<int> _open;
};

TEST(ServerConnection, WorksBeyondTheDescriptorsOfAPlainSet) {
  const BeyondThePlainSet descriptors;
  if (!descriptors.isReached()) GTEST_SKIP() << "the hard limit of open files is too low";
  RunningServer server;
  server.start();
  const DatagramSocket sender;
  sender.sendTo(server.datagramPort(), "datagram");
  expectQueued(server.next(), "datagram", sender.address(), 0);
  auto client = std::make_unique<StreamSocket>(server.streamPort());
  const sockaddr_in address = client->address();
  client->send(messageBytes(10000, 10000));
  const QueuedMessage message = server.next();
  EXPECT_GE(message.descriptor, static_cast<unsigned>(FD_SETSIZE));
  expectQueued(message, messageBytes(10000, 10000), address,
               static_cast<ZORA_Long>(message.descriptor));
  client.reset();
  EXPECT_EQ(server.next().bytes, "DP-DISCONNECT");
}

// As a DCH has it: the endpoint starts its own thread, which nothing ends, so it stays. So does the
// connection: its end would be the loop's to close, while this thread has just written to it.
TEST(Server, StartedByItsConstructorReceivesAndAnswers) {
  setenv("ZORA_DCH_PORT", "0", 1);
  setenv("ZOR0_PRODUCT_SPEC", "/dev/null", 1);
  static ipcSock& server = *new ipcSock(SERVICE_SERVER, 0, 0);
  EXPECT_EQ(server.ipcGetError(), 0);
  EXPECT_EQ(takeMessage(server).bytes, "IPC-SERVER_READY");

  const DatagramSocket datagramClient;
  datagramClient.sendTo(server.sockPortUDP(), messageBytes(8, 8));
  QueuedMessage request = takeMessage(server);
  expectQueued(request, messageBytes(8, 8), datagramClient.address(), 0);
  server.setClientAddr(&request.sender, request.senderLength);
  EXPECT_EQ(server.ipcWrite(request.bytes.data(), 8, request.descriptor), 8);
  EXPECT_EQ(datagramClient.receive(), messageBytes(8, 8));

  static const StreamSocket& streamClient = *new StreamSocket(server.sockPortTCP());
  streamClient.send(messageBytes(12, 12));
  request = takeMessage(server);
  EXPECT_EQ(request.bytes, messageBytes(12, 12));
  EXPECT_EQ(server.ipcWrite(request.bytes.data(), 12, request.descriptor), 12);
  EXPECT_EQ(streamClient.receive(12), messageBytes(12, 12));
}

}  // namespace
