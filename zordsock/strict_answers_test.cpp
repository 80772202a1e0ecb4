// With ZOR0_STRICT_ANSWERS an answer is taken for its own request or not at all.
#include "zordsock/strict_answers.h"

#include <gmock/gmock.h>
#include <poll.h>

#include <atomic>
#include <set>
#include <thread>

#include "tests/support/descriptor_limit.h"
#include "tests/support/quickest.h"
#include "tests/support/trace_capture.h"
#include "zordsock/test_pool.h"
#include "zordsock/test_read.h"

namespace {

using testing::ElementsAre;

constexpr int answerSeconds = 20;

class StrictAnswers : public testing::Test {
 protected:
  StrictAnswers() { setenv("ZOR0_STRICT_ANSWERS", "Y", 1); }

  static int portOf(ipcSock& endpoint) { return ZOR0_RetrieveSockPort(endpoint.sockUDP()); }

  void request(ipcSock& endpoint) {
    std::string bytes = messageBytes(12, 12);
    ASSERT_EQ(endpoint.ipcWrite(bytes.data(), 12, 0), 12);
    ASSERT_EQ(dch.receive(), bytes);
  }

  void answer(ipcSock& endpoint, std::size_t size) {
    dch.sendTo(static_cast<unsigned short>(portOf(endpoint)),
               messageBytes(size, static_cast<unsigned>(size)));
  }

  static void waitUntilReadable(ipcSock& endpoint) {
    pollfd watched{endpoint.sockUDP(), POLLIN, 0};
    ASSERT_EQ(poll(&watched, 1, answerSeconds * 1000), 1);
  }

  static std::string thrownAwayLine(const ipcSock& endpoint, int bytes,
                                    const DatagramSocket& from) {
    return textOf("[@%p] Threw away %d bytes from 127.0.0.1[%d]: no answer to this request\n",
                  TRC1_Pointer(&endpoint), bytes, from.port());
  }

  DchSocket dch;
};

TEST_F(StrictAnswers, WhatLiesInTheSocketIsThrownAwayBeforeARequest) {
  Borrower borrower;
  ipcSock& endpoint = borrower.endpoint;
  request(endpoint);
  answer(endpoint, 20);
  waitUntilReadable(endpoint);
  const TraceCapture trace("*/ipcSock::ipcWrite=0x10");
  request(endpoint);
  EXPECT_TRUE(trace.has(thrownAwayLine(endpoint, 20, dch)));
  answer(endpoint, 30);
  EXPECT_EQ(readFrom(endpoint, answerSeconds).result, 30);
}

TEST_F(StrictAnswers, WhatLiesInTheSocketIsThrownAwayWithoutATraceToo) {
  Borrower borrower;
  ipcSock& endpoint = borrower.endpoint;
  request(endpoint);
  answer(endpoint, 20);
  waitUntilReadable(endpoint);
  request(endpoint);
  answer(endpoint, 30);
  EXPECT_EQ(readFrom(endpoint, answerSeconds).result, 30);
}

TEST_F(StrictAnswers, WhatLiesInTheSocketIsThrownAwayWithoutADescriptorForANewOne) {
  if (!canRunWithoutDescriptors) GTEST_SKIP() << "the sanitizer needs descriptors";
  Borrower borrower;
  ipcSock& endpoint = borrower.endpoint;
  request(endpoint);
  answer(endpoint, 20);
  waitUntilReadable(endpoint);
  {
    const DescriptorLimit none(0);
    request(endpoint);
  }
  answer(endpoint, 30);
  EXPECT_EQ(readFrom(endpoint, answerSeconds).result, 30);
}

// Such are those without names: they read an answer all the same.
TEST_F(StrictAnswers, ARequestThatSendsNothingGetsNoAnswer) {
  setPoolSize(1);
  {
    Borrower borrower;
    request(borrower.endpoint);
    answer(borrower.endpoint, 20);
    waitUntilReadable(borrower.endpoint);
  }
  Borrower next;
  next.endpoint.ipcSetRetryRead(0);
  EXPECT_EQ(readFrom(next.endpoint, 1).result, 0);
}

// The system may give the same port again, but not each time.
TEST_F(StrictAnswers, EachRequestLeavesFromAPortOfItsOwn) {
  Borrower borrower;
  ipcSock& endpoint = borrower.endpoint;
  std::set<int> ports;
  for (int i = 0; i < 10; ++i) {
    request(endpoint);
    ports.insert(portOf(endpoint));
  }
  EXPECT_GT(ports.size(), 7U);
}

TEST_F(StrictAnswers, WhatAStrangerSendsIsNoAnswer) {
  Borrower borrower;
  ipcSock& endpoint = borrower.endpoint;
  request(endpoint);
  const DatagramSocket stranger;
  for (const std::size_t size : {20U, 0U, 3U})
    stranger.sendTo(static_cast<unsigned short>(portOf(endpoint)),
                    messageBytes(size, static_cast<unsigned>(size)));
  answer(endpoint, 30);
  const TraceCapture trace("*/ipcSock::ipcRead=0x10");
  EXPECT_EQ(readFrom(endpoint, answerSeconds).result, 30);
  for (const int size : {20, 0, 3})
    EXPECT_TRUE(trace.has(thrownAwayLine(endpoint, size, stranger)));
}

TEST_F(StrictAnswers, AStrangerDoesNotSpoilAMessageOfSeveralDatagrams) {
  Borrower borrower;
  ipcSock& endpoint = borrower.endpoint;
  request(endpoint);
  const auto port = static_cast<unsigned short>(portOf(endpoint));
  const std::string message = messageBytes(100, 100);
  dch.sendTo(port, message.substr(0, 60));
  const DatagramSocket stranger;
  stranger.sendTo(port, messageBytes(40, 40));
  dch.sendTo(port, message.substr(60));
  const ReadOutcome outcome = readFrom(endpoint, answerSeconds);
  ASSERT_EQ(outcome.result, 40);
  EXPECT_EQ(outcome.message(100), message);
}

TEST_F(StrictAnswers, StrangersMakeNoWaitLonger) {
  Borrower borrower;
  ipcSock& endpoint = borrower.endpoint;
  // With a trace of each, so that to throw them away takes longer than to wait for them.
  const TraceCapture trace("*/ipcSock::ipcRead=0x10");
  const auto read = [&] {
    request(endpoint);
    const auto port = static_cast<unsigned short>(portOf(endpoint));
    std::atomic<bool> isRead{false};
    std::thread flood([&] {
      const DatagramSocket stranger;
      while (!isRead) stranger.sendTo(port, messageBytes(20, 20));
    });
    ReadOutcome outcome;
    const double took = secondsOf([&] { outcome = readFrom(endpoint, 1); });
    isRead = true;
    flood.join();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_FALSE(outcome.handedOver);
    TraceCapture::forget();
    return took;
  };
  EXPECT_LT(quickest(1.5, read), 1.5);
}

// While a socket rests the system gives its port to nobody, so the longer each rests the better.
TEST_F(StrictAnswers, TheSocketsOfThePoolTakeTurns) {
  setPoolSize(3);
  std::vector<ZORA_Long> descriptors;
  for (int i = 0; i < 6; ++i) descriptors.push_back(Borrower().endpoint.sockUDP());
  EXPECT_THAT(inUse(), ElementsAre(0, 0, 0));
  EXPECT_THAT(std::vector(descriptors.begin() + 3, descriptors.end()),
              ElementsAre(descriptors[0], descriptors[1], descriptors[2]));
  EXPECT_NE(descriptors[0], descriptors[1]);
  EXPECT_NE(descriptors[1], descriptors[2]);
}

TEST_F(StrictAnswers, ATurnPassesOverWhatIsTaken) {
  setPoolSize(2);
  const Borrower taken;
  const ZORA_Long other = Borrower().endpoint.sockUDP();
  EXPECT_NE(other, taken.endpoint.sockUDP());
  EXPECT_EQ(Borrower().endpoint.sockUDP(), other);
}

// A subscription hears the DCH at the port that it subscribed from.
TEST_F(StrictAnswers, TheSocketOfASubscriptionKeepsItsPortAndWhatLiesInIt) {
  ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
  request(endpoint);
  const int port = portOf(endpoint);
  answer(endpoint, 20);
  request(endpoint);
  EXPECT_EQ(portOf(endpoint), port);
  EXPECT_EQ(readFrom(endpoint, answerSeconds).result, 20);
  const DatagramSocket other;
  other.sendTo(static_cast<unsigned short>(port), messageBytes(21, 21));
  EXPECT_EQ(readFrom(endpoint, answerSeconds).result, 21);
}

TEST_F(StrictAnswers, AreSaidWhenTheSettingsAreRead) {
  const TraceCapture trace("*/ipcSock::getEnvVariables=0x10");
  const Borrower borrower;
  EXPECT_TRUE(trace.has("ZOR0_STRICT_ANSWERS is on\n"));
}

TEST_F(StrictAnswers, AreOffUnlessTheyAreAskedFor) {
  setenv("ZOR0_STRICT_ANSWERS", "no", 1);
  const TraceCapture trace("0x10");
  Borrower borrower;
  ipcSock& endpoint = borrower.endpoint;
  request(endpoint);
  const int port = portOf(endpoint);
  answer(endpoint, 20);
  request(endpoint);
  EXPECT_EQ(portOf(endpoint), port);
  answer(endpoint, 30);
  EXPECT_EQ(readFrom(endpoint, answerSeconds).result, 20) << "the answer to the first request";
  EXPECT_FALSE(trace.has("ZOR0_STRICT_ANSWERS is on\n"));
}

}  // namespace
