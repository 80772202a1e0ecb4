// Rows, stamped, sent and answered: every outcome with its status, its result and its whole trace.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/fake_transport.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_row.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string oneAttribute = "0050 00000002 'a' 00 0051 00000002 'Dv'";
const TraceLine freed = storageLine("Deleting workBuffer @{address}\n");
const Lines rowWritten = {
    entryLine(),
    dumpLine("DUMP[46] of dp_data request.\n"),
    detailLine("Writing dp_data message. 46 bytes\n"),
};

TraceLine waiting(int seconds) {
  return detailLine(
      textOf("[@{address}] Waiting for dp_data response, timeout: %d seconds\n", seconds));
}

struct SendEnds {
  std::deque<std::string> answers;
  std::optional<ZORA_Long> writeResult;
  ZORA_Long timeout = 30;
};

// Sends a row and expects that its buffer is freed whatever happens.
void expectSent(const SendEnds& ends, ZORA_Long result, ZORA_Long status, const Lines& trace) {
  expectTrace("DCHclient::dp_data", [&] {
    FakedClient faked;
    faked.transport.answers = ends.answers;
    faked.transport.writeResult = ends.writeResult;
    faked.client._DCHtimeout = 99;  // not the one that rows use
    faked.client._ipcReadTimeout = ends.timeout;
    Row row;
    row.add(faked.client, "a", "v", 1, 'D');
    EXPECT_EQ(row.send(faked.client, 0x01020304, 0x0506), result);
    EXPECT_EQ(row.status, status);
    EXPECT_EQ(row.buffer, nullptr);
    EXPECT_EQ(faked.client._readBuffer, nullptr);
    EXPECT_THAT(faked.transport.written, ElementsAre(bytesOf("0000002e"
                                                             "0010 00000002 1030"
                                                             "0080 00000004 01020304"
                                                             "0070 00000002 0506" +
                                                             oneAttribute)));
    for (const ZORA_Long wait : faked.transport.waits) EXPECT_EQ(wait, ends.timeout);
    return trace;
  });
}

TEST(SendData, TellsTheAnsweredStatus) {
  for (const ZORA_Long status : {0, 105, -9})
    expectSent(
        {{statusAnswer(status)}, {}}, 0, status,
        rowWritten + Lines{freed, waiting(30), detailLine("Getting Status info.\n"),
                           detailLine(textOf(" returnStatus=%d\n", static_cast<int>(status))),
                           releasedLine(), exitLine(0)});
}

TEST(SendData, AFailedWriteIsStatusTwoWithoutAWait) {
  for (const ZORA_Long count : {-1, 0, 45}) {
    expectSent({{statusAnswer(0)}, count}, 1, 2,
               rowWritten + Lines{errorLine("Error: writing dp_data message to DCHserver\n"), freed,
                                  exitLine(1)});
    FakedClient faked;
    faked.transport.writeResult = count;
    Row row;
    row.add(faked.client, "a", "v", 1, 'D');
    row.send(faked.client);
    EXPECT_THAT(faked.transport.waits, IsEmpty());
  }
}

TEST(SendData, WithoutAWorkBufferSendsNothing) {
  expectTrace("DCHclient::dp_data", [] {
    FakedClient faked;
    Row row;
    EXPECT_EQ(row.send(faked.client), 1);
    EXPECT_EQ(row.status, 4);
    EXPECT_EQ(row.buffer, nullptr);
    EXPECT_THAT(faked.transport.written, IsEmpty());
    EXPECT_THAT(faked.transport.waits, IsEmpty());
    return Lines{entryLine(), errorLine("Error: freeing workBuffer storage.\n"), exitLine(1)};
  });
}

TEST(SendData, AFailedReadIsToldWhenTheReadTimeoutIsOneSecond) {
  for (const ZORA_Long timeout : {30, 2, 0, -1})
    expectSent({{}, {}, timeout}, 1, 5, rowWritten + Lines{freed, waiting(timeout), exitLine(1)});
  expectSent(
      {{}, {}, 1}, 1, 5,
      rowWritten + Lines{freed, waiting(1),
                         errorLine("Error: ipcRead with wait[1 second] failed\n"), exitLine(1)});
}

TEST(SendData, AnAnswerWithoutAStatusIsStatusOne) {
  const Lines waited = rowWritten + Lines{freed, waiting(30), detailLine("Getting Status info.\n")};
  expectSent({{wrongAnswer()}, {}}, 1, 1,
             waited + Lines{errorLine("Error: dataType of DCH_status missing: 32\n"),
                            releasedLine(), exitLine(1)});
  expectSent({{emptyAnswer()}, {}}, 1, 1,
             waited + Lines{errorLine("Error: dataType of DCH_status missing: 0\n"), releasedLine(),
                            exitLine(1)});
}

TEST(SendData, DumpsTheStampedRow) {
  FakedClient faked;
  Row row;
  row.add(faked.client, "a", "v", 1, 'D');
  const TraceCapture trace("0x04");
  row.send(faked.client, 0x01020304, 0x0506);
  const std::vector<std::string> texts = trace.texts();
  ASSERT_EQ(texts.size(), 1u + (46 + 15) / 16);
  EXPECT_EQ(texts[2],
            "0010  00 04 01 02 03 04 00 70 00 00 00 02 05 06 00 50  |.......p.......P|\n");
}

TEST(SendData, NegativeHandlesAndCodesAreStampedAsTheyAre) {
  FakedClient faked;
  Row row;
  row.add(faked.client, "a", "v", 1, 'D');
  row.send(faked.client, -2, -3);
  EXPECT_EQ(faked.transport.written.at(0).substr(18, 4), bytesOf("fffffffe"));
  EXPECT_EQ(faked.transport.written.at(0).substr(28, 2), bytesOf("fffd"));
}

// Behind the buffer there is other memory.
TEST(SendData, OfMoreThanItsBufferHoldsIsNotSent) {
  for (const std::uint32_t length : {4097u, 8192u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(length);
    FakedClient faked;
    Row row;
    row.add(faked.client, "a", "v", 1, 'D');
    const std::uint32_t word = htonl(length);
    std::memcpy(row.buffer, &word, sizeof word);
    const TraceCapture trace("0x84");
    EXPECT_EQ(row.send(faked.client, 1, 2), 1);
    EXPECT_EQ(row.status, 2);
    EXPECT_EQ(row.buffer, nullptr);
    EXPECT_THAT(faked.transport.written, IsEmpty());
    EXPECT_THAT(trace.texts(), ElementsAre("Error: dp_data message is longer than 4096 bytes\n"));
  }
}

}  // namespace
