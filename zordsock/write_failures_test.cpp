// Writes with pauses, with datagrams that are refused, and with waits that are scripted.
#include <gmock/gmock.h>

#include <cerrno>
#include <functional>
#include <optional>

#include "suite/descriptor_set.h"
#include "tests/support/failing_calls.h"
#include "tests/support/recorded_sleep.h"
#include "zordsock/test_write.h"

namespace {

using testing::ElementsAre;

class PausingWrite : public testing::Test {
 protected:
  PausingWrite() {
    standIns.sendTo = [this](int socket, const void* bytes, std::size_t size, int flags,
                             const sockaddr* receiver, socklen_t receiverLength) -> ssize_t {
      EXPECT_EQ(flags, 0);
      EXPECT_EQ(receiverLength, 16U);
      if (++datagrams != refused)
        return __real_sendto(socket, bytes, size, flags, receiver, receiverLength);
      errno = ENOBUFS;
      return -1;
    };
  }

  // The line after a pause.
  TraceLine sentLine(int sent, int remaining) {
    return flowLine(
        textOf("[@%p] Sent<%d> Remaining<%d>\n", TRC1_Pointer(&endpoint), sent, remaining));
  }

  int datagrams = 0;
  int refused = 0;  // the number of the datagram that is; 0 for none
  DchSocket dch;
  ipcSock endpoint{SERVICE_UDP_CLIENT, 0, 0};
};

TEST_F(PausingWrite, PausesASecondAfterEveryDatagramButTheLast) {
  expectTrace("ipcSock::ipcWrite", [&] {
    clearRecordedSleeps();
    const std::string message = messageBytes(20000, 20000);
    EXPECT_EQ(write(endpoint, message), 20000);
    EXPECT_THAT(recordedSleeps(), ElementsAre(1, 1));
    EXPECT_EQ(dch.receive(), message.substr(0, 8192));
    EXPECT_EQ(dch.receive(), message.substr(8192, 8192));
    EXPECT_EQ(dch.receive(), message.substr(16384));
    std::vector<TraceLine> lines = datagramLines(endpoint, 20000);
    lines.push_back(sentLine(8192, 11808));
    lines.push_back(sentLine(8192, 3616));
    return withSuccess(lines, endpoint, 20000);
  });
}

TEST_F(PausingWrite, DoesNotPauseAfterAFullLastDatagram) {
  EXPECT_EQ(write(endpoint, messageBytes(16384, 16384)), 16384);
  EXPECT_THAT(recordedSleeps(), ElementsAre(1));
  EXPECT_EQ(dch.receive().size(), 8192U);
  EXPECT_EQ(dch.receive().size(), 8192U);
  EXPECT_FALSE(dch.hasDatagram());
}

TEST_F(PausingWrite, StopsAtADatagramThatIsRefused) {
  expectTrace("ipcSock::ipcWrite", [&] {
    clearRecordedSleeps();
    const std::string message = messageBytes(20000, 20000);
    refused = datagrams + 2;
    EXPECT_EQ(write(endpoint, message), -1);
    EXPECT_THAT(recordedSleeps(), ElementsAre(1));
    EXPECT_EQ(dch.receive(), message.substr(0, 8192));
    EXPECT_FALSE(dch.hasDatagram());
    std::vector<TraceLine> lines = datagramLines(endpoint, 20000);
    lines.push_back(sentLine(8192, 11808));
    return withFailure(
        lines, textOf("Error: [@%p] SENDTO - Sent -1 bytes out of 20000: errno=%d: _sockUDP=%d\n",
                      TRC1_Pointer(&endpoint), ENOBUFS, endpoint.sockUDP()));
  });
}

class WaitingWrite : public testing::Test {
 protected:
  WaitingWrite() {
    setenv("ZORA_DCH_TIMEOUT", "7", 1);
    endpoint.emplace(SERVICE_CLIENT, 0, 0);
    connection.fill();
    standIns.select = [this](int, fd_set* readable, fd_set* writable, fd_set* failed,
                             timeval* timeout) {
      EXPECT_EQ(readable, nullptr);
      EXPECT_EQ(failed, nullptr);
      return waitUntilWritable(writable, timeout);
    };
  }

  std::vector<TraceLine> waitingLines() {
    std::vector<TraceLine> lines = streamLines(*endpoint, connection);
    lines.push_back(wouldBlockLine(*endpoint, 7));
    return lines;
  }

  DchSocket dch;
  StreamPair connection;
  std::optional<ipcSock> endpoint;
  std::function<int(fd_set*, timeval*)> waitUntilWritable;
};

TEST_F(WaitingWrite, SendsTheWholeMessageOnceTheWaitIsOver) {
  const std::string message = messageBytes(100, 100);
  expectTrace("ipcSock::ipcWrite", [&] {
    waitUntilWritable = [&](fd_set* writable, timeval* timeout) {
      EXPECT_TRUE(ZOR0_HasDescriptor(writable, endpoint->_sockTCP));
      EXPECT_FALSE(ZOR0_HasDescriptor(writable, static_cast<int>(connection.server())));
      EXPECT_EQ(timeout->tv_sec, 7);
      EXPECT_EQ(timeout->tv_usec, 0);
      connection.drain();
      errno = 0;
      return 1;
    };
    EXPECT_EQ(write(*endpoint, message, connection.server()), 100);
    EXPECT_EQ(connection.client().receive(100), message);
    connection.fill();
    std::vector<TraceLine> lines = waitingLines();
    lines.push_back(
        detailLine(textOf("[@%p] Select returned. Count=1, errno=0\n", TRC1_Pointer(&*endpoint))));
    return withSuccess(lines, *endpoint, 100);
  });
}

TEST_F(WaitingWrite, WaitsOnlyOnce) {
  int waits = 0;
  waitUntilWritable = [&](fd_set*, timeval*) {
    ++waits;
    return 1;
  };
  EXPECT_EQ(write(*endpoint, "12345678", connection.server()), -1);
  EXPECT_EQ(waits, 1);
}

TEST_F(WaitingWrite, FailsWhenTheWaitIsInterrupted) {
  expectTrace("ipcSock::ipcWrite", [&] {
    waitUntilWritable = [](fd_set*, timeval*) {
      errno = EINTR;
      return -1;
    };
    EXPECT_EQ(write(*endpoint, "12345678", connection.server()), -1);
    return withFailure(waitingLines(), textOf("Error: [@%p] select - count=-1 errno=%d\n",
                                              TRC1_Pointer(&*endpoint), EINTR));
  });
}

TEST_F(WaitingWrite, FailsWhenTheWaitRunsOut) {
  expectTrace("ipcSock::ipcWrite", [&] {
    waitUntilWritable = [](fd_set*, timeval*) { return 0; };
    EXPECT_EQ(write(*endpoint, "12345678", connection.server()), -1);
    return withFailure(waitingLines(), textOf("Error: [@%p] select - count=0 errno=%d\n",
                                              TRC1_Pointer(&*endpoint), EAGAIN));
  });
}

}  // namespace
