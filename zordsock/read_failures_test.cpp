// Reads whose waits run out, whose select() fails, or that find no memory.
#include <gmock/gmock.h>
#include <deque>
#include <optional>

#include "suite/descriptor_set.h"
#include "suite/sockets.h"
#include "tests/support/failing_calls.h"
#include "zordsock/test_read.h"

namespace {

enum class Wait { real, runsOut, isInterrupted, findsMemory };

constexpr long withoutLimit = -1;

bool hasMemoryForSet = true;

}  // namespace

extern "C" {

// bool ZOR0_DescriptorSet::reset(int)
bool __real__ZN18ZOR0_DescriptorSet5resetEi(ZOR0_DescriptorSet* set, int highest);
bool __wrap__ZN18ZOR0_DescriptorSet5resetEi(ZOR0_DescriptorSet* set, int highest);
bool __wrap__ZN18ZOR0_DescriptorSet5resetEi(ZOR0_DescriptorSet* set, int highest) {
  if (hasMemoryForSet) return __real__ZN18ZOR0_DescriptorSet5resetEi(set, highest);
  errno = ENOMEM;
  return false;
}

}  // extern "C"

namespace {

using testing::ElementsAre;

constexpr int waitSeconds = 5;

class FailingRead : public testing::Test {
 protected:
  FailingRead() {
    standIns.select = [this](int count, fd_set* readable, fd_set* writable, fd_set* failed,
                             timeval* timeout) {
      secondsGiven.push_back(timeout != nullptr ? static_cast<long>(timeout->tv_sec)
                                                : withoutLimit);
      switch (nextWait()) {
        case Wait::runsOut:
          EXPECT_NE(timeout, nullptr);
          *timeout = timeval{0, 0};
          return 0;
        case Wait::isInterrupted:
          errno = EINTR;
          return -1;
        case Wait::findsMemory:
          noMemory.reset();
          break;
        case Wait::real:
          break;
      }
      return __real_select(count, readable, writable, failed, timeout);
    };
    standIns.receiveFrom = [this](int socket, void* buffer, std::size_t size, int flags,
                                  sockaddr* sender, socklen_t* senderLength) {
      EXPECT_EQ(size, 8192U);
      EXPECT_EQ(*senderLength, 16U);
      if (datagramsUntilMemoryRunsOut > 0 && --datagramsUntilMemoryRunsOut == 0) noMemory.emplace();
      return __real_recvfrom(socket, buffer, size, flags, sender, senderLength);
    };
  }

  Wait nextWait() {
    if (waits.empty()) return Wait::real;
    const Wait next = waits.front();
    waits.pop_front();
    return next;
  }

  void send(const std::string& datagram) {
    dch.sendTo(ZOR0_RetrieveSockPort(endpoint.sockUDP()), datagram);
  }

  // A read during which the calls of select() do as told.
  ReadOutcome read(std::deque<Wait> script, ZORA_Long initialWait = waitSeconds) {
    waits = std::move(script);
    secondsGiven.clear();
    return readFrom(endpoint, initialWait);
  }

  void expectNothing(const ReadOutcome& outcome, ZORA_Long result) const {
    EXPECT_EQ(outcome.result, result);
    EXPECT_FALSE(outcome.handedOver);
    EXPECT_TRUE(waits.empty());
  }

  ReadLines lines() { return ReadLines(endpoint, waitSeconds); }

  // What the next calls of select() do; none left: the real one. And the seconds each was given.
  std::deque<Wait> waits;
  std::vector<long> secondsGiven;
  std::optional<NoMemory> noMemory;
  int datagramsUntilMemoryRunsOut = 0;  // 0: never
  DchSocket dch;
  ipcSock endpoint{SERVICE_UDP_CLIENT, 0, 0};
};

// ---- Waits that run out ------------------------------------------------------------------------

TEST_F(FailingRead, WithoutRetryGivesUpAfterTheFirstWait) {
  endpoint.ipcSetRetryRead(0);
  expectTrace("ipcSock::ipcRead", [&] {
    expectNothing(read({Wait::runsOut}), 0);
    EXPECT_THAT(secondsGiven, ElementsAre(5));
    return lines().notRetrying(0);
  });
}

TEST_F(FailingRead, ANegativeRetryIsNone) {
  endpoint.ipcSetRetryRead(-1);
  expectTrace("ipcSock::ipcRead", [&] {
    expectNothing(read({Wait::runsOut}), 0);
    return lines().notRetrying(0);
  });
}

TEST_F(FailingRead, RetriesOnceWithWhatIsLeftOfTheWait) {
  ASSERT_EQ(endpoint.ipcGetRetryRead(), 1);
  expectTrace("ipcSock::ipcRead", [&] {
    expectNothing(read({Wait::runsOut, Wait::runsOut}), 0);
    EXPECT_THAT(secondsGiven, ElementsAre(5, 0));
    return lines().tryingAgain().notRetrying(0);
  });
}

TEST_F(FailingRead, RetriesAsOftenAsItIsTold) {
  endpoint.ipcSetRetryRead(2);
  expectTrace("ipcSock::ipcRead", [&] {
    expectNothing(read({Wait::runsOut, Wait::runsOut, Wait::runsOut}), 0);
    EXPECT_THAT(secondsGiven, ElementsAre(5, 0, 0));
    return lines().tryingAgain().tryingAgain().notRetrying(0);
  });
}

TEST_F(FailingRead, FindsADatagramWhenItLooksAgain) {
  expectTrace("ipcSock::ipcRead", [&] {
    send(messageBytes(12, 12));
    const ReadOutcome outcome = read({Wait::runsOut});
    EXPECT_EQ(outcome.result, 12);
    return lines().tryingAgain().waited(1).received(12, 12).complete().ended(outcome);
  });
}

TEST_F(FailingRead, AGapInAMessageWithoutRetryGivesTheLastCountAndNoBuffer) {
  endpoint.ipcSetRetryRead(0);
  expectTrace("ipcSock::ipcRead", [&] {
    send(messageBytes(12, 40));
    expectNothing(read({Wait::real, Wait::runsOut}), 12);
    EXPECT_THAT(secondsGiven, ElementsAre(5, 10));
    return lines().waited(1).received(40, 12).notRetrying(12);
  });
}

TEST_F(FailingRead, AGapInAMessageIsWaitedForInFullAgain) {
  expectTrace("ipcSock::ipcRead", [&] {
    send(messageBytes(12, 40));
    expectNothing(read({Wait::real, Wait::runsOut, Wait::runsOut}), 12);
    EXPECT_THAT(secondsGiven, ElementsAre(5, 10, 10));
    return lines().waited(1).received(40, 12).tryingAgain().notRetrying(12);
  });
}

TEST_F(FailingRead, EveryWaitHasItsOwnRetries) {
  expectTrace("ipcSock::ipcRead", [&] {
    for (const int size : {12, 8, 20}) send(messageBytes(static_cast<std::size_t>(size), 40));
    const ReadOutcome outcome =
        read({Wait::runsOut, Wait::real, Wait::runsOut, Wait::real, Wait::runsOut, Wait::real});
    EXPECT_EQ(outcome.result, 20);
    EXPECT_THAT(secondsGiven, ElementsAre(5, 0, 10, 10, 10, 10));
    ReadLines expected = lines();
    for (const int size : {12, 8, 20}) expected.tryingAgain().waited(1).received(40, size);
    expected.complete().add(
        storageLine(textOf("Allocated 40 bytes for completeBuffer @%p\n", outcome.pointer)));
    int offset = 0;
    for (const int index : {0, 1, 2}) {
      const int size = index == 0 ? 12 : index == 1 ? 8 : 20;
      expected.add(detailLine(
          textOf("[%d] completeBuffer[@%p], offset[%d], buffer[{address}], dataLen[%d]\n", index,
                 outcome.pointer, offset, size)));
      offset += size;
    }
    for (const int index : {0, 1, 2})
      expected.add(storageLine(textOf("Deleting ipcBufArray[%i]: @{address}\n", index)));
    return expected.ended(outcome);
  });
}

TEST_F(FailingRead, OnlyTheFirstWaitCanBeWithoutLimit) {
  send(messageBytes(12, 24));
  send(messageBytes(12, 0));
  EXPECT_EQ(read({}, 0).result, 12);
  EXPECT_THAT(secondsGiven, ElementsAre(withoutLimit, 10));
}

// ---- A select() that fails ---------------------------------------------------------------------

TEST_F(FailingRead, ReceivesAfterAnInterruptedWait) {
  expectTrace("ipcSock::ipcRead", [&] {
    const std::string message = messageBytes(12, 12);
    send(message);
    const ReadOutcome outcome = read({Wait::isInterrupted});
    EXPECT_EQ(outcome.result, 12);
    EXPECT_EQ(outcome.message(12), message);
    return lines().waited(-1, EINTR).received(12, 12, EINTR).complete().ended(outcome);
  });
}

TEST_F(FailingRead, ReceivesWithoutMemoryForTheSetOfItsWait) {
  expectTrace("ipcSock::ipcRead", [&] {
    send(messageBytes(12, 12));
    hasMemoryForSet = false;
    const ReadOutcome outcome = read({});
    hasMemoryForSet = true;
    EXPECT_EQ(outcome.result, 12);
    EXPECT_TRUE(secondsGiven.empty());
    return lines().waited(-1, ENOMEM).received(12, 12, ENOMEM).complete().ended(outcome);
  });
}

// ---- Without memory ----------------------------------------------------------------------------

TraceLine noChunk() {
  return errorLine("Error: allocating 8192 bytes for ipcBuffer\n");
}

TEST_F(FailingRead, WaitsAgainWhenThereIsNoMemoryForAChunk) {
  expectTrace("ipcSock::ipcRead", [&] {
    const std::string message = messageBytes(12, 12);
    send(message);
    noMemory.emplace();
    const ReadOutcome outcome = read({Wait::real, Wait::real, Wait::findsMemory});
    EXPECT_EQ(outcome.result, 12);
    EXPECT_EQ(outcome.message(12), message);
    return lines()
        .waited(1)
        .add(noChunk())
        .waited(1)
        .add(noChunk())
        .waited(1)
        .received(12, 12)
        .complete()
        .ended(outcome);
  });
}

TEST_F(FailingRead, FailsWhenNothingMoreComesAfterALackOfMemory) {
  endpoint.ipcSetRetryRead(0);
  send(messageBytes(12, 12));
  expectTrace("ipcSock::ipcRead", [&] {
    noMemory.emplace();
    expectNothing(read({Wait::real, Wait::runsOut}), -1);
    noMemory.reset();
    return lines().waited(1).add(noChunk()).notRetrying(-1);
  });
}

TEST_F(FailingRead, FailsWhenThereIsNoMemoryToJoinAMessage) {
  expectTrace("ipcSock::ipcRead", [&] {
    send(messageBytes(12, 24));
    send(messageBytes(12, 0));
    datagramsUntilMemoryRunsOut = 2;
    const ReadOutcome outcome = read({});
    noMemory.reset();
    expectNothing(outcome, -1);
    EXPECT_EQ(NoMemory::lastRefusedBytes(), 24U);
    return lines()
        .waited(1)
        .received(24, 12)
        .waited(1)
        .received(24, 12)
        .complete()
        .add(errorLine("Error: allocating 24 bytes for completeBuffer\n"))
        .ended(outcome);
  });
}

}  // namespace
