#include <gmock/gmock.h>
#include <malloc.h>
#include <sys/socket.h>

#include <thread>

#include "suite/sockets.h"
#include "tests/support/bytes.h"
#include "tests/support/quickest.h"
#include "tests/support/trace_capture.h"
#include "zordsock/test_read.h"

namespace {

constexpr int patienceSeconds = 5;

// An endpoint and the socket that it takes its messages from.
class Read : public testing::Test {
 protected:
  void send(const std::string& datagram) {
    dch.sendTo(ZOR0_RetrieveSockPort(endpoint.sockUDP()), datagram);
  }

  // A message in datagrams of the given sizes, which announces `lengthWord` bytes.
  std::string sendMessage(const std::vector<std::size_t>& sizes, unsigned lengthWord) {
    std::size_t total = 0;
    for (const std::size_t size : sizes) total += size;
    const std::string message = messageBytes(total, lengthWord);
    std::size_t sent = 0;
    for (const std::size_t size : sizes) {
      send(message.substr(sent, size));
      sent += size;
    }
    return message;
  }

  // A message that is not what it says is read, reported and not handed over.
  void expectRefusal(const std::vector<std::size_t>& sizes, unsigned lengthWord) {
    expectTrace("ipcSock::ipcRead", [&] {
      sendMessage(sizes, lengthWord);
      const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
      EXPECT_EQ(outcome.result, -1);
      EXPECT_FALSE(outcome.handedOver);
      ReadLines lines(endpoint, patienceSeconds);
      for (const std::size_t size : sizes)
        lines.waited(1).received(static_cast<int>(lengthWord), static_cast<int>(size));
      return lines.incomplete(static_cast<int>(lengthWord), static_cast<int>(sizes.back()))
          .ended(outcome);
    });
  }

  DchSocket dch;
  ipcSock endpoint{SERVICE_UDP_CLIENT, 0, 0};
};

// ---- Whole messages ----------------------------------------------------------------------------

TEST_F(Read, HandsOverAMessageOfOneDatagram) {
  expectTrace("ipcSock::ipcRead", [&] {
    const std::string message = sendMessage({100}, 100);
    const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
    EXPECT_EQ(outcome.result, 100);
    EXPECT_EQ(outcome.message(100), message);
    return ReadLines(endpoint, patienceSeconds)
        .waited(1)
        .received(100, 100)
        .complete()
        .ended(outcome);
  });
}

TEST_F(Read, HandsOverAFullChunkWithZeroesAfterTheMessage) {
  mallopt(M_PERTURB, 0x5A);  // new memory is not zero by chance
  sendMessage({10}, 10);
  const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
  ASSERT_EQ(outcome.result, 10);
  EXPECT_EQ(outcome.message(UDP_CHUNK_SIZE).substr(10), std::string(UDP_CHUNK_SIZE - 10, '\0'));
}

TEST_F(Read, TakesAMessageOfExactlyOneFullDatagram) {
  const std::string message = sendMessage({8192}, 8192);
  const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
  ASSERT_EQ(outcome.result, 8192);
  EXPECT_EQ(outcome.message(8192), message);
}

TEST_F(Read, JoinsAMessageOfSeveralDatagramsAndReturnsTheLastCount) {
  const std::string message = sendMessage({8192, 8192, 3616}, 20000);
  const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
  ASSERT_EQ(outcome.result, 3616);
  EXPECT_EQ(outcome.message(20000), message);
}

TEST_F(Read, ShowsHowAMessageIsJoined) {
  expectTrace("ipcSock::ipcRead", [&] {
    const std::string message = sendMessage({50, 30, 20}, 100);
    const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
    EXPECT_EQ(outcome.result, 20);
    EXPECT_EQ(outcome.message(100), message);
    ReadLines lines(endpoint, patienceSeconds);
    for (const int bytes : {50, 30, 20}) lines.waited(1).received(100, bytes);
    lines.complete().add(
        storageLine(textOf("Allocated 100 bytes for completeBuffer @%p\n", outcome.pointer)));
    const int offsets[] = {0, 50, 80};
    const int lengths[] = {50, 30, 20};
    for (int i = 0; i < 3; ++i)
      lines.add(detailLine(
          textOf("[%d] completeBuffer[@%p], offset[%d], buffer[{address}], dataLen[%d]\n", i,
                 outcome.pointer, offsets[i], lengths[i])));
    for (int i = 0; i < 3; ++i)
      lines.add(storageLine(textOf("Deleting ipcBufArray[%i]: @{address}\n", i)));
    return lines.ended(outcome);
  });
}

TEST_F(Read, NamesTheSameChunksWhenItAllocatesAndFreesThem) {
  const TraceCapture trace("*/ipcSock::ipcRead=0x02");
  sendMessage({50, 50}, 100);
  ASSERT_EQ(readFrom(endpoint, patienceSeconds).result, 50);
  const std::vector<std::string> texts = trace.texts();
  ASSERT_EQ(texts.size(), 5U);
  const auto address = [&](std::size_t line) {
    const std::string& text = texts[line];
    const std::size_t start = text.find("@0x");
    return text.substr(start, text.find_first_of(" \n", start) - start);
  };
  EXPECT_EQ(address(0), address(3));
  EXPECT_EQ(address(1), address(4));
  EXPECT_NE(address(0), address(1));
}

TEST_F(Read, TakesTheLargestMessage) {
  const int room = 2 * MAX_READ_CHUNKS * UDP_CHUNK_SIZE;
  setsockopt(endpoint.sockUDP(), SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
  const std::string message =
      sendMessage(std::vector<std::size_t>(MAX_READ_CHUNKS, UDP_CHUNK_SIZE), 131072);
  const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
  ASSERT_EQ(outcome.result, 8192);
  EXPECT_EQ(outcome.message(131072), message);
}

TEST_F(Read, TakesOneMessageAfterTheOther) {
  const std::string first = sendMessage({20, 20}, 40);
  const std::string second = sendMessage({30}, 30);
  EXPECT_EQ(readFrom(endpoint, patienceSeconds).message(40), first);
  EXPECT_EQ(readFrom(endpoint, patienceSeconds).message(30), second);
}

// ---- Messages that are not what they say -------------------------------------------------------

TEST_F(Read, RefusesTheSeventeenthDatagram) {
  expectTrace("ipcSock::ipcRead", [&] {
    sendMessage(std::vector<std::size_t>(17, 10), 170);
    const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_FALSE(outcome.handedOver);
    ReadLines lines(endpoint, patienceSeconds);
    for (int i = 0; i < 16; ++i) lines.waited(1).received(170, 10);
    char seventeenth[10];
    EXPECT_EQ(recv(endpoint.sockUDP(), seventeenth, sizeof seventeenth, MSG_DONTWAIT), 10);
    return lines
        .add(errorLine(textOf("Error: [@%p] Max 16 number of 16K buffers already read.\n",
                              TRC1_Pointer(&endpoint))))
        .incomplete(170, -1)
        .ended(outcome);
  });
}

TEST_F(Read, RefusesALengthOfZero) {
  expectRefusal({12}, 0);
}

TEST_F(Read, RefusesALengthBelowThatOfTheDatagram) {
  expectRefusal({12}, 11);
}

TEST_F(Read, RefusesALengthThatDoesNotCountItself) {
  expectRefusal({4}, 3);
}

// The bytes that the first datagram lacks of its length word are not those of the next one: the
// joined message would say that it is longer than it is.
TEST_F(Read, RefusesAFirstDatagramWithoutAWholeLengthWord) {
  for (const std::string& first : {bytesOf("00"), bytesOf("00 01"), bytesOf("00 00 01")}) {
    expectTrace("ipcSock::ipcRead", [&] {
      send(first);
      const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
      EXPECT_EQ(outcome.result, -1);
      EXPECT_FALSE(outcome.handedOver);
      const int bytes = static_cast<int>(first.size());
      return ReadLines(endpoint, patienceSeconds)
          .waited(1)
          .received(0, bytes)
          .incomplete(0, bytes)
          .ended(outcome);
    });
  }
}

TEST_F(Read, WaitsForNothingThatAShortFirstDatagramSeemsToAnnounce) {
  send(bytesOf("00 00 01"));
  const std::string message = sendMessage({100}, 100);
  EXPECT_EQ(readFrom(endpoint, patienceSeconds).result, -1);
  const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
  ASSERT_EQ(outcome.result, 100);
  EXPECT_EQ(outcome.message(100), message);
}

TEST_F(Read, RefusesADatagramThatEndsBeyondTheMessage) {
  expectRefusal({12, 12}, 23);
}

TEST_F(Read, RefusesALengthThatWouldBeNegativeAfterTheLastDatagram) {
  expectTrace("ipcSock::ipcRead", [&] {
    sendMessage(std::vector<std::size_t>(16, 10), 0x80000000U);
    const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_FALSE(outcome.handedOver);
    ReadLines lines(endpoint, patienceSeconds);
    for (int i = 0; i < 16; ++i) lines.waited(1).received(INT32_MIN, 10);
    return lines
        .add(errorLine(textOf("Error: [@%p] Max 16 number of 16K buffers already read.\n",
                              TRC1_Pointer(&endpoint))))
        .incomplete(INT32_MIN, -1)
        .ended(outcome);
  });
}

TEST_F(Read, RefusesADatagramWithoutAWholeLengthWord) {
  send(std::string(3, '\0'));
  EXPECT_EQ(readFrom(endpoint, patienceSeconds).result, -1);
}

TEST_F(Read, CutsADatagramThatIsLargerThanAChunk) {
  const std::string message = messageBytes(9000, 8192);
  send(message);
  const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
  ASSERT_EQ(outcome.result, 8192);
  EXPECT_EQ(outcome.message(8192), message.substr(0, 8192));
}

TEST_F(Read, EndsAtAnEmptyDatagram) {
  expectTrace("ipcSock::ipcRead", [&] {
    send("");
    const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_FALSE(outcome.handedOver);
    return ReadLines(endpoint, patienceSeconds)
        .waited(1)
        .dropped(0)
        .incomplete(0, 0)
        .ended(outcome);
  });
}

TEST_F(Read, EndsAtAnEmptyDatagramInsideAMessage) {
  expectTrace("ipcSock::ipcRead", [&] {
    send(messageBytes(10, 20));
    send("");
    const ReadOutcome outcome = readFrom(endpoint, patienceSeconds);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_FALSE(outcome.handedOver);
    return ReadLines(endpoint, patienceSeconds)
        .waited(1)
        .received(20, 10)
        .waited(1)
        .dropped(0)
        .incomplete(20, 0)
        .ended(outcome);
  });
}

TEST_F(Read, FailsOnAnEndpointWithoutASocket) {
  ipcSock closed;
  expectTrace("ipcSock::ipcRead", [&] {
    const ReadOutcome outcome = readFrom(closed, patienceSeconds);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_FALSE(outcome.handedOver);
    return ReadLines(closed, patienceSeconds)
        .waited(-1, EINVAL)
        .dropped(-1)
        .incomplete(0, -1, EBADF)
        .ended(outcome);
  });
}

// ---- Waiting -----------------------------------------------------------------------------------

class ReadWithoutLimit : public Read, public testing::WithParamInterface<ZORA_Long> {};

TEST_P(ReadWithoutLimit, BlocksUntilADatagramComes) {
  const TraceCapture trace("0x10");
  const std::string waiting =
      textOf("[@%p]Waiting on SELECT: UDP[%d] Port[%d] MaxFD[%d] WaitTime[%d]\n",
             TRC1_Pointer(&endpoint), endpoint.sockUDP(), ZOR0_RetrieveSockPort(endpoint.sockUDP()),
             endpoint.sockUDP() + 1, GetParam());
  std::string message;
  std::thread sender([&] {
    EXPECT_TRUE(trace.waitFor(waiting));
    message = sendMessage({12}, 12);
  });
  const ReadOutcome outcome = readFrom(endpoint, GetParam());
  sender.join();
  ASSERT_EQ(outcome.result, 12);
  EXPECT_EQ(outcome.message(12), message);
  EXPECT_EQ(trace.count(waiting), 1);
}

INSTANTIATE_TEST_SUITE_P(Wait, ReadWithoutLimit, testing::Values(0, -1));

void expectWaitOfASecond(ipcSock& endpoint) {
  const auto read = [&] {
    return secondsOf([&] {
      const ReadOutcome outcome = readFrom(endpoint, 1);
      EXPECT_EQ(outcome.result, 0);
      EXPECT_FALSE(outcome.handedOver);
    });
  };
  const double took = quickest(1.9, read);
  EXPECT_GE(took, 0.99);
  EXPECT_LT(took, 1.9);
}

TEST_F(Read, WithoutRetryEndsAfterTheWait) {
  endpoint.ipcSetRetryRead(0);
  expectWaitOfASecond(endpoint);
}

TEST_F(Read, WithOneRetryEndsAfterTheWaitToo) {
  ASSERT_EQ(endpoint.ipcGetRetryRead(), 1);
  expectWaitOfASecond(endpoint);
}

}  // namespace
