#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>

#include "tests/support/quickest.h"
#include "tests/support/trace_capture.h"
#include "zordsock/test_write.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// An endpoint and the socket that it sends to.
class Write : public testing::Test {
 protected:
  Write() { setenv("ZORA_DCH_TIMEOUT", "1", 1); }

  DchSocket dch;
};

class WriteOfDatagrams : public Write {
 protected:
  ipcSock endpoint{SERVICE_UDP_CLIENT, 0, 0};
};

class WriteOnAStream : public Write {
 protected:
  ipcSock endpoint{SERVICE_CLIENT, 0, 0};
  StreamPair connection;
};

std::vector<TraceLine> negativeLengthLines(const ipcSock& endpoint, int length) {
  return {entryLine(),
          errorLine(textOf("Error: [@%p] a message of %d bytes cannot be sent\n",
                           TRC1_Pointer(&endpoint), length)),
          exitLine(-1)};
}

// ---- Datagrams ---------------------------------------------------------------------------------

TEST_F(WriteOfDatagrams, SendsASmallMessageAsOne) {
  expectTrace("ipcSock::ipcWrite", [&] {
    const std::string message = messageBytes(100, 100);
    EXPECT_EQ(write(endpoint, message), 100);
    EXPECT_EQ(dch.receive(), message);
    EXPECT_FALSE(dch.hasDatagram());
    return withSuccess(datagramLines(endpoint, 100), endpoint, 100);
  });
}

TEST_F(WriteOfDatagrams, Sends8192BytesAsOneWithoutAPause) {
  const std::string message = messageBytes(8192, 8192);
  const auto send = [&] {
    const double took = secondsOf([&] { EXPECT_EQ(write(endpoint, message), 8192); });
    EXPECT_EQ(dch.receive(), message);
    EXPECT_FALSE(dch.hasDatagram());
    return took;
  };
  EXPECT_LT(quickest(0.99, send), 0.99);
}

TEST_F(WriteOfDatagrams, Sends8193BytesAsTwoWithOnePauseBetween) {
  const std::string message = messageBytes(8193, 8193);
  const auto send = [&] {
    const double took = secondsOf([&] { EXPECT_EQ(write(endpoint, message), 8193); });
    EXPECT_GE(took, 0.99);
    EXPECT_EQ(dch.receive(), message.substr(0, 8192));
    EXPECT_EQ(dch.receive(), message.substr(8192));
    EXPECT_FALSE(dch.hasDatagram());
    return took;
  };
  EXPECT_LT(quickest(1.9, send), 1.9);
}

TEST_F(WriteOfDatagrams, SendsNothingOfAMessageWithoutBytes) {
  expectTrace("ipcSock::ipcWrite", [&] {
    EXPECT_EQ(write(endpoint, ""), 0);
    EXPECT_FALSE(dch.hasDatagram());
    return withSuccess(datagramLines(endpoint, 0), endpoint, 0);
  });
}

TEST_F(WriteOfDatagrams, FailsForANegativeLengthAndSendsNothing) {
  char byte = 'x';
  expectTrace("ipcSock::ipcWrite", [&] {
    EXPECT_EQ(endpoint.ipcWrite(&byte, -5, 0), -1);
    EXPECT_FALSE(dch.hasDatagram());
    return negativeLengthLines(endpoint, -5);
  });
}

TEST_F(WriteOfDatagrams, GoesToTheAddressThatWasSetLast) {
  const DatagramSocket other;
  sockaddr_in address = other.address();
  endpoint.setClientAddr(&address, sizeof address);
  EXPECT_EQ(write(endpoint, "12345678"), 8);
  EXPECT_EQ(other.receive(), "12345678");
  EXPECT_FALSE(dch.hasDatagram());
}

TEST_F(WriteOfDatagrams, FailsWithoutASocket) {
  ipcSock closed;
  expectTrace("ipcSock::ipcWrite", [&] {
    EXPECT_EQ(write(closed, "1234567890"), -1);
    return withFailure(
        datagramLines(closed, 10),
        textOf("Error: [@%p] SENDTO - Sent -1 bytes out of 10: errno=%d: _sockUDP=-999\n",
               TRC1_Pointer(&closed), EBADF));
  });
}

TEST_F(WriteOfDatagrams, DumpsTheMessageAfterItWasSent) {
  const TraceCapture trace("0x14");
  EXPECT_EQ(write(endpoint, "0123456789abcdef01"), 18);
  const std::vector<std::string> texts = trace.texts();
  ASSERT_EQ(texts.size(), 5U);
  EXPECT_EQ(texts[2], textOf("[@%p] Sent 18 bytes out of 18\n", TRC1_Pointer(&endpoint)));
  EXPECT_EQ(texts[3],
            "0000  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  |0123456789abcdef|\n");
  EXPECT_EQ(texts[4], "0010  30 31                                            |01|\n");
}

TEST_F(WriteOfDatagrams, DumpsNothingWithoutTheDumpClass) {
  const TraceCapture trace("0xfb");
  EXPECT_EQ(write(endpoint, "12345678"), 8);
  EXPECT_THAT(trace.textsOf("ZOR0_PrintDump"), IsEmpty());
}

TEST_F(WriteOfDatagrams, DumpsNothingOfAMessageThatWasNotSent) {
  ipcSock closed;
  const TraceCapture trace("0x04");
  EXPECT_EQ(write(closed, "12345678"), -1);
  EXPECT_THAT(trace.texts(), IsEmpty());
}

// ---- Streams -----------------------------------------------------------------------------------

TEST_F(WriteOnAStream, SendsTheWholeMessage) {
  expectTrace("ipcSock::ipcWrite", [&] {
    const std::string message = messageBytes(20000, 20000);
    EXPECT_EQ(write(endpoint, message, connection.server()), 20000);
    EXPECT_EQ(connection.client().receive(20000), message);
    EXPECT_FALSE(dch.hasDatagram());
    return withSuccess(streamLines(endpoint, connection), endpoint, 20000);
  });
}

TEST_F(WriteOnAStream, SucceedsWithAMessageWithoutBytes) {
  EXPECT_EQ(write(endpoint, "", connection.server()), 0);
  EXPECT_EQ(connection.receiveRest(), "");
}

TEST_F(WriteOnAStream, FailsForANegativeLengthAndSendsNothing) {
  char byte = 'x';
  expectTrace("ipcSock::ipcWrite", [&] {
    EXPECT_EQ(endpoint.ipcWrite(&byte, -1, connection.server()), -1);
    return negativeLengthLines(endpoint, -1);
  });
  EXPECT_EQ(endpoint.ipcWrite(&byte, 1, connection.server()), 1);
  EXPECT_EQ(connection.client().receive(1), "x") << "nothing came before it";
}

TEST_F(WriteOnAStream, DumpsTheMessage) {
  const TraceCapture trace("0x04");
  EXPECT_EQ(write(endpoint, "0123456789abcdef", connection.server()), 16);
  EXPECT_THAT(trace.texts(), ElementsAre("0000  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  "
                                         "|0123456789abcdef|\n"));
}

TEST_F(WriteOnAStream, WaitsOnItsOwnStreamSocketAndSendsOnceMore) {
  connection.fill();
  expectTrace("ipcSock::ipcWrite", [&] {
    // A stream socket without a connection is always writable: the wait is over at once.
    EXPECT_EQ(write(endpoint, "12345678", connection.server()), -1);
    std::vector<TraceLine> lines = streamLines(endpoint, connection);
    lines.push_back(wouldBlockLine(endpoint, 1));
    lines.push_back(detailLine(
        textOf("[@%p] Select returned. Count=1, errno=%d\n", TRC1_Pointer(&endpoint), EAGAIN)));
    return withFailure(lines, sendFailure(endpoint, -1, 8, EAGAIN));
  });
}

TEST_F(WriteOnAStream, FailsWhenItsStreamSocketIsNotWritableInTime) {
  connection.fill();
  ASSERT_EQ(listen(endpoint._sockTCP, 1), 0);  // as a server's is
  const TraceCapture trace("0x90");
  const auto send = [&] {
    TraceCapture::forget();
    return secondsOf([&] { EXPECT_EQ(write(endpoint, "12345678", connection.server()), -1); });
  };
  const double took = quickest(1.9, send);
  EXPECT_GE(took, 0.99);
  EXPECT_LT(took, 1.9);
  EXPECT_THAT(trace.texts(), ElementsAre(streamLines(endpoint, connection)[1].text,
                                         streamLines(endpoint, connection)[2].text,
                                         wouldBlockLine(endpoint, 1).text,
                                         textOf("Error: [@%p] select - count=0 errno=%d\n",
                                                TRC1_Pointer(&endpoint), EAGAIN)));
}

TEST_F(WriteOnAStream, CannotWaitWithoutAStreamSocket) {
  ipcSock datagramsAlone(SERVICE_UDP_CLIENT, 0, 0);
  connection.fill();
  expectTrace("ipcSock::ipcWrite", [&] {
    EXPECT_EQ(write(datagramsAlone, "12345678", connection.server()), -1);
    std::vector<TraceLine> lines = streamLines(datagramsAlone, connection);
    lines.push_back(wouldBlockLine(datagramsAlone, 1));
    return withFailure(lines, textOf("Error: [@%p] select - count=-1 errno=%d\n",
                                     TRC1_Pointer(&datagramsAlone), EINVAL));
  });
}

TEST_F(WriteOnAStream, DoesNotGoOnAfterAPartWasSent) {
  connection.setNonBlocking();
  const std::string message(64 << 20, 'm');  // more than the system buffers
  const TraceCapture trace("0x90");
  errno = EAGAIN;  // of an older call, which must not start a wait
  EXPECT_EQ(write(endpoint, message, connection.server()), -1);
  const std::string arrived = connection.receiveRest();
  ASSERT_FALSE(arrived.empty());
  EXPECT_LT(arrived.size(), message.size());
  EXPECT_THAT(trace.texts(),
              ElementsAre(streamLines(endpoint, connection)[1].text,
                          streamLines(endpoint, connection)[2].text,
                          sendFailure(endpoint, static_cast<int>(arrived.size()), 64 << 20, 0)));
}

TEST_F(WriteOnAStream, ToAPeerThatHasGoneFailsAndDoesNotEndTheProcess) {
  std::signal(SIGPIPE, SIG_DFL);
  connection.client().breakOff();
  EXPECT_EQ(write(endpoint, "12345678", connection.server()), -1);
  expectTrace("ipcSock::ipcWrite", [&] {
    EXPECT_EQ(write(endpoint, "12345678", connection.server()), -1);
    return withFailure(streamLines(endpoint, connection), sendFailure(endpoint, -1, 8, EPIPE));
  });
}

TEST_F(WriteOnAStream, FailsOnADescriptorThatIsNotOpen) {
  const TraceCapture trace("0x80");
  EXPECT_EQ(write(endpoint, "12345678", 0xFFFFFFFFU), -1);
  EXPECT_THAT(trace.texts(), ElementsAre(sendFailure(endpoint, -1, 8, EBADF)));
}

}  // namespace
