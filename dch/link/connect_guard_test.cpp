#include "dch/link/connect_guard.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

#include "dch/testkit/link_test.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/sockets.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {

// Both ends of a connection to the listener; the client's is inherited by programs that are
// started, as those are that the library for NATS opens.
struct ConnectionTo {
  explicit ConnectionTo(const StreamListener& listener)
      : client(listener.port()), server(listener) {
    fcntl(client.descriptor(), F_SETFD, 0);
    fcntl(server.descriptor(), F_SETFD, FD_CLOEXEC);
  }

  const StreamSocket client;
  const StreamSocket server;
};

TEST(ConnectGuardTest, ShutsDownWhatIsTooLongOnItsWayToThePort) {
  const StreamListener guarded;
  const StreamListener other;
  const ConnectionTo earlier(guarded);
  const ConnectGuard guard(guarded.port(), std::chrono::milliseconds(1));
  const ConnectionTo elsewhere(other);
  const ConnectionTo later(guarded);

  ASSERT_TRUE(waitUntil([&] { return guard.hasShutDown(); }, linkPatience));
  EXPECT_EQ(later.client.tryReceive(), "");
  for (const ConnectionTo* const each : {&earlier, &elsewhere}) {
    each->server.send("more");
    EXPECT_EQ(each->client.receive(4), "more");
  }
}

// Of two at a time none could tell whose a new socket is.
TEST(ConnectGuardTest, OneAtATimeHasAPort) {
  const StreamListener guarded;
  const StreamListener other;
  const ConnectGuard elsewhere(other.port(), std::chrono::milliseconds(1));
  std::atomic<int> here = 0;
  std::atomic<bool> areTwoHere = false;
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread)
      threads.emplace_back([&] {
        for (int count = 0; count < 25; ++count) {
          const ConnectGuard guard(guarded.port(), std::chrono::milliseconds(1));
          if (++here > 1) areTwoHere = true;
          std::this_thread::yield();
          --here;
        }
      });
  }
  EXPECT_FALSE(areTwoHere);
}

// Else it would take what is connected for what comes.
TEST(ConnectGuardTest, IsNotHadWhileItCannotSeeWhatIsConnected) {
  if (!canRunWithoutDescriptors) GTEST_SKIP() << "the sanitizers need descriptors of their own";
  const StreamListener guarded;
  const ConnectionTo earlier(guarded);
  for (const int room : {0, 1}) {
    const DescriptorLimit limit(room);
    EXPECT_THROW(ConnectGuard(guarded.port(), std::chrono::milliseconds(1)), std::system_error);
  }
  const ConnectGuard guard(guarded.port(), std::chrono::milliseconds(1));
}

// As a client's that has the number of the port by chance.
TEST(ConnectGuardTest, LeavesConnectionsAloneThatAreNotTheLibrarys) {
  const StreamListener guarded;
  const ConnectGuard guard(guarded.port(), std::chrono::milliseconds(1));
  const ConnectionTo ours(guarded);
  fcntl(ours.client.descriptor(), F_SETFD, FD_CLOEXEC);
  const ConnectionTo librarys(guarded);
  ASSERT_TRUE(waitUntil([&] { return librarys.client.tryReceive() == ""; }, linkPatience));
  ours.server.send("more");
  EXPECT_EQ(ours.client.receive(4), "more");
}

}  // namespace dch::testkit
