#include "dch/net/channel.h"

#include <gtest/gtest.h>

#include "dch/store/memory_store.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/error_log.h"
#include "dch/testkit/loop_thread.h"
#include "dch/testkit/messages.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testkit::UdpClient;

TEST(ChannelTest, FindsTheEndOfAProgramWhoseSignalWasLost) {
  EventLoop loop;
  MemoryStore store;
  Counters counters;
  const testkit::ErrorLog log{false};
  const ActionRules actions{{{"succeed", {"/bin/true"}}}};
  ServedPort served = openPort({htonl(INADDR_LOOPBACK)}, 0);
  const int port = ntohs(served.address.port);
  Channel channel(loop, std::move(served), {}, store, actions, counters, log);
  channel.start();
  testkit::LoopThread thread(loop);
  const UdpClient client(port);
  client.send(testkit::actionMessage("succeed", 1));
  client.send(testkit::actionResultsMessage(1));
  std::optional<std::string> answer;
  EXPECT_TRUE(waitUntil([&] {
    thread.call([&] { channel.tick(); });
    constexpr int noWait = 0;
    answer = client.receive(noWait);
    return answer.has_value();
  }));
  EXPECT_EQ(testkit::statusOf(answer.value_or("")), 0);
}

}  // namespace
}  // namespace dch
