// The parts of the server without memory, where that comes after something that cannot be undone.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <list>
#include <new>
#include <string>
#include <vector>

#include "dch/core/core.h"
#include "dch/core/log.h"
#include "dch/net/alarm.h"
#include "dch/net/child_programs.h"
#include "dch/net/port.h"
#include "dch/net/push_socket.h"
#include "dch/store/memory_store.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/error_log.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/recording_ports.h"
#include "tests/support/failing_calls.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

void refuseAllocation(int number) {
  planFault({SystemCall::memory, number, ENOMEM, ENOMEM});
}

TEST(Failures, ATextForALineIsCutShortWithoutMemory) {
  refuseAllocation(1);
  const std::string longText(100, 'x');
  const UnderTest underTest;
  EXPECT_EQ(printable(longText), "?");
  EXPECT_EQ(printable(longText), longText);
}

TEST(Failures, APortThatIsTakenForAMomentIsServed) {
  const int port = testkit::portToLeave();
  const FailingCall taken({.kind = SystemCall::bindSocket, .last = 5}, EADDRINUSE);
  EXPECT_EQ(ntohs(openPort({htonl(INADDR_LOOPBACK)}, port).address.port), port);
  EXPECT_GT(taken.count(), 5);
}

TEST(Failures, AnAlarmIsSetWithoutMemory) {
  constexpr std::size_t others = 1'000;
  EventLoop loop(others);
  std::list<Alarm> alarms;
  for (std::size_t i = 0; i < others + EventLoop::mostAlarms; ++i) alarms.emplace_back(loop, [] {});
  refuseAllocation(1);
  for (Alarm& each : alarms) {
    const UnderTest underTest;
    each.set(std::chrono::seconds(1));
  }
  EXPECT_FALSE(faultHappened());
  planFault({});
}

TEST(Failures, AProgramThatIsGivenUpDoesNotRun) {
  int givenUp = 0;
  for (int number = 1;; ++number) {
    ChildPrograms programs;
    refuseAllocation(number);
    try {
      const UnderTest underTest;
      EXPECT_EQ(programs.start(1, {"/bin/sleep", "1000"}), "");
    } catch (const std::bad_alloc&) {
      ++givenUp;
      EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "allocation " << number;
    }
    if (!faultHappened()) break;
  }
  EXPECT_GT(givenUp, 0);
  EXPECT_GT(wait(nullptr), 0);
}

// The port of a receiver that is there no more.
PeerAddress goneReceiver() {
  return testkit::UdpClient(testkit::noServer, testkit::portToLeave()).address();
}

// Lets the socket look until that is so: the system tells it at once or a moment later.
template <class Condition>
void collectGoneUntil(Condition isSo, PushSocket& socket, std::vector<PeerAddress>* gone) {
  EXPECT_TRUE(waitUntil([&] {
    socket.takeGone(gone);
    return isSo();
  }));
}

TEST(Failures, AReceiverThatIsGoneIsFoundAgainWhenThereWasNoMemory) {
  PushSocket socket(in_addr{htonl(INADDR_LOOPBACK)});
  const PeerAddress receiver = goneReceiver();
  std::vector<PeerAddress> gone;
  socket.push("row", receiver);
  refuseAllocation(1);
  {
    const UnderTest underTest;
    collectGoneUntil(faultHappened, socket, &gone);
  }
  EXPECT_TRUE(gone.empty());
  socket.push("row", receiver);
  collectGoneUntil([&] { return !gone.empty(); }, socket, &gone);
  EXPECT_EQ(gone, std::vector<PeerAddress>{receiver});
}

// Takes no memory.
struct CountingReceivers : Answers, RowsOut {
  void send(const Origin&, std::string_view message) noexcept override {
    if (testkit::statusOf(std::string(message)) == DCH_STATUS_OK) ++acknowledged;
  }
  bool push(std::string_view, const PeerAddress&) override { return ++pushed > 0; }
  void takeGone(std::vector<PeerAddress>*) override {}

  std::uint64_t acknowledged = 0;
  std::uint64_t pushed = 0;
};

// A core with rows on their way.
struct BusyCore {
  static constexpr std::uint16_t subscribers = 100;
  static constexpr std::uint64_t mostRows = Publications::mostReceivers / subscribers;

  explicit BusyCore(std::uint64_t rows) {
    receive(testkit::registerMessage());
    receive(testkit::onlineMessage("HOSTMON", "load", "host1"));
    Origin origin;
    for (origin.peer.port = 1; origin.peer.port <= subscribers; ++origin.peer.port)
      core.receive({testkit::subscribeMessage("HOSTMON", "load"), origin});
    receivers.acknowledged = 0;
    for (std::uint64_t i = 0; i < rows; ++i) receive(testkit::dataMessage(1));
  }

  void receive(const std::string& bytes) { core.receive({bytes, {}}); }

  const testkit::ErrorLog log{false};
  const ActionRules rules;
  Counters counters;
  CountingReceivers receivers;
  testkit::CountingTimer timer;
  testkit::RecordingPrograms programs;
  MemoryStore store;
  Core core{{receivers, receivers, store, timer, programs}, rules, counters, log};
};

// Returns how often there was no memory for another row.
int sendARowWithoutMemory(std::uint64_t rowsBefore) {
  const std::string row = testkit::dataMessage(1);
  for (int number = 1;; ++number) {
    BusyCore busy(rowsBefore);
    refuseAllocation(number);
    {
      const UnderTest underTest;
      busy.receive(row);
    }
    const bool happened = faultHappened();
    planFault({});
    busy.core.finishPublishing();
    const Counters& counters = busy.counters;
    EXPECT_EQ(busy.receivers.acknowledged, counters[Counter::rowsKept]) << "allocation " << number;
    EXPECT_GE(busy.receivers.acknowledged, rowsBefore) << "allocation " << number;
    EXPECT_EQ(busy.receivers.pushed + counters[Counter::pushesLost],
              counters[Counter::rowsKept] * BusyCore::subscribers)
        << "allocation " << number;
    if (!happened) return number - 1;
  }
}

TEST(Failures, ARowThatIsKeptIsAcknowledgedAndWhoItCannotBePassedOnToIsCounted) {
  EXPECT_GT(sendARowWithoutMemory(0), 2) << "it is to be passed on at once";
  EXPECT_GT(sendARowWithoutMemory(BusyCore::mostRows), 2) << "it has to wait";
  EXPECT_GT(sendARowWithoutMemory(BusyCore::mostRows + 1), 1) << "it waits behind another one";
}

}  // namespace
}  // namespace dch
