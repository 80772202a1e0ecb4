#include "dch/net/channel.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <list>
#include <memory>

#include "dch/testkit/channel_thread.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/recording_ports.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testkit::ChannelThread;
using testkit::TcpClient;
using testkit::UdpClient;

constexpr int noWait = 0;
constexpr std::size_t statusAnswerBytes = 14;

TEST(ChannelTest, FindsTheEndOfAProgramWhoseSignalWasLost) {
  ChannelThread server({}, std::make_unique<MemoryStore>(), {{{"succeed", {"/bin/true"}}}});
  const UdpClient client(server.port);
  client.send(testkit::actionMessage("succeed", 1));
  client.send(testkit::actionResultsMessage(1));
  std::optional<std::string> answer;
  EXPECT_TRUE(waitUntil([&] {
    server.thread->call([&] { server.channel.tick(); });
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

// A channel whose store keeps nothing until the test says so, with a source that has handle 1.
class SlowStoreChannelTest : public ::testing::Test {
 protected:
  SlowStoreChannelTest() {
    keep(testkit::registerMessage());
    keep(testkit::onlineMessage("HOSTMON", "load", "host1"));
  }

  void keep(const std::string& message) {
    const UdpClient client(_server.port);
    client.send(message);
    EXPECT_TRUE(comeToWait(1));
    conclude(1);
    EXPECT_TRUE(client.receive());
  }

  // Whether so many changes wait soon.
  bool comeToWait(std::size_t count) {
    return waitUntil([&] { return waiting() == count; });
  }
  // When the loop has had time for all that had come.
  std::size_t waiting() {
    std::size_t count = 0;
    for (int turn = 0; turn < 20; ++turn)
      count = _server.thread->call([this] { return _store->waiting(); });
    return count;
  }
  void conclude(std::size_t count) {
    _server.thread->call([this, count] {
      for (std::size_t i = 0; i < count && _store->waiting() > 0; ++i) _store->conclude();
      _server.channel.settle();
    });
  }

  // So many rows of the client are acknowledged, once: the next answer is that to a question.
  void expectAnswers(const UdpClient& client, std::size_t count) const {
    for (std::size_t i = 0; i < count; ++i)
      ASSERT_EQ(testkit::statusOf(client.receive().value_or("")), DCH_STATUS_OK) << i;
    EXPECT_EQ(testkit::statusOf(client.ask(testkit::unregisterMessage("NONE"))),
              DCH_STATUS_UNKNOWN_APPLICATION);
  }

  testkit::SlowStore* const _store = new testkit::SlowStore;
  ChannelThread _server{{}, std::unique_ptr<Store>(_store)};
};

TEST_F(SlowStoreChannelTest, TakesNothingWhileTenThousandChangesWaitAndLosesNone) {
  constexpr std::size_t most = 10'000, ofEach = 100;  // its system keeps as many answers
  const std::string row = testkit::dataMessage(1), question = testkit::unregisterMessage("NONE");
  const TcpClient connection(_server.port);
  ASSERT_TRUE(testkit::statusOf(connection.ask(question)));
  std::list<UdpClient> senders;
  while (senders.size() * ofEach < most) {
    senders.emplace_back(_server.port);
    for (std::size_t i = 0; i < ofEach; ++i) senders.back().send(row);
    ASSERT_TRUE(comeToWait(senders.size() * ofEach));
  }

  std::list<UdpClient> late;
  for (int i = 0; i < 10; ++i) late.emplace_back(_server.port).send(row);
  const UdpClient asker(_server.port);
  asker.send(question);
  connection.send(question + row);
  const TcpClient lateConnection(_server.port);
  lateConnection.send(question + row);
  for (const std::size_t left : {most, most - 1, most / 2 + 1}) {
    conclude(waiting() - left);
    EXPECT_EQ(waiting(), left);
    EXPECT_EQ(_server.counters[Counter::rowsReceived], most);
    EXPECT_EQ(asker.receive(noWait), std::nullopt);
    EXPECT_EQ(connection.receive(noWait), std::nullopt);
    EXPECT_EQ(lateConnection.receive(noWait), std::nullopt);
    ASSERT_FALSE(HasFailure());
  }

  conclude(1);
  const std::size_t all = most + late.size() + 2;
  ASSERT_TRUE(comeToWait(all - most / 2));
  EXPECT_EQ(testkit::statusOf(asker.receive().value_or("")), DCH_STATUS_UNKNOWN_APPLICATION);
  conclude(all - most / 2);
  for (const UdpClient& each : senders) expectAnswers(each, ofEach);
  for (const UdpClient& each : late) expectAnswers(each, 1);
  for (const TcpClient* each : {&connection, &lateConnection}) {
    each->send(question);
    for (const DCH_Status status :
         {DCH_STATUS_UNKNOWN_APPLICATION, DCH_STATUS_OK, DCH_STATUS_UNKNOWN_APPLICATION})
      EXPECT_EQ(testkit::statusOf(each->StreamSocket::receive(statusAnswerBytes)), status);
  }
  EXPECT_EQ(_server.counters[Counter::rowsReceived], all);
  EXPECT_EQ(_server.counters[Counter::rowsKept], all);
  for (const Counter lost :
       {Counter::datagramsThrownAway, Counter::answersDropped, Counter::changesNotKept})
    EXPECT_EQ(_server.counters[lost], 0u);
}

}  // namespace
}  // namespace dch
