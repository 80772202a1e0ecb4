// The parts of the server without memory, where that comes after something that cannot be undone.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <list>
#include <new>
#include <string>
#include <vector>

#include "dch/core/log.h"
#include "dch/net/alarm.h"
#include "dch/net/child_programs.h"
#include "dch/net/push_socket.h"
#include "dch/testkit/clients.h"
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

TEST(Failures, AnAlarmIsSetWithoutMemory) {
  EventLoop loop;
  std::list<Alarm> alarms;
  for (std::size_t i = 0; i < EventLoop::mostAlarms; ++i) alarms.emplace_back(loop, [] {});
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

}  // namespace
}  // namespace dch
