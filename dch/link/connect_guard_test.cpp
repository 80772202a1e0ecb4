#include "dch/link/connect_guard.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "dch/testkit/link_test.h"
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
