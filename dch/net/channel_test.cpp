#include "dch/net/channel.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "dch/testkit/channel_thread.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testkit::ChannelThread;
using testkit::UdpClient;

TEST(ChannelTest, FindsTheEndOfAProgramWhoseSignalWasLost) {
  ChannelThread server({}, std::make_unique<MemoryStore>(), {{{"succeed", {"/bin/true"}}}});
  const UdpClient client(server.port);
  client.send(testkit::actionMessage("succeed", 1));
  client.send(testkit::actionResultsMessage(1));
  std::optional<std::string> answer;
  EXPECT_TRUE(waitUntil([&] {
    server.thread->call([&] { server.channel.tick(); });
    constexpr int noWait = 0;
    answer = client.receive(noWait);
    return answer.has_value();
  }));
  EXPECT_EQ(testkit::statusOf(answer.value_or("")), 0);
}

// One that serves all addresses of the machine and knows a source, with handle 1.
struct OpenChannel : ChannelThread {
  OpenChannel() : ChannelThread({}, std::make_unique<MemoryStore>(), {}, INADDR_ANY), client(port) {
    EXPECT_EQ(testkit::statusOf(client.ask(testkit::registerMessage())), DCH_STATUS_OK);
    const auto online =
        testkit::onlineAnswerOf(client.ask(testkit::onlineMessage("HOSTMON", "load", "host1")));
    EXPECT_EQ(online, (testkit::OnlineAnswer{DCH_STATUS_OK, 1}));
  }

  void drain() {
    thread->call([this] { channel.drain(); });
  }

  std::uint64_t subscriptions() {
    thread->call([this] { return channel.report(); });
    return counters[Counter::subscriptions];
  }

  const UdpClient client;
};

// Subscribes at one server in the name of another, of which it takes an address.
void subscribeInTheNameOf(const OpenChannel& other, OpenChannel& server) {
  const Descriptor forger(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  constexpr int on = 1;
  ASSERT_EQ(setsockopt(forger.get(), SOL_SOCKET, SO_REUSEPORT, &on, sizeof on), 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
  address.sin_port = htons(static_cast<std::uint16_t>(other.port));
  ASSERT_EQ(bind(forger.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(server.port));
  const std::string request = testkit::subscribeMessage("HOSTMON", "load");
  ASSERT_EQ(sendto(forger.get(), request.data(), request.size(), 0,
                   reinterpret_cast<const sockaddr*>(&address), sizeof address),
            static_cast<ssize_t>(request.size()));
  server.drain();
}

TEST(ChannelTest, TakesNoSubscriptionOfItsOwn) {
  OpenChannel server;
  subscribeInTheNameOf(server, server);
  EXPECT_EQ(server.subscriptions(), 0u);
  EXPECT_EQ(server.counters[Counter::notAllowed], 1u);
  EXPECT_EQ(testkit::statusOf(server.client.ask(testkit::dataMessage(1))), DCH_STATUS_OK);
  server.drain();
  EXPECT_EQ(server.counters[Counter::rowsReceived], 1u);
}

TEST(ChannelTest, DropsASubscriberThatIsAServer) {
  OpenChannel one, two;
  subscribeInTheNameOf(one, two);
  subscribeInTheNameOf(two, one);
  const UdpClient subscriber(one.port);
  subscriber.send(testkit::subscribeMessage("HOSTMON", "load"));
  one.drain();
  EXPECT_EQ(one.subscriptions(), 2u);
  EXPECT_EQ(two.subscriptions(), 1u);
  const std::string row = testkit::dataMessage(1);
  EXPECT_EQ(testkit::statusOf(one.client.ask(row)), DCH_STATUS_OK);
  EXPECT_TRUE(waitUntil([&] { return one.subscriptions() == 1 && two.subscriptions() == 0; }));
  EXPECT_EQ(one.counters[Counter::subscribersGone], 1u);
  EXPECT_EQ(two.counters[Counter::subscribersGone], 1u);
  EXPECT_EQ(subscriber.receive(), row);
}

TEST(ChannelTest, FindsThousandsOfSubscribersGone) {
  OpenChannel server;
  constexpr int count = 2'000;
  for (int i = 0; i < count; ++i) {
    UdpClient(server.port).send(testkit::subscribeMessage("HOSTMON", "load"));
    if (i % 100 == 0) server.drain();
  }
  server.drain();
  // A later one, or somebody else's, may have the port of one that is gone.
  EXPECT_GT(server.subscriptions(), count * 3 / 4u);
  server.thread->call([&] { server.channel.tick(); });
  EXPECT_TRUE(waitUntil([&] { return server.subscriptions() < count / 4u; }));
}

TEST(ChannelTest, LetsAStrangersAnswerPass) {
  OpenChannel server;
  const UdpClient subscriber(server.port);
  subscriber.send(testkit::subscribeMessage("HOSTMON", "load"));
  server.drain();
  server.client.send(testkit::dataMessage(1));
  sockaddr_in sender{};
  socklen_t length = sizeof sender;
  char row[100];
  ASSERT_GT(recvfrom(subscriber.descriptor(), row, sizeof row, 0,
                     reinterpret_cast<sockaddr*>(&sender), &length),
            0);
  const UdpClient stranger(ntohs(sender.sin_port));
  stranger.send(std::string("\0\0\0\x0e\0\x11\0\0\0\x04\0\0\0\0", 14));
  EXPECT_TRUE(waitUntil([&] { return server.counters[Counter::answersIgnored] == 1; }));
  EXPECT_EQ(server.subscriptions(), 1u);
}

}  // namespace
}  // namespace dch
